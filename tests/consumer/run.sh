#!/bin/sh
# Installs the build tree into a scratch prefix and checks it with check.sh.
# Usage: run.sh BUILD_DIR WORK_DIR LIBDIR "EXTRA_CXXFLAGS"
set -eu
here=$(cd "$(dirname "$0")" && pwd)
build=$1
work=$2
libdir=$3
extra=${4:-}
prefix="$work/prefix"

rm -rf "$work"
mkdir -p "$work"
cmake --install "$build" --prefix "$prefix" >"$work/install.log"
exec "$here/check.sh" "$prefix" "$work/check" "$libdir" "$extra"
