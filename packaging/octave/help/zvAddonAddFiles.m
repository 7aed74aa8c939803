## zvAddonAddFiles (PACKAGE, FILES, NAMES)
##
## Adds content files to an add-on package: FILES{i} on disk is stored under the
## path NAMES{i} inside the add-on, with its modification time and permissions.
##
## Inputs:
##   PACKAGE  path of an existing package file (text)
##   FILES    cell array of paths of files on disk, or one path as text
##   NAMES    cell array of paths inside the add-on ('code/f.m'), as many as FILES,
##            or one path as text when FILES is text
##   A cell array with a text, or any other kind of input, adds nothing and is no
##   error; empty cell arrays do not even open the package.
##
## Outputs: none. A failed call (a name already in the package, a file that cannot be
## read) leaves the file as it was.
##
## Errors (identifier zvaddon_builtins:zvaddon_builtins:KEY):
##   ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND, ZVADDON_BUILTINS_ERROR_ADD_FILES
##
## Example:
##   zvAddonAddFiles ('mytools.zvaddon', {'/home/ada/tools/twice.m'}, {'code/twice.m'});
##
## See also: zvAddonAddFolders, zvAddonGetFileList, zvAddonExtractAllFiles.
