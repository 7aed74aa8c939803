## zvAddonSetAppInstallList (PACKAGE, APPS)
##
## Stores the list of apps an add-on installs, replacing an earlier one.
##
## Inputs:
##   PACKAGE  path of an existing package file (text)
##   APPS     structure array, one element per app, kept in element order; every field
##            is text and must be present:
##     name              the app's display name
##     guid              the app's unique identifier
##     relativePath      path of the app file inside the add-on
##     installByDefault  'true' or 'false' (anything but 'false' counts as 'true')
##            An empty value stores an empty list.
##
## Outputs: none.
##
## Errors (identifier zvaddon_builtins:zvaddon_builtins:KEY):
##   ZVADDON_BUILTINS_ERROR_NON_STRUCT, ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND,
##   ZVADDON_BUILTINS_ERROR_SET_APP_INSTALL_LIST
##
## Example:
##   a = struct ('name', 'Filter Explorer', 'guid', 'b3e1f0d2-7c4a-4f59-8e21-5d6c7b8a9f01', ...
##               'relativePath', 'apps/filterExplorer.zvapp', 'installByDefault', 'true');
##   zvAddonSetAppInstallList ('mytools.zvaddon', a);
##
## See also: zvAddonGetAppInstallList.
