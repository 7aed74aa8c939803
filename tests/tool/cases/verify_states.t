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
  $ zvaddon inspect tiny.zvaddon | grep platforms
    platforms         win, linux, mac=false, ZORVANOnline
  $ zvaddon verify tiny.zvaddon
  invalid: the requirements signature of tiny.zvaddon does not check out
  [4]
  $ zvaddon verify -q tiny.zvaddon
  [4]

Signing again covers the new requirements.

  $ zvaddon sign -q tiny.zvaddon
  $ zvaddon verify tiny.zvaddon
  valid: the requirements signature of tiny.zvaddon checks out

The author signature: certificates made here with openssl. verify --trust checks both signatures;
an unsigned author exits 3, an untrusted root or a file changed after signing 4.

  $ for n in ca other; do openssl req -x509 -newkey rsa:2048 -nodes -keyout $n.key -out $n.pem -days 9 -subj /CN=$n \
  >   -addext basicConstraints=critical,CA:TRUE -addext keyUsage=critical,keyCertSign 2>/dev/null; done
  $ openssl req -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout me.key -out me.csr -subj /CN=Me 2>/dev/null
  $ openssl x509 -req -in me.csr -CA ca.pem -CAkey ca.key -CAcreateserial -days 2 -out me.pem 2>/dev/null
  $ zvaddon verify tiny.zvaddon --trust ca.pem
  valid: the requirements signature of tiny.zvaddon checks out
  unsigned: tiny.zvaddon carries no author signature
  [3]
  $ zvaddon sign tiny.zvaddon --key ca.key --cert me.pem
  zvaddon sign: the private key does not belong to the certificate
  [1]
  $ zvaddon sign tiny.zvaddon --key me.key --cert me.pem
  signed tiny.zvaddon as its author
  $ zvaddon verify tiny.zvaddon --trust ca.pem
  valid: the requirements signature of tiny.zvaddon checks out
  valid: the author signature of tiny.zvaddon checks out
  signer: CN=Me
  $ zvaddon verify tiny.zvaddon --trust other.pem --json | grep -E '"(state|reason)"'
      "state": "invalid",
      "reason": "the signer's certificate is not trusted at the signing time .*: unable to get local issuer certificate", (re)
  $ zvaddon inspect tiny.zvaddon | grep signer
  author signer       CN=Me, SHA-256 ([0-9A-F]{2}:){31}[0-9A-F]{2} (re)
  $ zvaddon set tiny.zvaddon license '{"text": "MIT"}'
  $ zvaddon verify tiny.zvaddon --trust ca.pem
  valid: the requirements signature of tiny.zvaddon checks out
  invalid: the author signature of tiny.zvaddon does not check out (part /metadata/license.xml was added after signing)
  signer: CN=Me
  [4]

A build signs as author from the manifest's "signing", after a requirements signature over
requirements of its own (the manifest has none).

  $ printf '{"properties": {"name": "Tiny", "version": "1.0.0", "GUID": "a-b-c"}, "files": {"include": ["a.m"]},
  >   "signing": {"key": "me.key", "cert": "me.pem"}}' > zvaddon.json
  $ zvaddon build -q . -o authored.zvaddon --sign
  $ zvaddon verify -q authored.zvaddon --trust ca.pem
