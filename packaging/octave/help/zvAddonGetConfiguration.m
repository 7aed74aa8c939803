## CONFIGURATION = zvAddonGetConfiguration (PACKAGE)
##
## Reads how the host sets the add-on up once installed.
##
## Inputs:
##   PACKAGE        path of an existing package file (text)
##
## Outputs:
##   CONFIGURATION  1x1 structure with the fields zorvanPaths and javaClassPaths (1xN
##                  cell arrays of texts) and infoXMLPath, gettingStartedDocPath and
##                  installMapPath (texts, empty when not set)
##
## Errors (identifier zvaddon_builtins:zvaddon_builtins:KEY):
##   ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND, ZVADDON_BUILTINS_ERROR_GET_CONFIGURATION
##
## Example:
##   c = zvAddonGetConfiguration ('mytools.zvaddon');
##   printf ('on the path: %s\n', strjoin (c.zorvanPaths, ', '));
##
## See also: zvAddonSetConfiguration.
