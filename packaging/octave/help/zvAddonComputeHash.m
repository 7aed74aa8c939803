## HASH = zvAddonComputeHash (FILE)
##
## The SHA-512 digest of any file's bytes, as base64 text: a fingerprint of a package
## to publish beside it. The same bytes give the same text under any name.
##
## Inputs:
##   FILE  path of the file (text)
##
## Outputs:
##   HASH  88 characters of base64 text
##
## Errors (identifier zvaddon_builtins:zvaddon_builtins:KEY):
##   ZVADDON_BUILTINS_FILE_NONEXISTENT   the file does not exist
##   ZVADDON_BUILTINS_ERROR_COMPUTE_HASH
##
## Example:
##   zvAddonComputeHash ('mytools.zvaddon')
##
## See also: zvAddonCreate.
