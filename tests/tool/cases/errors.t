Failures are one line on stderr: the command, the host's catalogue text and the message identifier;
the exit status says what kind of failure it was (1 host error, 2 usage).

  $ zvaddon inspect missing.zvaddon
  zvaddon inspect: The add-on package 'missing.zvaddon' does not exist. (zvaddon_builtins:zvaddon_builtins:ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND)
  [1]

Usage errors.

  $ zvaddon get missing.zvaddon licence
  zvaddon get: no record named 'licence'; records: properties, systemRequirements, configuration, license, examples, revisionHistory, apps
  [2]
  $ zvaddon frobnicate
  zvaddon: no command 'frobnicate' (zvaddon --help lists them)
  [2]
  $ zvaddon --help | grep -c '^Exit status: 0 success'
  1
