function y = lowpass(x, fc, fs, order)
%LOWPASS  Low-pass filter a signal with a windowed-sinc FIR filter.
%   y = lowpass(x, fc, fs) keeps the content of x below fc hertz; fs is the sampling rate.
%   y = lowpass(x, fc, fs, order) sets the filter order (even; default 64).
%   The filter runs forwards and backwards, so y has no phase delay.
  if nargin < 4
    order = 64;
  end
  validateSignal(x, fc, fs);
  h = designFir(fc / (fs / 2), order);
  y = filtfiltFir(h, x);
end

function h = designFir(wn, order)
  n = (0:order) - order / 2;
  h = wn * sinc(wn * n);
  w = 0.54 - 0.46 * cos(2 * pi * (0:order) / order);   % Hamming window
  h = h .* w;
  h = h / sum(h);
end

function y = filtfiltFir(h, x)
  y = filter(h, 1, x(:));
  y = flipud(filter(h, 1, flipud(y)));
  y = reshape(y, size(x));
end
