function err = expect_error(fn, identifier)
  % Calls fn and returns the error it raises; fails unless it raises one with this identifier.
  try
    fn();
  catch err
    if !strcmp(err.identifier, identifier)
      error('expect_error:identifier', 'expected error %s, got %s: %s', identifier, err.identifier, err.message);
    end
    return;
  end
  error('expect_error:none', 'expected error %s, none was raised', identifier);
end
