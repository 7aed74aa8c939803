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
##   text = zvAddonGetScreenshot ('mytools.zvaddon');  % base64 of the image's bytes
##   fid = fopen ('screenshot.b64', 'w'); fputs (fid, text); fclose (fid);
##   % then, in a shell: base64 -d screenshot.b64 > screenshot.png
##
## See also: zvAddonSetScreenshot.
