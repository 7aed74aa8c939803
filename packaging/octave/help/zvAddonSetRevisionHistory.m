## zvAddonSetRevisionHistory (PACKAGE, REVISIONS)
##
## Stores the revision history of an add-on package, replacing an earlier one.
##
## Inputs:
##   PACKAGE    path of an existing package file (text)
##   REVISIONS  structure array, one element per revision, kept in element order;
##              every field is text and must be present:
##     date         the release date, free text ('2024-05-02')
##     version      the version released
##     description  what changed, line breaks kept
##              An empty value ([] or struct ([])) stores an empty history.
##
## Outputs: none.
##
## Errors (identifier zvaddon_builtins:zvaddon_builtins:KEY):
##   ZVADDON_BUILTINS_ERROR_NON_STRUCT, ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND,
##   ZVADDON_BUILTINS_ERROR_SET_REVISION_HISTORY
##
## Example:
##   r = struct ('date', {'2024-05-02', '2021-09-30'}, 'version', {'2.0.0', '1.0.0'}, ...
##               'description', {'Faster filters.', 'First release.'});
##   zvAddonSetRevisionHistory ('mytools.zvaddon', r);
##
## See also: zvAddonGetRevisionHistory.
