#!/bin/sh
# Installs the build tree into a scratch prefix and builds a small program against it,
# once through find_package(qlmail) and once through pkg-config; with Java, a Java program
# against the installed jar.
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

# Java: a program compiled against the installed jar, run on the installed library.
jar="$prefix/share/java/qlmail.jar"
if [ -f "$jar" ]; then
    javac -d "$work/java" -cp "$jar" "$here/JavaConsumer.java"
    if [ -n "$extra" ]; then
        # A sanitized library needs its runtimes loaded ahead of the JVM.
        LD_PRELOAD="$(c++ -print-file-name=libasan.so):$(c++ -print-file-name=libstdc++.so.6)"
        ASAN_OPTIONS=handle_segv=0:allow_user_segv_handler=1:detect_leaks=0:abort_on_error=1
        export LD_PRELOAD ASAN_OPTIONS
    fi
    java -Djava.library.path="$prefix/$libdir" -cp "$jar:$work/java" JavaConsumer \
        "$here/../../samples/plain.eml"
fi
