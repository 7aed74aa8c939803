%% Finding tones in a spectrum
% Two tones and noise; the spectrum shows both peaks.
fs = 1000;
t = (0:1 / fs:1)';
x = sin(2 * pi * 50 * t) + 0.5 * sin(2 * pi * 180 * t) + 0.1 * randn(size(t));
[p, f] = powerSpectrum(x, fs);
semilogy(f, p);
xlabel('frequency (Hz)');
