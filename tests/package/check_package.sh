#!/usr/bin/env bash
# check_package.sh BUILD_DIR SOURCE_DIR
# Installs the build into a temporary prefix and checks it from outside:
# exports, headers, find_package, pkg-config, and the installed program.
set -euo pipefail
build=$1
source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix="$work/prefix"

cmake --install "$build" --prefix "$prefix" >/dev/null
library=$(find "$prefix" -name 'libvyn.so' | head -n 1)
[ -n "$library" ] || { echo "libvyn.so not installed"; exit 1; }
[ -f "$prefix/include/vyn/vyn.h" ] || { echo "umbrella header not installed"; exit 1; }

# Exactly the interface is exported: the accessors and free functions are
# there, the platform layer's internals are not.
nm -D --defined-only "$library" | c++filt >"$work/exports"
for name in GetVYNLanguage GetVYNSystemLogEx GetVYNThreadMonitor GetVYNSerialPort \
            GetVYNMessageQueue GetVYNPluginManager GetVYNCommandSet GetVYNCommandDump \
            GetVYNCommandHelper GetVYNIniManager GetVYNMemoryDump GetVYNCommandLine \
            GetVYNFileHeader GetVYNSTM32BootLoader GetVYNMain \
            'CVYNPluginManager::LoadPlugin(std::__cxx11::basic_string' 'CVYNPlugin::~CVYNPlugin()' \
            'GetVYNStatusAsString[abi:cxx11](int)' 'GetSystemTimeInMs()' 'ConvertDateToMs(SYSTEMTIME)' \
            ShowMessageBox; do
  grep -q -F " $name" "$work/exports" || { echo "not exported: $name"; exit 1; }
done
internal='^[0-9a-f]+ [A-Za-z] (vyn::platform::|vyn::language::|vyn::seams::|vyn::LogAddOutput)'
if grep -q -E "$internal" "$work/exports"; then
  echo "internal symbols exported:"; grep -E "$internal" "$work/exports"
  exit 1
fi
soname=$(objdump -p "$library" | awk '/SONAME/ {print $2}')
[ "$soname" = "libvyn.so.1" ] || { echo "unexpected soname: $soname"; exit 1; }

# The installed headers include only installed headers (that each compiles
# on its own is checked by the build: vyn_public_headers_alone).
missing=$(cd "$prefix/include" &&
  grep -H -o -E '^\s*#\s*include\s*("[^"]+"|<vyn/[^>]+>)' $(find vyn -name '*.h') |
  sed -E 's/^([^:]+):.*["<]([^">]+)[">]$/\1 \2/' |
  while read -r header included; do [ -f "$included" ] || echo "$header includes $included"; done)
[ -z "$missing" ] || { echo "installed headers include what is not installed:"; echo "$missing"; exit 1; }
if find "$prefix/include" -path '*internal*' -o -path '*/platform/*' | grep -q .; then
  echo "internal headers installed:"; find "$prefix/include" -path '*internal*' -o -path '*/platform/*'
  exit 1
fi

# An outside CMake project finds the package.
cmake -S "$source/tests/package/consumer" -B "$work/consumer" -G Ninja \
      -DCMAKE_PREFIX_PATH="$prefix" -DVYN_EXAMPLE_PLUGINS="$source/examples/plugins" >/dev/null
cmake --build "$work/consumer" >/dev/null
"$work/consumer/vyn_consumer"
# Our own plug-in, built against the installed headers, is loaded, sent
# events and unloaded through the installed library.
"$work/consumer/vyn_plugin_host" "$work/consumer/event_counter.so"

# And a plain compiler call through pkg-config.
export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name vyn.pc | head -n 1)")
# shellcheck disable=SC2046
c++ "$source/tests/package/consumer/consumer.cpp" -o "$work/pkg_consumer" \
    $(pkg-config --cflags --libs vyn)
LD_LIBRARY_PATH="$(dirname "$library")" "$work/pkg_consumer"

# A program that crashes, linked against the installed library, finds the
# installed helper programs and leaves a minidump.
for helper in vyn-dump-writer vyn-rundll; do
  [ -n "$(find "$prefix" -path "*/libexec/vyn/$helper" -perm -u+x)" ] ||
    { echo "helper not installed: $helper"; exit 1; }
done
mkdir "$work/crash"
status=0
(cd "$work/crash" && env -u DISPLAY -u WAYLAND_DISPLAY -u VYN_LIBEXEC_DIR \
   "$work/consumer/vyn_crash_consumer") || status=$?
[ "$status" -eq 1 ] || { echo "crash consumer ended with $status, not 1"; exit 1; }
dump=$(find "$work/crash/Dumps" -name 'package *.dmp' | head -n 1)
[ -n "$dump" ] && [ "$(head -c 4 "$dump")" = "MDMP" ] || { echo "no minidump after the crash"; exit 1; }

# The installed program finds its own library, with no help from the
# environment, and still does after the whole tree has moved.
expected="vyn $(awk '/^Version:/ {print $2}' "$(find "$prefix" -name vyn.pc | head -n 1)")"
check_program() {
  local version
  version=$(env -u LD_LIBRARY_PATH "$1/bin/vyn" --version 2>&1) ||
    { echo "$1/bin/vyn --version failed: $version"; exit 1; }
  [ "$version" = "$expected" ] || { echo "$1/bin/vyn --version: '$version', not '$expected'"; exit 1; }
}
check_program "$prefix"
if readelf -d "$prefix/bin/vyn" "$library" | grep -F "$build"; then
  echo "an installed binary still searches the build tree"; exit 1
fi
mv "$prefix" "$work/moved"
check_program "$work/moved"

echo "package check passed"
