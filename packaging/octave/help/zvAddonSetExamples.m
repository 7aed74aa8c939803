## zvAddonSetExamples (PACKAGE, CATEGORIES)
##
## Stores the examples an add-on offers, grouped into named categories, replacing
## earlier ones. Nothing is sorted or merged: two categories of the same name stay two.
##
## Inputs:
##   PACKAGE     path of an existing package file (text)
##   CATEGORIES  structure array, one element per category, in order:
##     name        the category's name (text)
##     examples    structure array, one element per example, or [] for none:
##       name        the example's name (text)
##       type        its kind, free text ('script')
##       source      path of its source file inside the add-on (text)
##       main        path of its main file (text)
##       thumbnail   path of its thumbnail image (text)
##       images      cell array of paths of further images ({} for none)
##     Every field must be present; '' stands for none. An empty CATEGORIES stores
##     no examples.
##
## Outputs: none.
##
## Errors (identifier zvaddon_builtins:zvaddon_builtins:KEY):
##   ZVADDON_BUILTINS_ERROR_NON_STRUCT, ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND,
##   ZVADDON_BUILTINS_ERROR_SET_EXAMPLES
##
## Example:
##   ex = struct ('name', 'Smoothing a noisy signal', 'type', 'script', ...
##                'source', 'demos/smoothingDemo.m', 'main', 'demos/smoothingDemo.m', ...
##                'thumbnail', 'doc/images/screenshot.png', 'images', {{}});
##   zvAddonSetExamples ('mytools.zvaddon', struct ('name', 'Filtering', 'examples', ex));
##   c = zvAddonGetExamples ('mytools.zvaddon');
##   c(1).examples(1).main
##
## See also: zvAddonGetExamples.
