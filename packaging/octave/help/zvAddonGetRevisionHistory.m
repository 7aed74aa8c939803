## REVISIONS = zvAddonGetRevisionHistory (PACKAGE)
##
## Reads the revision history of an add-on package.
##
## Inputs:
##   PACKAGE    path of an existing package file (text)
##
## Outputs:
##   REVISIONS  structure array with the fields date, version and description (texts),
##              one element per revision in the stored order; 0x0 when there is none
##
## Errors (identifier zvaddon_builtins:zvaddon_builtins:KEY):
##   ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND, ZVADDON_BUILTINS_ERROR_GET_REVISION_HISTORY
##
## Example:
##   r = zvAddonGetRevisionHistory ('mytools.zvaddon');
##   for k = 1:numel (r), printf ('%s  %s\n', r(k).version, r(k).date); end
##
## See also: zvAddonSetRevisionHistory.
