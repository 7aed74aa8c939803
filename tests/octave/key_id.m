function id = key_id(key)
  % The Octave error identifier of a message key of the add-on library's catalogue.
  id = ['zvaddon_builtins:zvaddon_builtins:' key];
end
