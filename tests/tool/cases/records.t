set takes a record's JSON as text, from a file (@FILE: the round trip below) or from standard
input (-); a field left out takes its default; JSON that does not fit the record is refused with
its JSON pointer and exit status 5, and the package is unchanged.

  $ printf '{"properties": {"name": "S", "version": "1", "GUID": "g"}}' > zvaddon.json
  $ mkdir a && zvaddon build -q -m zvaddon.json a -o s.zvaddon
  $ j() { python3 -c 'import json, sys; print(json.dumps(json.load(sys.stdin), ensure_ascii=False))'; }
  $ echo '[{"date": "2024-01-01", "version": "1.0", "description": "stdin"}]' | zvaddon set s.zvaddon revisionHistory - && zvaddon get s.zvaddon revisionHistory | j
  [{"date": "2024-01-01", "version": "1.0", "description": "stdin"}]
  $ zvaddon set s.zvaddon apps '[{"relativePath": "x", "name": "n"}]' && zvaddon get s.zvaddon apps | j
  [{"name": "n", "guid": "", "relativePath": "x", "installByDefault": "true"}]

Refusals; afterwards the package is byte for byte as before.

  $ cp s.zvaddon before.zvaddon
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

The screenshot command shows, stores and saves the package's screenshot; what it saves is byte for
byte what was stored (the part each extension makes: the gateway's records test).

  $ zvaddon screenshot s.zvaddon
  no screenshot
  $ zvaddon screenshot s.zvaddon --get none.png
  zvaddon screenshot: s.zvaddon has no screenshot
  [1]
  $ zvaddon screenshot s.zvaddon --set "$EXAMPLES/doc/images/screenshot.png"
  $ zvaddon screenshot s.zvaddon
  /metadata/primaryScreenShot.png (886 B)
  $ zvaddon screenshot s.zvaddon --get out.png
  $ cmp out.png "$EXAMPLES/doc/images/screenshot.png"

`inspect --json` gives each record in the form `set` takes: fed record by record into the package
above, every record reads back the same. Catches any field that one direction drops, renames,
reorders or retypes (flags as text, one-element lists, empty lists, a missing release range).

  $ zvaddon build -q "$EXAMPLES" -o full.zvaddon
  $ zvaddon inspect --json full.zvaddon > full.json
  $ for r in properties systemRequirements configuration license examples revisionHistory apps; do
  >   python3 -c 'import json, sys; print(json.dumps(json.load(open("full.json"))[sys.argv[1]]))' $r > $r.json
  >   zvaddon set s.zvaddon $r @$r.json || echo "set $r failed"
  >   zvaddon get full.zvaddon $r > a.json; zvaddon get s.zvaddon $r > b.json
  >   cmp -s a.json b.json && echo "$r: same" || diff a.json b.json
  > done
  properties: same
  systemRequirements: same
  configuration: same
  license: same
  examples: same
  revisionHistory: same
  apps: same

The keys of the report, and the record keys in the order the host structures hold them.

  $ python3 -c 'import json; r = json.load(open("full.json")); print(list(r)); print(list(r["properties"])); print(r["signature"], r["screenshot"], r["instructionSets"], len(r["files"]))'
  ['package', 'bytes', 'sha512', 'signature', 'signer', 'properties', 'systemRequirements', 'configuration', 'license', 'examples', 'revisionHistory', 'apps', 'screenshot', 'instructionSets', 'files']
  ['type', 'name', 'version', 'ZORVANRelease', 'summary', 'authorName', 'authorContact', 'authorOrganization', 'GUID', 'description']
  unsigned {'part': '/metadata/primaryScreenShot.png', 'bytes': 886} ['sigtoolSetup.xml'] 18
