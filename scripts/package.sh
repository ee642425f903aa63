#!/bin/sh
# Builds the Debian packages (libqlmail1, libqlmail-dev, qlmail-tools, libqlmail-java) into
# build-deb/packages, and on request checks them with the install consumer:
#   --root         unpacked into build-deb/root, checked there (the machine stays as it is)
#   --install      installed on this machine with apt-get, checked in /usr
#   --fresh DIR    installed with apt-get into a fresh Debian 12 that debootstrap makes in DIR
#                  (kept for the next run), checked inside it; needs root and the network
# Usage: scripts/package.sh [--root | --install | --fresh DIR]
set -eu
cd "$(dirname "$0")/.."
mode=${1:-}
case "$mode" in
"" | --root | --install) ;;
--fresh) [ $# -eq 2 ] || { echo "usage: $0 --fresh DIR" >&2; exit 2; } ;;
*) echo "usage: $0 [--root | --install | --fresh DIR]" >&2; exit 2 ;;
esac

./scripts/install-deps.sh
build=build-deb
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr \
    -DQLMAIL_BUILD_TESTS=OFF -DQLMAIL_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" -j "$(nproc)" --target all docs
rm -rf "$build/packages"
(cd "$build" && cpack -G DEB >/dev/null)
for deb in "$build"/packages/*.deb; do
    echo "$deb: $(dpkg-deb -f "$deb" Depends)"
done
multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH)

case "$mode" in
--root)
    root="$build/root"
    rm -rf "$root"
    for deb in "$build"/packages/*.deb; do dpkg-deb -x "$deb" "$root"; done
    tests/consumer/check.sh "$PWD/$root/usr" "$PWD/$build/check" "lib/$multiarch"
    ;;
--install)
    apt-get install -y -qq "$PWD"/"$build"/packages/*.deb
    tests/consumer/check.sh /usr "$PWD/$build/check" "lib/$multiarch"
    ;;
--fresh)
    dir=$2
    if [ ! -f "$dir/etc/debian_version" ]; then
        debootstrap --variant=minbase bookworm "$dir" http://deb.debian.org/debian
    fi
    # The packages and the consumer check, in the places check.sh expects them.
    rm -rf "$dir/qlmail"
    mkdir -p "$dir/qlmail/packages" "$dir/qlmail/tests" "$dir/qlmail/samples"
    cp "$build"/packages/*.deb "$dir/qlmail/packages/"
    cp -r tests/consumer "$dir/qlmail/tests/"
    cp samples/plain.eml "$dir/qlmail/samples/"
    cp /etc/resolv.conf "$dir/etc/resolv.conf"
    mount -t proc proc "$dir/proc"
    mount -t devpts devpts "$dir/dev/pts" # apt-get logs through a terminal of its own
    trap 'umount "$dir/dev/pts" "$dir/proc"' EXIT
    # First the packages alone, with what apt-get finds for them: the tool must run. Then
    # the compilers and the JDK for the consumer programs.
    chroot "$dir" /bin/sh -eu -c "
        export DEBIAN_FRONTEND=noninteractive
        apt-get update -qq
        apt-get install -y -qq ./qlmail/packages/*.deb >/dev/null
        qlmail --version
        qlmail parts /qlmail/samples/plain.eml
        apt-get install -y -qq --no-install-recommends g++ cmake make pkg-config \
            default-jdk-headless >/dev/null
        /qlmail/tests/consumer/check.sh /usr /tmp/qlmail-check lib/$multiarch"
    ;;
esac
echo "packages in $build/packages"
