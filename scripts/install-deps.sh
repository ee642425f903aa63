#!/bin/sh
# Installs, with apt-get, whatever the build and the tests need and is missing.
set -eu

packages="g++ make cmake pkg-config git libgtest-dev libgmock-dev libbenchmark-dev libchardet-dev
clang libclang-rt-14-dev locales"

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
