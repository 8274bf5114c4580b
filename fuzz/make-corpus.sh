#!/usr/bin/env bash
# Seed corpora for the fuzz targets, made fresh from small pictures with the
# Debian tools: every sampling, progressive and multi-scan files, restarts,
# greyscale, RGB and CMYK, odd sizes, two images in a row.
#   fuzz/make-corpus.sh <dir>    writes <dir>/<target>/*
set -euo pipefail
out=${1:?usage: make-corpus.sh <dir>}
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
mkdir -p "$out"/{decode,decode_yuv,feed,encode,streams}

convert -size 37x29 gradient:red-blue -swirl 90 +noise Gaussian "$tmp/c.ppm"
convert -size 16x8 plasma:fractal -seed 3 "$tmp/s.ppm" 2>/dev/null || convert -size 16x8 gradient: "$tmp/s.ppm"
convert "$tmp/c.ppm" -colorspace gray "$tmp/g.pgm"
n=0
add() {  # add <file>: one JPEG into the decoding corpora
  n=$((n + 1))
  # The decode targets read flags and sizes before the file.
  printf '\000\377\000\000' | cat - "$1" >"$out/decode/$n.jpg"
  printf '\002\200\376\020' | cat - "$1" >"$out/decode/$n-box.jpg"
  printf '\001' | cat - "$1" >"$out/decode_yuv/$n-planar.jpg"
  printf '\002' | cat - "$1" >"$out/decode_yuv/$n-packed.jpg"
  printf '\003\000\000\000' | cat - "$1" "$1" >"$out/feed/$n.jpg"
}
for src in c.ppm s.ppm g.pgm; do
  for opts in "-sample 2x2" "-sample 1x1" "-sample 2x1" "-sample 1x2" "-sample 4x1" "-sample 2x2 -restart 1B" \
    "-progressive" "-progressive -sample 1x1" "-optimize -quality 30" "-rgb" "-quality 100 -sample 3x2"; do
    f=$tmp/$n.jpg
    cjpeg $opts "$tmp/$src" >"$f" 2>/dev/null || continue
    add "$f"
    jpegtran -progressive -restart 2 "$f" >"$tmp/p.jpg" && add "$tmp/p.jpg"
  done
done
convert "$tmp/c.ppm" -colorspace CMYK "$tmp/k.jpg" && add "$tmp/k.jpg"
convert "$tmp/c.ppm" -comment "ends with $(printf '\377\331')" "$tmp/m.jpg" && add "$tmp/m.jpg"

# Encoder: flags, sizes, quality, format picks, then pixels.
i=0
for args in '\000\045\021\125\004\006' '\000\001\001\144\006\014' '\000\057\003\001\004\000' \
  '\007\354\377\002\000\120\000\006' '\017\001\000\003\000\062\004\014' '\007\334\377\000\000\120\000\006' '\000\040\040\310\377\377\100\000\000\000\020\000\000\000'; do
  i=$((i + 1))
  { printf "$args"; head -c 600 "$tmp/c.ppm"; } >"$out/encode/$i"
done

# Stream scripts: make a page stream, put, seek, get, attributes, delete.
printf '\002\000\040\003\100\000abcdefghijklmnopqrstuvwxyz0123456789\005\000\000\000\000\002\004\020\000\006\014' \
  >"$out/streams/page"
printf '\000\001\003\020\011\005\004\000\000\000\001\004\010\000\007\001\002\010\010\000\002\015' >"$out/streams/bytes"
printf '\000\002\001\002\001\001\000\100\000\000\000\007\002\002\030\010\001\001\001\011\003\020\000xyz\015' \
  >"$out/streams/attributes"
