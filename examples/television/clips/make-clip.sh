#!/bin/sh
# Makes testsrc.mp4, the demo's own clip, with the ffmpeg command line program: 4 seconds of a moving
# test pattern, 640 by 360 at 25 frames per second, H.264 with B pictures, no sound.
set -eu
cd "$(dirname "$0")"
ffmpeg -hide_banner -loglevel error -y \
    -f lavfi -i testsrc2=size=640x360:rate=25:duration=4,format=gbrp \
    -vf scale=out_color_matrix=bt709:out_range=tv \
    -c:v libx264 -preset veryslow -crf 32 -pix_fmt yuv420p -g 50 -bf 2 -threads 1 \
    -bsf:v filter_units=remove_types=6 \
    -colorspace bt709 -color_primaries bt709 -color_trc bt709 \
    -fflags +bitexact -flags:v +bitexact -map_metadata -1 -movflags +faststart \
    testsrc.mp4
