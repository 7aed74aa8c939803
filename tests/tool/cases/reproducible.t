With SOURCE_DATE_EPOCH a build is reproducible: the same folder gives the same bytes (past a second
boundary, so that a wall clock read shows), every entry is dated the epoch (content files keep an
older time of their own), and two epochs differ only where a time is written.

  $ b() { SOURCE_DATE_EPOCH=$1 zvaddon build -q --sign "$EXAMPLES" -o $2; }
  $ b 1700000000 a.zvaddon && sleep 1.1 && b 1700000000 again.zvaddon && cmp a.zvaddon again.zvaddon
  $ b 1500000000 b.zvaddon
  $ python3 - a.zvaddon b.zvaddon 1700000000 <<'PY'
  > import calendar, re, sys, zipfile
  > a, b = zipfile.ZipFile(sys.argv[1]), zipfile.ZipFile(sys.argv[2])
  > times = rb"(<(dcterms:created|dcterms:modified|mdssi:Value|DigestValue|SignatureValue)[^>]*>)[^<]*"
  > mask = lambda z, e: re.sub(times, rb"\1*", z.read(e))
  > for x, y in zip(a.infolist(), b.infolist()):
  >     if x.filename != y.filename or mask(a, x) != mask(b, y): print("differs:", x.filename, y.filename)
  >     t = calendar.timegm(x.date_time + (0, 0, 0))
  >     if t > int(sys.argv[3]) or (t != int(sys.argv[3]) and not x.filename.startswith("fsroot/")): print("dated", x.filename, x.date_time)
  > print(len(a.infolist()), len(b.infolist()), "entries alike")
  > PY
  34 34 entries alike
  $ unzip -p a.zvaddon docProps/core.xml _xmlsignatures/sig1.xml | grep -o '2023-11-14T22:13:20Z' | wc -l
  3
  $ unzip -p b.zvaddon docProps/core.xml | grep -o '2017-07-14T02:40:00Z' | wc -l
  2
