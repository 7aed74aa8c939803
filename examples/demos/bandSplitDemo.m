%% Splitting a signal into bands
% Low-pass and high-pass parts add up to the signal.
fs = 1000;
t = (0:1 / fs:1)';
x = sin(2 * pi * 5 * t) + sin(2 * pi * 150 * t);
lo = lowpass(x, 40, fs);
hi = highpass(x, 40, fs);
fprintf('largest reconstruction error: %g\n', max(abs(x - lo - hi)));
