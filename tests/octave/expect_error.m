function err = expect_error(fn, id)
  % The error fn raises; fails unless its identifier is id (a catalogue key stands for its identifier).
  if strncmp(id, 'ZVADDON_', 8)
    id = ['zvaddon_builtins:zvaddon_builtins:' id];
  end
  try
    fn();
  catch err
    assert(err.identifier, id);
    return;
  end
  error('expect_error:none', 'expected the error %s', id);
end
