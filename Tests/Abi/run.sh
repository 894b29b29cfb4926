#!/usr/bin/env bash
# Changes a copy of the library in ways that matter to built programs and in ways that do not, and asks Tools/abi.sh about
# each. Needs a folder to work in.
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
cd "$copy"
git init --quiet --initial-branch main
git add .
git -c user.name=nobody -c user.email=nobody@vexmoor.invalid commit --quiet --message "A release"

# What abi.sh answers with the exit status expected, and the words in its answer.
expect()
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
	git checkout --quiet .
}

header=Runtime/vx_kernel/include/kr_log_unique.h
source=Runtime/vx_kernel/src/log_unique.cpp
sorter=Runtime/vx_geometrics/include/ge_mesh_triangle_sorter.h

expect "no tag: nothing to compare" 0 "nothing to compare"
expect "no such revision" 2 'no revision "v9"' v9

git tag v1
expect "the same" 0 "libvx_geometrics.so: the same"

sed -i 's/^VX_API void WarnOnce(.*;/&\nVX_API void WarnAgain(const char *key);/' $header
sed -i 's/^void WarnOnce(/void WarnAgain(const char *key)\n{\n\tWarnOnce(key, key);\n}\n\n&/' $source
expect "a new function" 0 "libvx_kernel.so: has more than before"

sed -i 's| src/ge_mesh/sort_validation.cpp||' Runtime/vx_geometrics/CMakeLists.txt
expect "a function gone" 1 "\[D\].*ValidateSort"

sed -i 's/^\tu32 m_IndexCount_fromBB = 0;/&\n\tu32 m_More[16] = {};/' $sorter
expect "a larger sorter" 1 "libvx_geometrics.so: breaks built programs"

sed -i 's| src/ge_mesh/sort_validation.cpp||' Runtime/vx_geometrics/CMakeLists.txt
sed -i 's/\(define VX_VERSION_MAJOR\) .*/\1 2/' Runtime/include/vx_defs.h
expect "a function gone from a new major version" 0 "libvx_geometrics.so.1 is now libvx_geometrics.so.2"
