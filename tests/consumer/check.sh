#!/bin/sh
# Checks an installed tree (a scratch prefix, or /usr after the Debian packages): builds a small
# program against it once through find_package(qlmail) and once through pkg-config and runs
# it; with Java, a Java program against the installed jar. Every installed header must compile
# on its own, and the internal ones must not be installed.
# Usage: check.sh PREFIX WORK_DIR LIBDIR ["EXTRA_CXXFLAGS"]
set -eu
here=$(cd "$(dirname "$0")" && pwd)
prefix=$1
work=$2
libdir=$3
extra=${4:-}
sample="$here/../../samples/plain.eml"

rm -rf "$work"
mkdir -p "$work"
test -f "$prefix/include/qlmail/foundation/QLExceptionParser.h"
test -f "$prefix/$libdir/pkgconfig/qlmail.pc"
test -f "$prefix/$libdir/cmake/qlmail/qlmailConfig.cmake"
test ! -e "$prefix/include/qlmail/codec/QLIconv.h"
test ! -e "$prefix/include/qlmail/jni"

# Each public header alone, as the first include of a file: none leans on an internal header
# or on an include before it.
mkdir -p "$work/headers"
for h in $(cd "$prefix/include/qlmail" && find . -name '*.h' | sort); do
    echo "#include \"${h#./}\"" >"$work/headers/$(echo "${h#./}" | tr / _).cpp"
done
c++ -std=c++17 -Wall -Wextra -Werror -fsyntax-only -I"$prefix/include/qlmail" "$work"/headers/*.cpp

# find_package
cmake -S "$here" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$prefix" \
      -DCMAKE_CXX_FLAGS="$extra" >"$work/cmake.log"
cmake --build "$work/cmake" >>"$work/cmake.log"
LD_LIBRARY_PATH="$prefix/$libdir" "$work/cmake/consumer" "$sample"

# pkg-config
flags=$(PKG_CONFIG_PATH="$prefix/$libdir/pkgconfig" pkg-config --cflags --libs qlmail)
# shellcheck disable=SC2086
c++ -std=c++17 $extra "$here/consumer.cpp" -o "$work/pc-consumer" $flags
LD_LIBRARY_PATH="$prefix/$libdir" "$work/pc-consumer" "$sample"

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
    java -Djava.library.path="$prefix/$libdir/jni" -cp "$jar:$work/java" JavaConsumer "$sample"
fi
