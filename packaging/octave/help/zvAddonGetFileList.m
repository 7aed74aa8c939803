## FILES = zvAddonGetFileList (PACKAGE)
##
## Lists the content files of an add-on package, depth first.
##
## Inputs:
##   PACKAGE  path of an existing package file (text)
##
## Outputs:
##   FILES    1xN cell array of paths inside the add-on, each starting with '/'
##            ('/code/twice.m'); an empty folder is listed under its own path;
##            a package without content gives a 1x0 cell array
##
## Errors (identifier zvaddon_builtins:zvaddon_builtins:KEY):
##   ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND, ZVADDON_BUILTINS_ERROR_GET_FILE_LIST
##
## Example:
##   files = zvAddonGetFileList ('mytools.zvaddon');
##   printf ('%s\n', files{:});
##
## See also: zvAddonAddFiles, zvAddonExtractAllFiles.
