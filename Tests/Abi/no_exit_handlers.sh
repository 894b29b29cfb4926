#!/usr/bin/env bash
# Passes if no library has something to destroy when the program ends. A host may sort in a thread that is still running
# then, or from a destructor of its own. Arguments are the libraries, static or shared.
set -euo pipefail

if [ $# = 0 ]; then
	printf 'no_exit_handlers.sh: it takes the libraries\n' >&2
	exit 2
fi

for library in "$@"; do
	# Of a static library, nm names each object before its symbols.
	symbols=$(nm --undefined-only "$library")
	if [ -z "$symbols" ]; then
		printf '%s has no symbols\n' "$library" >&2
		exit 1
	fi
	if objects=$(awk '/:$/ { object = $0 } /atexit/ { print object, $NF; found = 1 } END { exit !found }' \
		<<<"$symbols"); then
		printf '%s asks for destructors at exit, as a static variable of a class does:\n%s\n' \
			"$library" "$objects" >&2
		exit 1
	fi
done
printf '%d libraries have nothing to destroy at exit\n' $#
