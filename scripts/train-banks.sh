#!/usr/bin/env bash
# Trains the pattern upscaler's two banks from the training photographs (001 to 034 only) and
# writes data/banks/pattern_bank_0.bin and pattern_bank_1.bin, which the library build assembles
# into its constant data; then prints their table against bicubic on the validation photographs.
#
#   bash scripts/train-banks.sh [train-banks options]     (tools/train_banks.cpp tells how)
#
# About a minute on two cores. The result is deterministic: the same photographs give the same
# bytes. Rebuild the library afterwards (any cmake --build) to ship the new banks.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
photos=${TAVRIN_SHARED_DATA:-$root/../shared/data}/photos
dir="$root/build/train"

bash "$root/scripts/install-deps.sh"
cmake -S "$root" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$dir" --target train-banks evaluate-upscaler
"$dir/tools/train-banks" --photos "$photos/wikipedia" --out "$root/data/banks" "$@"
"$dir/tools/evaluate-upscaler" --photos "$photos" --banks "$root/data/banks"
