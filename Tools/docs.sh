#!/usr/bin/env bash
# Installs what is missing and makes the API reference from the headers, in build/docs/html. Fails if something public
# has no comment.
#
#   ./Tools/docs.sh
set -euo pipefail
source "$(dirname "$0")/arguments.sh"
answer_help "$@"
[ $# = 0 ] || fail "it takes no arguments, unlike \"$1\""
cd "$(dirname "$0")/.."

Tools/install_packages.sh doxygen graphviz python3

# The folder is made anew, so that it has no page of a name that is gone.
rm -rf build/docs
mkdir -p build/docs
doxygen Docs/Doxyfile
printf 'The API reference: %s\n' "$PWD/build/docs/html/index.html"
