function cases = test_frame()
  % What every gateway function shares, checked for all 24 from Octave: argument counts, the path, the
  % structure check, a missing package, a corrupt package, and the identifiers and texts that reach
  % Octave.
  cases = struct('name', {'argument_counts', 'path_must_be_text', 'non_struct_metadata', ...
                          'empty_metadata_of_each_kind', 'missing_package', 'corrupt_package', ...
                          'create_failure', 'entries_reload_after_clear'}, ...
                 'run', {@argument_counts, @path_must_be_text, @non_struct_metadata, ...
                         @empty_metadata_of_each_kind, @missing_package, @corrupt_package, ...
                         @create_failure, @entries_reload_after_clear});
end

function argument_counts(work)
  for f = gateway_functions(work)'
    % outputs are counted first, even when the inputs are wrong too
    err = expect_error(@() call_with(f.fn, f.maxOut + 1, {}), 'zvhost:tooManyOutputs');
    assert(!strncmp(err.message, f.name, numel(f.name)), [f.name ': the entry name precedes the message']);
    expect_error(@() call_with(f.fn, 0, repmat({'x'}, 1, f.nIn + 1)), 'zvhost:tooManyInputs');
    expect_error(@() call_with(f.fn, f.maxOut, repmat({'x'}, 1, f.nIn - 1)), 'zvhost:notEnoughInputs');
  end
end

function path_must_be_text(work)
  notText = {42, {'a.zvaddon'}, []};
  for f = gateway_functions(work)'
    for k = 1:numel(notText)
      expect_error(@() call_with(f.fn, 0, [notText(k) f.args]), 'zvhost:notString');
    end
    expect_error(@() call_with(f.fn, 0, [{char([97 255 98])} f.args]), 'zvhost:invalidText');
  end
end

function non_struct_metadata(work)
  package = new_package(work);
  before = read_bytes(package);
  setters = {@zvAddonCreate, @zvAddonSetProperties, @zvAddonSetRevisionHistory, @zvAddonSetAppInstallList, ...
             @zvAddonSetExamples, @zvAddonSetSystemRequirements, @zvAddonSetLicense, @zvAddonSetConfiguration};
  values = {5, 'text', {1, 2}, {struct('a', 1)}};
  for s = setters
    for v = values
      err = expect_error(@() s{1}(package, v{1}), key_id('ZVADDON_BUILTINS_ERROR_NON_STRUCT'));
      check_equal(err.message, catalogue_message('ZVADDON_BUILTINS_ERROR_NON_STRUCT'), func2str(s{1}));
    end
  end
  check_equal(read_bytes(package), before, 'the refused calls left the package as it was');
end

function empty_metadata_of_each_kind(work)
  package = new_package(work);
  empties = {[], '', {}, cell(0, 3), int8([]), false(0, 1), struct([]), struct('a', {})};
  lists = {@zvAddonSetRevisionHistory, @zvAddonGetRevisionHistory, {'date'; 'version'; 'description'}
           @zvAddonSetAppInstallList, @zvAddonGetAppInstallList, {'name'; 'guid'; 'relativePath'; 'installByDefault'}
           @zvAddonSetExamples, @zvAddonGetExamples, {'name'; 'examples'}};
  for k = 1:numel(empties)
    what = sprintf('empty %s %s', class(empties{k}), mat2str(size(empties{k})));
    for r = 1:rows(lists)
      lists{r, 1}(package, empties{k});
      got = lists{r, 2}(package);
      check_equal(numel(got), 0, [what ' ' func2str(lists{r, 2})]);
      check_equal(fieldnames(got), lists{r, 3}, [what ' ' func2str(lists{r, 2})]);
    end
    zvAddonSetSystemRequirements(package, empties{k});
    platforms = zvAddonGetSystemRequirements(package).platformCompatibility;
    check_equal(platforms, struct('win', 'true', 'linux', 'true', 'mac', 'true', 'ZORVANOnline', 'true'), what);
    % Records that read their fields unconditionally pass the structure check and then meet the host's
    % string conversion of a field that is not there.
    for s = {@zvAddonSetLicense, @zvAddonSetProperties, @zvAddonSetConfiguration}
      expect_error(@() s{1}(package, empties{k}), 'zvhost:notString');
    end
  end
end

function missing_package(work)
  missing = fullfile(work, 'nö such 100%s päckage 𝄞.zvaddon');
  key = 'ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND';
  for f = gateway_functions(work)'
    if any(strcmp(f.name, {'zvAddonCreate', 'zvAddonComputeHash'}))
      continue;
    end
    err = expect_error(@() call_with(f.fn, 0, [{missing} f.args]), key_id(key));
    check_equal(err.message, catalogue_message(key, missing), f.name);
  end
  assert(!exist(missing, 'file'), 'nothing was created');
end

function corrupt_package(work)
  valid = read_bytes(new_package(work, 'valid.zvaddon'));
  corrupt = {'garbage.zvaddon', uint8('this is no zip archive at all')
             'truncated.zvaddon', valid(1:floor(end / 2))};
  for c = 1:rows(corrupt)
    package = fullfile(work, corrupt{c, 1});
    write_file(package, corrupt{c, 2});
    for f = gateway_functions(work)'
      if any(strcmp(f.name, {'zvAddonCreate', 'zvAddonComputeHash'}))
        continue;
      end
      err = expect_error(@() call_with(f.fn, 0, [{package} f.args]), key_id(['ZVADDON_BUILTINS_ERROR_' f.key]));
      % the two keys with a third argument: the image comes before the package, the folder after it
      switch f.key
        case 'SET_SCREENSHOT'
          messageArgs = {f.args{1}, package};
        case 'EXTRACT_ALL_FILES'
          messageArgs = {package, f.args{1}};
        otherwise
          messageArgs = {package};
      end
      prefix = catalogue_prefix(["ZVADDON_BUILTINS_ERROR_" f.key], messageArgs{:});
      assert(strncmp(err.message, prefix, numel(prefix)), sprintf('%s on %s: %s', f.name, corrupt{c, 1}, err.message));
      assert(numel(err.message) > numel(prefix), [f.name ': the OPC message is missing']);
      check_equal(read_bytes(package), corrupt{c, 2}, [f.name ' changed ' corrupt{c, 1}]);
    end
  end
end

function create_failure(work)
  key = 'ZVADDON_BUILTINS_ERROR_CREATE';
  for path = {fullfile(work, 'no folder', 'a.zvaddon'), work}
    err = expect_error(@() zvAddonCreate(path{1}, base_properties()), key_id(key));
    prefix = catalogue_prefix(key, path{1});
    assert(strncmp(err.message, prefix, numel(prefix)), err.message);
  end
end

function entries_reload_after_clear(work)
  % Octave drops its extension files on "clear mex"; the next call loads them again over the same
  % process-wide state.
  package = new_package(work);
  zvAddonSetSystemRequirements(package, struct());
  for k = 1:3
    zvAddonSign(package);
    check_equal(zvAddonGetProperties(package).name, base_properties().name, sprintf('round %d', k));
    clear mex;
  end
end
