function cases = test_contract()
  % The host contract over Octave, through the probe extension: text both ways, and exceptions that
  % leave an entry. (Classes, fields, cells, subscripts of object arrays and argument counts are met
  % by the gateway calls of the other suites.)
  cases = struct('name', {'text_round_trips', 'invalid_text_is_refused', 'exceptions_become_octave_errors'}, ...
                 'run', {@text_round_trips, @invalid_text_is_refused, @exceptions_become_octave_errors});
end

function text_round_trips(~)
  samples = {'', 'ŝŝ ✓ 日本語', '𝄞 𝟘 😀', ['nul' char(0) 'inside']};
  for k = 1:numel(samples)
    [back, units, viaTerminated] = zvhost_probe('text', samples{k});
    expected = typecast(unicode2native(samples{k}, 'UTF-16LE'), 'uint16');
    % text comes back as a 1xN row, also when empty
    check_equal(back, reshape(samples{k}, 1, []), sprintf('sample %d', k));
    check_equal(units, reshape(expected, 1, []), sprintf('sample %d', k));
    % the terminated creator ends at the first null
    cut = find(samples{k} == 0, 1);
    if isempty(cut)
      assert(viaTerminated, reshape(samples{k}, 1, []));
    else
      assert(viaTerminated, samples{k}(1:cut - 1));
    end
  end
  assert(zvhost_probe('createString', 'Ünïcode ✓'), 'Ünïcode ✓');
end

function invalid_text_is_refused(~)
  bad = {char([195 40]), char([237 160 128]), ['ok' char(192)]};
  for k = 1:numel(bad)
    expect_error(@() zvhost_probe('text', bad{k}), 'zvhost:invalidText');
    expect_error(@() zvhost_probe('createString', bad{k}), 'zvhost:invalidText');
  end
  for notText = {5, {'a'}, struct('a', 'b')}
    expect_error(@() zvhost_probe('text', notText{1}), 'zvhost:notString');
  end
end

function exceptions_become_octave_errors(~)
  err = expect_error(@() zvhost_probe('throw', 'std'), 'zvhost:unexpectedException');
  assert(!isempty(strfind(err.message, 'probe failure')), err.message);
  expect_error(@() zvhost_probe('throw', 'bad_alloc'), 'zvhost:outOfMemory');
  err = expect_error(@() zvhost_probe('throw', 'octave'), 'probe:octave');
  check_equal(err.message, 'an error of Octave''s own', 'Octave''s error passes untouched');
  % Octave is still whole after each of them.
  assert(zvhost_probe('text', 'alive'), 'alive');
end
