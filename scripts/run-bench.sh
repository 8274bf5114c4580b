#!/usr/bin/env bash
# The benchmark: our decoder and encoder beside TurboJPEG in one process
# (Release build in build-bench/). Writes docs/bench/decode.md (the table),
# .tsv (its figures) and .png (the chart); instructions per megapixel come
# from one call per row under callgrind, the timings from interleaved pairs.
#   scripts/run-bench.sh            the figures of the code as it is
#   scripts/run-bench.sh --before   the same into docs/bench/decode-before.*,
#                                   the baseline later runs are set against
# Further arguments go to kelbench (e.g. --filter 1080p). The element rows
# (bench/elem/elembench) follow the codec rows in the same table.
set -euo pipefail
shopt -s nullglob  # a --filter may leave one side without rows
cd "$(dirname "$0")/.."
name=decode
if [ "${1:-}" = "--before" ]; then
  name=decode-before
  shift
fi

bash scripts/install-deps.sh --bench
# The same --filter picks the element rows (elembench takes no other argument).
filter=""
args=("$@")
for i in "${!args[@]}"; do
  [ "${args[$i]}" = --filter ] && filter="${args[$((i + 1))]:-}"
done

build=build-bench
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF >/dev/null
cmake --build "$build" --target kelbench elembench
bin=$build/bench/kelbench
corpus=$build/corpus
work=$build/run
out=docs/bench
rm -rf "$work"
mkdir -p "$work" "$out"

echo "== pictures (cjpeg, kept in $corpus)"
"$bin" --prepare --corpus "$corpus" "$@"

echo "== instructions: one decode per row and side under callgrind"
valgrind --tool=callgrind --instr-atstart=no --callgrind-out-file="$work/cg.out" \
  "$bin" --callgrind --corpus "$corpus" "$@" 2>"$work/callgrind.log"
# Each dump is labelled "picture | work | side"; its total is the call's count.
awk -F': ' '
  /^desc: Trigger: Client Request: / { label = substr($0, 32) }
  /^summary: / && label != "" {
    n = split(label, part, " [|] "); key = part[1] " | " part[2]
    ir[key, part[n]] = $2; if (!(key in seen)) { seen[key] = 1; keys[++count] = key }
    label = ""
  }
  END {
    print "row\tours\tpeer"
    for (i = 1; i <= count; i++) print keys[i] "\t" ir[keys[i], "ours"] "\t" ir[keys[i], "peer"]
  }' "$work"/cg.out.* /dev/null >"$work/instructions.tsv"

echo "== times, peaks and pixel checks"
before=()
[ "$name" = decode ] && [ -f "$out/decode-before.tsv" ] && before=(--before "$out/decode-before.tsv")
note="$(date -u '+%Y-%m-%d %H:%M UTC'), commit $(git rev-parse --short HEAD)$(git diff --quiet HEAD -- bench common gstreamer || echo '+changes'); \
$(grep -m1 'model name' /proc/cpuinfo | sed 's/.*: //'), $(nproc) cores, load $(cut -d' ' -f1 /proc/loadavg); \
$(g++ --version | head -1); TurboJPEG $(dpkg-query -W -f='${Version}' libturbojpeg0 2>/dev/null || echo '?')."
status=0
"$bin" --corpus "$corpus" --instructions "$work/instructions.tsv" "${before[@]}" \
  --markdown "$out/$name.md" --tsv "$out/$name.tsv" --note "$note" "$@" || status=$?

echo "== elements: keljpeg_dec/keljpeg_enc beside jpegdec/jpegenc in GStreamer pipelines"
# 640x480 4:2:0 from the 1080p picture; the element rows join the same table.
small=$corpus/640x480-2x2-q85-baseline.jpg
[ -f "$small" ] || convert "$corpus/1920x1080-2x2-q85-baseline.jpg" -resize '640x480!' ppm:- |
  cjpeg -quality 85 -sample 2x2 -outfile "$small"
columns=$(grep -m1 '^| picture' "$out/$name.md" | tr -cd '|' | wc -c)
"$build/bench/elembench" --plugin-dir "$build/plugin" --work "$work" \
  --picture "$corpus/1920x1080-2x2-q85-baseline.jpg" --picture "$small" --columns "$((columns - 1))" \
  --markdown "$out/$name.md" --tsv "$out/$name.tsv" ${filter:+--filter "$filter"} || status=$?

# Ratios as bars, 1.0 marked: above the line we are faster.
plot="'$out/$name.tsv' every ::1 using 2:xtic(1) title 'ratio' lc rgb '#3070b0'"
if [ ${#before[@]} -gt 0 ]; then
  plot="'$out/decode-before.tsv' every ::1 using 2:xtic(1) title 'before' lc rgb '#b0b0b0', $plot"
fi
gnuplot <<GNUPLOT
set terminal pngcairo size 1400,700 font ',10'
set output '$out/$name.png'
set datafile separator '\t'
set title 'Speed against TurboJPEG (TurboJPEG time / our time, one process, median of interleaved pairs)'
set style data histograms
set style histogram clustered gap 1
set style fill solid border -1
set boxwidth 0.9
set xtics rotate by 35 right noenhanced
set key top right noenhanced
set yrange [0:1.2<*]
set grid ytics
set bmargin 14
set lmargin 22
plot $plot, 1 with lines lw 2 lc rgb '#c03030' title 'TurboJPEG speed'
GNUPLOT
# The README shows the latest table between its two marker lines.
if [ "$name" = decode ]; then
  awk -v table="$out/$name.md" '
    /^<!-- bench table/ { print; while ((getline line < table) > 0) if (line ~ /^\|/) print line; skip = 1; next }
    /^<!-- end of bench table/ { skip = 0 }
    !skip' README.md >"$work/README.md" && mv "$work/README.md" README.md
fi
echo "== wrote $out/$name.md, $out/$name.tsv, $out/$name.png"
exit "$status"
