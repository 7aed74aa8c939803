function cases = test_contract()
  % The host contract over Octave, through the probe extension: class tests, field and cell access at
  % and past the edges, text both ways, subscripts, ownership errors, and what leaves an entry.
  cases = struct('name', {'classes_and_shapes', 'objects_are_objects', 'field_access_never_crashes', ...
                          'object_fields_through_views', 'text_round_trips', 'invalid_text_is_refused', ...
                          'subscripts', 'stores_check_their_target', 'creators_normalise_and_check', ...
                          'exceptions_become_octave_errors', 'count_errors', 'release_is_octave'}, ...
                 'run', {@classes_and_shapes, @objects_are_objects, @field_access_never_crashes, ...
                         @object_fields_through_views, @text_round_trips, @invalid_text_is_refused, ...
                         @subscripts, @stores_check_their_target, @creators_normalise_and_check, ...
                         @exceptions_become_octave_errors, @count_errors, @release_is_octave});
end

function classes_and_shapes(~)
  % value, class id, predicates that must hold (all others false), element size
  table = {
    1:3,              'qxDOUBLE_CLASS',   {'isNumeric'},              8
    single(2),        'qxSINGLE_CLASS',   {'isNumeric'},              4
    int8([1 2; 3 4]), 'qxINT8_CLASS',     {'isNumeric'},              1
    uint64(7),        'qxUINT64_CLASS',   {'isNumeric'},              8
    [1+2i 3],         'qxDOUBLE_CLASS',   {'isNumeric', 'isComplex'}, 8
    true(2, 3),       'qxLOGICAL_CLASS',  {'isLogical'},              1
    'abc',            'qxCHAR_CLASS',     {'isChar'},                 1
    {1, 'a'},         'qxCELL_CLASS',     {'isCell'},                 0
    struct('a', {1, 2, 3}), 'qxSTRUCT_CLASS', {'isStruct'},           0
    @sin,             'qxFUNCTION_CLASS', {},                         0
    zeros(0, 3),      'qxDOUBLE_CLASS',   {'isNumeric', 'isEmpty'},   8
    cell(2, 0),       'qxCELL_CLASS',     {'isCell', 'isEmpty'},      0
    struct([]),       'qxSTRUCT_CLASS',   {'isStruct', 'isEmpty'},    0
    '',               'qxCHAR_CLASS',     {'isChar', 'isEmpty'},      1
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
  assert(zvhost_probe('classify', 'A').scalar, double('A'));
  assert(zvhost_probe('classify', {}).scalar, 0);
end

function objects_are_objects(~)
  m = containers.Map();
  for value = {LicenceObject('t', 'x'), legacy_licence('t', 'x'), m}
    c = zvhost_probe('classify', value{1});
    check_equal(c.classID, 'qxOBJECT_CLASS', class(value{1}));
    assert(c.className, class(value{1}));
    check_equal([c.isObject c.isStruct c.isCell c.isNumeric], [true false false false], class(value{1}));
  end
  check_equal(zvhost_probe('object'), true, 'objects cannot be made from bare storage in Octave');
end

function field_access_never_crashes(~)
  s = struct('a', {1, 'two'}, 'b', {{}, 3});
  assert(zvhost_probe('field', s, 1, 'a'), 'two');
  assert(zvhost_probe('fieldByNumber', s, 0, 1), {});
  % past the last element, missing names, bad numbers, and values that are no structure at all
  absent = {
    {'field', s, 2, 'a'}
    {'field', s, 1e6, 'b'}
    {'field', s, 0, 'missing'}
    {'fieldByNumber', s, 0, 2}
    {'fieldByNumber', s, 0, -1}
    {'field', struct('a', {}), 0, 'a'}
    {'field', 5, 0, 'a'}
    {'field', 'text', 0, 'a'}
    {'field', {struct('a', 1)}, 0, 'a'}
    {'field', @sin, 0, 'a'}
    {'fieldByNumber', int8(1), 0, 0}
    {'cell', {1, 2}, 2}
    {'cell', struct('a', 1), 0}
    {'cell', 'ab', 0}
  };
  for k = 1:numel(absent)
    check_equal(zvhost_probe(absent{k}{:}), false, sprintf('case %d', k));
  end
  [names, edgesAbsent] = zvhost_probe('fieldNames', s);
  assert(names, fieldnames(s)');
  assert(edgesAbsent, true);
  [names, edgesAbsent] = zvhost_probe('fieldNames', 42);
  assert(names, cell(1, 0));
  assert(edgesAbsent, true);
end

function object_fields_through_views(~)
  for obj = {LicenceObject('MIT', 'Permission ✓'), legacy_licence('MIT', 'Permission ✓')}
    check_equal(zvhost_probe('field', obj{1}, 0, 'type'), 'MIT', class(obj{1}));
    check_equal(zvhost_probe('field', obj{1}, 0, 'text'), 'Permission ✓', class(obj{1}));
    check_equal(zvhost_probe('field', obj{1}, 1, 'type'), false, class(obj{1}));
    check_equal(sort(zvhost_probe('fieldNames', obj{1})), {'text', 'type'}, class(obj{1}));
  end
  % Fields cannot be stored into an object: what is read is a view of it.
  expect_error(@() zvhost_probe('setFieldOn', LicenceObject('a', 'b'), 'type'), 'zvhost:notContainer');
  % An error raised by Octave while the object is read reaches Octave as it is.
  expect_error(@() zvhost_probe('field', FailingObject(), 0, 'type'), 'fixture:getter');
end

function text_round_trips(~)
  samples = {'', 'plain', 'Grüße', 'ŝŝ ✓ 日本語', '𝄞 𝟘 😀', sprintf('tab\tnew\nline'), ['nul' char(0) 'inside']};
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
  astral = zvhost_probe('fromUnits', uint16([hex2dec('D834') hex2dec('DD1E')]));
  assert(astral, '𝄞');
  assert(zvhost_probe('createString', 'Ünïcode ✓'), 'Ünïcode ✓');
end

function invalid_text_is_refused(~)
  bad = {char([195 40]), char([237 160 128]), char(255), ['ok' char(192)]};
  for k = 1:numel(bad)
    expect_error(@() zvhost_probe('text', bad{k}), 'zvhost:invalidText');
    expect_error(@() zvhost_probe('createString', bad{k}), 'zvhost:invalidText');
  end
  expect_error(@() zvhost_probe('fromUnits', uint16(hex2dec('D800'))), 'zvhost:invalidText');
  expect_error(@() zvhost_probe('fromUnits', uint16([65 hex2dec('DC00')])), 'zvhost:invalidText');
  for notText = {5, {'a'}, struct('a', 'b'), true}
    expect_error(@() zvhost_probe('text', notText{1}), 'zvhost:notString');
  end
end

function subscripts(~)
  s = struct('name', {'a', 'b', 'c', 'd'});
  s = reshape(s, 2, 2);
  assert(zvhost_probe('subsref', s, uint64(3)), s(3));
  assert(zvhost_probe('subsref', s, 2, 2), s(2, 2));
  assert(zvhost_probe('subsref', s, int8(1), single(2)), s(1, 2));
  assert(zvhost_probe('subsref', {10, 'x', {}}, 2), {'x'});
  assert(zvhost_probe('subsref', int16([5 6 7]), 3), int16(7));
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
  for bad = {0, -1, 1.5, NaN, Inf, 'a', [1 2], 1i, int8(0), {1}, []}
    expect_error(@() zvhost_probe('subsref', s, bad{1}), 'zvhost:badSubscript');
  end
  expect_error(@() zvhost_probe('subsref', s, 5), 'zvhost:indexOutOfBounds');
  expect_error(@() zvhost_probe('subsref', s, 3, 1), 'zvhost:indexOutOfBounds');
  expect_error(@() zvhost_probe('subsref', s, uint64(2)^63), 'zvhost:indexOutOfBounds');
  expect_error(@() zvhost_probe('subsref', @sin, 1), 'zvhost:badSubscript');
  expect_error(@() zvhost_probe('subsref', s), 'zvhost:badSubscript');
end

function stores_check_their_target(~)
  c = zvhost_probe('setCell', 3, 1);
  assert(size(c), [1 3]);
  check_equal(c{2}, 'second', 'a stored value replaces the one before');
  assert(isempty(c{1}) && isempty(c{3}), 'unset cells read as empty');
  s = zvhost_probe('setField', {'x', 'y'}, 2, 1, 'y');
  assert(size(s), [1 2]);
  assert(s(2).y, 'value');
  assert(isempty(s(1).y) && isempty(s(2).x));
  expect_error(@() zvhost_probe('setCell', 2, 2), 'zvhost:indexOutOfBounds');
  expect_error(@() zvhost_probe('setField', {'x'}, 1, 1, 'x'), 'zvhost:indexOutOfBounds');
  expect_error(@() zvhost_probe('setField', {'x'}, 1, 0, 'nope'), 'zvhost:noSuchField');
  for target = {5, 'text', {1}}
    expect_error(@() zvhost_probe('setFieldOn', target{1}, 'a'), 'zvhost:notContainer');
  end
  [n, grown] = zvhost_probe('addField', struct('a', {1, 2}), 'b');
  assert(n, 1);
  assert(fieldnames(grown), {'a'; 'b'});
  check_equal(zvhost_probe('addField', struct('a', 1), 'a'), 0, 'an existing field keeps its number');
  for refused = {{struct('a', 1), '1bad'}, {struct('a', 1), ''}, {5, 'a'}, {LicenceObject(), 'extra'}}
    assert(zvhost_probe('addField', refused{1}{:}), -1);
  end
end

function creators_normalise_and_check(~)
  shapes = {[], [1 1]; 5, [5 1]; [2 3 1 1], [2 3]; [2 1 4], [2 1 4]; [0 3], [0 3]};
  for k = 1:rows(shapes)
    [dims, expected] = shapes{k, :};
    assert(size(zvhost_probe('numeric', 'qxINT32_CLASS', dims, false)), expected);
    assert(size(zvhost_probe('containers', 'cell', dims)), expected);
    assert(size(zvhost_probe('containers', 'logical', dims)), expected);
    assert(size(zvhost_probe('structArray', {'a', 'b'}, dims)), expected);
  end
  assert(class(zvhost_probe('numeric', 'qxUINT16_CLASS', [1 2], false)), 'uint16');
  assert(class(zvhost_probe('numeric', 'qxSINGLE_CLASS', [1 1], true)), 'single');
  assert(class(zvhost_probe('containers', 'char', [1 3])), 'char');
  check_equal(fieldnames(zvhost_probe('structArray', {'b', 'a'}, [1 1])), {'b'; 'a'}, 'field order is kept');
  for notNumeric = {'qxCHAR_CLASS', 'qxCELL_CLASS', 'qxLOGICAL_CLASS', 'qxOBJECT_CLASS'}
    expect_error(@() zvhost_probe('numeric', notNumeric{1}, [1 1], false), 'zvhost:invalidClass');
  end
  for badNames = {{'1a'}, {'a', 'a'}, {'a b'}, {''}, {'_x'}}
    expect_error(@() zvhost_probe('structArray', badNames{1}, [1 1]), 'zvhost:invalidFieldName');
  end
  expect_error(@() zvhost_probe('numeric', 'qxDOUBLE_CLASS', [2^62 4], false), 'zvhost:outOfMemory');
end

function exceptions_become_octave_errors(~)
  err = expect_error(@() zvhost_probe('throw', 'std'), 'zvhost:unexpectedException');
  assert(!isempty(strfind(err.message, 'probe failure')), err.message);
  expect_error(@() zvhost_probe('throw', 'bad_alloc'), 'zvhost:outOfMemory');
  expect_error(@() zvhost_probe('throw', 'other'), 'zvhost:unexpectedException');
  err = expect_error(@() zvhost_probe('throw', 'octave'), 'probe:octave');
  check_equal(err.message, 'an error of Octave''s own', 'Octave''s error passes untouched');
  % Octave is still whole after each of them.
  assert(zvhost_probe('text', 'alive'), 'alive');
end

function count_errors(~)
  ids = {'maxlhs', 'zvhost:tooManyOutputs'; 'maxrhs', 'zvhost:tooManyInputs'; 'minrhs', 'zvhost:notEnoughInputs'};
  for k = 1:rows(ids)
    err = expect_error(@() zvhost_probe('counts', ids{k, 1}), ids{k, 2});
    assert(isempty(strfind(err.message, 'zvhost_probe')), 'no entry name before the message');
  end
end

function release_is_octave(~)
  [release, version] = zvhost_probe('release');
  assert(version, OCTAVE_VERSION);
  assert(release, ['Octave ' OCTAVE_VERSION]);
end
