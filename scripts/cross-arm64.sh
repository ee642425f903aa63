#!/bin/sh
# Builds the library, the tool and the foundation, codec, mime and internal tests for arm64
# with Debian's cross compiler in build-arm64, and runs those tests under qemu-user: the
# library must build and pass without the x86 vector scanners. Installs with apt-get what is missing: the arm64
# architecture in dpkg, the cross compiler, the arm64 libchardet (to link) and GoogleTest, and
# qemu-user-static. The Java binding and the benchmarks are left out (no arm64 JVM or Google
# Benchmark is installed).
set -eu
cd "$(dirname "$0")/.."

packages="g++-aarch64-linux-gnu libchardet-dev:arm64 libgtest-dev:arm64 libgmock-dev:arm64
qemu-user-static"
missing=""
for p in $packages; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
if [ -n "$missing" ]; then
    echo "installing:$missing"
    dpkg --print-foreign-architectures | grep -qx arm64 || dpkg --add-architecture arm64
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    # shellcheck disable=SC2086
    apt-get install -y -qq --no-install-recommends $missing
fi

# pkg-config and CMake look in the arm64 folders only; tests run through qemu, found libraries
# by the arm64 loader in /usr/lib/aarch64-linux-gnu.
PKG_CONFIG_LIBDIR=/usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig
export PKG_CONFIG_LIBDIR
cmake -S . -B build-arm64 -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_SYSTEM_NAME=Linux -DCMAKE_SYSTEM_PROCESSOR=aarch64 \
    -DCMAKE_C_COMPILER=aarch64-linux-gnu-gcc -DCMAKE_CXX_COMPILER=aarch64-linux-gnu-g++ \
    -DCMAKE_CROSSCOMPILING_EMULATOR=qemu-aarch64-static \
    -DQLMAIL_BUILD_JAVA=OFF -DQLMAIL_BUILD_BENCH=OFF >/dev/null
cmake --build build-arm64 -j 2 --target qlmail qlmail-tool test_foundation test_codec test_mime test_internal
aarch64-linux-gnu-readelf -h build-arm64/libqlmail.so | grep Machine

status=0
for t in test_foundation test_codec test_mime test_internal; do
    echo "== $t under qemu-aarch64 =="
    qemu-aarch64-static "build-arm64/tests/$t" --gtest_brief=1 || status=1
done
exit $status
