## REQUIREMENTS = zvAddonGetSystemRequirements (PACKAGE)
##
## Reads what the add-on needs to be installed.
##
## Inputs:
##   PACKAGE       path of an existing package file (text)
##
## Outputs:
##   REQUIREMENTS  1x1 structure with five fields, in this order:
##     productDependency         structure array (name, version, identifier), or empty
##     supportPackageDependency  structure array (name, version, identifier), or empty
##     platformCompatibility     1x1 structure of texts win, linux, mac, ZORVANOnline
##     releaseCompatibility      1x1 structure of texts start, end, or empty when no
##                               range is stored
##     addonDependency           structure array (name, identifier, earliestVersion,
##                               latestVersion, downloadURL, checksum,
##                               checksumVersion), or empty
##   A package without requirements gives empty lists and every platform 'true'.
##
## Errors (identifier zvaddon_builtins:zvaddon_builtins:KEY):
##   ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND, ZVADDON_BUILTINS_ERROR_GET_SYSTEM_REQS
##
## Example:
##   r = zvAddonGetSystemRequirements ('mytools.zvaddon');
##   r.platformCompatibility
##
## See also: zvAddonSetSystemRequirements, zvAddonSign.
