init writes a starting manifest: the folder's name, version 1.0.0, a fresh GUID each time, the
licence file when there is one, and the top-level entries it would include; an existing manifest is
kept unless --force; the manifest builds as it stands, and its empty folder extracts as a folder.

  $ mkdir -p "my addon/code/private" "my addon/doc" "my addon/.git" "my addon/emptydir" other
  $ echo "x = 1;" > "my addon/code/f.m"; echo "y = 2;" > "my addon/code/private/g.m"
  $ echo "<p/>" > "my addon/doc/i.html"; echo "MIT" > "my addon/LICENSE"; echo "ref" > "my addon/.git/HEAD"
  $ echo "old" > "my addon/notes.txt~"
  $ zvaddon init "my addon" && zvaddon init other > /dev/null
  wrote my addon/zvaddon.json: 4 files (23 B) would be included
  $ python3 -c 'import json; m, o = (json.load(open(f + "/zvaddon.json")) for f in ("my addon", "other")); p = m["properties"]; print(p["name"], p["version"], p["GUID"] != o["properties"]["GUID"]); print(m["license"]); print(m["files"]); print(p["GUID"])'
  my addon 1.0.0 True
  {'type': '', 'file': 'LICENSE'}
  {'include': ['LICENSE', 'code/', 'doc/', 'emptydir/'], 'exclude': []}
  [0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12} (re)
  $ zvaddon init "my addon"
  zvaddon init: 'my addon/zvaddon.json' exists already (--force replaces it)
  [1]
  $ zvaddon init --force "my addon" > /dev/null && zvaddon build "my addon"
  built my addon-1.0.0.zvaddon: 4 files (23 B), 1 empty folders
  $ zvaddon extract "my addon-1.0.0.zvaddon" out && test -d out/emptydir
  extracted 4 files (23 B) and 1 empty folders into out
