#!/usr/bin/env bash
# The main job: the sample burst (data/sample-burst) through tavrin-sr at zoom 2, measured
# against its ground truth beside two single-frame baselines.
#
# Installs what is missing, builds the two programs it needs (Release, in build/demo), and
# writes out/: the result, the baselines, the run's report and the evaluation (table and CSV).
# Exits non-zero if any step fails.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
burst="$root/data/sample-burst"
build="$root/build/demo"
out="$root/out"

bash "$root/scripts/install-deps.sh"

echo "== build (Release): tavrin-sr, evaluate"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" -j "$(nproc)" --target tavrin-sr evaluate

mkdir -p "$out"
# The capture settings of the burst, as its manifest records them.
setting() { awk -v key="$1" '$1 == key { print $2 }' "$burst/manifest.txt"; }
iso=$(setting iso)
base=$(setting base)
exposure=$(setting exposure)

echo "== tavrin-sr: $(ls "$burst"/frame_*.png | wc -l) frames at zoom 2"
"$build/cli/tavrin-sr" "$burst"/frame_*.png --zoom 2 --iso "$iso" --exposure "$exposure" \
    --base "$base" -o "$out/sample-burst-x2.png" | tee "$out/run.txt"

echo "== evaluate"
rm -f "$out/evaluation.csv"
"$build/tools/evaluate" "$burst/manifest.txt" "$out/sample-burst-x2.png" \
    --csv "$out/evaluation.csv" --label sample-burst-x2 --write-baselines "$out" |
    tee "$out/evaluation.txt"
cp "$burst/truth.png" "$out/truth.png"
echo "== out/: sample-burst-x2.png (result), bicubic.png and single-frame.png (baselines)," \
     "truth.png, run.txt, evaluation.txt, evaluation.csv"
