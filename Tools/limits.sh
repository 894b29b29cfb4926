#!/usr/bin/env bash
# Sorts 2^25 particles of every geometry, and as many as a call can have. That takes minutes and gigabytes, so it is not
# part of the suite. Options go to the tests; --gtest_filter=*Billboards* is the smallest part.
set -euo pipefail
cd "$(dirname "$0")/.."

neededKiB=$((6 * 1024 * 1024))
availableKiB=$(awk '/^MemAvailable:/ { print $2 }' /proc/meminfo)
if [ "$availableKiB" -lt "$neededKiB" ]; then
	printf 'limits.sh: it needs 6 GiB of memory, and %d MiB are free\n' $((availableKiB / 1024)) >&2
	exit 2
fi

Tools/install_packages.sh g++ cmake ninja-build libgtest-dev nlohmann-json3-dev python3
cmake --preset debug -DVEXMOOR_BUILD_SAMPLES=OFF
cmake --build --preset debug --target vexmoor_limit_tests
build/debug/Tests/vexmoor_limit_tests "$@"
