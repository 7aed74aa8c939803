function y = movingAverage(x, n)
%MOVINGAVERAGE  Centred moving average of n samples (n odd).
%   The ends use the samples available, so y has the size of x and no edge dip.
  if mod(n, 2) ~= 1 || n < 1
    error('sigtool:movingAverage:window', 'The window must be an odd number of samples.');
  end
  half = (n - 1) / 2;
  c = cumsum([0; x(:)]);
  k = (1:numel(x))';
  lo = max(k - half, 1);
  hi = min(k + half, numel(x));
  y = reshape((c(hi + 1) - c(lo)) ./ (hi - lo + 1), size(x));
end
