function text = catalogue_message(key, varargin)
  % The catalogue's text for key with its {0}, {1}, ... placeholders filled from varargin, read from the
  % catalogue file itself so that the suite checks the binding's formatting, not a copy of the texts.
  persistent catalogue;
  if isempty(catalogue)
    here = fileparts(mfilename('fullpath'));
    file = fullfile(here, '..', '..', 'resources', 'messages', 'zvaddon_builtins.json');
    catalogue = jsondecode(fileread(file));
  end
  text = catalogue.(key);
  for k = 1:numel(varargin)
    text = strrep(text, sprintf('{%d}', k - 1), varargin{k});
  end
end
