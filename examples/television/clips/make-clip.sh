#!/bin/sh
# Makes balloons.mp4, the demo's own clip: 5 seconds, 640 by 360 at 25 frames per second, H.264 with
# B pictures, no sound. Needs the Debian packages ffmpeg, python3-cairo and fonts-dejavu-core.
set -eu
cd "$(dirname "$0")"
/usr/bin/python3 draw-clip.py | ffmpeg -hide_banner -loglevel error -y \
    -f rawvideo -pixel_format bgr0 -video_size 640x360 -framerate 25 -i - \
    -vf scale=out_color_matrix=bt709:out_range=tv \
    -c:v libx264 -preset veryslow -crf 25 -pix_fmt yuv420p -g 50 -bf 2 -threads 1 \
    -bsf:v filter_units=remove_types=6 \
    -colorspace bt709 -color_primaries bt709 -color_trc bt709 \
    -fflags +bitexact -flags:v +bitexact -map_metadata -1 -movflags +faststart \
    balloons.mp4
