function cases = test_contract()
  % The host contract over Octave, through the probe extension: class tests, text both ways,
  % subscripts, and exceptions that leave an entry. (Fields, cells, objects and argument counts are
  % met by every gateway call of the other suites.)
  cases = struct('name', {'classes_and_shapes', 'text_round_trips', 'invalid_text_is_refused', 'subscripts', ...
                          'exceptions_become_octave_errors'}, ...
                 'run', {@classes_and_shapes, @text_round_trips, @invalid_text_is_refused, @subscripts, ...
                         @exceptions_become_octave_errors});
end

function classes_and_shapes(~)
  % value, class id, predicates that must hold (all others false), element size
  table = {
    1:3,              'qxDOUBLE_CLASS',   {'isNumeric'},              8
    uint64(7),        'qxUINT64_CLASS',   {'isNumeric'},              8
    [1+2i 3],         'qxDOUBLE_CLASS',   {'isNumeric', 'isComplex'}, 8
    true(2, 3),       'qxLOGICAL_CLASS',  {'isLogical'},              1
    'abc',            'qxCHAR_CLASS',     {'isChar'},                 1
    {1, 'a'},         'qxCELL_CLASS',     {'isCell'},                 0
    struct('a', {1, 2, 3}), 'qxSTRUCT_CLASS', {'isStruct'},           0
    @sin,             'qxFUNCTION_CLASS', {},                         0
    cell(2, 0),       'qxCELL_CLASS',     {'isCell', 'isEmpty'},      0
    struct([]),       'qxSTRUCT_CLASS',   {'isStruct', 'isEmpty'},    0
  };
  predicates = {'isStruct', 'isObject', 'isCell', 'isChar', 'isLogical', 'isNumeric', 'isComplex', 'isEmpty'};
  for k = 1:rows(table)
    [value, id, holds, elementSize] = table{k, :};
    c = zvhost_probe('classify', value);
    what = sprintf('case %d (%s)', k, class(value));
    check_equal(c.classID, id, what);
    check_equal(c.className, class(value), what);
    for p = predicates
      check_equal(c.(p{1}), any(strcmp(p{1}, holds)), [what ' ' p{1}]);
    end
    check_equal(c.numel, numel(value), what);
    check_equal(c.dims, size(value), what);
    dims = size(value);
    check_equal([c.m c.n], [dims(1) prod(dims(2:end))], what);
    check_equal(c.elementSize, elementSize, what);
    check_equal(c.hasData, elementSize > 0 && !isempty(value), what);
  end
  assert(zvhost_probe('classify', int16(-7)).scalar, -7);
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

function subscripts(~)
  s = struct('name', {'a', 'b', 'c', 'd'});
  s = reshape(s, 2, 2);
  assert(zvhost_probe('subsref', s, uint64(3)), s(3));
  assert(zvhost_probe('subsref', s, int8(1), single(2)), s(1, 2));
  assert(zvhost_probe('subsref', {10, 'x', {}}, 2), {'x'});
  check_equal(zvhost_probe('subsref', reshape(1:24, 2, 3, 4), 2, 7), 14, 'last subscript runs over the rest');
  assert(zvhost_probe('subsref', [1+2i 3-4i], 2), 3 - 4i);
  r(1) = RevisionObject('d1', 'v1', 'x');
  r(2) = RevisionObject('d2', 'v2', 'y');
  second = zvhost_probe('subsref', r, 2);
  assert(class(second), 'RevisionObject');
  assert(second.version, 'v2');
  legacy = zvhost_probe('subsref', legacy_licence('t', 'x'), 1);
  assert(class(legacy), 'legacy_licence');
  assert(struct(legacy), struct('type', 't', 'text', 'x'));
  % bad subscripts, then positions out of range
  for bad = {0, 1.5, NaN, 'a', [1 2], 1i, {1}}
    expect_error(@() zvhost_probe('subsref', s, bad{1}), 'zvhost:badSubscript');
  end
  expect_error(@() zvhost_probe('subsref', s, 5), 'zvhost:indexOutOfBounds');
  expect_error(@() zvhost_probe('subsref', s, uint64(2)^63), 'zvhost:indexOutOfBounds');
  expect_error(@() zvhost_probe('subsref', s), 'zvhost:badSubscript');
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
