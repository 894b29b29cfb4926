#!/usr/bin/env bash
# Installs what is missing and makes the API reference from the headers. What is public and undocumented is an error.
set -euo pipefail
cd "$(dirname "$0")/.."

Tools/install_packages.sh doxygen graphviz python3

# Anew, so that no page stays of what is gone.
rm -rf build/docs
mkdir -p build/docs
doxygen Docs/Doxyfile
printf 'The API reference: %s\n' "$PWD/build/docs/html/index.html"
