#!/usr/bin/env bash
# Quality and speed of the bundled mode-1 and mode-9 models against two classic video denoisers, each of those tuned
# to the noise by the best of a small grid of strengths, on 1080p clips synthesised from photographs the
# model never saw in training. Needs a host build (cmake --workflow --preset host), ffmpeg and the
# photographs of python3-skimage (apt-get install ffmpeg python3-skimage).
#
#   bash bench/quality.sh [output directory]      # FRAMES=5 ISOS="3200 12800" PHOTOS="a.png b.png ..."
#
# Writes quality.md (the table) and quality.csv (every run) into the output directory.
set -euo pipefail
cd "$(dirname "$0")/.."
out=${1:-build/host/quality}
build=${BUILD:-build/host}
tool=$build/tools/vaitool
runtime=$build/runtime/libpxrt_reference.so
frames=${FRAMES:-5}
isos=${ISOS:-"3200 12800"}
skdata=/usr/lib/python3/dist-packages/skimage/data
# The photographs train.py holds out for validation.
photos=${PHOTOS:-"$skdata/astronaut.png $skdata/chelsea.png $skdata/coffee.png"}
hqdn3d_grid=${HQDN3D_GRID:-"4 9 13 18 24 32"}
nlmeans_grid=${NLMEANS_GRID:-"3 5 8 12 16"}

for need in "$tool" "$runtime"; do
    [ -e "$need" ] || { echo "quality.sh: $need is missing: build the host preset first" >&2; exit 1; }
done
command -v ffmpeg > /dev/null || { echo "quality.sh: ffmpeg is missing (apt-get install ffmpeg)" >&2; exit 1; }
for p in $photos; do
    [ -e "$p" ] || { echo "quality.sh: $p is missing (apt-get install python3-skimage, or set PHOTOS)" >&2; exit 1; }
done
mkdir -p "$out"
export VAI_PXRT_LIBRARY=$runtime
csv=$out/quality.csv
echo "photo,iso,method,setting,y_psnr_db,y_ssim,fps" > "$csv"

now() { date +%s.%N; }
# Mean luma PSNR and SSIM of a clip against the clean one, as "psnr ssim".
measure() {
    "$tool" compare "$1" "$2" --csv "$out/cmp.csv" > /dev/null
    awk -F, 'NR > 1 && $2 == "mean" { print $3, $4 }' "$out/cmp.csv"
}
# Runs ffmpeg's filter over the noisy clip; prints "psnr ssim fps".
ffmpeg_run() {
    local filter=$1 t0 t1 q
    t0=$(now)
    ffmpeg -v error -y -threads 2 -i "$out/noisy.y4m" -vf "$filter" -pix_fmt yuv420p10le -strict -1 \
        -f yuv4mpegpipe "$out/ff.y4m"
    t1=$(now)
    q=$(measure "$out/clean.y4m" "$out/ff.y4m")
    echo "$q $(awk -v n="$frames" -v a="$t0" -v b="$t1" 'BEGIN { printf "%.2f", n / (b - a) }')"
}

runs=$(( $(wc -w <<< "$photos") * $(wc -w <<< "$isos") ))
run=0
for photo in $photos; do
    name=$(basename "${photo%.*}")
    for iso in $isos; do
        run=$((run + 1))
        echo "[$run/$runs] $name at ISO $iso: synthesising $frames frames" >&2
        "$tool" synth "$photo" -o "$out/noisy.y4m" --clean "$out/clean.y4m" --iso "$iso" -n "$frames" > /dev/null
        read -r p s <<< "$(measure "$out/clean.y4m" "$out/noisy.y4m")"
        echo "$name,$iso,noisy,-,$p,$s,-" >> "$csv"

        for entry in "1 models/mode1/qcom_run.json models/mode1/vainr_luma_1920x1080.json" \
                     "9 models/mode9/mtk_yuv_run.json models/mode9/vainr_mtk_yuv_1920x1080.json"; do
            read -r mode config model <<< "$entry"
            echo "[$run/$runs]   library, mode $mode" >&2
            log=$("$tool" denoise -i "$out/noisy.y4m" -o "$out/lib.y4m" -m "$mode" -c "$config" --model "$model" \
                --iso "$iso" -l 0)
            fps=$(sed -n 's/^speed: \([0-9.]*\) frames per second.*/\1/p' <<< "$log")
            own=$(sed -n 's/.*library.s own work \([0-9.]*\) ms.*/\1/p' <<< "$log")
            read -r p s <<< "$(measure "$out/clean.y4m" "$out/lib.y4m")"
            echo "$name,$iso,mode $mode,own ${own:-?} ms/frame,$p,$s,$fps" >> "$csv"
        done
        for ls in $hqdn3d_grid; do
            echo "[$run/$runs]   hqdn3d $ls" >&2
            read -r p s f <<< "$(ffmpeg_run "hqdn3d=$ls")"
            echo "$name,$iso,hqdn3d,$ls,$p,$s,$f" >> "$csv"
        done
        for st in $nlmeans_grid; do
            echo "[$run/$runs]   nlmeans $st" >&2
            read -r p s f <<< "$(ffmpeg_run "nlmeans=s=$st")"
            echo "$name,$iso,nlmeans,$st,$p,$s,$f" >> "$csv"
        done
    done
done
rm -f "$out/ff.y4m" "$out/cmp.csv"

# One row per clip: noisy, the library, and each filter at its best strength for that clip; then the
# mean frames per second of each method.
awk -F, -v frames="$frames" '
NR == 1 { next }
{
    key = $1 " ISO " $2
    if (!(key in seen)) { seen[key] = 1; order[++n] = key }
    m = $3
    if (!((key, m) in best) || $5 > best[key, m]) { best[key, m] = $5; ssim[key, m] = $6; set[key, m] = $4 }
    if ($7 != "-") { fsum[m] += $7; fcount[m]++ }
}
function cell(k, m, with_setting) {
    return sprintf(" %.2f / %.3f%s |", best[k, m], ssim[k, m], with_setting ? " (" set[k, m] ")" : "")
}
END {
    printf "| clip (%d frames, 1080p) | noisy | mode 1 | mode 9 | hqdn3d, best | nlmeans, best | mode 1 - hqdn3d | mode 1 - nlmeans |\n", frames
    print "|---|---|---|---|---|---|---|---|"
    for (i = 1; i <= n; i++) {
        k = order[i]
        printf "| %s |%s%s%s%s%s %+.2f dB | %+.2f dB |\n", k, cell(k, "noisy", 0), cell(k, "mode 1", 0),
            cell(k, "mode 9", 0), cell(k, "hqdn3d", 1), cell(k, "nlmeans", 1),
            best[k, "mode 1"] - best[k, "hqdn3d"], best[k, "mode 1"] - best[k, "nlmeans"]
    }
    printf "\nframes per second (mean over every run):"
    split("mode 1,mode 9,hqdn3d,nlmeans", ms, ",")
    for (j = 1; j <= 4; j++) printf " %s %.2f%s", ms[j], fsum[ms[j]] / fcount[ms[j]], j < 4 ? "," : "\n"
}' "$csv" | tee "$out/quality.md"
echo "luma PSNR dB / SSIM against the clean clip; every run: $csv" >&2
