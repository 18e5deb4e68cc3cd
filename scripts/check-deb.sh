#!/usr/bin/env bash
# Builds the Debian package from the release configuration, installs it with
# dpkg, builds outside programs against it through find_package(vyn) (an
# application, a plug-in and its host) and through pkg-config, runs them and
# the installed `vyn --version`, and removes the package again. Needs root
# (or sudo): it changes the system's packages. A vyn package that is already
# installed is left alone: the check stops.
set -euo pipefail
cd "$(dirname "$0")/.."
source=$PWD
./scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release
rm -rf build/release/packages
cpack --preset release >/dev/null
debs=(build/release/packages/vyn_*.deb)
if [ ${#debs[@]} -ne 1 ] || [ ! -f "${debs[0]}" ]; then
  echo "expected one package, found: ${debs[*]}"; exit 1
fi
deb=$(realpath "${debs[0]}")
echo "== $(basename "$deb")"
dpkg-deb -f "$deb" Package Version Depends

sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
status=$(dpkg-query -W -f='${db:Status-Status}' vyn 2>/dev/null || true)
if [ -n "$status" ] && [ "$status" != not-installed ] && [ "$status" != config-files ]; then
  echo "a vyn package is installed already; remove it (dpkg -r vyn) to run this check"
  exit 1
fi
work=$(mktemp -d)
cleanup() {
  # Purged, not only removed, so that dpkg forgets the package as well.
  $sudo dpkg --purge vyn >/dev/null || echo "could not remove the vyn package"
  rm -rf "$work"
}
trap cleanup EXIT
$sudo dpkg -i "$deb"

# Everything lands below /usr, where compilers, CMake, pkg-config and the
# dynamic loader look without being told.
for file in /usr/bin/vyn /usr/include/vyn/vyn.h /usr/lib/cmake/vyn/vynConfig.cmake \
            /usr/lib/pkgconfig/vyn.pc; do
  dpkg -S "$file" >/dev/null || { echo "not installed by the package: $file"; exit 1; }
done
version=$(dpkg-deb -f "$deb" Version)
expected="vyn ${version%-*}"
got=$(env -u LD_LIBRARY_PATH /usr/bin/vyn --version)
[ "$got" = "$expected" ] || { echo "vyn --version: '$got', not '$expected'"; exit 1; }

cmake -S "$source/tests/package/consumer" -B "$work/consumer" -G Ninja \
      -DVYN_EXAMPLE_PLUGINS="$source/examples/plugins" >/dev/null
found=$(awk -F= '/^vyn_DIR:/ {print $2}' "$work/consumer/CMakeCache.txt")
[ "$found" = /usr/lib/cmake/vyn ] || { echo "find_package(vyn) found $found"; exit 1; }
cmake --build "$work/consumer" >/dev/null
env -u LD_LIBRARY_PATH "$work/consumer/vyn_consumer"
# A plug-in built against the package, loaded by a host through it.
env -u LD_LIBRARY_PATH "$work/consumer/vyn_plugin_host" "$work/consumer/event_counter.so"
found=$(env -u PKG_CONFIG_PATH pkg-config --variable=pcfiledir vyn)
[ "$found" = /usr/lib/pkgconfig ] || { echo "pkg-config found vyn in $found"; exit 1; }
# shellcheck disable=SC2046
c++ "$source/tests/package/consumer/consumer.cpp" -o "$work/pkg_consumer" \
    $(env -u PKG_CONFIG_PATH pkg-config --cflags --libs vyn)
env -u LD_LIBRARY_PATH "$work/pkg_consumer"

trap - EXIT
cleanup
if [ -e /usr/bin/vyn ] || [ -e /usr/lib/libvyn.so.1 ] || [ -e /usr/include/vyn ]; then
  echo "files left behind after dpkg --purge vyn"; exit 1
fi
echo "Debian package check passed"
