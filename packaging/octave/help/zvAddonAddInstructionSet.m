## zvAddonAddInstructionSet (PACKAGE, FILE)
##
## Adds an instruction-set file (the XML the installer follows) to an add-on package,
## under the file's own name. A second file of the same name is refused.
##
## Inputs:
##   PACKAGE  path of an existing package file (text)
##   FILE     path of the instruction-set file (text)
##
## Outputs: none.
##
## Errors (identifier zvaddon_builtins:zvaddon_builtins:KEY):
##   ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND,
##   ZVADDON_BUILTINS_ERROR_SET_INSTRUCTION_SETS
##
## Example:
##   zvAddonAddInstructionSet ('mytools.zvaddon', 'install/setup.xml');
##
## See also: zvAddonCreate.
