function test_calls(work)
  % Each of the 24 gateway functions called once from Octave, in the folder work, with the values
  % Octave users pass (non-ASCII and astral text, row and column cells, structure arrays of any shape,
  % classdef and old-style objects): what is set reads back in the order and shape the help texts promise.
  mkdir(work);
  package = fullfile(work, 'añadido 𝄞.zvaddon');
  p = struct('type', 'ZORVAN Toolbox', 'name', 'Signal Tools 𝄞', 'version', '2.1.0', 'ZORVANRelease', 'x', ...
             'summary', 'Filters — and more', 'authorName', 'Zoë Ørsted', 'authorContact', 'zoe@example.org', ...
             'authorOrganization', 'Ærø Labs', 'GUID', '6f1c2d3e-0000-4a5b-8c9d-0123456789ab', ...
             'description', sprintf('Line one\nLine two ✓'));
  zvAddonCreate(package, p);
  p.name = 'Ренамед ✓';
  zvAddonSetProperties(package, p);
  p.ZORVANRelease = ['Octave ' OCTAVE_VERSION];  % the running host's release, whatever was given
  check(zvAddonGetProperties(package), p);

  % Content files from column cells, folders, extraction byte for byte.
  files = {'main.m'; 'sub/data ünï.bin'; 'sub/deep/𝄞 notes.txt'};
  bytes = {uint8(sprintf('x = 1;\n')), uint8(0:255), uint8('notes')};
  cellfun(@(f, b) write_file(fullfile(work, 'src', f), b), files, bytes');
  zvAddonAddFiles(package, fullfile(work, 'src', files), files);
  zvAddonAddFolders(package, {'empty', 'docs/api'});
  check(zvAddonGetFileList(package), [{'/docs/api', '/empty'}, strcat('/', files')]);
  zvAddonExtractAllFiles(package, fullfile(work, 'out'));
  check(cellfun(@(f) uint8(fileread(fullfile(work, 'out', f))), files, 'UniformOutput', false), bytes');
  assert(isfolder(fullfile(work, 'out', 'docs', 'api')));

  % Records, each set from a differently shaped value and read back.
  revisions(1) = RecordObject('date', '2026', 'version', '2.0', 'description', 'second ✓');
  revisions(2) = RecordObject('date', '2025', 'version', '1.0', 'description', sprintf('first\nline'));
  zvAddonSetRevisionHistory(package, revisions);
  check(zvAddonGetRevisionHistory(package), struct('date', {'2026'; '2025'}, 'version', {'2.0'; '1.0'}, ...
                                                   'description', {'second ✓'; sprintf('first\nline')}));
  apps = struct('name', {'Viewer'; 'Ëditor'}, 'guid', {'g-1'; 'g-2'}, 'relativePath', {'a/v.app'; 'a/e.app'}, ...
                'installByDefault', {'true'; 'false'});
  zvAddonSetAppInstallList(package, apps);
  check(zvAddonGetAppInstallList(package), apps);
  ex = struct('name', 'Intro', 'type', 'script', 'source', 'ex/intro.m', 'main', 'ex/intro.m', ...
              'thumbnail', 'ex/i.png', 'images', {{'i1.png'; 'i 2 ✓.png'}});
  zvAddonSetExamples(package, struct('name', {'Basics', 'Basics'}, 'examples', {ex, []}));
  got = zvAddonGetExamples(package);
  ex.images = ex.images';
  check({got.name}, {'Basics', 'Basics'});
  check(got(1).examples, ex);
  assert(isempty(got(2).examples));
  products = struct('name', {'Core'; 'Signal ✓'; 'Core'}, 'version', {'1.0'; '2'; '3'}, 'identifier', {'C'; 'S'; 'C'});
  zvAddonSetSystemRequirements(package, struct('productDependency', products, 'releaseCompatibility', ...
                                               struct('start', 'R2020a', 'end', 'R2026b')));
  got = zvAddonGetSystemRequirements(package);
  check(fieldnames(got)', {'productDependency', 'supportPackageDependency', 'platformCompatibility', ...
                           'releaseCompatibility', 'addonDependency'});
  check(got.productDependency, products);
  check(got.platformCompatibility, struct('win', 'true', 'linux', 'true', 'mac', 'true', 'ZORVANOnline', 'true'));
  check(got.releaseCompatibility, struct('start', 'R2020a', 'end', 'R2026b'));
  zvAddonSetConfiguration(package, struct('zorvanPaths', {{'code'; 'code/ünï'}}, 'javaClassPaths', {{}}, ...
                                          'infoXMLPath', 'info.xml', 'gettingStartedDocPath', '', 'installMapPath', ''));
  got = zvAddonGetConfiguration(package);
  check({got.zorvanPaths, got.infoXMLPath}, {{'code', 'code/ünï'}, 'info.xml'});
  assert(isempty(got.javaClassPaths) && isempty(got.gettingStartedDocPath));
  zvAddonSetLicense(package, legacy_licence('BSD ✓', sprintf('Copyright ©\n\t<a> & "b" 𝄞\n')));
  check(zvAddonGetLicense(package), struct('type', 'BSD ✓', 'text', sprintf('Copyright ©\n\t<a> & "b" 𝄞\n')));

  % Screenshot and instruction set.
  png = uint8([137 80 78 71 13 10 26 10 0 255]);
  write_file(fullfile(work, 'shot.png'), png);
  zvAddonSetScreenshot(package, fullfile(work, 'shot.png'));
  check(zvAddonGetScreenshot(package), 'iVBORw0KGgoA/w==');  % the base64 of png
  write_file(fullfile(work, 'a', 'setup.xml'), '<set>ü</set>');
  zvAddonAddInstructionSet(package, fullfile(work, 'a', 'setup.xml'));

  % Signing changes the package (the digest against openssl: the C++ suite).
  unsigned = zvAddonComputeHash(package);
  zvAddonSign(package);
  assert(!strcmp(zvAddonComputeHash(package), unsigned));

  % Failures reach Octave as errors with identifiers, and leave the package as it was.
  before = fileread(package);
  err = expect_error(@() zvAddonGetLicense([package '.missing']), 'ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND');
  assert(!isempty(strfind(err.message, [package '.missing'])) && isempty(strfind(err.message, '{0}')), err.message);
  expect_error(@() zvAddonSetLicense(package, containers.Map()), 'zvhost:notString');
  expect_error(@() zvAddonSetLicense(package, 5), 'ZVADDON_BUILTINS_ERROR_NON_STRUCT');
  expect_error(@() call_outputs(@zvAddonGetLicense, 2, {package}), 'zvhost:tooManyOutputs');
  check(fileread(package), before);
  % Octave drops its extension files on "clear mex"; the next call loads them again.
  clear mex;
  check(zvAddonGetProperties(package).name, p.name);
end

function call_outputs(fn, n, args)
  out = cell(1, n);
  [out{:}] = fn(args{:});
end

function write_file(path, bytes)
  [~, ~] = mkdir(fileparts(path));
  fid = fopen(path, 'wb');
  fwrite(fid, bytes, 'uint8');
  fclose(fid);
end
