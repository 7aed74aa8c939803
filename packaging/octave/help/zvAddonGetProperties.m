## PROPERTIES = zvAddonGetProperties (PACKAGE)
##
## Reads the properties of an add-on package.
##
## Inputs:
##   PACKAGE     path of an existing package file (text)
##
## Outputs:
##   PROPERTIES  1x1 structure of ten texts, in this order: type, name, version,
##               ZORVANRelease (the release of the host that made the package),
##               summary, authorName, authorContact, authorOrganization, GUID,
##               description
##
## Errors (identifier zvaddon_builtins:zvaddon_builtins:KEY):
##   ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND, ZVADDON_BUILTINS_ERROR_GET_PROPERTIES
##
## Example:
##   p = zvAddonGetProperties ('mytools.zvaddon');
##   printf ('%s %s\n', p.name, p.version);
##
## See also: zvAddonSetProperties, zvAddonCreate.
