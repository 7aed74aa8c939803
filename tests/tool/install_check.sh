#!/usr/bin/env bash
# cmake --install into a scratch prefix, then use what was installed as an outsider would: every
# public header compiles, a consumer finds the library through find_package(zvaddon) and through
# pkg-config and runs, the man page renders, and the installed tool (with its own rpath) builds and
# verifies the example. With "deb", the tree checked is the Debian package that cpack makes of the
# build, unpacked with dpkg -x, whose Depends must name the package of every system library it loads.
# Usage: install_check.sh BUILD_DIR SOURCE_DIR SCRATCH [deb]
set -euo pipefail
build=$1
source=$2
scratch=$3
rm -rf "$scratch"
mkdir -p "$scratch"
prefix="$scratch/prefix"
fail() { echo "install_check: $*" >&2; exit 1; }

if [ "${4:-}" = deb ]; then
  (cd "$build" && cpack -G DEB -B "$scratch/deb" -D CPACK_PACKAGING_INSTALL_PREFIX=/usr) > "$scratch/install.log" 2>&1 \
    || fail "cpack failed: $(tail -5 "$scratch/install.log")"
  deb=$(echo "$scratch"/deb/zvaddon_*.deb)
  dpkg -x "$deb" "$scratch/root"
  prefix="$scratch/root/usr"
  depends=$(dpkg-deb -f "$deb" Depends)
  for binary in "$prefix"/bin/zvaddon $(find "$prefix" -name "*.so*" -type f); do
    for name in $(objdump -p "$binary" | awk '$1 == "NEEDED" { print $2 }'); do
      lib=$(ldd "$binary" | awk -v name="$name" '$1 == name { print $3 } $1 ~ ("/" name "$") { print $1 }')
      [ -n "$lib" ] || fail "$binary needs $name, which is not found"
      [[ $lib == "$prefix"/* ]] && continue
      owner=$( (dpkg -S "$lib" 2>/dev/null || dpkg -S "/usr$lib") | cut -d: -f1 | head -1)
      [[ ", $depends," == *", $owner "* || ", $depends," == *", $owner,"* ]] || fail "Depends lacks $owner ($name): $depends"
    done
  done
else
  cmake --install "$build" --prefix "$prefix" > "$scratch/install.log" || fail "cmake --install failed: $(tail -5 "$scratch/install.log")"
fi
found=$(cd "$prefix" && find . -name libzvaddon.so | head -1)
[ -n "$found" ] || fail "no libzvaddon.so under $prefix"
libdir=$(dirname "${found#./}")
for f in bin/zvaddon "$libdir/libzvhost_reference.so" "$libdir/cmake/zvaddon/zvaddonConfig.cmake" \
         "$libdir/cmake/zvaddon/zvaddonConfigVersion.cmake" "$libdir/pkgconfig/zvaddon.pc" \
         include/zvaddon/package/addon_package.h include/zvaddon/gateway/zvaddon.h \
         share/zvaddon/messages/zvaddon_builtins.json share/man/man1/zvaddon.1; do
  [ -e "$prefix/$f" ] || fail "not installed: $f"
done
for xsd in "$source"/resources/schemas/*.xsd; do
  [ -e "$prefix/share/zvaddon/schemas/$(basename "$xsd")" ] || fail "schema not installed: $(basename "$xsd")"
done
# Internal headers stay out.
[ ! -e "$prefix/include/zvaddon/opc/detail" ] || fail "internal headers installed"

# Every installed header, together: nothing they include is missing.
(cd "$prefix/include/zvaddon" && find . -name '*.h' | sed 's|^\./|#include "|; s|$|"|') > "$scratch/all_headers.cpp"
g++ -std=c++20 -fsyntax-only -I "$prefix/include/zvaddon" "$scratch/all_headers.cpp" 2> "$scratch/headers.log" \
  || fail "installed headers do not compile: $(head -5 "$scratch/headers.log")"

# The README's consumer programs, built through find_package(zvaddon) and through pkg-config.
python3 - "$source/README.md" "$scratch" <<'PY'
import pathlib, re, sys
for name, body in re.findall(r"^```\S+ test=readme file=(consumer/\S+)\n(.*?)^```", pathlib.Path(sys.argv[1]).read_text(), re.S | re.M):
    (pathlib.Path(sys.argv[2]) / name).parent.mkdir(parents=True, exist_ok=True)
    (pathlib.Path(sys.argv[2]) / name).write_text(body)
PY
cmake -S "$scratch/consumer" -B "$scratch/consumer/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" > "$scratch/consumer.log" 2>&1 \
  || fail "find_package(zvaddon) failed: $(tail -5 "$scratch/consumer.log")"
cmake --build "$scratch/consumer/build" >> "$scratch/consumer.log" 2>&1 || fail "consumer does not build: $(tail -5 "$scratch/consumer.log")"
export PKG_CONFIG_PATH="$prefix/$libdir/pkgconfig"
# shellcheck disable=SC2046
g++ "$scratch/consumer/hash.cpp" -o "$scratch/consumer/by-pkg-config" $(pkg-config --cflags --libs zvaddon) -lzvhost_reference \
  2> "$scratch/pkg-config.log" || fail "consumer does not build with pkg-config: $(head -5 "$scratch/pkg-config.log")"
digest=$(openssl dgst -sha512 -binary "$source/README.md" | base64 -w0)
[ "$("$scratch/consumer/build/hash" "$source/README.md")" = "$digest" ] || fail "consumer (CMake) gave a wrong digest"
[ "$(LD_LIBRARY_PATH="$prefix/$libdir" "$scratch/consumer/by-pkg-config" "$source/README.md")" = "$digest" ] \
  || fail "consumer (pkg-config) gave a wrong digest"

# The installed tool loads the installed libraries, not the build tree's.
loaded=$(ldd "$prefix/bin/zvaddon" | awk '$1 ~ /^libzvaddon\.so/ { print $3 }')
[ "$(dirname "$(realpath "$loaded")")" = "$(realpath "$prefix/$libdir")" ] \
  || fail "the installed tool loads $loaded, not the installed library"
tool="$prefix/bin/zvaddon"
"$tool" build -q --sign "$source/examples" -o "$scratch/example.zvaddon" || fail "installed tool cannot build the example"
"$tool" verify -q "$scratch/example.zvaddon" || fail "installed tool: example does not verify"
message=$(ZVADDON_MESSAGE_DIR="$prefix/share/zvaddon/messages" "$tool" ls "$scratch/none.zvaddon" 2>&1 || true)
[ "$message" = "zvaddon ls: The add-on package '$scratch/none.zvaddon' does not exist. (zvaddon_builtins:zvaddon_builtins:ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND)" ] \
  || fail "installed catalogue not used: $message"
man -l "$prefix/share/man/man1/zvaddon.1" 2>&1 | grep -q "build, inspect, sign, verify and unpack add-on packages" \
  || fail "the man page does not render"
echo "install_check: $(find "$prefix" -type f | wc -l) files installed under $prefix; consumers build and run"
