A malformed manifest stops the build before any package or temporary file is made, with one line
naming the file, the JSON pointer of the fault and what was expected; the exit status is 5.

  $ mkdir addon && echo "x = 1;" > addon/a.m && printf 'caf\351\n' > addon/LATIN1
  $ m() { printf '%s' "$1" > addon/zvaddon.json; zvaddon build -q addon -o out.zvaddon; }
  $ m '{"properties": {"name": "A", "version": "1"}}'
  zvaddon build: addon/zvaddon.json: /properties/GUID: required
  [5]
  $ m '{"properties": {"name": "A", "version": "1", "GUID": "g"}, "extras": 1}'
  zvaddon build: addon/zvaddon.json: /extras: unknown key; expected one of: properties, systemRequirements, configuration, license, examples, revisionHistory, apps, screenshot, instructionSets, files, signing
  [5]
  $ m '{"properties": {"name": "A", "version": "1", "GUID": "g"}, "license": {"text": "t", "file": "a.m"}}'
  zvaddon build: addon/zvaddon.json: /license: give either "text" or "file", not both
  [5]
  $ m '{"properties": {"name": "A", "version": "1", "GUID": "g"}, "license": {"file": "LICENSE"}}'
  zvaddon build: addon/zvaddon.json: /license/file: no file 'LICENSE' in the add-on folder
  [5]
  $ m '{"properties": {"name": "A", "version": "1", "GUID": "g"}, "license": {"file": "LATIN1"}}'
  zvaddon build: addon/zvaddon.json: /license/file: 'LATIN1' is not UTF-8 text
  [5]
  $ m '{"properties": {"name": "A", "version": "1", "GUID": "g"}, "instructionSets": ["a.m", 3]}'
  zvaddon build: addon/zvaddon.json: /instructionSets/1: expected a file path, found a number
  [5]
  $ m '{"properties": {"name": "A", "version": "1", "GUID": "g"}, "files": {"exlude": []}}'
  zvaddon build: addon/zvaddon.json: /files/exlude: unknown key; expected one of: include, exclude, defaultExcludes
  [5]
  $ m '{"properties": {"name": "A", "version": "1", "GUID": "g"},}'
  zvaddon build: addon/zvaddon.json: not valid JSON: .* (re)
  [5]
  $ ls -A . addon | xargs
  .: addon addon: LATIN1 a.m zvaddon.json
  $ rm addon/zvaddon.json && zvaddon build addon
  zvaddon build: no manifest 'addon/zvaddon.json' (zvaddon init writes a starting one)
  [1]
