function package = package_addon(addonDir, package, octaveDir)
  % PACKAGE_ADDON  Packages an add-on folder from GNU Octave, as a host's packaging tool does: every
  % metadata record, the folder's files, a screenshot and an instruction set go in through the
  % zvAddon* functions; then the package is signed, every record is read back and printed, and the
  % content is extracted again to check it.
  %
  %   package_addon()                    packages examples/ into a temporary file
  %   package_addon(addonDir, package)   packages addonDir into the file package
  %   package_addon(..., octaveDir)      uses the zvAddon*.mex files in octaveDir (default: already on
  %                                      the path, else <repository>/build/octave)
  %
  % Files under addonDir are added under their relative paths, except this script's own folder and
  % hidden entries; empty folders are kept. An image in addonDir's top level (png, jpg, gif) becomes
  % the screenshot, and a LICENSE or LICENSE.txt file the licence text.
  here = fileparts(mfilename('fullpath'));
  if nargin < 1 || isempty(addonDir)
    addonDir = fileparts(here);
  end
  if nargin < 2 || isempty(package)
    package = [tempname() '.zvaddon'];
  end
  if nargin >= 3
    addpath(octaveDir);
  elseif !exist('zvAddonCreate', 'file')
    addpath(fullfile(fileparts(fileparts(here)), 'build', 'octave'));
  end
  [files, folders] = addon_content(addonDir, here);
  [~, name] = fileparts(addonDir);
  scratch = tempname();
  mkdir(scratch);
  cleanup = onCleanup(@() remove_folder(scratch));

  % The records a packaging tool keeps for the add-on.
  properties = struct('type', 'ZORVAN Toolbox', 'name', ['Example add-on "' name '"'], 'version', '1.2.0', ...
                      'ZORVANRelease', '', 'summary', 'An add-on packaged from GNU Octave', ...
                      'authorName', 'Ada Example', 'authorContact', 'ada@example.org', ...
                      'authorOrganization', 'Example Labs', 'GUID', lower(strtrim(uuid_text())), ...
                      'description', sprintf('Packaged by %s with Octave %s.', mfilename(), OCTAVE_VERSION));
  requirements = struct( ...
      'productDependency', struct('name', {'Core', 'Signal Processing'}, 'version', {'26.2', '10.1'}, ...
                                  'identifier', {'CORE', 'SIGNAL'}), ...
      'platformCompatibility', struct('win', 'true', 'linux', 'true', 'mac', 'true', 'ZORVANOnline', 'false'), ...
      'releaseCompatibility', struct('start', 'R2024a', 'end', 'R2026b'), ...
      'addonDependency', struct('name', 'Plot Helpers', 'identifier', 'plot-helpers', 'earliestVersion', '1.0', ...
                                'latestVersion', '', 'downloadURL', 'https://example.org/plot-helpers', ...
                                'checksum', '', 'checksumVersion', ''));
  configuration = struct('zorvanPaths', {code_folders(files)}, 'javaClassPaths', {{}}, 'infoXMLPath', '', ...
                         'gettingStartedDocPath', '', 'installMapPath', '');
  licence = struct('type', 'BSD-3-Clause', 'text', licence_text(addonDir));
  examples = struct('name', 'Getting started', ...
                    'examples', struct('name', 'First steps', 'type', 'script', 'source', first_code(files), ...
                                       'main', first_code(files), 'thumbnail', '', 'images', {{}}));
  revisions = struct('date', {'2026-03-01', '2025-11-15'}, 'version', {'1.2.0', '1.0.0'}, ...
                     'description', {'Signed requirements, screenshot.', 'First release.'});
  apps = struct('name', 'Example Viewer', 'guid', 'c0ffee00-0000-4000-8000-000000000001', ...
                'relativePath', 'apps/viewer.app', 'installByDefault', 'false');

  % Writing: one call per record or action; each call opens, changes and closes the package.
  if exist(package, 'file')
    delete(package);
  end
  zvAddonCreate(package, properties);
  zvAddonSetProperties(package, properties);
  if !isempty(files)
    zvAddonAddFiles(package, fullfile(addonDir, files), files);
  end
  zvAddonAddFolders(package, folders);
  zvAddonSetSystemRequirements(package, requirements);
  zvAddonSetConfiguration(package, configuration);
  zvAddonSetLicense(package, licence);
  zvAddonSetExamples(package, examples);
  zvAddonSetRevisionHistory(package, revisions);
  zvAddonSetAppInstallList(package, apps);
  zvAddonSetScreenshot(package, screenshot_file(addonDir, scratch));
  instructions = fullfile(scratch, 'install.xml');
  write_text(instructions, sprintf('<?xml version="1.0" encoding="UTF-8"?>\n<instructionSet name="%s"/>\n', name));
  zvAddonAddInstructionSet(package, instructions);
  zvAddonSign(package);

  % Reading back, as an installer would.
  printf('Package %s\n', package);
  printf('Content hash (SHA-512): %s\n\n', zvAddonComputeHash(package));
  show('Properties', zvAddonGetProperties(package));
  show('System requirements', zvAddonGetSystemRequirements(package));
  show('Configuration', zvAddonGetConfiguration(package));
  show('Licence', zvAddonGetLicense(package));
  show('Examples', zvAddonGetExamples(package));
  show('Revision history', zvAddonGetRevisionHistory(package));
  show('Apps', zvAddonGetAppInstallList(package));
  listed = zvAddonGetFileList(package);
  show('Files', listed);
  printf('Screenshot: %d characters of base64\n', numel(zvAddonGetScreenshot(package)));

  unpacked = fullfile(scratch, 'unpacked');
  zvAddonExtractAllFiles(package, unpacked);
  for k = 1:numel(files)
    if !isequal(read_all(fullfile(unpacked, files{k})), read_all(fullfile(addonDir, files{k})))
      error('package_addon:mismatch', 'extracted %s differs from the original', files{k});
    end
  end
  printf('Extracted %d files and %d folders again; every file matches its original.\n', numel(files), ...
         numel(folders));
