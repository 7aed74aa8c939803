function octave_get_memory(octaveDir, calls = 1000)
  % Memory of repeated Get calls from Octave: the resident size after `calls` calls of
  % zvAddonGetProperties and of zvAddonGetSystemRequirements on a small package, each after a warm-up.
  % Prints the growth per function and fails (exit 1) when one grows by more than 4 MiB.
  addpath(octaveDir);
  package = [tempname() '.zvaddon'];
  fields = {'type', 'name', 'version', 'ZORVANRelease', 'summary', 'authorName', 'authorContact', ...
            'authorOrganization', 'GUID', 'description'};
  zvAddonCreate(package, cell2struct([{'ZORVAN Toolbox'}, fields(2:end)], fields, 2));
  zvAddonSetSystemRequirements(package, struct('productDependency', ...
      struct('name', {'Core', 'Signal'}, 'version', {'1', '2'}, 'identifier', {'C', 'S'})));
  growth = [0 0];
  gets = {@zvAddonGetProperties, @zvAddonGetSystemRequirements};
  for g = 1:2
    for k = 1:100 + calls
      if k == 101  % after the warm-up
        [before, start] = deal(resident_kib(), tic);
      end
      gets{g}(package);
    end
    growth(g) = resident_kib() - before;
    printf('%s: %d calls, resident size %+d KiB, %.2f ms per call\n', func2str(gets{g}), calls, growth(g), ...
           1000 * toc(start) / calls);
  end
  delete(package);
  exit(any(growth > 4 * 1024));
end

function kib = resident_kib()
  kib = str2double(regexp(fileread('/proc/self/status'), 'VmRSS:\s*(\d+)', 'tokens', 'once'){1});
end
