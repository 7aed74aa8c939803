function cases = test_content()
  % The functions that move bytes: content files and folders, extraction, the screenshot, instruction
  % sets, signing and the content hash, checked against the files themselves.
  cases = struct('name', {'files_folders_and_extraction', 'inputs_that_add_nothing', 'screenshot', ...
                          'instruction_sets', 'sign', 'content_hash'}, ...
                 'run', {@files_folders_and_extraction, @inputs_that_add_nothing, @screenshot, ...
                         @instruction_sets, @sign, @content_hash});
end

function files_folders_and_extraction(work)
  package = new_package(work);
  sources = {'main.m', sprintf('x = 1;\n')
             'sub/data ünï.bin', uint8(0:255)
             'sub/deep/𝄞 notes.txt', 'notes'};
  for k = 1:rows(sources)
    write_file(fullfile(work, 'src', sources{k, 1}), sources{k, 2});
  end
  zvAddonAddFiles(package, fullfile(work, 'src', 'main.m'), 'main.m');
  zvAddonAddFiles(package, fullfile(work, 'src', sources(2:end, 1)), reshape(sources(2:end, 1), 1, []));
  zvAddonAddFolders(package, {'empty', 'docs/api'});
  zvAddonAddFolders(package, 'empty');  % present already: no error, no change
  check_equal(zvAddonGetFileList(package), ...
              {'/docs/api', '/empty', '/main.m', '/sub/data ünï.bin', '/sub/deep/𝄞 notes.txt'}, ...
              'depth first, empty folders under their own path');
  out = fullfile(work, 'out');
  zvAddonExtractAllFiles(package, out);
  for k = 1:rows(sources)
    check_equal(read_bytes(fullfile(out, sources{k, 1})), uint8(sources{k, 2}), sources{k, 1});
  end
  assert(exist(fullfile(out, 'empty'), 'dir') == 7 && exist(fullfile(out, 'docs', 'api'), 'dir') == 7);
end

function inputs_that_add_nothing(work)
  package = new_package(work);
  missing = fullfile(work, 'missing.zvaddon');
  before = read_bytes(package);
  zvAddonAddFiles(package, {fullfile(work, 'x')}, 'x');  % a cell with a text: nothing, silently
  zvAddonAddFiles(package, 5, 6);
  zvAddonAddFolders(package, 42);
  % empty lists do not even open the package
  zvAddonAddFiles(missing, {}, {});
  zvAddonAddFolders(missing, cell(0, 1));
  check_equal(read_bytes(package), before);
  assert(!exist(missing, 'file'));
  check_equal(zvAddonGetFileList(package), cell(1, 0), 'a package without content lists nothing');
end

function screenshot(work)
  package = new_package(work);
  check_equal(zvAddonGetScreenshot(package), '', 'no screenshot yet');
  images = {'a.png', uint8([137 80 78 71 13 10 26 10 0 1 2 255])
            'Screen.JPG', uint8(1:100)};
  for k = 1:rows(images)
    file = fullfile(work, images{k, 1});
    write_file(file, images{k, 2});
    zvAddonSetScreenshot(package, file);
    check_equal(zvAddonGetScreenshot(package), shell_output('base64 -w0', file), images{k, 1});
  end
end

function instruction_sets(work)
  package = new_package(work);
  first = fullfile(work, 'a', 'setup.xml');
  write_file(first, sprintf('<?xml version="1.0"?>\n<set>ü</set>\n'));
  zvAddonAddInstructionSet(package, first);
  before = read_bytes(package);
  second = fullfile(work, 'b', 'setup.xml');
  write_file(second, '<other/>');
  key = 'ZVADDON_BUILTINS_ERROR_SET_INSTRUCTION_SETS';
  err = expect_error(@() zvAddonAddInstructionSet(package, second), key_id(key));
  prefix = catalogue_prefix(key, package);
  assert(strncmp(err.message, prefix, numel(prefix)), err.message);
  check_equal(read_bytes(package), before, 'a second file of the same name changes nothing');
end

function sign(work)
  package = new_package(work);
  requirements = struct('productDependency', struct('name', 'Core', 'version', '1', 'identifier', 'C'));
  zvAddonSetSystemRequirements(package, requirements);
  unsigned = zvAddonComputeHash(package);
  zvAddonSign(package);
  assert(!strcmp(zvAddonComputeHash(package), unsigned), 'signing writes the signature');
  check_equal(zvAddonGetSystemRequirements(package).productDependency, requirements.productDependency);
  check_equal(zvAddonGetProperties(package).name, base_properties().name, 'the package stays readable');
end

function content_hash(work)
  % sizes and paths against openssl: tests/gateway; here, the text that reaches Octave
  file = fullfile(work, 'bytes ✓.bin');
  write_file(file, uint8(mod(0:4999, 256)));
  check_equal(zvAddonComputeHash(file), shell_output('openssl dgst -sha512 -binary', file, ' | base64 -w0'));
end

% What independent commands print for a file, for expected values computed outside the library.
% The file name goes through the environment, so no quoting of it is needed.
function text = shell_output(command, file, tail = '')
  setenv('ZV_TEST_FILE', file);
  [status, text] = system([command ' "$ZV_TEST_FILE"' tail]);
  assert(status == 0, ['command failed: ' command]);
  text = strtrim(text);
end
