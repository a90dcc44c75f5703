# imagemagick.sh TASK MODE PHOTOGRAPHS OUTPUT FOLDER: the picture of a task by ImageMagick's command line, as a person
# would write it. Prints the number of processes.
set -eu
task=$1
photos=$3
output=$4

case $task in
T1)
    convert "$photos/1.jpg" -resize '1844x1240^' -gravity center -extent 1844x1240 \
        -shave 40x40 -bordercolor white -border 40 \
        -font DejaVu-Sans -pointsize 44 -fill white -gravity NorthWest -annotate +80+1110 'A day at the sea, summer 2026' \
        -quality 90 "$output"
    ;;
T2)
    convert -size 2448x3036 xc:white \
        \( "$photos/1.jpg" -resize '1140x1380^' -gravity center -extent 1140x1380 \) -gravity NorthWest -geometry +56+56 -composite \
        \( "$photos/2.jpg" -resize '1140x1380^' -gravity center -extent 1140x1380 \) -gravity NorthWest -geometry +1252+56 -composite \
        \( "$photos/3.jpg" -resize '1140x1380^' -gravity center -extent 1140x1380 \) -gravity NorthWest -geometry +56+1492 -composite \
        \( "$photos/4.jpg" -resize '940x1140^' -gravity center -extent 940x1140 -background none -rotate 7 +repage \
           \( +clone -background black -shadow 60x12+16+16 \) +swap -background none -layers merge +repage \) \
        -gravity NorthWest -geometry +1274+1542 -composite \
        -font DejaVu-Sans -pointsize 72 -fill '#2E4A62' -annotate +56+2900 'Four pictures of one day' \
        -quality 90 "$output"
    ;;
T3)
    convert "$photos/1.jpg" -resize '1844x1249^' -gravity center -extent 1844x1249 \
        \( +clone \) -append -quality 90 "$output"
    ;;
esac
echo 1
