function y = highpass(x, fc, fs, order)
%HIGHPASS  High-pass filter a signal: the signal less its low-pass part.
%   y = highpass(x, fc, fs) removes the content of x below fc hertz; fs is the sampling rate.
%   y = highpass(x, fc, fs, order) sets the order of the underlying low-pass filter (default 64).
  if nargin < 4
    order = 64;
  end
  y = x - lowpass(x, fc, fs, order);
end
