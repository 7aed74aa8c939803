init writes a starting manifest: the folder's name, version 1.0.0, a fresh GUID, the licence file
when there is one, and the top-level entries it would include; the manifest builds as it stands.

  $ mkdir -p "my addon/code/private" "my addon/doc" "my addon/.git" "my addon/emptydir"
  $ echo "x = 1;" > "my addon/code/f.m"; echo "y = 2;" > "my addon/code/private/g.m"
  $ echo "<p/>" > "my addon/doc/i.html"; echo "MIT" > "my addon/LICENSE"; echo "ref" > "my addon/.git/HEAD"
  $ echo "old" > "my addon/notes.txt~"
  $ zvaddon init "my addon"
  wrote my addon/zvaddon.json: 4 files (23 B) would be included
  $ python3 -c 'import json, sys; m = json.load(open("my addon/zvaddon.json")); p = m["properties"]; print(p["name"], p["version"]); print(m["license"]); print(m["files"])'
  my addon 1.0.0
  {'type': '', 'file': 'LICENSE'}
  {'include': ['LICENSE', 'code/', 'doc/', 'emptydir/'], 'exclude': []}
  $ python3 -c 'import json; print(json.load(open("my addon/zvaddon.json"))["properties"]["GUID"])'
  [0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12} (re)

Each init draws its own GUID.

  $ mkdir other && zvaddon init other > /dev/null
  $ python3 -c 'import json; a, b = (json.load(open(f + "/zvaddon.json"))["properties"]["GUID"] for f in ("my addon", "other")); print(a != b)'
  True

An existing manifest is kept unless --force.

  $ zvaddon init "my addon"
  zvaddon init: 'my addon/zvaddon.json' exists already (--force replaces it)
  [1]
  $ zvaddon init --force "my addon"
  wrote my addon/zvaddon.json: 4 files (23 B) would be included

The manifest builds; its default name is the folder's, with the version.

  $ zvaddon build "my addon"
  built my addon-1.0.0.zvaddon: 4 files (23 B), 1 empty folders

Unpacked, the empty folder is a folder again and is counted as one.

  $ zvaddon extract "my addon-1.0.0.zvaddon" out
  extracted 4 files (23 B) and 1 empty folders into out
  $ test -d out/emptydir && ls -A out/emptydir | wc -l
  0
