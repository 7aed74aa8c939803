function t = gateway_functions(work)
  % The 24 gateway functions: handle, output limit, input count, valid inputs after the path (input
  % files are made in work) and the key of the function's own OPC failures. Struct array, one per row.
  file = fullfile(work, 'input file.txt');
  write_file(file, 'content');
  image = fullfile(work, 'shot.png');
  write_file(image, uint8([137 80 78 71 13 10 26 10]));
  instructions = fullfile(work, 'setup.xml');
  write_file(instructions, '<instructionSet/>');
  configuration = struct('zorvanPaths', {{'code'}}, 'javaClassPaths', {{}}, 'infoXMLPath', 'info.xml', ...
                         'gettingStartedDocPath', '', 'installMapPath', '');
  rows = {
    'zvAddonCreate',                0, 2, {base_properties()},                        'CREATE'
    'zvAddonSetProperties',         0, 2, {base_properties()},                        'SET_PROPERTIES'
    'zvAddonGetProperties',         1, 1, {},                                         'GET_PROPERTIES'
    'zvAddonAddFiles',              0, 3, {{file}, {'f.txt'}},                        'ADD_FILES'
    'zvAddonAddFolders',            0, 2, {{'docs'}},                                 'ADD_FOLDERS'
    'zvAddonExtractAllFiles',       0, 2, {fullfile(work, 'out')},                    'EXTRACT_ALL_FILES'
    'zvAddonGetFileList',           1, 1, {},                                         'GET_FILE_LIST'
    'zvAddonSetRevisionHistory',    0, 2, {struct('date', 'd', 'version', 'v', 'description', 'x')}, 'SET_REVISION_HISTORY'
    'zvAddonGetRevisionHistory',    1, 1, {},                                         'GET_REVISION_HISTORY'
    'zvAddonSetScreenshot',         0, 2, {image},                                    'SET_SCREENSHOT'
    'zvAddonGetScreenshot',         1, 1, {},                                         'GET_SCREENSHOT'
    'zvAddonSetAppInstallList',     0, 2, {struct('name', 'n', 'guid', 'g', 'relativePath', 'r', 'installByDefault', 'true')}, 'SET_APP_INSTALL_LIST'
    'zvAddonGetAppInstallList',     1, 1, {},                                         'GET_APP_INSTALL_LIST'
    'zvAddonSetExamples',           0, 2, {struct('name', 'c', 'examples', [])},      'SET_EXAMPLES'
    'zvAddonGetExamples',           1, 1, {},                                         'GET_EXAMPLES'
    'zvAddonSetSystemRequirements', 0, 2, {struct()},                                 'SET_SYSTEM_REQS'
    'zvAddonGetSystemRequirements', 1, 1, {},                                         'GET_SYSTEM_REQS'
    'zvAddonAddInstructionSet',     0, 2, {instructions},                             'SET_INSTRUCTION_SETS'
    'zvAddonSign',                  0, 1, {},                                         'SIGN'
    'zvAddonSetLicense',            0, 2, {struct('type', 'MIT', 'text', 'Permission')}, 'SET_LICENSE'
    'zvAddonGetLicense',            1, 1, {},                                         'GET_LICENSE'
    'zvAddonSetConfiguration',      0, 2, {configuration},                            'SET_CONFIGURATION'
    'zvAddonGetConfiguration',      1, 1, {},                                         'GET_CONFIGURATION'
    'zvAddonComputeHash',           1, 1, {},                                         'COMPUTE_HASH'
  };
  t = cell2struct(rows, {'name', 'maxOut', 'nIn', 'args', 'key'}, 2);
  for k = 1:numel(t)
    t(k).fn = str2func(t(k).name);
  end
end
