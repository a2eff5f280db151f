"""Sweeps players with a mistake each, which must be found, and right ones, which must pass.
usage: test_sweep.py TVHW-SWEEP PLAYERS MINIMAL-PLAYER TVHW-PLAY CLIP"""
import concurrent.futures
import pathlib
import re
import subprocess
import sys
import tempfile
import time

SWEEP, PLAYERS, MINIMAL, PLAY, CLIP = sys.argv[1:]
LOGS = tempfile.TemporaryDirectory()
RECLAIMS = '--reclaims --most 3 --jobs 1 --limit 5 --expect 0,3,4'.split()
CALLS = '--calls --jobs 1 --limit 20'.split()
FOUND = {
    'spins': ('hung', RECLAIMS),
    'deadlock in release': ('hung', RECLAIMS),
    'waits for the end': ('hung', RECLAIMS),
    'restarts without end': ('hung', [*RECLAIMS, '--hung', '1']),
    'frees what it feeds': ('crashed', RECLAIMS),
    'leaks the wrapper': ('mistake', RECLAIMS),
    'starts again without release': ('mistake', RECLAIMS),
    'destroys while another thread calls': ('mistake', RECLAIMS),
    'goes on for long': ('went on', [*RECLAIMS, '--idle', '2']),
    'ends with a status of its own': ('status', RECLAIMS),
    'goes on when refused': ('mistake', CALLS),
    'believes it has a port': ('mistake', CALLS),
}
PASS = {
    'none': ['env', 'TZ=UTC+5', 'TEXT=\udcff', PLAYERS, 'none'],  # Another time zone, and no UTF-8.
    'minimal player': [MINIMAL],
    'tvhw-play': [PLAY, '--fast', '--seconds', '1', CLIP],
}


def sweep(name, options, command):
    ran = subprocess.run([SWEEP, *options, '--logs', f'{LOGS.name}/{name}', '--', *command], text=True,
                         stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=300, check=False)
    return ran.returncode, ran.stdout


def check_found(name):
    outcome, options = FOUND[name]
    status, said = sweep(name, options, [PLAYERS, name])
    assert status == 1 and f'\n{outcome}: ' in said and '\n  repeat: KVO_HOST_' in said, f'{name}: {said}'
    assert '--hung' not in options or 'were not made' in said, f'{name}: {said}'
    assert outcome not in ('crashed', 'hung') or '\n  stack:  ' in said, f'{name}: {said}'


def check_passes(name):
    status, said = sweep(name, ['--most', '24', '--jobs', '1', '--html', f'{LOGS.name}/{name}/pages'], PASS[name])
    assert status == 0 and re.search(r'[1-9]\d* lost a core', said), f'{name}: {said}'
    with open(f'{LOGS.name}/{name}/pages/index.html', encoding='utf-8') as page:
        assert page.read().count('<tr>') > 10


def check_ends_runs():
    logs = pathlib.Path(LOGS.name, 'ends')
    logs.mkdir()
    (logs / '2024-accounts.txt').touch()
    with subprocess.Popen([SWEEP, '--logs', logs, '--', 'sh', '-c', 'echo $$; exec sleep 60']) as ran:
        while not (logs / '0000.out').exists() or not (logs / '0000.out').read_text():
            time.sleep(0.01)
        ran.terminate()
    assert ran.returncode == 128 + 15 and (logs / '2024-accounts.txt').exists()
    assert not pathlib.Path('/proc', (logs / '0000.out').read_text().strip()).exists()


check_ends_runs()
with concurrent.futures.ThreadPoolExecutor(6) as pool:  # Most of them wait.
    for check in [*pool.map(check_passes, PASS), *pool.map(check_found, FOUND)]:
        pass
for arguments in [], ['--'], ['--', 'no-such-program'], ['--jobs', '0', '--', 'true'], ['--', 'true'], ['--', 'false'], \
        ['--', 'env', 'KVO_HOST_X=1', PLAYERS, 'none'], \
        ['--reclaims', '--', 'env', 'KVO_HOST_POOL=encoder:1:640x480', PLAYERS, 'none']:
    ran = subprocess.run([SWEEP, *arguments], cwd=LOGS.name, stderr=subprocess.PIPE, check=False)
    assert ran.returncode == 2 and b'tvhw-sweep: ' in ran.stderr, (arguments, ran)
