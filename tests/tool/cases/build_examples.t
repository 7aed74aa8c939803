The example add-on built with --sign: inspect shows every record of its manifest, the screenshot,
the instruction set and the valid signature; the package holds what the manifest's patterns select
(not the manifest, not examples/octave), and unpacked the files are the folder's own.

  $ zvaddon build "$EXAMPLES" -o signal.zvaddon --sign
  built signal.zvaddon: 18 files (9.4 kB), signed
  $ zvaddon inspect --no-files signal.zvaddon
  package             signal.zvaddon \([0-9.]+ kB\) (re)
  name                Signal Toolkit
  version             2.1.0
  type                ZORVAN Toolbox
  release             R2026b
  GUID                6f1c2a4e-8d3b-4c5f-9a7e-2b1d0c9e8f34
  summary             Filters, smoothing and spectra for sampled signals
  author              Ada Lindqvist, ada.lindqvist@meridian-signal.example, Meridian Signal Works
  description         Zero-phase low-pass and high-pass FIR filters, a centred moving average without edge dip, a one-sided power spectrum, and the Filter Explorer app to try them on a test signal.
  signature           valid
  sha512              [A-Za-z0-9+/]{86}== (re)
  requirements
    platforms         win, linux, mac, ZORVANOnline=false
    releases          R2022a to R2024b
    product           ZORVAN 24.1 ZV
    support package   Audio Device Support 3.0 ZV_AUDIO_IO
    add-on            Numeric Helpers 1.2.0 to 1.9.9 [0a4f7c1e-3b2d-4e6f-8a9b-1c2d3e4f5a6b]
  configuration
    search path       sigtool, apps
    class path        java/sigtool-helpers.jar
    info XML          doc/info.xml
    getting started   doc/gettingStarted.html
    install map       install/sigtoolSetup.xml
  license             BSD-3-Clause, 1488 bytes of text
  examples
    Filtering         Splitting a signal into bands, Smoothing a noisy measurement
    Spectral analysis Finding tones in a spectrum
  revisions
    2.1.0             2024-05-02  Filter Explorer app; spectra of odd-length signals.
    2.0.0             2023-02-14  Zero-phase filtering; highpass is now the complement of lowpass.
    1.0.0             2021-09-30  First release.
  apps
    Filter Explorer   apps/filterExplorer.zvapp, installed by default
  screenshot          /metadata/primaryScreenShot.png (886 B)
  instruction sets    sigtoolSetup.xml
  $ zvaddon ls signal.zvaddon | cut -d/ -f2 | sort -u | xargs
  LICENSE.txt README.md apps demos doc install java sigtool
  $ zvaddon extract -q signal.zvaddon out && for d in sigtool apps demos doc install java; do diff -r "$EXAMPLES/$d" "out/$d"; done
  $ zvaddon get signal.zvaddon license | python3 -c 'import json, sys; sys.stdout.write(json.load(sys.stdin)["text"])' | cmp - "$EXAMPLES/LICENSE.txt"
