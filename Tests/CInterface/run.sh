#!/usr/bin/env bash
# Shows that vexmoor.h is C. Two compilers accept it, pedantically, in several standards of C and of C++. The example of
# the documents compiles, and a program in C99 runs with the library, with assertions and without. The argument is a
# folder to build in.
set -euo pipefail
workDir=$1
mkdir -p "$workDir"
workDir=$(cd "$workDir" && pwd)
cd "$(dirname "$0")/../.."

step()
{
	printf '  %s\n' "$1"
	shift
	if ! "$@" >"$workDir/log" 2>&1; then
		cat "$workDir/log"
		printf 'failed: %s\n' "$*" >&2
		exit 1
	fi
}

# These two folders are all that a program in C needs to see.
includes=(-I Runtime/include -I Runtime/vx_geometrics/include)
warnings=(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wundef -Werror)
cWarnings=("${warnings[@]}" -Wstrict-prototypes -Wmissing-prototypes)

printf '#include "vexmoor.h"\nvexmoor_call g_Call = {0};\n' >"$workDir/header.c"
sed 's/{0}/{}/' "$workDir/header.c" >"$workDir/header.cpp"
sed -n '/^```c$/,/^```$/p' Docs/integration.md | sed '1d;/^```$/,$d' >"$workDir/documented.c"
grep -q vexmoor_sort_points "$workDir/documented.c"
for standard in c99 c11 c17; do
	for compiler in gcc clang; do
		step "header, $compiler -std=$standard" "$compiler" -std=$standard "${cWarnings[@]}" -Wc++-compat \
			"${includes[@]}" -fsyntax-only \
			"$workDir/header.c"
	done
done
for standard in c++11 c++17 c++20; do
	for compiler in g++ clang++; do
		step "header, $compiler -std=$standard" "$compiler" -std=$standard "${warnings[@]}" \
			"${includes[@]}" -fsyntax-only \
			"$workDir/header.cpp"
	done
done
step "the documents' example" gcc -std=c99 "${cWarnings[@]}" "${includes[@]}" -fsyntax-only "$workDir/documented.c"

mapfile -t sources < <(find "$PWD/Runtime" -name '*.cpp' | sort)
for assertions in 1 0; do
	objects=$workDir/objects_$assertions
	mkdir -p "$objects"
	compile()
	{
		(cd "$objects" && printf '%s\0' "${sources[@]}" | xargs -0 -n 1 -P "$(nproc)" \
			g++ -std=c++17 -O1 -DVX_ASSERTIONS=$assertions \
			-fno-exceptions -fno-rtti -I "$OLDPWD/Runtime/include" -I "$OLDPWD/Runtime/vx_maths/include" \
			-I "$OLDPWD/Runtime/vx_kernel/include" -I "$OLDPWD/Runtime/vx_geometrics/include" -c)
	}
	step "library, VX_ASSERTIONS=$assertions" compile
	for program in Tests/CInterface/c99_program Samples/languages/sort_points; do
		name=$(basename $program)
		for compiler in gcc clang; do
			step "$name, $compiler" "$compiler" -std=c99 "${cWarnings[@]}" "${includes[@]}" \
				-c $program.c -o "$workDir/$name.o"
			step "$name, linked" "$compiler" "$workDir/$name.o" "$objects"/*.o -lstdc++ -lm -o "$workDir/$name"
			step "$name, run" "$workDir/$name"
		done
	done
done
