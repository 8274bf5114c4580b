#!/usr/bin/env bash
# Installs what is missing, builds, and runs the main job: five seconds of a
# moving test pattern (150 frames of 640x480 at 30/1) through keljpeg_enc and
# back through keljpeg_dec in GStreamer pipelines. It reports each element's
# frames per second and the round trip's PSNR against the source, and fails
# when a frame is lost or the PSNR of any frame falls below 40 dB. Then a
# picture through the codec's tools must give the very bytes of libjpeg-turbo's
# cjpeg and djpeg.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake -S . -B build -G Ninja
cmake --build build -j "$(nproc)"

out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
fail() {
  echo "main job: FAILED: $*" >&2
  exit 1
}
c++ -O2 -std=c++17 -o "$out/i420psnr" scripts/i420psnr.cpp

export GST_PLUGIN_PATH_1_0=$PWD/build/plugin GST_REGISTRY_1_0=$out/registry.bin
# The worst frame measures Y 44 dB and chroma 47 dB at the default quality
# 85; a lost or shifted frame, a swapped plane or a wrong table falls far below 40.
frames=150 width=640 height=480 min_psnr=40
raw="video/x-raw,width=$width,height=$height,framerate=30/1"

# Seconds from PLAYING to EOS as gst-launch-1.0 reports them, so the
# plug-in scan and start-up are not counted.
seconds() {
  gst-launch-1.0 "$@" | sed -n 's/^Execution ended after \([0-9]*\):\([0-9]*\):\([0-9.]*\)$/\1 \2 \3/p' |
    awk '{ print $1 * 3600 + $2 * 60 + $3 }'
}
fps() { awk -v n="$frames" -v s="$1" 'BEGIN { printf "%.0f", (s > 0 ? n / s : 0) }'; }

# The pattern is drawn in RGB: keljpeg_dec's I420 is converted from RGB, so
# YUV colours outside RGB (SMPTE's -I and +Q patches) would come back clamped.
gst-launch-1.0 -q videotestsrc num-buffers=$frames horizontal-speed=4 ! "$raw,format=RGB" ! videoconvert ! \
  "$raw,format=I420" ! filesink location="$out/source.yuv"
enc_s=$(seconds filesrc location="$out/source.yuv" ! \
  rawvideoparse format=i420 width=$width height=$height framerate=30/1 ! \
  keljpeg_enc ! multifilesink location="$out/frame%05d.jpg")
jpegs=$(find "$out" -name 'frame*.jpg' | wc -l)
[ "$jpegs" -eq "$frames" ] || fail "keljpeg_enc gave $jpegs JPEGs for $frames frames"
cat "$out"/frame*.jpg >"$out/series.jpg"
dec_s=$(seconds filesrc location="$out/series.jpg" ! keljpeg_dec ! filesink location="$out/round.yuv")
read -r sent back y_min y_mean c_min c_mean <<<"$("$out/i420psnr" $width $height "$out/source.yuv" "$out/round.yuv")"
[ "$sent" -eq "$frames" ] || fail "videotestsrc gave $sent frames, not $frames"
[ "$back" -eq "$frames" ] || fail "$back of $frames frames came back from keljpeg_dec"
awk -v y="$y_min" -v c="$c_min" -v b="$min_psnr" 'BEGIN { exit !(y >= b && c >= b) }' ||
  fail "round trip PSNR Y $y_min dB, chroma $c_min dB on the worst frame; $min_psnr dB is the least"

convert -size 1280x720 gradient:'#204080'-'#f0c060' -swirl 120 -depth 8 "$out/in.ppm"
build/tools/keljpeg encode "$out/in.ppm" "$out/ours.jpg"
build/tools/keljpeg decode "$out/ours.jpg" "$out/ours.ppm"
cjpeg -baseline -dct int -quality 85 -outfile "$out/peer.jpg" "$out/in.ppm"
djpeg -dct int -nosmooth -outfile "$out/peer.ppm" "$out/ours.jpg"
cmp -s "$out/ours.jpg" "$out/peer.jpg" || fail "keljpeg encode's JPEG differs from cjpeg's"
cmp -s "$out/ours.ppm" "$out/peer.ppm" || fail "keljpeg decode's pixels differ from djpeg's"

echo "main job: OK: $frames of $frames frames ${width}x$height came back;" \
  "keljpeg_enc $(fps "$enc_s") fps, keljpeg_dec $(fps "$dec_s") fps;" \
  "round trip PSNR Y $y_min dB (mean $y_mean), chroma $c_min dB (mean $c_mean) on the worst frame," \
  "at least $min_psnr dB; keljpeg encode and decode byte-identical to cjpeg and djpeg on 1280x720"
