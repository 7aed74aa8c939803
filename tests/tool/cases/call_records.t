Every metadata record goes through `zvaddon call` and comes back as it went in: order and
duplicates kept, non-ASCII and multi-line text unchanged, platform flags kept as text.
Structure lists come back as columns (N-by-1), in the typed form.

  $ zvaddon call 'zvAddonCreate' '"c.zvaddon"' '{"type": "ZORVAN Toolbox", "name": "Café 中文 🎵", "version": "1.0", "ZORVANRelease": "R1999a", "summary": "s", "authorName": "Ada", "authorContact": "", "authorOrganization": "", "GUID": "g-1", "description": "two\nlines"}'
  []
  $ zvaddon call 'zvAddonGetProperties' '"c.zvaddon"'
  [{"type":"ZORVAN Toolbox","name":"Café 中文 🎵","version":"1.0","ZORVANRelease":"R2026b","summary":"s","authorName":"Ada","authorContact":"","authorOrganization":"","GUID":"g-1","description":"two\nlines"}]
  $ zvaddon call 'zvAddonSetSystemRequirements' '"c.zvaddon"' '{"productDependency": [{"name": "Core", "version": "26.2", "identifier": "CORE"}, {"name": "Core", "version": "26.2", "identifier": "CORE"}], "supportPackageDependency": null, "platformCompatibility": {"win": "true", "linux": "true", "mac": "false", "ZORVANOnline": "maybe"}, "releaseCompatibility": {"start": "R2024a", "end": "R2026b"}, "addonDependency": [{"name": "Ünïcode 中文", "identifier": "u-1", "earliestVersion": "1.0", "latestVersion": "2.0", "downloadURL": "https://example.org/a", "checksum": "abc", "checksumVersion": "sha256"}]}'
  []
  $ zvaddon call 'zvAddonGetSystemRequirements' '"c.zvaddon"'
  [{"productDependency":{"$class":"struct","$dims":[2,1],"$fields":["name","version","identifier"],"$data":[{"name":"Core","version":"26.2","identifier":"CORE"},{"name":"Core","version":"26.2","identifier":"CORE"}]},"supportPackageDependency":null,"platformCompatibility":{"win":"true","linux":"true","mac":"false","ZORVANOnline":"maybe"},"releaseCompatibility":{"start":"R2024a","end":"R2026b"},"addonDependency":{"name":"Ünïcode 中文","identifier":"u-1","earliestVersion":"1.0","latestVersion":"2.0","downloadURL":"https://example.org/a","checksum":"abc","checksumVersion":"sha256"}}]
  $ zvaddon call 'zvAddonSetExamples' '"c.zvaddon"' '[{"name": "Getting started", "examples": [{"name": "Demo 🎵", "type": "script", "source": "demo.m", "main": "demo.m", "thumbnail": "demo.png", "images": ["a.png", "b.png"]}]}, {"name": "Getting started", "examples": null}]'
  []
  $ zvaddon call 'zvAddonGetExamples' '"c.zvaddon"'
  [{"$class":"struct","$dims":[2,1],"$fields":["name","examples"],"$data":[{"name":"Getting started","examples":{"name":"Demo 🎵","type":"script","source":"demo.m","main":"demo.m","thumbnail":"demo.png","images":["a.png","b.png"]}},{"name":"Getting started","examples":null}]}]
  $ zvaddon call 'zvAddonSetAppInstallList' '"c.zvaddon"' '[{"name": "Viewer", "guid": "G-1", "relativePath": "apps/viewer.app", "installByDefault": "TRUE"}, {"name": "Viewer", "guid": "G-1", "relativePath": "apps/v2.app", "installByDefault": "false"}]'
  []
  $ zvaddon call 'zvAddonGetAppInstallList' '"c.zvaddon"'
  [{"$class":"struct","$dims":[2,1],"$fields":["name","guid","relativePath","installByDefault"],"$data":[{"name":"Viewer","guid":"G-1","relativePath":"apps/viewer.app","installByDefault":"true"},{"name":"Viewer","guid":"G-1","relativePath":"apps/v2.app","installByDefault":"false"}]}]
  $ zvaddon call 'zvAddonSetRevisionHistory' '"c.zvaddon"' '[{"date": "2026-11-21", "version": "1.1", "description": "line one\nline two"}, {"date": "2026-01-01", "version": "1.0", "description": "first"}]'
  []
  $ zvaddon call 'zvAddonGetRevisionHistory' '"c.zvaddon"'
  [{"$class":"struct","$dims":[2,1],"$fields":["date","version","description"],"$data":[{"date":"2026-11-21","version":"1.1","description":"line one\nline two"},{"date":"2026-01-01","version":"1.0","description":"first"}]}]
  $ zvaddon call 'zvAddonSetLicense' '"c.zvaddon"' '{"type": "custom", "text": "Licence text\nwith two lines — é"}'
  []
  $ zvaddon call 'zvAddonGetLicense' '"c.zvaddon"'
  [{"type":"custom","text":"Licence text\nwith two lines — é"}]
  $ zvaddon call 'zvAddonSetConfiguration' '"c.zvaddon"' '{"zorvanPaths": ["toolbox", "toolbox/sub dir", "toolbox"], "javaClassPaths": ["lib/a.jar"], "infoXMLPath": "info.xml", "gettingStartedDocPath": "doc/GettingStarted.html", "installMapPath": "map.xml"}'
  []
  $ zvaddon call 'zvAddonGetConfiguration' '"c.zvaddon"'
  [{"zorvanPaths":["toolbox","toolbox/sub dir","toolbox"],"javaClassPaths":["lib/a.jar"],"infoXMLPath":"info.xml","gettingStartedDocPath":"doc/GettingStarted.html","installMapPath":"map.xml"}]
