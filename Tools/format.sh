#!/usr/bin/env bash
# Formats every source file, or names the files that are not formatted.
#
#   ./Tools/format.sh             formats
#   ./Tools/format.sh --check     names the files that formatting would change, and fails if there are any
#
# Between the columns of some tables, clang-format writes a tab in place of four spaces. This script replaces tabs
# behind text by spaces, so that a table looks the same whatever the width of a tab is.
set -euo pipefail
source "$(dirname "$0")/arguments.sh"
answer_help "$@"
cd "$(dirname "$0")/.."

mode=${1:-}
case "$mode" in
"" | --check) ;;
*)
	fail "there is no option \"$mode\"; the one option is: --check"
	;;
esac
[ $# -le 1 ] || fail "it takes one option, and nothing behind it like \"$2\""

formatted()
{
	clang-format "$1" | perl -pe 's/(?<=[^\t])\t/    /g while /[^\t]\t/'
}

changed=0
while IFS= read -r source; do
	if ! formatted "$source" | cmp -s - "$source"; then
		printf '%s: not formatted\n' "$source"
		changed=1
		[ "$mode" = --check ] || formatted "$source" >"$source.formatted"
		[ "$mode" = --check ] || mv "$source.formatted" "$source"
	fi
done < <(find Runtime Tests Samples Benchmarks Web \( -name '*.h' -o -name '*.c' -o -name '*.cpp' \) | sort)
[ "$mode" != --check ] || exit $changed
