# shellcheck shell=bash
# How the scripts of this folder answer --help and bad arguments. Each of them sources this file and calls answer_help.

# Prints the comment at the head of the script.
print_usage()
{
	awk 'NR > 1 && !/^#/ { exit } NR > 1 { sub(/^# ?/, ""); print }' "${BASH_SOURCE[-1]}"
}

# Prints the comment and ends the script if its first argument is --help.
answer_help()
{
	if [ "${1:-}" = --help ]; then
		print_usage
		exit 0
	fi
}

# Ends the script with a sentence that says what is wrong with its arguments.
fail()
{
	printf '%s: %s\n' "$(basename "$0")" "$1" >&2
	exit 2
}
