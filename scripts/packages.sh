#!/usr/bin/env bash
# Builds the Debian packages of the tree into FOLDER, from a copy of it without what git ignores.
# OPTIONs go to dpkg-buildpackage.
set -euo pipefail

if (($# == 0)); then
  echo "usage: packages.sh FOLDER [OPTION...]" >&2
  exit 2
fi
mkdir -p "$1"
folder=$(realpath "$1")
cd "$(dirname "$0")/.."

# Whatever was built there before; of this version nothing is left beside the new files.
rm -rf "$folder"/{librast*,rast*}
copy=$folder/librast
mkdir "$copy"
git ls-files -z --cached --others --exclude-standard |
  xargs -0 cp --parents --no-dereference --target-directory "$copy"
# The day of the version, not that of the copy.
find "$copy" -exec touch --no-dereference -d "$(dpkg-parsechangelog -S Date)" {} +

log=$folder/build.log
if ! (cd "$copy" && dpkg-buildpackage -us -uc "${@:2}") >"$log" 2>&1; then
  tail -n 50 "$log" >&2
  echo "The packages could not be built; all that was said is in $log" >&2
  exit 1
fi
rm -r "$copy"
