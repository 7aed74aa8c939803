## zvAddonSetProperties (PACKAGE, PROPERTIES)
##
## Replaces the properties of an existing add-on package: name, version, summary,
## description, author and GUID. The type and the host release stay as zvAddonCreate
## wrote them.
##
## Inputs:
##   PACKAGE     path of an existing package file (text)
##   PROPERTIES  1x1 structure with the ten text fields of zvAddonCreate: type, name,
##               version, ZORVANRelease, summary, authorName, authorContact,
##               authorOrganization, GUID, description (all present; '' for none)
##
## Outputs: none. A failed call leaves the file as it was.
##
## Errors (identifier zvaddon_builtins:zvaddon_builtins:KEY):
##   ZVADDON_BUILTINS_ERROR_NON_STRUCT, ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND,
##   ZVADDON_BUILTINS_ERROR_SET_PROPERTIES (any other failure, with its reason)
##
## Example:
##   p = zvAddonGetProperties ('mytools.zvaddon');
##   p.version = '1.1.0';
##   zvAddonSetProperties ('mytools.zvaddon', p);
##
## See also: zvAddonGetProperties, zvAddonCreate.
