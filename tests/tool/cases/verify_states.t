Verification reports the three states through its exit status: an unsigned package exits 3, a
signed one 0, and one whose requirements changed after signing 4. Catches a verify that treats
"unsigned" as valid (the library's own check does) or misses a tampered requirements part.

  $ printf '{"properties": {"name": "Tiny", "version": "1.0.0", "GUID": "a-b-c"}}' > zvaddon.json
  $ echo "x = 1;" > a.m
  $ zvaddon build -q . -o tiny.zvaddon

Without a requirements part there is nothing to sign; the host error says so.

  $ zvaddon sign tiny.zvaddon
  zvaddon sign: Could not sign the system requirements of the add-on package 'tiny.zvaddon': cannot sign: there is no part /metadata/systemRequirements.xml (zvaddon_builtins:zvaddon_builtins:ZVADDON_BUILTINS_ERROR_SIGN)
  [1]
  $ zvaddon verify tiny.zvaddon
  unsigned: tiny.zvaddon carries no signature
  [3]
  $ zvaddon set tiny.zvaddon systemRequirements '{}'
  $ zvaddon sign tiny.zvaddon
  signed the system requirements of tiny.zvaddon
  $ zvaddon verify tiny.zvaddon
  valid: the requirements signature of tiny.zvaddon checks out
  $ zvaddon set tiny.zvaddon systemRequirements '{"platformCompatibility": {"mac": false}}'
  $ zvaddon verify tiny.zvaddon
  invalid: the requirements signature of tiny.zvaddon does not check out
  [4]
  $ zvaddon verify -q tiny.zvaddon
  [4]

Signing again covers the new requirements.

  $ zvaddon sign -q tiny.zvaddon
  $ zvaddon verify tiny.zvaddon
  valid: the requirements signature of tiny.zvaddon checks out

A build with --sign makes requirements of its own when the manifest has none.

  $ zvaddon build -q . -o signed.zvaddon --sign
  $ zvaddon verify signed.zvaddon
  valid: the requirements signature of signed.zvaddon checks out
