#!/bin/sh
# Installs, with apt-get, whatever the build and the tests need and is missing.
set -eu

packages="g++ make cmake pkg-config git libgtest-dev libgmock-dev libbenchmark-dev libchardet-dev
clang libclang-rt-14-dev locales tzdata default-jdk-headless junit4 libhamcrest-java
doxygen dpkg-dev debootstrap"

missing=""
for p in $packages; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
if [ -n "$missing" ]; then
    echo "installing:$missing"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    # shellcheck disable=SC2086
    apt-get install -y -qq --no-install-recommends $missing
fi

# A Korean UTF-8 locale for the date tests of month and day names.
if ! locale -a 2>/dev/null | grep -qi '^ko_KR\.utf-\?8$'; then
    if [ -f /etc/locale.gen ]; then
        sed -i 's/^# *\(ko_KR\.UTF-8 UTF-8\)/\1/' /etc/locale.gen
        grep -q '^ko_KR\.UTF-8 UTF-8' /etc/locale.gen || echo 'ko_KR.UTF-8 UTF-8' >>/etc/locale.gen
        locale-gen >/dev/null || echo "note: could not generate ko_KR.UTF-8; its tests will be skipped"
    fi
fi
