set takes a record's JSON as text, from a file (@FILE: inspect_json_roundtrip.t) or from standard
input (-); JSON that does not fit the record is refused with its JSON pointer and exit status 5, and
the package is unchanged.

  $ printf '{"properties": {"name": "S", "version": "1", "GUID": "g"}}' > zvaddon.json
  $ mkdir a && zvaddon build -q -m zvaddon.json a -o s.zvaddon
  $ j() { python3 -c 'import json, sys; print(json.dumps(json.load(sys.stdin), ensure_ascii=False))'; }
  $ echo '[{"date": "2024-01-01", "version": "1.0", "description": "stdin"}]' | zvaddon set s.zvaddon revisionHistory - && zvaddon get s.zvaddon revisionHistory | j
  [{"date": "2024-01-01", "version": "1.0", "description": "stdin"}]

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
