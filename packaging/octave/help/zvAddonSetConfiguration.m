## zvAddonSetConfiguration (PACKAGE, CONFIGURATION)
##
## Stores how the host sets the add-on up once installed, replacing an earlier
## configuration. Paths are relative to the add-on's folder.
##
## Inputs:
##   PACKAGE        path of an existing package file (text)
##   CONFIGURATION  1x1 structure, every field present:
##     zorvanPaths            cell array of folders to put on the search path
##     javaClassPaths         cell array of JAR files or folders for the class path
##     infoXMLPath            the add-on's info file ('' for none)
##     gettingStartedDocPath  its getting-started page ('' for none)
##     installMapPath         its install map ('' for none)
##
## Outputs: none.
##
## Errors (identifier zvaddon_builtins:zvaddon_builtins:KEY):
##   ZVADDON_BUILTINS_ERROR_NON_STRUCT, ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND,
##   ZVADDON_BUILTINS_ERROR_SET_CONFIGURATION
##
## Example:
##   c = struct ('zorvanPaths', {{'sigtool', 'apps'}}, 'javaClassPaths', {{}}, ...
##               'infoXMLPath', 'doc/info.xml', 'gettingStartedDocPath', '', ...
##               'installMapPath', '');
##   zvAddonSetConfiguration ('mytools.zvaddon', c);
##
## See also: zvAddonGetConfiguration.
