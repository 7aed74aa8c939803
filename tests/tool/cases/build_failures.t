A build that fails part-way (here the host refuses a second instruction set of one file name) leaves
no temporary file and an earlier package of the same name byte for byte as it was; paths the records
name that the package will not hold are warned about, and the build goes on.

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
  a a.zvaddon before.zvaddon
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
