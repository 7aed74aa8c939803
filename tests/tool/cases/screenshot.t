The screenshot command shows, stores and saves the package's screenshot; what it saves is byte for
byte what was stored (the part each extension makes: the gateway's records test).

  $ printf '{"properties": {"name": "S", "version": "1", "GUID": "g"}}' > zvaddon.json
  $ mkdir a && zvaddon build -q -m zvaddon.json a -o s.zvaddon
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
