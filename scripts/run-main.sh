#!/usr/bin/env bash
# Installs what is missing, builds, and runs the main job: a picture goes
# through our encoder and decoder and is checked against libjpeg-turbo's
# cjpeg/djpeg, which must give the very same bytes.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake -S . -B build -G Ninja
cmake --build build -j "$(nproc)"

out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
convert -size 1280x720 gradient:'#204080'-'#f0c060' -swirl 120 -depth 8 "$out/in.ppm"
build/tools/kjenc -q 85 "$out/in.ppm" "$out/ours.jpg"
build/tools/kjdec "$out/ours.jpg" "$out/ours.ppm"
build/tools/kjdec -s 320x180 "$out/ours.jpg" "$out/small.ppm"
build/tools/kjdec --i420 "$out/ours.jpg" "$out/ours.yuv"
cjpeg -baseline -dct int -quality 85 -outfile "$out/peer.jpg" "$out/in.ppm"
djpeg -dct int -nosmooth -outfile "$out/peer.ppm" "$out/ours.jpg"
cmp "$out/ours.jpg" "$out/peer.jpg"
cmp "$out/ours.ppm" "$out/peer.ppm"
psnr=$(compare -metric PSNR "$out/in.ppm" "$out/ours.ppm" null: 2>&1 || true)
echo "main job: 1280x720 encoded at quality 85 to $(stat -c %s "$out/ours.jpg") bytes," \
  "identical to cjpeg; decoded identical to djpeg; PSNR ${psnr} dB;" \
  "1/4 size $(head -c 20 "$out/small.ppm" | sed -n 2p); I420 $(stat -c %s "$out/ours.yuv") bytes"
