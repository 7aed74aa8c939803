function write_file(path, bytes)
  % Writes bytes (text or uint8) to path, creating its folder.
  folder = fileparts(path);
  if !isempty(folder) && !exist(folder, 'dir')
    mkdir(folder);
  end
  fid = fopen(path, 'wb');
  fwrite(fid, bytes, 'uint8');
  fclose(fid);
end
