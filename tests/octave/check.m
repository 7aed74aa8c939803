function check(actual, expected)
  % Octave's assert, with empty texts equal in any shape (the host gives 1x0 for '') and fields in order.
  if isstruct(expected)
    assert(fieldnames(actual), fieldnames(expected));
  end
  assert(canonical(actual), canonical(expected));
end

function x = canonical(x)
  if ischar(x) && isempty(x)
    x = '';
  elseif iscell(x)
    x = cellfun(@canonical, x, 'UniformOutput', false);
  elseif isstruct(x)
    x = reshape(cell2struct(canonical(struct2cell(x)), fieldnames(x), 1), size(x));
  end
end
