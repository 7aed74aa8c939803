function validateSignal(x, fc, fs)
% Checks the arguments every filter shares; errors name the toolkit.
  if ~isnumeric(x) || ~isvector(x) || ~isreal(x)
    error('sigtool:signal', 'The signal must be a real numeric vector.');
  end
  if ~isscalar(fs) || fs <= 0
    error('sigtool:rate', 'The sampling rate must be a positive scalar.');
  end
  if ~isscalar(fc) || fc <= 0 || fc >= fs / 2
    error('sigtool:cutoff', 'The cut-off must lie between 0 and half the sampling rate.');
  end
end
