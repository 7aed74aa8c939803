A build that fails leaves no temporary file and an earlier package of the same name byte for byte as
it was. A malformed manifest stops it before any package is made, with one line naming the file, the
JSON pointer of the fault and what was expected, and exit status 5; a failure part-way (here the host
refuses a second instruction set of one file name) exits 1. Paths the records name that the package
will not hold are warned about, and the build goes on.

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
  $ mkdir -p a/one a/two && echo "<set/>" > a/one/setup.xml && echo "<set/>" > a/two/setup.xml
  $ printf '{"properties": {"name": "A", "version": "1", "GUID": "g"}}' > a/zvaddon.json
  $ zvaddon build -q a -o a.zvaddon && cp a.zvaddon before.zvaddon
  $ zvaddon build -q -m a/zvaddon.json nothere -o n.zvaddon
  zvaddon build: '$WORK/nothere' is not a folder
  [1]
  $ printf '{"properties": {"name": "A", "version": "2", "GUID": "g"}, "instructionSets": ["one/setup.xml", "two/setup.xml"]}' > a/zvaddon.json
  $ zvaddon build -q a -o a.zvaddon
  zvaddon build: Could not add the instruction set to the add-on package 'a.zvaddon': a part named like '/metadata/InstructionSets/setup.xml' exists (names differ in case only or not at all) (zvaddon_builtins:zvaddon_builtins:ZVADDON_BUILTINS_ERROR_SET_INSTRUCTION_SETS)
  [1]
  $ cmp a.zvaddon before.zvaddon && ls -A | xargs
  a a.zvaddon addon before.zvaddon
  $ cat > a/zvaddon.json <<'JSON'
  > {"properties": {"name": "A", "version": "4", "GUID": "g"},
  >  "configuration": {"zorvanPaths": ["one", "three"], "infoXMLPath": "doc/info.xml"},
  >  "examples": [{"name": "c", "examples": [{"name": "e", "source": "f.m", "main": "./missing.m", "images": ["one/setup.xml", "pic.png"]}]}],
  >  "apps": [{"name": "app", "relativePath": "apps/x.zvapp"}]}
  > JSON
  $ echo "x = 1;" > a/f.m && zvaddon build a -o a.zvaddon
  zvaddon build: warning: a/zvaddon.json: /configuration/zorvanPaths/1: 'three' is not among the package's folders
  zvaddon build: warning: a/zvaddon.json: /configuration/infoXMLPath: 'doc/info.xml' is not among the package's files
  zvaddon build: warning: a/zvaddon.json: /examples/0/examples/0/main: './missing.m' is not among the package's files
  zvaddon build: warning: a/zvaddon.json: /examples/0/examples/0/images/1: 'pic.png' is not among the package's files
  zvaddon build: warning: a/zvaddon.json: /apps/0/relativePath: 'apps/x.zvapp' is not among the package's files
  built a.zvaddon: 3 files (21 B)
