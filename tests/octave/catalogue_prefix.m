function prefix = catalogue_prefix(key, varargin)
  % The catalogue's text for key up to its first placeholder that varargin does not fill: what a message
  % must start with when a later argument (an OPC message) is not known in advance.
  text = catalogue_message(key, varargin{:});
  cut = regexp(text, '\{\d+\}', 'once');
  if isempty(cut)
    prefix = text;
  else
    prefix = text(1:cut - 1);
  end
end
