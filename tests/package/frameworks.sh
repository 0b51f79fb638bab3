#!/usr/bin/env bash
# Compiles a host and a helper agent against the public headers laid out as the two frameworks of a
# Mac, with modules and without. Nothing is linked.
#
# Usage: frameworks.sh ROOT CLANG
set -euo pipefail
root=$1
clang=$2
frameworks=$(mktemp -d)
trap 'rm -rf "$frameworks"' EXIT

for library in ClientComm QBDKRProductClient; do
  framework=$frameworks/$library.framework
  mkdir -p "$framework/Modules"
  cp -r "$root/include/$library" "$framework/Headers"
  headers=$(cd "$framework/Headers" && printf '  header "%s"\\n' *.h)
  sed -e "s/@QBDKR_FRAMEWORK@/$library/" -e "s/@QBDKR_FRAMEWORK_HEADERS@/$headers/" \
    "$root/cmake/module.modulemap.in" >"$framework/Modules/module.modulemap"
done
for program in host agent; do
  for modules in "" "-fmodules -fcxx-modules -fmodules-cache-path=$frameworks/cache"; do
    # shellcheck disable=SC2086
    "$clang" -std=c++20 -fsyntax-only -Wall -Wextra -Wpedantic -Werror \
      -Wquoted-include-in-framework-header $modules -F "$frameworks" \
      "$root/tests/package/consumer/$program.cpp"
  done
done
[ "$(find "$frameworks/cache" -name '*.pcm' | wc -l)" -ge 2 ] # both were used as modules
echo "frameworks: a host and a helper agent compile"
