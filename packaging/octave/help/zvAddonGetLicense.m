## LICENSE = zvAddonGetLicense (PACKAGE)
##
## Reads the licence agreement of an add-on package.
##
## Inputs:
##   PACKAGE  path of an existing package file (text)
##
## Outputs:
##   LICENSE  1x1 structure with the texts type and text; both '' when there is none
##
## Errors (identifier zvaddon_builtins:zvaddon_builtins:KEY):
##   ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND, ZVADDON_BUILTINS_ERROR_GET_LICENSE
##
## Example:
##   l = zvAddonGetLicense ('mytools.zvaddon');
##   printf ('%s\n\n%s\n', l.type, l.text);
##
## See also: zvAddonSetLicense.
