function filterExplorer()
%FILTEREXPLORER  Interactive view of the toolkit's filters on a test signal.
%   Move the slider to change the cut-off; the plot shows the signal, the low-pass and the high-pass
%   parts, and the spectrum below.
  fs = 1000;
  t = (0:1 / fs:2)';
  x = sin(2 * pi * 5 * t) + 0.4 * sin(2 * pi * 120 * t) + 0.2 * randn(size(t));
  fig = figure('Name', 'Filter Explorer', 'NumberTitle', 'off');
  ax1 = subplot(2, 1, 1, 'Parent', fig);
  ax2 = subplot(2, 1, 2, 'Parent', fig);
  uicontrol(fig, 'Style', 'slider', 'Min', 1, 'Max', 400, 'Value', 40, 'Units', 'normalized', ...
            'Position', [0.1 0.01 0.8 0.04], 'Callback', @(s, ~) redraw(get(s, 'Value')));
  redraw(40);

  function redraw(fc)
    lo = lowpass(x, fc, fs);
    plot(ax1, t, x, t, lo, t, x - lo);
    legend(ax1, 'signal', sprintf('below %.0f Hz', fc), 'above');
    [p, f] = powerSpectrum(x, fs);
    semilogy(ax2, f, p);
    xlabel(ax2, 'frequency (Hz)');
  end
end
