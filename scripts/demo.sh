#!/usr/bin/env bash
# Runs the filters on a printer's test page, or on a page drawn here where it cannot be had, and
# leaves a picture before and after each in demo/.
set -euo pipefail

cd "$(dirname "$0")/.."
rast=${1:-build/demo/tool/rast}
out=demo
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$out"

# Debian's cups-filters carries a printer test page; only the file is taken, nothing is installed.
fetch_page() {
  local apt=(apt-get -qq -o APT::Sandbox::User=root)
  (
    cd "$work"
    "${apt[@]}" download cups-filters || { "${apt[@]}" update && "${apt[@]}" download cups-filters; }
    dpkg-deb -x cups-filters_*.deb package
    mv package/usr/share/cups/data/default-testpage.pdf page.pdf
  ) >/dev/null 2>&1 </dev/null
}

# render gray|color: the page at 300 dpi, as a picture and as the filters' input, once
render() {
  local kind=$1 gray=()
  [[ ! -f $work/$kind.png ]] || return 0
  if [[ -f $work/page.pdf ]]; then
    [[ $kind == color ]] || gray=(-gray)
    pdftoppm -r 300 -singlefile "${gray[@]}" "$work/page.pdf" "$work/$kind"
    pdftoppm -r 300 -singlefile -png "${gray[@]}" "$work/page.pdf" "$work/$kind"
  else
    [[ $kind == color ]] || gray=(--gray)
    scripts/draw_page.py "${gray[@]}" "$work/$kind.ppm"
    scripts/draw_page.py "${gray[@]}" "$work/$kind.png"
  fi
}

# show NAME gray|color OPTION...: one filter of the command on one kind of page
show() {
  local name=$1 kind=$2
  shift 2
  render "$kind"
  cp "$work/$kind.png" "$out/$name-before.png"
  "$rast" "$name" "$@" "$work/$kind".p[gp]m "$out/$name-after.png"
  echo "  $name $*: $out/$name-before.png, $out/$name-after.png"
}

echo "Getting a printer test page ..."
fetch_page || echo "The test page cannot be had here; a drawn page stands in."
echo "Running the filters ..."

show expgamma gray --threshold 40 --offset 0 --gain 300
show colgamma color --curve gamma=1.8
show binconv color --color 3
show satadjust color --mode raise
show hueadjust color --matrix rotate=120
show colbalance color --curve 3 --level 7,5,3,5

# The stamp of the overlay is the page itself, reduced and inverted.
"$rast" zoom --percent 20 "$work/color.ppm" "$work/small.ppm" 2>/dev/null
"$rast" colgamma --curve invert "$work/small.ppm" "$out/overlay-stamp.png"
show overlay color --with "$out/overlay-stamp.png" --at 300,1900
show rotate color cw
show zoom color --percent 33.3
show shift color --x 300 --y 200 --fill black

echo "Done: the pages before and after each filter are in $out/."
