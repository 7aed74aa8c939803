function run_tests(octaveDir, probeDir)
  % Runs every case of the test_*.m files in this folder against the Octave binding in octaveDir (the
  % folder of the zvAddon*.mex files) and the contract probe in probeDir. Each case gets a fresh work
  % folder. Prints each failure, then "N passed, N failed"; exits with status 1 when a case failed.
  here = fileparts(mfilename('fullpath'));
  addpath(octaveDir);
  addpath(probeDir);
  addpath(fullfile(here, 'fixtures'));
  confirm_recursive_rmdir(false);
  passed = 0;
  failed = 0;
  files = dir(fullfile(here, 'test_*.m'));
  for f = files'
    [~, suite] = fileparts(f.name);
    cases = feval(suite);
    for k = 1:numel(cases)
      work = tempname();
      mkdir(work);
      try
        cases(k).run(work);
        passed += 1;
      catch err
        failed += 1;
        printf('FAIL %s/%s: %s [%s]\n', suite, cases(k).name, err.message, err.identifier);
        for s = err.stack'
          printf('    at %s line %d\n', s.name, s.line);
        end
      end
      rmdir(work, 's');
    end
  end
  printf('%d passed, %d failed\n', passed, failed);
  exit(failed > 0);
end
