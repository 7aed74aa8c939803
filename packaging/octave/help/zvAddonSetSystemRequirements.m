## zvAddonSetSystemRequirements (PACKAGE, REQUIREMENTS)
##
## Stores what the add-on needs to be installed, replacing earlier requirements. This
## is the record that zvAddonSign signs.
##
## Inputs:
##   PACKAGE       path of an existing package file (text)
##   REQUIREMENTS  1x1 structure; every field may be left out:
##     productDependency         structure array of host products, fields name,
##                               version, identifier (texts)
##     supportPackageDependency  structure array of support packages, same fields
##     platformCompatibility     1x1 structure of texts win, linux, mac, ZORVANOnline:
##                               'true' or 'false' (kept as given; 'true' when left out)
##     releaseCompatibility      1x1 structure of texts start, end ('R2022a'); kept only
##                               when both are given
##     addonDependency           structure array of add-ons, fields name, identifier,
##                               earliestVersion, latestVersion, downloadURL, checksum,
##                               checksumVersion (texts)
##   Lists keep their order; nothing is checked, merged or sorted.
##
## Outputs: none.
##
## Errors (identifier zvaddon_builtins:zvaddon_builtins:KEY):
##   ZVADDON_BUILTINS_ERROR_NON_STRUCT, ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND,
##   ZVADDON_BUILTINS_ERROR_SET_SYSTEM_REQS
##
## Example:
##   r.productDependency = struct ('name', 'ZORVAN', 'version', '24.1', 'identifier', 'ZV');
##   r.platformCompatibility = struct ('win', 'true', 'linux', 'true', 'mac', 'false', ...
##                                     'ZORVANOnline', 'false');
##   r.releaseCompatibility = struct ('start', 'R2022a', 'end', 'R2024b');
##   zvAddonSetSystemRequirements ('mytools.zvaddon', r);
##   zvAddonSign ('mytools.zvaddon');
##
## See also: zvAddonGetSystemRequirements, zvAddonSign.
