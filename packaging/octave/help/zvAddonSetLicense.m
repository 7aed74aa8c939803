## zvAddonSetLicense (PACKAGE, LICENSE)
##
## Stores the licence agreement shown to whoever installs the add-on, replacing an
## earlier one. It is stored as given, never interpreted.
##
## Inputs:
##   PACKAGE  path of an existing package file (text)
##   LICENSE  1x1 structure (or an object with these properties), both fields present:
##     type     a label naming the licence ('BSD-3-Clause'), free text
##     text     the full text of the agreement, line breaks kept
##
## Outputs: none.
##
## Errors (identifier zvaddon_builtins:zvaddon_builtins:KEY):
##   ZVADDON_BUILTINS_ERROR_NON_STRUCT, ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND,
##   ZVADDON_BUILTINS_ERROR_SET_LICENSE
##
## Example:
##   zvAddonSetLicense ('mytools.zvaddon', struct ('type', 'MIT', 'text', fileread ('LICENSE')));
##
## See also: zvAddonGetLicense.
