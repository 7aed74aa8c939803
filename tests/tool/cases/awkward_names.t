Files whose names the package must escape (spaces, '%', '#', ':', brackets, non-ASCII, a trailing
dot, "_rels") keep their names through build, ls -l (sizes found under the escaped part names),
inspect's tree and extract. The package lists names in UTF-16 order.

  $ mkdir -p "a/dir with space/日本" "a/[x]/_rels" "a/pct%20"
  $ printf 1 > "a/dir with space/日本/🚀 launch&go.txt"
  $ printf 22 > "a/[x]/_rels/.rels"
  $ printf 333 > "a/[x]/trailing."
  $ printf 4444 > "a/pct%20/a%41:b#c.m"
  $ printf 55555 > "a/Ünïcödé.txt"
  $ printf '{"properties": {"name": "N", "version": "1", "GUID": "g"}}' > zvaddon.json
  $ zvaddon build -q -m zvaddon.json a -o n.zvaddon
  $ zvaddon ls -l n.zvaddon
             2  /[x]/_rels/.rels
             3  /[x]/trailing.
             1  /dir with space/日本/🚀 launch&go.txt
             4  /pct%20/a%41:b#c.m
             5  /Ünïcödé.txt
  $ zvaddon inspect n.zvaddon | sed -n '/^files/,$p'
  files (5, 15 B)
    [x]/
      _rels/
        .rels  2 B
      trailing.  3 B
    dir with space/
      日本/
        🚀 launch&go.txt  1 B
    pct%20/
      a%41:b#c.m  4 B
    Ünïcödé.txt  5 B
  $ zvaddon extract n.zvaddon out
  extracted 5 files (15 B) into out
  $ diff -r a out && echo same
  same
