function bytes = read_bytes(path)
  % The bytes of a file as a uint8 row.
  fid = fopen(path, 'rb');
  bytes = fread(fid, Inf, 'uint8=>uint8')';
  fclose(fid);
end