end

function [files, folders] = addon_content(root, skip)
  % Relative paths of the files, and of the folders that hold nothing, below root.
  files = {};
  folders = {};
  pending = {''};
  while !isempty(pending)
    relative = pending{1};
    pending(1) = [];
    entries = dir(fullfile(root, relative));
    entries = entries(!strncmp({entries.name}, '.', 1));
    if isempty(entries) && !isempty(relative)
      folders{end + 1} = relative;
    end
    for e = entries'
      path = e.name;
      if !isempty(relative)
        path = [relative '/' e.name];
      end
      if e.isdir
        if !strcmp(fullfile(root, path), skip)
          pending{end + 1} = path;
        end
      else
        files{end + 1} = path;
      end
    end
  end
end

function paths = code_folders(files)
  % The folders to put on the search path: those holding code, up to any package (+) or class (@)
  % folder, which the host finds through its parent.
  code = files(!cellfun(@isempty, regexp(files, '\.m$')));
  paths = regexprep(code, '(^|/)[^/]*$', '');
  paths = regexprep(paths, '/?[+@].*$', '');
  paths = unique(paths(!cellfun(@isempty, paths)));
end

function path = first_code(files)
  code = files(!cellfun(@isempty, regexp(files, '\.m$')));
  path = '';
  if !isempty(code)
    path = code{1};
  end
end

function text = licence_text(root)
  text = 'Redistribution and use in source and binary forms are permitted.';
  for candidate = {'LICENSE', 'LICENSE.txt'}
    if exist(fullfile(root, candidate{1}), 'file')
      text = fileread(fullfile(root, candidate{1}));
    end
  end
end

function file = screenshot_file(root, scratch)
  % An image of the add-on folder, or a 1x1 PNG made for the occasion.
  for pattern = {'*.png', '*.jpg', '*.gif'}
    found = dir(fullfile(root, pattern{1}));
    if !isempty(found)
      file = fullfile(root, found(1).name);
      return;
    end
  end
  file = fullfile(scratch, 'screenshot.png');
  png = uint8(sscanf(['89504e470d0a1a0a0000000d4948445200000001000000010806000000' ...
                      '1f15c4890000000d49444154789c6360f8cfc0f01f0005000201e0' ...
                      '6c2bd50000000049454e44ae426082'], '%2x'))';
  fid = fopen(file, 'wb');
  fwrite(fid, png, 'uint8');
  fclose(fid);
end

function text = uuid_text()
  bytes = randi([0 255], 1, 16);
  bytes(7) = bitor(bitand(bytes(7), 15), 64);
  bytes(9) = bitor(bitand(bytes(9), 63), 128);
  hex = sprintf('%02x', bytes);
  text = sprintf('%s-%s-%s-%s-%s', hex(1:8), hex(9:12), hex(13:16), hex(17:20), hex(21:32));
end

function write_text(path, text)
  fid = fopen(path, 'w');
  fputs(fid, text);
  fclose(fid);
end

function bytes = read_all(path)
  fid = fopen(path, 'rb');
  bytes = fread(fid, Inf, 'uint8=>uint8');
  fclose(fid);
end

function remove_folder(folder)
  confirm_recursive_rmdir(false);
  rmdir(folder, 's');
end

function show(title, value)
  printf('%s:\n', title);
  print_value(value, 2);
  printf('\n');
end

function print_value(value, indent)
  pad = repmat(' ', 1, indent);
  if isempty(value) && !ischar(value)
    printf('%s(none)\n', pad);
  elseif ischar(value)
    printf('%s%s\n', pad, strrep(value, "\n", ["\n" pad]));
  elseif iscell(value)
    for k = 1:numel(value)
      print_value(value{k}, indent);
    end
  elseif isstruct(value)
    for k = 1:numel(value)
      if numel(value) > 1
        printf('%s#%d\n', pad, k);
      end
      for f = fieldnames(value)'
        field = value(k).(f{1});
        if ischar(field) && !any(field == "\n")
          printf('%s  %s: %s\n', pad, f{1}, field);
        else
          printf('%s  %s:\n', pad, f{1});
          print_value(field, indent + 4);
        end
      end
    end
  else
    printf('%s%s\n', pad, disp(value));
  end
end
