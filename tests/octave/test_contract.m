function test_contract(probeDir)
  % The host contract over Octave, through the probe extension: text both ways, invalid text refused,
  % and exceptions that leave an entry turned into Octave errors. (Classes, fields, cells, objects and
  % argument counts are met by the gateway calls of test_calls.)
  addpath(probeDir);
  for sample = {'', 'ŝŝ ✓ 日本語', '𝄞 𝟘 😀', ['nul' char(0) 'inside']}
    [back, units, viaTerminated] = zvhost_probe('text', sample{1});
    % text comes back as a 1xN row, also when empty; the terminated creator ends at the first null
    check(back, reshape(sample{1}, 1, []));
    check(units, reshape(typecast(unicode2native(sample{1}, 'UTF-16LE'), 'uint16'), 1, []));
    check(viaTerminated, strtok(sample{1}, char(0)));
  end
  assert(zvhost_probe('createString', 'Ünïcode ✓'), 'Ünïcode ✓');
  for bad = {char([195 40]), char([237 160 128]), ['ok' char(192)]}
    expect_error(@() zvhost_probe('text', bad{1}), 'zvhost:invalidText');
    expect_error(@() zvhost_probe('createString', bad{1}), 'zvhost:invalidText');
  end
  for notText = {5, {'a'}, struct('a', 'b')}
    expect_error(@() zvhost_probe('text', notText{1}), 'zvhost:notString');
  end
  err = expect_error(@() zvhost_probe('throw', 'std'), 'zvhost:unexpectedException');
  assert(!isempty(strfind(err.message, 'probe failure')), err.message);
  expect_error(@() zvhost_probe('throw', 'bad_alloc'), 'zvhost:outOfMemory');
  err = expect_error(@() zvhost_probe('throw', 'octave'), 'probe:octave');
  assert(err.message, 'an error of Octave''s own');
  expect_error(@() zvhost_probe('throw', 'other'), 'zvhost:unexpectedException');
  % Octave is still whole after each of them.
  assert(zvhost_probe('text', 'alive'), 'alive');
end
