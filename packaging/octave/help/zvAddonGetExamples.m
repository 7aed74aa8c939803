## CATEGORIES = zvAddonGetExamples (PACKAGE)
##
## Reads the examples of an add-on package.
##
## Inputs:
##   PACKAGE     path of an existing package file (text)
##
## Outputs:
##   CATEGORIES  structure array with the fields name (text) and examples, one element
##               per category in the stored order; 0x0 when there is none. Each
##               examples field is a structure array with the fields name, type,
##               source, main, thumbnail (texts) and images (1xN cell array of texts),
##               or empty for a category without examples.
##
## Errors (identifier zvaddon_builtins:zvaddon_builtins:KEY):
##   ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND, ZVADDON_BUILTINS_ERROR_GET_EXAMPLES
##
## Example:
##   for c = zvAddonGetExamples ('mytools.zvaddon')
##     printf ('%s: %d examples\n', c.name, numel (c.examples));
##   end
##
## See also: zvAddonSetExamples.
