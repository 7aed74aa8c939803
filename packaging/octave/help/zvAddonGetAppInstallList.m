## APPS = zvAddonGetAppInstallList (PACKAGE)
##
## Reads the list of apps an add-on installs.
##
## Inputs:
##   PACKAGE  path of an existing package file (text)
##
## Outputs:
##   APPS     structure array with the text fields name, guid, relativePath and
##            installByDefault ('true' or 'false'), one element per app in the stored
##            order; 0x0 when there is none
##
## Errors (identifier zvaddon_builtins:zvaddon_builtins:KEY):
##   ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND, ZVADDON_BUILTINS_ERROR_GET_APP_INSTALL_LIST
##
## Example:
##   apps = zvAddonGetAppInstallList ('mytools.zvaddon');
##   disp ({apps.name});
##
## See also: zvAddonSetAppInstallList.
