`inspect --json` gives each record in the form `set` takes: fed record by record into a fresh
package, every record reads back the same. Catches any field that one direction drops, renames,
reorders or retypes (flags as text, one-element lists, empty lists, a missing release range).

  $ zvaddon build -q "$EXAMPLES" -o full.zvaddon
  $ j() { python3 -c 'import json, sys; print(json.dumps(json.load(sys.stdin), ensure_ascii=False))'; }
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

Records with the shapes that travel awkwardly: one entry in a list, no entries, flags given as
text, a release range with one end only (which the record drops), text with line breaks and
non-ASCII characters.

  $ zvaddon set copy.zvaddon apps '[{"name": "Ä app", "guid": "g", "relativePath": "a/b.zvapp", "installByDefault": "yes"}]'
  $ zvaddon get copy.zvaddon apps | j
  [{"name": "Ä app", "guid": "g", "relativePath": "a/b.zvapp", "installByDefault": "true"}]
  $ zvaddon set copy.zvaddon systemRequirements '{"platformCompatibility": {"win": "maybe"}, "releaseCompatibility": {"start": "R2020a"}}'
  $ zvaddon get copy.zvaddon systemRequirements | j
  {"productDependency": [], "supportPackageDependency": [], "platformCompatibility": {"win": "maybe", "linux": "true", "mac": "true", "ZORVANOnline": "true"}, "releaseCompatibility": null, "addonDependency": []}
  $ zvaddon set copy.zvaddon examples '[{"name": "Only", "examples": [{"name": "e", "images": ["i.png"]}]}, {"name": "None"}]'
  $ zvaddon get copy.zvaddon examples | j
  [{"name": "Only", "examples": [{"name": "e", "type": "", "source": "", "main": "", "thumbnail": "", "images": ["i.png"]}]}, {"name": "None", "examples": []}]
