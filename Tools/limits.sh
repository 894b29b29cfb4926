#!/usr/bin/env bash
# Sorts 2^25 particles of every geometry, and as many particles as a call can have. That takes minutes and 6 GiB of
# memory, so it is not part of the suite.
#
#   ./Tools/limits.sh                                   runs all of these tests
#   ./Tools/limits.sh '--gtest_filter=*Billboards*'     runs the smallest part; GoogleTest gets all options
set -euo pipefail
source "$(dirname "$0")/arguments.sh"
answer_help "$@"
cd "$(dirname "$0")/.."

neededKiB=$((6 * 1024 * 1024))
availableKiB=$(awk '/^MemAvailable:/ { print $2 }' /proc/meminfo)
[ "$availableKiB" -ge "$neededKiB" ] || fail "it needs 6 GiB of memory, and $((availableKiB / 1024)) MiB are free"

Tools/install_packages.sh g++ cmake ninja-build libgtest-dev nlohmann-json3-dev python3
cmake --preset debug -DVEXMOOR_BUILD_SAMPLES=OFF
cmake --build --preset debug --target vexmoor_limit_tests
build/debug/Tests/vexmoor_limit_tests "$@"
