## zvAddonSetScreenshot (PACKAGE, IMAGE)
##
## Stores an image file as the add-on's screenshot (replacing an earlier one); it
## doubles as the package's thumbnail. PNG, GIF, BMP and TIFF are recognised by the
## file's extension; any other file is stored as JPEG.
##
## Inputs:
##   PACKAGE  path of an existing package file (text)
##   IMAGE    path of the image file (text)
##
## Outputs: none.
##
## Errors (identifier zvaddon_builtins:zvaddon_builtins:KEY):
##   ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND,
##   ZVADDON_BUILTINS_ERROR_SET_SCREENSHOT (its message names the image, then the package)
##
## Example:
##   zvAddonSetScreenshot ('mytools.zvaddon', 'doc/images/screenshot.png');
##
## See also: zvAddonGetScreenshot.
