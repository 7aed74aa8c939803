function [p, f] = powerSpectrum(x, fs)
%POWERSPECTRUM  One-sided power spectrum of a real signal.
%   [p, f] = powerSpectrum(x, fs) returns the power p at the frequencies f (hertz), from 0 to fs/2.
  validateSignal(x, 1, fs);
  n = numel(x);
  X = fft(x(:) - mean(x(:)));
  p = abs(X(1:floor(n / 2) + 1)) .^ 2 / (n * fs);
  p(2:end - 1) = 2 * p(2:end - 1);
  f = (0:floor(n / 2))' * fs / n;
end
