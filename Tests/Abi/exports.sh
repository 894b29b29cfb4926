#!/usr/bin/env bash
# Passes if shared libraries export symbols of namespace Vexmoor, and the functions that vexmoor.h declares for C, and
# no others. Other modules would take an exported instance of a foreign template for their own. Arguments are the
# libraries.
set -euo pipefail

if [ $# = 0 ]; then
	printf 'exports.sh: it takes the libraries\n' >&2
	exit 2
fi

for library in "$@"; do
	symbols=$(nm --dynamic --defined-only --extern-only --format=just-symbols "$library")
	if [ -z "$symbols" ]; then
		printf '%s exports nothing\n' "$library" >&2
		exit 1
	fi
	# Functions, variables and functions' static variables; virtual tables and descriptions of types; guards of
	# variables; C.
	if others=$(grep -Ev '^_ZZ?NK?7Vexmoor|^_ZT[ISVT]N7Vexmoor|^_ZGVN7Vexmoor|^vexmoor_' <<<"$symbols"); then
		printf '%s exports what is not ours:\n%s\n' "$library" "$(c++filt <<<"$others")" >&2
		exit 1
	fi
done
printf '%d libraries export what is ours and nothing else\n' $#
