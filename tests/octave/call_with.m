function out = call_with(fn, nout, args)
  % Calls fn(args{:}) asking for nout outputs; returns them in a cell array.
  out = cell(1, nout);
  if nout == 0
    fn(args{:});
  else
    [out{:}] = fn(args{:});
  end
end
