## zvAddonExtractAllFiles (PACKAGE, FOLDER)
##
## Unpacks the content files and folders of an add-on package into FOLDER (made
## when missing), with their modification times and permissions. No path escapes
## FOLDER. The metadata records are not unpacked.
##
## Inputs:
##   PACKAGE  path of an existing package file (text)
##   FOLDER   destination folder (text)
##
## Outputs: none.
##
## Errors (identifier zvaddon_builtins:zvaddon_builtins:KEY):
##   ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND,
##   ZVADDON_BUILTINS_ERROR_EXTRACT_ALL_FILES (its message names the package, the folder
##   and the reason)
##
## Example:
##   zvAddonExtractAllFiles ('mytools.zvaddon', fullfile (tempdir (), 'mytools'));
##
## See also: zvAddonGetFileList, zvAddonAddFiles.
