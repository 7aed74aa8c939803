%% Smoothing a noisy measurement
% A moving average against a low-pass filter on the same noisy ramp.
fs = 200;
t = (0:1 / fs:5)';
x = t + 0.3 * randn(size(t));
plot(t, x, '.', t, movingAverage(x, 21), t, lowpass(x, 2, fs));
legend('measured', 'moving average (21)', 'low-pass (2 Hz)');
