## zvAddonAddFolders (PACKAGE, FOLDERS)
##
## Adds folders to the content of an add-on package, so that empty folders survive
## packaging. A folder already there is no error.
##
## Inputs:
##   PACKAGE  path of an existing package file (text)
##   FOLDERS  cell array of folder paths inside the add-on ('data/cache'), or one as
##            text; any other kind of input adds nothing and is no error
##
## Outputs: none.
##
## Errors (identifier zvaddon_builtins:zvaddon_builtins:KEY):
##   ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND, ZVADDON_BUILTINS_ERROR_ADD_FOLDERS
##
## Example:
##   zvAddonAddFolders ('mytools.zvaddon', {'data', 'results/plots'});
##
## See also: zvAddonAddFiles, zvAddonGetFileList.
