#!/usr/bin/env bash
# Tests Tools/abi.sh: changes a copy of the library in ways that break built programs and in ways that do not, and asks
# it about each change. The argument is a folder to work in.
set -euo pipefail
workDir=$1
mkdir -p "$workDir"
workDir=$(cd "$workDir" && pwd)
cd "$(dirname "$0")/../.."

Tools/install_packages.sh git

copy=$workDir/copy
rm -rf "$copy"
mkdir "$copy"
cp -r .gitignore CMakeLists.txt CHANGELOG.md COPYRIGHT Runtime Tools cmake "$copy"
mkdir "$copy/Tests"
cp -r Tests/Abi "$copy/Tests"
cd "$copy"
git init --quiet --initial-branch main
git add .
git -c user.name=nobody -c user.email=nobody@vexmoor.invalid commit --quiet --message "A release"

# What abi.sh answers with the exit status expected, and the words in its answer.
ask()
{
	local what=$1 status=0 wanted=$2 words=$3
	shift 3
	Tools/abi.sh "$@" >"$workDir/answer" 2>&1 || status=$?
	if [ $status != "$wanted" ] || ! grep -q -- "$words" "$workDir/answer"; then
		cat "$workDir/answer"
		printf '%s: exit status %d for %d, or no "%s"\n' "$what" $status "$wanted" "$words" >&2
		exit 1
	fi
	printf '  %s\n' "$what"
}

# Asks, and takes the change back.
expect()
{
	ask "$@"
	git checkout --quiet .
}

header=Runtime/vx_kernel/include/kr_log_unique.h
source=Runtime/vx_kernel/src/log_unique.cpp
sorter=Runtime/vx_geometrics/include/ge_mesh_triangle_sorter.h

# Asks twice, against the revision and against the record. The working tree is built once for both.
expect_of_both()
{
	ask "$1" "$2" "$3" v1
	expect "$1, in the record" "$2" "$4"
}

expect "no such revision" 2 'no revision "v9"' v9
expect "a record and a revision" 2 "it takes" --record v1

git tag v1
expect "the same" 0 "libvx_geometrics.so: the same" v1
expect "nothing gone since the release" 0 "from the record of [0-9.]* to the working tree: \(the same\|has more\)"

expect "a record" 0 "is recorded" --record
Tools/abi.sh --record >/dev/null
git add .
git -c user.name=nobody -c user.email=nobody@vexmoor.invalid commit --quiet --allow-empty --message "Another release"
git tag --force v1 >/dev/null
expect "the same as recorded" 0 "to the working tree: the same"

sed -i 's/^VX_API void WarnOnce(.*;/&\nVX_API void WarnAgain(const char *key);/' $header
sed -i 's/^void WarnOnce(/void WarnAgain(const char *key)\n{\n\tWarnOnce(key, key);\n}\n\n&/' $source
expect_of_both "a new function" 0 "libvx_kernel.so: has more than before" "has more than before: 1 line"

sed -i '/src\/ge_mesh\/sort_\(validation\|replay\).cpp/d' Runtime/vx_geometrics/CMakeLists.txt
expect_of_both "a function gone" 1 "\[D\].*ValidateSort" "no longer: .*ValidateSort"

sed -i 's/^\tu32 m_IndexCount_fromBB = 0;/&\n\tu32 m_More[16] = {};/' $sorter
expect_of_both "a larger sorter" 1 "libvx_geometrics.so: breaks built programs" \
	"no longer: Vexmoor::CTriangleSorter has 232 bytes"

# The library's own assertion of the structure's size changes with it.
sed -i 's/^} vexmoor_call;/\tconst void *more;\n&/' Runtime/vx_geometrics/include/vexmoor.h
sed -i 's/sizeof(vexmoor_call) == 16 \* 4 + 13/sizeof(vexmoor_call) == 16 * 4 + 14/' \
	Runtime/vx_geometrics/src/vexmoor.cpp
expect_of_both "a field more at the end of a call in C" 0 "libvx_geometrics.so: \(the same\|has more than before\)" \
	"has more than before: 2 lines"

sed -i 's/^VEXMOOR_API uint32_t VEXMOOR_CALL vexmoor_version/VEXMOOR_API uint64_t VEXMOOR_CALL vexmoor_version/' \
	Runtime/vx_geometrics/include/vexmoor.h
sed -i 's/^uint32_t vexmoor_version/uint64_t vexmoor_version/' Runtime/vx_geometrics/src/vexmoor.cpp
expect_of_both "another return type in C" 1 "vexmoor_version" "no longer: .*vexmoor_version -> unsigned int"

sed -i 's/SortFinding_Violation = 0,/SortFinding_Violation = 2,/' \
	Runtime/vx_geometrics/include/ge_mesh_sort_validation.h
expect_of_both "another value" 1 "SortFinding_Violation" "no longer: .*SortFinding_Violation is 0"

sed -i 's/^VX_GEOMETRICS_API u64 SortCaptureChecksum/VX_GEOMETRICS_API u32 SortCaptureChecksum/' \
	Runtime/vx_geometrics/include/ge_mesh_sort_capture.h
sed -i -e 's/^VX_WRAPS u64 SortCaptureChecksum\(.*\)/VX_WRAPS u32 SortCaptureChecksum\1/' \
	-e 's/^\treturn checksum;/\treturn u32(checksum);/' \
	Runtime/vx_geometrics/src/ge_mesh/sort_capture.cpp
expect_of_both "another return type" 1 "SortCaptureChecksum" "no longer: .*SortCaptureChecksum.* -> unsigned long"

sed -i '/src\/ge_mesh\/sort_\(validation\|replay\).cpp/d' Runtime/vx_geometrics/CMakeLists.txt
sed -i 's/\(define \(VX\|VEXMOOR\)_VERSION_MAJOR\) .*/\1 2/' \
	Runtime/include/vx_defs.h Runtime/vx_geometrics/include/vexmoor.h
expect_of_both "a function gone from a new major version" 0 "libvx_geometrics.so.1 is now libvx_geometrics.so.2" \
	"the libraries have other names now"
