function package_test(tarball, readme, header, tool)
  % The Octave package as users meet it: the README's Octave lines (pkg install of the tarball the build
  % makes, pkg load, help, a call), each function the library's header declares found as the package's
  % .mex with its help text, the demo building what `zvaddon build` builds, each function called once
  % (test_calls), pkg uninstall. pkg's folders and package lists are kept in a temporary folder.
  here = fileparts(mfilename('fullpath'));
  addpath(here, fullfile(here, 'fixtures'));
  work = tempname();
  mkdir(work);
  cleanup = onCleanup(@() system(['rm -rf "' work '"']));
  cd(work);
  copyfile(tarball, work);
  pkg('prefix', fullfile(work, 'packages'), fullfile(work, 'arch'));
  pkg('local_list', fullfile(work, 'local_list'));
  pkg('global_list', fullfile(work, 'global_list'));
  blocks = regexp(fileread(readme), '```octave test=octave\n(.*?)```', 'tokens');
  for b = blocks
    eval(b{1}{1});
  end

  names = regexp(fileread(header), 'X\((zvAddon\w+), \d\)', 'tokens');
  assert(numel(names), 24);
  for name = [names{:}]
    [where, text] = deal(which(name{1}), get_help_text(name{1}));
    assert(strncmp(where, fullfile(work, 'arch'), numel(fullfile(work, 'arch'))) && endsWith(where, '.mex'), where);
    assert(!isempty(strfind(text, name{1})) && !isempty(strfind(text, 'Example:')), [name{1} ': ' text]);
  end

  % The demo builds the example add-on as the tool does from the same manifest.
  demo = zvaddon_demo([], fullfile(work, 'demo.zvaddon'));
  example = fullfile(fileparts(which('zvaddon_demo')), 'private', 'example');
  [status, output] = system(sprintf('"%s" build -q "%s" -o built.zvaddon', tool, example));
  assert(status, 0, output);
  for get = {@zvAddonGetFileList, @zvAddonGetSystemRequirements, @zvAddonGetConfiguration, @zvAddonGetLicense, ...
             @zvAddonGetExamples, @zvAddonGetRevisionHistory, @zvAddonGetAppInstallList, @zvAddonGetScreenshot}
    check(get{1}(demo), get{1}('built.zvaddon'));
  end
  test_calls(fullfile(work, 'calls'));

  pkg('uninstall', 'zvaddon');
  assert(isempty(pkg('list')) && !exist('zvAddonCreate'));
end
