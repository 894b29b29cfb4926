#!/usr/bin/env bash
# Installs what is missing and makes the API reference from the headers. Fails if something public has no comment.
set -euo pipefail
cd "$(dirname "$0")/.."

Tools/install_packages.sh doxygen graphviz python3

# The folder is made anew, so that it has no page of a name that is gone.
rm -rf build/docs
mkdir -p build/docs
doxygen Docs/Doxyfile
printf 'The API reference: %s\n' "$PWD/build/docs/html/index.html"
