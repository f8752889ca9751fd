#!/usr/bin/env bash
# Builds tavrin_bench in Release with the OpenCV peers and runs it.
#
#   scripts/bench.sh                                   every benchmark
#   scripts/bench.sh --benchmark_filter='Resize|Blur'  arguments go to tavrin_bench as they are
#
# OpenCV is a benchmark-only dependency: this script installs the two modules the peers call
# (core and imgproc; the full libopencv-dev pulls in every module and its GUI stack) and nothing
# else needs them. Each peer is named after its tavrin benchmark with "OpenCV" appended, so a
# filter on the tavrin name selects both. The console table goes to out/bench/bench.txt and the
# JSON to out/bench/bench.json, unless the arguments name another --benchmark_out.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir="$root/build/bench"
out="$root/out/bench"

bash "$root/scripts/install-deps.sh"

opencv_packages=(libopencv-core-dev libopencv-imgproc-dev)
missing=()
for p in "${opencv_packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$p")
    fi
done
if [ ${#missing[@]} -gt 0 ]; then
    echo "bench: installing ${missing[*]}"
    sudo_cmd=()
    if [ "$(id -u)" -ne 0 ]; then sudo_cmd=(sudo); fi
    export DEBIAN_FRONTEND=noninteractive
    "${sudo_cmd[@]}" apt-get update -qq
    "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

cmake -S "$root" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTAVRIN_WERROR=ON \
    -DTAVRIN_BENCH_OPENCV=ON >/dev/null
cmake --build "$dir" -j "$(nproc)" --target tavrin_bench

# Defaults that a caller's own arguments override (Google Benchmark keeps the last of a flag).
args=(--benchmark_min_time=0.5 --benchmark_counters_tabular=true)
case " $* " in
*" --benchmark_out="*) ;;
*) args+=("--benchmark_out=$out/bench.json" --benchmark_out_format=json) ;;
esac
mkdir -p "$out"
echo "== load: $(uptime)" | tee "$out/bench.txt"
"$dir/tavrin_bench" "${args[@]}" "$@" 2>&1 | tee -a "$out/bench.txt"
