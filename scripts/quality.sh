#!/usr/bin/env bash
# The quality table: synthetic bursts from the validation photographs (wikipedia 035-049 and the
# 24 Kodak pictures; never the training photographs 001-034) through tavrin-sr, scored against
# their ground truth beside bicubic and the library on the base frame alone.
#
#   bash scripts/quality.sh [--quick] [--jobs N] [--params FILE]
#
# Per photograph, four bursts of 8 frames (make-burst: random homographies, 2 x 2 box sensor):
# noise sigma 0, 2 and 5, and one with a moving patch at sigma 2. Each burst runs twice at zoom 2:
# an ordinary zoom (output at the frame's size: the centre window enlarged, scored with
# evaluate --centre-window) and the whole frame enlarged 2x (a super zoom). The table gives mean
# luma PSNR and SSIM per mode and noise, the luma PSNR inside the moving area of the patch
# bursts, and the edge sharpness (mean gradient on the truth's strongest tenth of edges, over the
# truth's: 1 is as sharp as the truth) and the mean of the Cb and Cr PSNR. --quick takes three photographs (a smoke test); --params runs the library with another
# tuning file than the sample (for tuning it). Files go to out/quality/.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
photos=${TAVRIN_SHARED_DATA:-$root/../shared/data}/photos
build="$root/build/quality"
out="$root/out/quality"
quick=0
jobs=2
params=()
while [ $# -gt 0 ]; do
    case "$1" in
        --quick) quick=1 ;;
        --jobs) jobs=$2; shift ;;
        --params) params=(--params "$(realpath "$2")"); shift ;;
        *) echo "quality.sh: unknown argument $1" >&2; exit 2 ;;
    esac
    shift
done

bash "$root/scripts/install-deps.sh" >/dev/null
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" --target make-burst tavrin-sr evaluate >/dev/null

list=()
if [ "$quick" = 1 ]; then
    list=(wikipedia/041.png wikipedia/047.png kodak/kodim05.png)
else
    for i in $(seq 35 49); do list+=("wikipedia/$(printf %03d "$i").png"); done
    for i in $(seq 1 24); do list+=("kodak/kodim$(printf %02d "$i").png"); done
fi
rm -rf "$out"
mkdir -p "$out"

# One photograph: its four bursts, two runs each, one CSV line per run.
one() {
    local photo=$1 name
    name=$(basename "$photo" .png)
    for kind in n0 n2 n5 ghost; do
        local dir="$out/$name-$kind" extra=() noise
        case $kind in
            n0) noise=0 ;;
            n2) noise=2 ;;
            n5) noise=5 ;;
            ghost) noise=2; extra=(--ghosts 1 --ghost-size 24) ;;
        esac
        "$build/tools/make-burst" "$photos/$photo" -o "$dir" --frames 8 --noise "0,$noise" \
            --seed 3 "${extra[@]}" >/dev/null
        local size w h
        size=$(awk '$1 == "frame_size" { print $2 "x" $3 }' "$dir/manifest.txt")
        "$build/cli/tavrin-sr" "$dir"/frame_*.png --zoom 2 --output-size "$size" --iso 400 \
            --base 0 $params_arg -o "$dir/zoom.png" >/dev/null
        "$build/tools/evaluate" "$dir/manifest.txt" "$dir/zoom.png" --centre-window \
            --max-shift 8 --csv "$out/zoom-$name-$kind.csv" --label "$kind" >/dev/null
        "$build/cli/tavrin-sr" "$dir"/frame_*.png --zoom 2 --iso 400 --base 0 \
            $params_arg -o "$dir/super.png" >/dev/null
        "$build/tools/evaluate" "$dir/manifest.txt" "$dir/super.png" --max-shift 8 \
            --csv "$out/super-$name-$kind.csv" --label "$kind" >/dev/null
        rm -f "$dir"/frame_*.png
    done
    echo "  $name"
}
export -f one
# One word list, since the exported function cannot see an array (the path has no spaces).
params_arg="${params[*]:-}"
export build out photos params_arg
echo "quality: ${#list[@]} photographs, $jobs at a time"
printf '%s\n' "${list[@]}" | xargs -P "$jobs" -I{} bash -c 'one "$@"' _ {}

# Means per mode and burst kind, from the CSV lines (header in the first line of each file).
table() {
    local mode=$1
    awk -F, -v mode="$mode" '
        FNR == 1 { for (i = 1; i <= NF; ++i) col[$i] = i; next }
        {
            k = $1; n[k]++
            r[k] += $col["result_y_psnr"]; rs[k] += $col["result_y_ssim"]
            b[k] += $col["bicubic_y_psnr"]; bs[k] += $col["bicubic_y_ssim"]
            s[k] += $col["single_y_psnr"]; ss[k] += $col["single_y_ssim"]
            re[k] += $col["result_edge"]; be[k] += $col["bicubic_edge"]; se[k] += $col["single_edge"]
            rc[k] += ($col["result_cb_psnr"] + $col["result_cr_psnr"]) / 2
            bc[k] += ($col["bicubic_cb_psnr"] + $col["bicubic_cr_psnr"]) / 2
            if ($col["result_moving_psnr"] != "nan") {
                m[k]++; rm[k] += $col["result_moving_psnr"]
                bm[k] += $col["bicubic_moving_psnr"]; sm[k] += $col["single_moving_psnr"]
            }
        }
        END {
            split("n0 n2 n5 ghost", kinds, " ")
            for (j = 1; j <= 4; ++j) {
                k = kinds[j]
                if (!n[k]) continue
                printf "| %s | %s | %d | %.2f / %.4f | %.2f / %.4f | %.2f / %.4f | %+.2f |", mode, k,
                       n[k], r[k] / n[k], rs[k] / n[k], b[k] / n[k], bs[k] / n[k], s[k] / n[k],
                       ss[k] / n[k], (r[k] - b[k]) / n[k]
                if (m[k]) printf " %.2f / %.2f / %.2f |", rm[k] / m[k], bm[k] / m[k], sm[k] / m[k]
                else printf " |"
                printf " %.3f / %.3f / %.3f |", re[k] / n[k], be[k] / n[k], se[k] / n[k]
                printf " %.2f / %.2f |\n", rc[k] / n[k], bc[k] / n[k]
            }
        }' "$out"/"$mode"-*.csv
}
{
    echo "| mode | burst | photos | result PSNR / SSIM | bicubic | base frame alone | result - bicubic | moving area: result / bicubic / alone | edge sharpness: result / bicubic / alone | chroma PSNR: result / bicubic |"
    echo "|---|---|---|---|---|---|---|---|---|---|"
    table zoom
    table super
} | tee "$out/table.md"
