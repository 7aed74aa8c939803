function path = new_package(folder, name)
  % Creates a package named name (default "addon.zvaddon") in folder from base_properties.
  if nargin < 2
    name = 'addon.zvaddon';
  end
  path = fullfile(folder, name);
  zvAddonCreate(path, base_properties());
end
