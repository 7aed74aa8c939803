#!/usr/bin/env bash
# cmake --install into a scratch prefix (with "deb": the Debian package cpack makes, unpacked with
# dpkg -x, whose Depends must name the package of every system library it loads), then used as an
# outsider would: every public header compiles, the README's consumer builds through find_package and
# pkg-config and runs, the man page renders, the installed tool (its own rpath, the installed
# catalogue) builds and verifies the example. Usage: install_check.sh BUILD_DIR SOURCE_DIR SCRATCH [deb]
set -euo pipefail
build=$1 source=$2 scratch=$3 prefix=$3/prefix
rm -rf "$scratch" && mkdir -p "$scratch"
fail() { echo "install_check: $*" >&2; exit 1; }
logged() { "$@" >> "$scratch/log" 2>&1 || fail "$* failed: $(tail -5 "$scratch/log")"; }

if [ "${4:-}" = deb ]; then
  (cd "$build" && logged cpack -G DEB -B "$scratch/deb" -D CPACK_PACKAGING_INSTALL_PREFIX=/usr)
  deb=$(echo "$scratch"/deb/zvaddon_*.deb) prefix=$scratch/root/usr
  dpkg -x "$deb" "$scratch/root"
  depends=", $(dpkg-deb -f "$deb" Depends),"
  for binary in "$prefix"/bin/zvaddon $(find "$prefix" -name "*.so*" -type f); do
    for name in $(objdump -p "$binary" | awk '$1 == "NEEDED" { print $2 }'); do
      lib=$(ldd "$binary" | awk -v name="$name" '$1 == name { print $3 } $1 ~ ("/" name "$") { print $1 }')
      [ -n "$lib" ] || fail "$binary needs $name, which is not found"
      [[ $lib == "$prefix"/* ]] && continue
      owner=$( (dpkg -S "$lib" 2>/dev/null || dpkg -S "/usr$lib") | cut -d: -f1 | head -1)
      [[ $depends == *", $owner "* || $depends == *", $owner,"* ]] || fail "Depends lacks $owner ($name): $depends"
    done
  done
else
  logged cmake --install "$build" --prefix "$prefix"
fi
found=$(cd "$prefix" && find . -name libzvaddon.so | head -1)
libdir=$(dirname "${found#./}")
for f in bin/zvaddon "$libdir"/{libzvaddon.so,libzvhost_reference.so,cmake/zvaddon/zvaddonConfig.cmake} \
         "$libdir"/{cmake/zvaddon/zvaddonConfigVersion.cmake,pkgconfig/zvaddon.pc} share/man/man1/zvaddon.1 \
         include/zvaddon/{package/addon_package.h,gateway/zvaddon.h} share/zvaddon/messages/zvaddon_builtins.json \
         $(cd "$source/resources" && ls schemas/*.xsd | sed 's|^|share/zvaddon/|'); do
  [ -e "$prefix/$f" ] || fail "not installed: $f"
done
[ ! -e "$prefix/include/zvaddon/opc/detail" ] || fail "internal headers installed"
(cd "$prefix/include/zvaddon" && find . -name '*.h' | sed 's|^\./|#include "|; s|$|"|') > "$scratch/all_headers.cpp"
logged g++ -std=c++20 -fsyntax-only -I "$prefix/include/zvaddon" "$scratch/all_headers.cpp"

python3 - "$source/README.md" "$scratch" <<'PY'
import pathlib, re, sys
for name, body in re.findall(r"^```\S+ test=readme file=(consumer/\S+)\n(.*?)^```", pathlib.Path(sys.argv[1]).read_text(), re.S | re.M):
    (pathlib.Path(sys.argv[2]) / name).parent.mkdir(parents=True, exist_ok=True)
    (pathlib.Path(sys.argv[2]) / name).write_text(body)
PY
logged cmake -S "$scratch/consumer" -B "$scratch/consumer/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix"
logged cmake --build "$scratch/consumer/build"
# shellcheck disable=SC2046
logged g++ "$scratch/consumer/hash.cpp" -o "$scratch/consumer/by-pkg-config" \
  $(PKG_CONFIG_PATH="$prefix/$libdir/pkgconfig" pkg-config --cflags --libs zvaddon) -lzvhost_reference
digest=$(openssl dgst -sha512 -binary "$source/README.md" | base64 -w0)
[ "$("$scratch/consumer/build/hash" "$source/README.md")" = "$digest" ] || fail "consumer (CMake) gave a wrong digest"
[ "$(LD_LIBRARY_PATH="$prefix/$libdir" "$scratch/consumer/by-pkg-config" "$source/README.md")" = "$digest" ] \
  || fail "consumer (pkg-config) gave a wrong digest"

loaded=$(ldd "$prefix/bin/zvaddon" | awk '$1 ~ /^libzvaddon\.so/ { print $3 }')
[ "$(dirname "$(realpath "$loaded")")" = "$(realpath "$prefix/$libdir")" ] || fail "the installed tool loads $loaded"
tool=$prefix/bin/zvaddon
logged "$tool" build -q --sign "$source/examples" -o "$scratch/example.zvaddon"
logged "$tool" verify -q "$scratch/example.zvaddon"
message=$(ZVADDON_MESSAGE_DIR="$prefix/share/zvaddon/messages" "$tool" ls "$scratch/none.zvaddon" 2>&1 || true)
[ "$message" = "zvaddon ls: The add-on package '$scratch/none.zvaddon' does not exist. (zvaddon_builtins:zvaddon_builtins:ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND)" ] \
  || fail "installed catalogue not used: $message"
man -l "$prefix/share/man/man1/zvaddon.1" 2>&1 | grep -q "build, inspect, sign, verify and unpack add-on packages" \
  || fail "the man page does not render"
echo "install_check: $(find "$prefix" -type f | wc -l) files installed under $prefix; consumers build and run"
