`zvaddon call` keeps its contract: JSON inputs, one JSON array of outputs on stdout, a host error
as {"error": ...} on stdout with exit status 1, usage errors with 2; what it writes `get` reads.

  $ zvaddon call zvAddonGetLicense '"none.zvaddon"'
  {"error":{"identifier":"zvaddon_builtins:zvaddon_builtins:ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND","key":"ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND","arguments":["none.zvaddon"],"message":"The add-on package 'none.zvaddon' does not exist."}}
  [1]
  $ zvaddon call zvAddonNothing 2>&1
  zvaddon call: no gateway function named 'zvAddonNothing'
  [2]
  $ zvaddon call zvAddonCreate '"c.zvaddon"' '{"type": "ZORVAN Toolbox", "name": "C", "version": "1", "ZORVANRelease": "", "summary": "", "authorName": "", "authorContact": "", "authorOrganization": "", "GUID": "g", "description": ""}'
  []
  $ zvaddon call zvAddonSetRevisionHistory '"c.zvaddon"' '{"date": "d", "version": "v", "description": "x"}'
  []
  $ zvaddon call zvAddonGetLicense '"c.zvaddon"' && zvaddon get c.zvaddon revisionHistory | tr -d ' \n'
  [{"type":"","text":""}]
  [{"date":"d","version":"v","description":"x"}]
