#!/usr/bin/env bash
# What gst-inspect shows of the installed plug-in, and pipelines with
# GStreamer's own elements from the command line.
#   inspect_test.sh 1.0|0.10 PLUGIN_DIR WORK_DIR
set -euo pipefail
api=$1 plugin_dir=$2 work=$3
mkdir -p "$work"
export GST_PLUGIN_PATH="$plugin_dir" GST_PLUGIN_PATH_1_0="$plugin_dir" GST_REGISTRY_FORK=no
export GST_REGISTRY="$work/registry-$api.bin" GST_REGISTRY_1_0="$work/registry-$api.bin"
if [ "$api" = 0.10 ]; then
  inspect=gst-inspect-0.10 launch=gst-launch-0.10
  raw='video/x-raw-yuv' i420='format: I420' caps_i420='video/x-raw-yuv,format=(fourcc)I420'
else
  inspect=gst-inspect-1.0 launch=gst-launch-1.0
  raw='video/x-raw' i420='format: I420' caps_i420='video/x-raw,format=I420'
fi

fail=0
expect() {  # expect WHAT TEXT...: every line must appear
  local what=$1 out=$2
  shift 2
  for line in "$@"; do
    if ! grep -qF -- "$line" <<<"$out"; then
      echo "FAIL: $what lacks: $line" >&2
      fail=1
    fi
  done
}

plugin=$($inspect keljpeg 2>&1)
expect "plug-in" "$plugin" "Kelvra JPEG Codecs" "0.10.18" "Proprietary" "gstreamer" "GStreamer source release" \
  "keljpeg_dec" "keljpeg_enc"
dec=$($inspect keljpeg_dec 2>&1)
expect keljpeg_dec "$dec" "Kelvra JPEG Decoder" "Codec/Decoder/Image" \
  "Decode a jpeg image (series of images) to raw image(s)" "image/jpeg" "width: [ 16, 4096 ]" \
  "height: [ 8, 4096 ]" "$raw" "$i420" "primary (256)"
# 0.10 names the pad and state functions.
[ "$api" = 1.0 ] || expect keljpeg_dec "$dec" gst_keljpeg_dec_change_state gst_keljpeg_dec_chain gst_keljpeg_dec_setcaps
enc=$($inspect keljpeg_enc 2>&1)
expect keljpeg_enc "$enc" "Kelvra JPEG image encoder" "Codec/Encoder/Image" "Encode image(s) in JPEG format" \
  "none (0)" "quality" "encoding quality" "Range: 0 - 100" "Default: 85" "\"frame-encoded\"" "$raw" "image/jpeg"

# Frames through the elements and GStreamer's own: every one arrives.
frames() { "$launch" -v "$@" ! fakesink silent=false 2>&1 | grep -c 'chain' || true; }
n=$(frames videotestsrc num-buffers=12 ! "$caps_i420,width=330,height=250,framerate=25/1" ! keljpeg_enc ! keljpeg_dec)
[ "$n" = 12 ] || { echo "FAIL: encoder ! decoder gave $n of 12 frames" >&2; fail=1; }
rm -f "$work/series.jpg"
for i in 1 2 3 4 5; do
  "$launch" -q videotestsrc num-buffers=1 pattern=$i ! "$caps_i420,width=$((40 * i)),height=48" ! keljpeg_enc ! \
    filesink location="$work/one.jpg" >/dev/null
  cat "$work/one.jpg" >>"$work/series.jpg"
done
n=$(frames filesrc location="$work/series.jpg" blocksize=100000 ! keljpeg_dec)
[ "$n" = 5 ] || { echo "FAIL: filesrc of 5 concatenated files gave $n frames" >&2; fail=1; }
exit $fail
