#!/usr/bin/env bash
# Renders the icon and the animated preview of every sample lens with the
# preview tool, on a crop of the test portrait.
# Usage: make-sample-previews.sh <path to the lenspreview program>
set -euo pipefail
tool="$(realpath "$1")"
root="$(cd "$(dirname "$0")/../.." && pwd)"
lenses="$root/data/lenses"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
convert "$root/data/testdata/astronaut.png" -crop 320x320+64+0 +repage "$work/portrait.png"

declare -A extra=(
  [confetti]="--tap 0.5,0.5@0.4"
  [fireworks]="--event trigger1@0.2"
  [heart-eyes]="--tap 0.5,0.5@0.3"
  [party-hat]="--tap 0.5,0.5@0.3"
  [color-pop]="--tap 0.3,0.4@0.95 --tap 0.7,0.6@1.45"
  [stream-cheers]="--event donate@0.3 --event subscribe@0.5"
)

for dir in "$lenses"/*/; do
  id="$(basename "$dir")"
  [ -f "$dir/lens.json" ] || continue
  # The manifest names its icon; give the loader a file to find on a first run.
  [ -f "$dir/icon.png" ] || convert -size 1x1 xc:black "$dir/icon.png"
  rm -rf "$dir/preview"
  # shellcheck disable=SC2086
  "$tool" --frames 8 --interval 120 --start 1.0 --size 128x128 ${extra[$id]:-} "$dir" "$work/portrait.png" "$dir/preview"
  # shellcheck disable=SC2086
  "$tool" --start 1.2 --size 128x128 ${extra[$id]:-} "$dir" "$work/portrait.png" "$dir/icon.png"
  echo "rendered $id"
done
