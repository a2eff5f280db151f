"""Runs the players whose mistakes the host platform tells of, and right programs.
usage: test_mistakes.py PLAYERS RIGHT-PROGRAM..."""
import os
import re
import signal
import subprocess
import sys

TOLD = {
    'call before configure': r'writeInputFrame\(\) of wrapper \w+ before it is configured',
    'call after release': r'writeInputFrame\(\) of wrapper \w+ after its release',
    'no size': r'configureReferenceMode\(\) of wrapper \w+ without width or height',
    'unknown key': r'the key frame-rate, which nobody reads; the nearest is framerate',
    'other size': r'with 1920x1080, configured with 1280x720',
    'port of nobody': r'videoPort 1, which nobody has',
    'exception': r'writeInputFrame\(\) of wrapper \w+ ends with an exception',
    'picture too early': r'DisplayPicture\(\) on a video output that is not open and configured',
    'configured twice at once': r'configureTunnelMode\(\) .* while another thread configures it',
    'destroyed in a call': r'step\(\) of wrapper \w+ is under way, and the wrapper destroyed',
    'release hangs': r'release\(\) of wrapper \w+ has not returned when the process ends',
    'client left open': r'client \d+ is open when the process ends',
    'port 255': r'TVHW_VSC_Connect\(\) to port 255',
    'empty window': r'SetOutputRegion\(\) with a window of 0x0 at 0,0',
    'off the panel': r'SetOutputRegion\(\) with a window of 1922x1080 at 0,0',
}


def run(*command, **settings):
    environment = {**os.environ, 'KVO_MEDIA_LOG_LEVEL': '1', 'KVO_MEDIA_LOG_FILE': '/dev/stderr', **settings}
    ran = subprocess.run(command, env=environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                         text=True, timeout=20, check=False)
    return ran.returncode, re.findall(r' W HostPlatform: mistake: (.*)', ran.stdout)


players, *right = sys.argv[1:]
for name, told in TOLD.items():
    status, lines = run(players, name)
    assert len(lines) == 1 and re.search(told + '.*: .', lines[0]), f'{name}: {lines}'
    status, lines = run(players, name, KVO_HOST_MISUSE='abort')
    assert status == -signal.SIGABRT and len(lines) == 1, f'{name}: {status}, {lines}'
for command in [players, 'none'], *([program] for program in right):
    assert run(*command) == (0, []), f'{command}: {run(*command)}'
assert run(players, 'off the panel', KVO_HOST_PANEL='unreadable') == (0, [])
assert run(players, 'none', KVO_HOST_MISUSE='ignore')[0] == 2
