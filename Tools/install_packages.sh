#!/usr/bin/env bash
# Installs the named Debian packages that are missing, as root or through sudo, and says which they are.
#
#   Tools/install_packages.sh g++ cmake
set -euo pipefail
source "$(dirname "$0")/arguments.sh"
answer_help "$@"

missing=()
for package in "$@"; do
	state=$(dpkg-query --show --showformat='${db:Status-Status}' "$package" 2>/dev/null || true)
	[ "$state" = installed ] || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

printf 'Installing: %s\n' "${missing[*]}" >&2
if ! command -v apt-get >/dev/null; then
	printf 'There is no apt-get here. Install these packages, or what your system calls them, and try again.\n' >&2
	exit 2
fi

as_root=()
if [ "$(id -u)" != 0 ]; then
	if ! command -v sudo >/dev/null || ! sudo -v; then
		printf 'That takes root or sudo, and neither is to be had. As root:\n\n\tapt-get install %s\n' \
			"${missing[*]}" >&2
		exit 2
	fi
	as_root=(sudo)
fi

log=$(mktemp)
trap 'rm -f "$log"' EXIT
install()
{
	"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}" \
		>"$log" 2>&1
}

# A new machine has no package lists, or old ones: then they are fetched first.
if ! install; then
	if ! "${as_root[@]}" apt-get update >"$log" 2>&1 || ! install; then
		cat "$log" >&2
		printf 'apt-get does not install them; its own words are above.\n' >&2
		exit 2
	fi
fi
