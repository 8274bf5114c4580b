#!/usr/bin/env bash
# Installs what is missing, builds, and runs the main job: five seconds of a
# moving test pattern through keljpeg_enc and back through keljpeg_dec in
# GStreamer pipelines (frames per second, PSNR against the source, no frame
# lost); then a picture through the codec's tools, checked against
# libjpeg-turbo's cjpeg/djpeg, which must give the very same bytes.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake -S . -B build -G Ninja
cmake --build build -j "$(nproc)"

out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT

export GST_PLUGIN_PATH_1_0=$PWD/build/plugin GST_REGISTRY_1_0=$out/registry.bin
frames=150 size="width=640,height=480,framerate=30/1"
src="videotestsrc num-buffers=$frames pattern=ball ! video/x-raw,format=I420,$size"
gst-launch-1.0 -q $src ! filesink location="$out/source.yuv"
seconds() { local t0 t1; t0=$(date +%s.%N); "$@" >/dev/null; t1=$(date +%s.%N); echo "$t1 - $t0" | bc -l; }
enc_s=$(seconds gst-launch-1.0 -q $src ! keljpeg_enc ! multifilesink location="$out/frame%05d.jpg")
cat "$out"/frame*.jpg >"$out/series.jpg"
dec_s=$(seconds gst-launch-1.0 -q filesrc location="$out/series.jpg" ! keljpeg_dec ! filesink location="$out/round.yuv")
frame_bytes=$((640 * 480 * 3 / 2))
got=$(($(stat -c %s "$out/round.yuv") / frame_bytes))
[ "$got" = "$frames" ] || { echo "main job: $got of $frames frames came back" >&2; exit 1; }
# PSNR of the first ten frames' planes, taken as one grey picture.
sample=$((10 * frame_bytes))
head -c $sample "$out/source.yuv" >"$out/a.gray"
head -c $sample "$out/round.yuv" >"$out/b.gray"
stream_psnr=$(compare -metric PSNR -size 640x$((sample / 640)) -depth 8 gray:"$out/a.gray" gray:"$out/b.gray" null: 2>&1 || true)
awk -v p="$stream_psnr" 'BEGIN { exit !(p == "inf" || p >= 35) }' ||
  { echo "main job: round trip PSNR $stream_psnr dB is below 35 dB" >&2; exit 1; }
echo "main job: $frames frames 640x480 through keljpeg_enc at" \
  "$(echo "$frames / $enc_s" | bc) fps (with videotestsrc) and keljpeg_dec at" \
  "$(echo "$frames / $dec_s" | bc) fps; every frame back; PSNR $stream_psnr dB against the source"
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
