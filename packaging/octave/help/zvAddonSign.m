## zvAddonSign (PACKAGE)
##
## Signs the package's system requirements (and the relationship that points to them)
## with an XML digital signature, so that an installer can tell they are the ones the
## packaging tool wrote. Set the requirements first; changing them later breaks the
## signature. The command-line tool checks it: zvaddon verify PACKAGE.
##
## Inputs:
##   PACKAGE  path of an existing package file (text)
##
## Outputs: none.
##
## Errors (identifier zvaddon_builtins:zvaddon_builtins:KEY):
##   ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND,
##   ZVADDON_BUILTINS_ERROR_SIGN (a package without requirements, for one)
##
## Example:
##   zvAddonSetSystemRequirements ('mytools.zvaddon', struct ());
##   zvAddonSign ('mytools.zvaddon');
##
## See also: zvAddonSetSystemRequirements.
