#!/bin/sh
# The main job: install what is missing, build, and run the tool on a sample message.
set -eu
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$(nproc)" --target qlmail-tool
./build/tools/qlmail --version
./build/tools/qlmail parts samples/korean-attachment.eml
