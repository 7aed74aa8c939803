Which files a build takes: the manifest's globs (their rules: file_selection_test.cpp), the default
exclusions (version control, editor leftovers, packages, the manifest), and empty folders.

  $ mkdir -p a/src/deep/er a/src/.svn a/build/out a/doc/api a/empty a/.git/objects a/data
  $ for f in a/src/f.m a/src/g.m a/src/deep/er/h.m a/src/f.m~ a/src/.svn/entries a/build/out/x.o \
  >          a/doc/api/index.html a/doc/api/old.bak a/.git/objects/1 a/README a/data/build a/old.zvaddon \
  >          a/.DS_Store; do echo "$f" > "$f"; done
  $ b() { printf '{"properties": {"name": "A", "version": "1", "GUID": "g"}, "files": %s}' "$1" > a/zvaddon.json; zvaddon build -q a -o p.zvaddon && zvaddon ls p.zvaddon | xargs; }
  $ b '{}'
  /README /build/out/x.o /data/build /doc/api/index.html /doc/api/old.bak /empty /src/deep/er/h.m /src/f.m /src/g.m
  $ b '{"exclude": ["*.bak", "build/"]}'
  /README /data/build /doc/api/index.html /empty /src/deep/er/h.m /src/f.m /src/g.m
  $ b '{"include": ["src/**/*.m", "READM?", "doc/"], "exclude": ["[o]ld.*"]}'
  /README /doc/api/index.html /src/deep/er/h.m /src/f.m /src/g.m

Without the default exclusions, version-control folders and editor leftovers come along (the
package being written never does).

  $ b '{"defaultExcludes": false, "include": ["src/", ".git/", "old.zvaddon"]}'
  /.git/objects/1 /old.zvaddon /src/.svn/entries /src/deep/er/h.m /src/f.m /src/f.m~ /src/g.m
