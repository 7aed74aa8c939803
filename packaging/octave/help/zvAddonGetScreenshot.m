## IMAGE = zvAddonGetScreenshot (PACKAGE)
##
## Reads the add-on's screenshot.
##
## Inputs:
##   PACKAGE  path of an existing package file (text)
##
## Outputs:
##   IMAGE    the image file's bytes as base64 text; '' when there is no screenshot
##
## Errors (identifier zvaddon_builtins:zvaddon_builtins:KEY):
##   ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND, ZVADDON_BUILTINS_ERROR_GET_SCREENSHOT
##
## Example:
##   bytes = matlab.net.base64decode (zvAddonGetScreenshot ('mytools.zvaddon'));
##   fid = fopen ('screenshot.png', 'w'); fwrite (fid, bytes); fclose (fid);
##
## See also: zvAddonSetScreenshot.
