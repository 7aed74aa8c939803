## zvAddonCreate (PACKAGE, PROPERTIES)
##
## Creates a new add-on package file at PACKAGE (replacing a file already there)
## holding the add-on's properties and nothing else yet.
##
## Inputs:
##   PACKAGE     path of the package file to create (text; by convention *.zvaddon)
##   PROPERTIES  1x1 structure; every field is text and must be present ('' for none):
##     type                'ZORVAN Toolbox', the only add-on type there is
##     name                the add-on's display name
##     version             its version, free text ('1.0.0')
##     ZORVANRelease       ignored: the package records the running host's release
##     summary             one line
##     description         any length, line breaks kept
##     authorName, authorContact, authorOrganization
##     GUID                the add-on's unique identifier; keep it across versions
##
## Outputs: none.
##
## Errors (identifier zvaddon_builtins:zvaddon_builtins:KEY):
##   ZVADDON_BUILTINS_ERROR_NON_STRUCT  PROPERTIES is neither a structure nor empty
##   ZVADDON_BUILTINS_ERROR_CREATE      the file could not be made (no such folder, say)
##
## Example:
##   p = struct ('type', 'ZORVAN Toolbox', 'name', 'My Tools', 'version', '1.0.0', ...
##               'ZORVANRelease', '', 'summary', 'Handy tools', 'description', '', ...
##               'authorName', 'Ada', 'authorContact', 'ada@example.org', ...
##               'authorOrganization', '', 'GUID', '6f1c2a4e-8d3b-4c5f-9a7e-2b1d0c9e8f34');
##   zvAddonCreate ('mytools.zvaddon', p);
##
## See also: zvAddonSetProperties, zvAddonGetProperties, zvAddonAddFiles, zvaddon_demo.
