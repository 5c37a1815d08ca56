#!/usr/bin/env bash
# Draws the images of the sample lenses with ImageMagick, so that every file
# in data/lenses can be remade from source. Run from anywhere.
set -euo pipefail
root="$(cd "$(dirname "$0")/../.." && pwd)"
lenses="$root/data/lenses"
bundle="$root/data/PrecachedAssets.bundle"
mkdir -p "$lenses/sunglasses" "$lenses/party-hat" "$lenses/film-noir" "$bundle"

convert -size 512x200 xc:none \
  -fill 'rgba(20,20,35,0.88)' -stroke '#0b0b0b' -strokewidth 12 \
  -draw "path 'M 24,40 L 236,40 Q 240,40 236,80 Q 226,176 140,176 Q 50,176 30,90 Q 20,40 24,40 Z'" \
  -draw "path 'M 488,40 L 276,40 Q 272,40 276,80 Q 286,176 372,176 Q 462,176 482,90 Q 492,40 488,40 Z'" \
  -fill none -strokewidth 14 -draw "path 'M 236,62 Q 256,44 276,62'" \
  -stroke none -fill 'rgba(255,255,255,0.35)' \
  -draw "polygon 60,58 120,58 70,120 50,100" -draw "polygon 312,58 372,58 322,120 302,100" \
  -depth 8 PNG32:"$lenses/sunglasses/sunglasses.png"

convert -size 256x320 xc:none \
  -fill '#ff4f9a' -stroke '#7a1745' -strokewidth 4 -draw "polygon 128,30 20,300 236,300" \
  -stroke none -fill '#ffd23f' -draw "polygon 128,30 100,100 156,100" \
  -draw "polygon 86,140 170,140 184,180 72,180" -draw "polygon 58,220 198,220 212,260 44,260" \
  -fill '#3ec5ff' -draw "circle 128,28 128,4" \
  -fill '#ffffff' -stroke '#d0d0d0' -strokewidth 3 -draw "roundrectangle 10,290 246,316 12,12" \
  -depth 8 PNG32:"$lenses/party-hat/hat.png"

# A twinkling star in six frames for an animated sequence.
for i in 0 1 2 3 4 5; do
  angle=$((i * 15)); size=$((40 + (i % 3) * 8))
  convert -size 128x128 xc:none -fill 'rgba(255,240,150,0.95)' -stroke none \
    -draw "translate 64,64 rotate $angle path 'M 0,-$size Q 6,-6 $size,0 Q 6,6 0,$size Q -6,6 -$size,0 Q -6,-6 0,-$size Z'" \
    -fill white -draw "circle 64,64 64,56" -depth 8 PNG32:"$lenses/party-hat/sparkle_$i.png"
done

# Colour grading table: an identity Hald image graded to warm black and white.
convert hald:8 -colorspace gray -sigmoidal-contrast 6x50% +level-colors '#06080f','#f6efe0' \
  -depth 8 PNG24:"$lenses/film-noir/noir_lut.png"

# Served to lenses as a remote asset from the bundle.
convert -size 64x64 radial-gradient:white-none -channel RGB -fill '#ffd070' -colorize 40 \
  -depth 8 PNG32:"$bundle/firework_spark.png"
