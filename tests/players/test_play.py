"""Runs tvhw-play with each of its options, alone and against the service.
usage: test_play.py TVHW-PLAY CLIP TVHW-RUN"""
import os
import re
import subprocess
import sys
import tempfile

PLAY, CLIP, RUN = sys.argv[1:]
OUT = tempfile.TemporaryDirectory()
QUIET = {**os.environ, 'KVO_MEDIA_LOG_LEVEL': '-1'}
WHOLE = r'plays on a core of type \d+.*\n.*ended at 5\.0 s, after 125 pictures'


def png_size(data):
    assert data.startswith(b'\x89PNG'), data[:4]
    return int.from_bytes(data[16:20], 'big'), int.from_bytes(data[20:24], 'big')


def play(what, status, said, environment='', program=()):
    """Runs tvhw-play with the arguments `what`, and compares its status and all that it says."""
    settings = dict(setting.split('=') for setting in environment.split())
    ran = subprocess.run([*program, PLAY, *what.format(clip=CLIP, out=OUT.name).split()],
                         env={**QUIET, **settings}, text=True, timeout=60,
                         stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    assert ran.returncode == status and re.search(said, ran.stdout), \
        f'{environment} tvhw-play {what}: status {ran.returncode}, not {status}:\n{ran.stdout}'
    if status == 2 and 'plays on' not in ran.stdout:  # A mistake is told in one line.
        assert ran.stdout.count('\n') == 1, ran.stdout


def made(name):
    with open(os.path.join(OUT.name, name), 'rb') as file:
        return file.read()


play('--fast {clip}', 0, WHOLE)
play('--fast --adaptive --tunnel {clip} {clip}', 0, r'(?s)port 0.*port 1.*125.*125')
play('--fast --pixel --from 2 --seconds 1 --png {out}/last.png {clip}', 0, r'ended at 3\.')
assert png_size(made('last.png')) == (640, 360)
play('--fast --window 640x360+100+100 --png {out}/panel.png {clip}', 0, WHOLE)
play('--fast --window 320x180+0+0 --png {out}/other.png {clip}', 0, WHOLE)
assert made('panel.png') != made('other.png')
for file in 'recorded.webm', 'recorded.mp4':
    play('--record {out}/' + file + ' {clip}', 0, WHOLE)
    play('--fast {out}/' + file, 0, 'after 125 pictures')
play('--record {out}/ended.mp4 --loop --keep {clip}', 0, 'ended at', program=('timeout', '--preserve-status', '2'))
play('--fast {out}/ended.mp4', 0, 'ended at')
with open(CLIP, 'rb') as clip, open(os.path.join(OUT.name, 'cut.mp4'), 'wb') as cut:
    cut.write(clip.read()[:80000])
play('--record {out}/rescued.mp4 {out}/cut.mp4', 2, 'cut short')
play('--fast {out}/rescued.mp4', 0, 'ended at')
play('--fast --insist --from 1 --seconds 0.5 {clip}', 0, 'lost its core at 1.*\n.*nothing was left',
     'KVO_HOST_RECLAIM=after:releaseOutputBuffer@15')
play('--fast --live {clip}', 0, WHOLE, 'SDL_VIDEODRIVER=dummy')
play('--fast --loop {clip}', 0, 'plays on', program=('timeout', '--preserve-status', '2'))

play('', 2, 'FILE is required')
play('nowhere.mp4', 2, 'nowhere.mp4: No such file')
play(sys.argv[0], 2, 'cannot be opened as a clip')
play('--from 100 {clip}', 2, 'holds no picture')
play('--window 0x0+1+1 {clip}', 2, 'within the panel of 1920x1080')
play('--window 9x9+1919+1 {clip}', 2, 'within the panel of 1920x1080')
play('--pixel --tunnel {clip}', 2, '--pixel excludes --tunnel')
play('--fast --png {out}/no/panel.png {clip}', 1, 'cannot write .*no/panel.png')
play('--record {out}/no/clip.webm {clip}', 1, 'cannot write .*no/clip.webm')
play('--seconds 0 {clip}', 2, '--seconds: Value 0 not in range')
play('--from nan {clip}', 2, '--from: Value nan not in range')
play('{clip} {clip}', 2, 'a panel of 3x3 has no room', 'KVO_HOST_PANEL=3x3')
for option in '--record', '--png':
    play(option + ' {out}/recorded.mp4 {out}/recorded.mp4', 2, 'recorded.mp4 is a file to play')
os.mkdir(os.path.join(OUT.name, 'empty'))
play('--fast --pixel --png {out}/empty {clip}', 1, 'cannot write .*empty')
assert os.path.isdir(os.path.join(OUT.name, 'empty'))
play('--record {out}/z.mp4 {clip}', 4, 'no encoder core was granted for h264 of 640x360',
     'KVO_HOST_POOL=decoder:1:1920x1088')
play('{clip}', 4, 'no core was granted', 'KVO_HOST_POOL=decoder:1:640x480')

# Two processes and one core: the newcomer takes it, and one that insists takes it back.
run = subprocess.run(
    [RUN, '--cores', 'decoder:1:1920x1088', '--', PLAY, '--insist', CLIP, '--', 'sh', '-c',
     'sleep 1; exec "$0" "$1"', PLAY, CLIP],
    env=QUIET, text=True, timeout=60, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
assert run.returncode == 3 and run.stdout.count('lost its core') == 2 and \
    re.search('asks again.*plays on.*ended at 5', run.stdout, re.DOTALL), run.stdout
