#!/usr/bin/env bash
# Installs the built project into a scratch prefix and checks what a user of
# the package gets: the program and its manual page, a CMake package and a
# pkg-config file that both build a program against the shared library, a
# shared library that exports the public API and hides the drivers'
# internals, and a source tree that configures as another project's
# subproject.
#   check_package.sh BUILD_DIR SOURCE_DIR SCRATCH_DIR
set -euo pipefail
build=$1 source=$2 scratch=$3
rm -rf "$scratch" && mkdir -p "$scratch"
prefix=$scratch/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null
libdir=$(find "$prefix" -name 'libsigfile.so' -printf '%h\n' | head -1)
test -x "$prefix/bin/sigfile"
test -f "$prefix/share/man/man1/sigfile.1"
test -f "$prefix/include/sigfile/sigfile/SIGFILE.h"
test ! -e "$prefix/include/sigfile/formats/edf"

"$prefix/bin/sigfile" demo "$scratch/night.sig" --minutes 1 >/dev/null

# Only the public API leaves the shared library.
symbols=$(nm -DC --defined-only "$libdir/libsigfile.so")
grep -q 'CSigFile::Open(' <<<"$symbols" || { echo "CSigFile::Open is not exported"; exit 1; }
if grep -E ' (edf::|nk::|CEdfSigFile|CNkSigFile)' <<<"$symbols" | head -3 | grep -q .; then
  echo "format internals are exported:"; grep -E ' (edf::|nk::|CEdfSigFile|CNkSigFile)' <<<"$symbols" | head -3
  exit 1
fi

# CMake package.
cmake -S "$source/tests/package/consumer" -B "$scratch/cmake-build" -G Ninja \
      -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$scratch/cmake-build" >/dev/null
LD_LIBRARY_PATH="$libdir" "$scratch/cmake-build/consumer" "$scratch/night.sig"

# pkg-config.
export PKG_CONFIG_PATH="$libdir/pkgconfig"
g++ -o "$scratch/pc-consumer" "$source/tests/package/consumer/main.cpp" $(pkg-config --cflags --libs sigfile)
LD_LIBRARY_PATH="$libdir" "$scratch/pc-consumer" "$scratch/night.sig"

# Subproject: configures from another project's tree.
cmake -S "$source/tests/package/subproject" -B "$scratch/sub-build" -G Ninja \
      -DSIGFILE_DIR="$source" >/dev/null
echo "package checks passed"
