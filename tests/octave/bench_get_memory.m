function bench_get_memory(octaveDir, calls)
  % Memory of repeated Get calls from Octave: the resident size after `calls` (default 1000) calls of
  % zvAddonGetProperties and of zvAddonGetSystemRequirements on a small package, each after a warm-up.
  % Prints the growth per function and fails (exit 1) when one grows by more than 4 MiB.
  if nargin < 2
    calls = 1000;
  end
  addpath(octaveDir);
  work = tempname();
  mkdir(work);
  package = new_package(work);
  zvAddonSetSystemRequirements(package, struct('productDependency', ...
      struct('name', {'Core', 'Signal'}, 'version', {'1', '2'}, 'identifier', {'C', 'S'})));
  limit = 4 * 1024;  % KiB
  failed = false;
  for fn = {@zvAddonGetProperties, @zvAddonGetSystemRequirements}
    for k = 1:100
      fn{1}(package);
    end
    before = resident_kib();
    tic;
    for k = 1:calls
      fn{1}(package);
    end
    seconds = toc;
    growth = resident_kib() - before;
    printf('%s: %d calls, resident size %+d KiB, %.2f ms per call\n', func2str(fn{1}), calls, growth, ...
           1000 * seconds / calls);
    failed = failed || growth > limit;
  end
  confirm_recursive_rmdir(false);
  rmdir(work, 's');
  exit(failed);
end

function kib = resident_kib()
  status = fileread('/proc/self/status');
  kib = str2double(regexp(status, 'VmRSS:\s*(\d+)', 'tokens', 'once'){1});
end
