`inspect --json` gives each record in the form `set` takes: fed record by record into a fresh
package, every record reads back the same. Catches any field that one direction drops, renames,
reorders or retypes (flags as text, one-element lists, empty lists, a missing release range).

  $ zvaddon build -q "$EXAMPLES" -o full.zvaddon
  $ zvaddon inspect --json full.zvaddon > full.json
  $ printf '{"properties": {"name": "Empty", "version": "0.1", "GUID": "e"}}' > zvaddon.json
  $ mkdir empty && zvaddon build -q -m zvaddon.json empty -o copy.zvaddon
  $ for r in properties systemRequirements configuration license examples revisionHistory apps; do
  >   python3 -c 'import json, sys; print(json.dumps(json.load(open("full.json"))[sys.argv[1]]))' $r > $r.json
  >   zvaddon set copy.zvaddon $r @$r.json || echo "set $r failed"
  >   zvaddon get full.zvaddon $r > a.json; zvaddon get copy.zvaddon $r > b.json
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
