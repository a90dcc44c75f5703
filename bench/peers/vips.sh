# vips.sh TASK MODE PHOTOGRAPHS OUTPUT FOLDER: the picture of a task by libvips' command line. MODE is "full" (every
# photograph decoded at full size, then resized by Lanczos-3) or "reduced" (its thumbnailer, which lets the decoder
# reduce). Prints the number of processes.
set -eu
task=$1
mode=$2
photos=$3
output=$4
work=$5/vips
rm -rf "$work"
mkdir -p "$work"
count=0

v() {
    count=$((count + 1))
    vips "$@" >/dev/null
}

# place PHOTOGRAPH WIDTH HEIGHT NAME: fills WIDTH x HEIGHT. All photographs are 6000 x 4000.
place() {
    if [ "$mode" = reduced ]; then
        v thumbnail "$photos/$1.jpg" "$work/$4.v" "$2" --height "$3" --crop centre
        return
    fi
    scale=$(awk "BEGIN { a = $2 / 6000; b = $3 / 4000; printf \"%.9f\", (a > b) ? a : b }")
    left=$(awk "BEGIN { print int((int(6000 * $scale + 0.5) - $2) / 2) }")
    top=$(awk "BEGIN { print int((int(4000 * $scale + 0.5) - $3) / 2) }")
    v resize "$photos/$1.jpg" "$work/$4-whole.v" "$scale"
    v crop "$work/$4-whole.v" "$work/$4.v" "$left" "$top" "$2" "$3"
}

case $task in
T1)
    place 1 1844 1240 photo
    v crop "$work/photo.v" "$work/inner.v" 40 40 1764 1160
    v embed "$work/inner.v" "$work/framed.v" 40 40 1844 1240 --extend white
    v text "$work/text.v" '<span foreground="white">A day at the sea, summer 2026</span>' --font 'DejaVu Sans 44' --dpi 72 --rgba
    v composite2 "$work/framed.v" "$work/text.v" "$output[Q=90]" over --x 80 --y 1115
    ;;
T2)
    place 1 1140 1380 one
    place 2 1140 1380 two
    place 3 1140 1380 three
    place 4 940 1140 four
    v black "$work/black.v" 2448 3036 --bands 3
    v linear "$work/black.v" "$work/white.v" 1 255 --uchar
    v copy "$work/white.v" "$work/page.v" --interpretation srgb
    v bandjoin_const "$work/four.v" "$work/four-alpha.v" 255
    v similarity "$work/four-alpha.v" "$work/turned.v" --angle 7 --background '0 0 0 0'
    v extract_band "$work/turned.v" "$work/alpha.v" 3
    v embed "$work/alpha.v" "$work/wide.v" 40 40 1170 1350
    v gaussblur "$work/wide.v" "$work/blurred.v" 12
    v linear "$work/blurred.v" "$work/shade.v" 0.6 0 --uchar
    v black "$work/dark1.v" 1170 1350 --bands 3
    v copy "$work/dark1.v" "$work/dark.v" --interpretation srgb
    v bandjoin "$work/dark.v $work/shade.v" "$work/shadow.v"
    v text "$work/text.v" '<span foreground="#2E4A62">Four pictures of one day</span>' --font 'DejaVu Sans 72' --dpi 72 --rgba
    v composite "$work/page.v $work/one.v $work/two.v $work/three.v $work/shadow.v $work/turned.v $work/text.v" \
        "$output[Q=90]" '2 2 2 2 2 2' --x '56 1252 56 1250 1274 56' --y '56 56 1492 1518 1542 2908'
    ;;
T3)
    place 1 1844 1249 photo
    v join "$work/photo.v" "$work/photo.v" "$output[Q=90]" vertical
    ;;
esac
rm -rf "$work"
echo "$count"
