#!/bin/sh
# Installs the build tree into a scratch prefix and builds a small program against it,
# once through find_package(qlmail) and once through pkg-config.
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
test -f "$prefix/include/qlmail/foundation/QLExceptionParser.h"
test -f "$prefix/$libdir/pkgconfig/qlmail.pc"
test -f "$prefix/$libdir/cmake/qlmail/qlmailConfig.cmake"

# find_package
cmake -S "$here" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$prefix" \
      -DCMAKE_CXX_FLAGS="$extra" >"$work/cmake.log"
cmake --build "$work/cmake" >>"$work/cmake.log"
LD_LIBRARY_PATH="$prefix/$libdir" "$work/cmake/consumer"

# pkg-config
flags=$(PKG_CONFIG_PATH="$prefix/$libdir/pkgconfig" pkg-config --cflags --libs qlmail)
# shellcheck disable=SC2086
c++ -std=c++17 $extra "$here/consumer.cpp" -o "$work/pc-consumer" $flags
LD_LIBRARY_PATH="$prefix/$libdir" "$work/pc-consumer"
