#!/usr/bin/env bash
# Builds the suite in build/coverage with counters in the library, runs it, and says which lines and branches of the
# library it reaches: a table on the terminal, and build/coverage/report/index.html, where every source line can be
# seen.
#
#   ./Tools/coverage.sh
#
# Branches are counted outside assertions and verifications, whose other side is a broken rule; the tests of reports try
# these. The library is compiled without exceptions, since otherwise every call would count as a branch. The script
# fails if fewer lines or branches are reached than leastLines and leastBranches say.
set -euo pipefail
source "$(dirname "$0")/arguments.sh"
answer_help "$@"
[ $# = 0 ] || fail "it takes no arguments, unlike \"$1\""
cd "$(dirname "$0")/.."

leastLines=100
leastBranches=95

Tools/install_packages.sh g++ cmake ninja-build libgtest-dev nlohmann-json3-dev python3 gcovr

build=build/coverage
cmake -S . -B $build -G Ninja -DCMAKE_CXX_COMPILER=g++ -DCMAKE_BUILD_TYPE=Debug -DVEXMOOR_BUILD_SAMPLES=OFF \
	-DCMAKE_CXX_FLAGS="--coverage -fprofile-update=atomic -fprofile-filter-files=$PWD/Runtime/.*" \
	-DVEXMOOR_LIBRARY_OPTIONS=-fno-exceptions >/dev/null
cmake --build $build --target vexmoor_tests same_bits
find $build -name '*.gcda' -delete
ctest --test-dir $build --parallel "$(nproc)" --progress -E 'headers_stand_alone|consumers|debug'

mkdir -p $build/report
gcovr --root . --filter Runtime/ --gcov-executable gcov --exclude-throw-branches --exclude-unreachable-branches \
	--exclude-branches-by-pattern '.*\bVX_(ASSERT|VERIFY|PROFILE_SCOPE)' \
	--html-details $build/report/index.html --txt $build/report/lines.txt --print-summary \
	--fail-under-line $leastLines --fail-under-branch $leastBranches $build
cat $build/report/lines.txt
