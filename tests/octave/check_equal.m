function check_equal(actual, expected, what)
  % Fails unless actual equals expected in class, size and value (Octave's assert), naming what. Empty
  % texts compare equal whatever their shape: the host gives a 1x0 row where Octave writes ''.
  try
    assert(canonical(actual), canonical(expected));
  catch err
    if nargin < 3
      what = 'value';
    end
    error('check_equal:mismatch', '%s: %s', what, err.message);
  end
end

function x = canonical(x)
  if ischar(x) && isempty(x)
    x = '';
  elseif iscell(x)
    x = cellfun(@canonical, x, 'UniformOutput', false);
  elseif isstruct(x)
    for k = 1:numel(x)
      for f = fieldnames(x)'
        x(k).(f{1}) = canonical(x(k).(f{1}));
      end
    end
  end
end
