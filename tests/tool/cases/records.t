get and set: set takes a record's JSON as text, from a file (@FILE) or from standard input (-); a
field left out takes its default; JSON that does not fit is refused with its pointer and exit status
5, the package unchanged. `inspect --json` gives each record in the form set takes: fed record by
record into another package, each reads back the same (a field dropped, renamed, reordered or
retyped in one direction shows).

  $ printf '{"properties": {"name": "S", "version": "1", "GUID": "g"}}' > zvaddon.json
  $ mkdir a && zvaddon build -q -m zvaddon.json a -o s.zvaddon && cp s.zvaddon before.zvaddon
  $ zvaddon set s.zvaddon license '{"type": "MIT", "txt": "x"}'
  zvaddon set: /txt: unknown key; expected one of: type, text
  [5]
  $ zvaddon set s.zvaddon license '{"type": '
  zvaddon set: the record's JSON: not valid JSON: .* (re)
  [5]
  $ zvaddon set s.zvaddon license @missing.json
  zvaddon set: cannot read 'missing.json'
  [1]
  $ cmp s.zvaddon before.zvaddon
  $ echo '[{"relativePath": "x", "name": "n"}]' | zvaddon set s.zvaddon apps - && zvaddon get s.zvaddon apps | tr -d ' \n'
  [{"name":"n","guid":"","relativePath":"x","installByDefault":"true"}]
  $ zvaddon build -q "$EXAMPLES" -o full.zvaddon && zvaddon inspect --json full.zvaddon > full.json
  $ for r in properties systemRequirements configuration license examples revisionHistory apps; do
  >   python3 -c 'import json, sys; print(json.dumps(json.load(open("full.json"))[sys.argv[1]]))' $r > $r.json
  >   zvaddon set s.zvaddon $r @$r.json && zvaddon get full.zvaddon $r > a.json && zvaddon get s.zvaddon $r | cmp - a.json
  > done

The keys of the report, and the record keys in the order the host structures hold them.

  $ python3 -c 'import json; r = json.load(open("full.json")); print(list(r)); print(list(r["properties"])); print(r["signature"], r["screenshot"], r["instructionSets"], len(r["files"]))'
  ['package', 'bytes', 'sha512', 'signature', 'signer', 'properties', 'systemRequirements', 'configuration', 'license', 'examples', 'revisionHistory', 'apps', 'screenshot', 'instructionSets', 'files']
  ['type', 'name', 'version', 'ZORVANRelease', 'summary', 'authorName', 'authorContact', 'authorOrganization', 'GUID', 'description']
  unsigned {'part': '/metadata/primaryScreenShot.png', 'bytes': 886} ['sigtoolSetup.xml'] 18

The screenshot command stores, shows and saves the screenshot byte for byte.

  $ zvaddon screenshot s.zvaddon --get none.png
  zvaddon screenshot: s.zvaddon has no screenshot
  [1]
  $ zvaddon screenshot s.zvaddon --set "$EXAMPLES/doc/images/screenshot.png" && zvaddon screenshot s.zvaddon
  /metadata/primaryScreenShot.png (886 B)
  $ zvaddon screenshot s.zvaddon --get out.png && cmp out.png "$EXAMPLES/doc/images/screenshot.png"
