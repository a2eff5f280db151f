"""Tests tvhw-log on logs that programs write while they run. usage: test_reader.py SITUATION-PROGRAM
TEST-PROGRAM [unittest's arguments]"""

import concurrent.futures
import contextlib
import gzip
import io
import json
import os
import pathlib
import random
import re
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree
import zipfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.dont_write_bytecode = True
sys.path.insert(0, str(ROOT / 'tools'))
from tvhw_log.cli import arguments, run  # noqa: E402
from tvhw_log.verdicts import RANK, RULES  # noqa: E402

SITUATION, TESTS = sys.argv[1:3]
RUNS = 8  # Without a fault.
POOL = 'decoder:1:3840x2160,decoder:1:1920x1088,encoder:1:1920x1088'  # Too small for all of them.
PRIORITIES = 'EWIDV'
FOREIGN = ['--------- beginning of main\n', 'CLOCK   501   777 D Other: a: b\n', '\xff\xfe\x00 broken\n', 'x' * 3000 + '\n',
           '\n', 'CLOCK   501   777 I VideoClient: of somebody else with the same tag\n',
           'CLOCK   501   777 F libc: Fatal signal 11 (SIGSEGV), code 1 in tid 777\n']
FOLDER = tempfile.TemporaryDirectory(prefix='tvhw-log-')
WORKING = pathlib.Path(FOLDER.name)

# Situation: the level from which on it is named, and what is named below that level.
EXPECTED = {
    'codec-refused': (4, {}), 'codec-stuck': (0, {}), 'empty-window': (3, {}), 'free-failed': (0, {}),
    'id-unreadable': (0, {}), 'live-encoder': (1, {0: 'refused'}),
    'live-encoder-and-another-core': (0, {}, 'no-such-core'), 'manager-unreachable': (0, {}), 'may-not-force': (0, {}),
    'no-codec': (1, {0: 'no-such-core'}), 'no-size': (3, {}), 'no-such-core': (0, {}), 'not-configured': (4, {}),
    'nothing-wrong': (5, {}), 'port-of-nobody': (3, {}), 'reclaim-hangs': (2, {}), 'region-before-adaptive': (4, {}),
    'sink-format': (0, {}), 'still-not-shown': (0, {}), 'window-blank': (0, {}),
}


def write_log(name, command, level=4, **settings):
    path = WORKING / f'{name}.log'
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, env={
        **os.environ, 'KVO_MEDIA_LOG_LEVEL': str(level), 'KVO_MEDIA_LOG_FILE': str(path), **settings})
    return path


def read(*words, stdin=b''):
    """Returns the report, as the program would print it, after its exit status."""
    printed, before = io.StringIO(), sys.stdin
    sys.stdin = io.TextIOWrapper(io.BytesIO(stdin))
    try:
        with contextlib.redirect_stdout(printed), contextlib.redirect_stderr(io.StringIO()):
            status = run(arguments([str(word) for word in words]))
    finally:
        sys.stdin = before
    return status, printed.getvalue()


def found(log, *words):
    """Returns the names of the verdicts on a log, the worst first."""
    if isinstance(log, (str, list)):
        log = ''.join(log).encode()
    return [verdict['name'] for verdict in json.loads(read('-', '--json', *words, stdin=log)[1])['verdicts']]


def up_to(level, lines):
    return [line for line in lines if line.split()[4] in PRIORITIES[:level + 1]]


CLOCK = r'(\S+ (\S+)) +(\d+) +(\d+) (\w) (\w+): (?:\S+:\d+ )?(?:\w+: )?(.*)\n'
FORMS = {
    'threadtime': r'\1 \3 \4 \5 \6    : \7\n', 'with year and user': r'2026-\g<1>456 +0000 media \3 \4 \5 \6: \7\n',
    'time': r'\1 \5/\6( \3): \7\n', 'brief': r'\5/\6( \3): \7\n', 'brief with user': r'\5/\6(media: \3): \7\n', 'tag': r'\5/\6    : \7\n',
    'long': r'[ \1 \3: \4 \5/\6 ]\n\7\n\n', 'process': r'\5( \3) \7  (\6)\n', 'thread': r'\5( \3: \4) \7\n',
    'color': '\x1b[38;5;40m\\1 \\3 \\4 \\5 \\6: \\7\x1b[0m\n', 'epoch': r'17000@\2 \3 \4 \5 \6: \7\n',
    'monotonic': r'  @\2 \3 \4 \5 \6: \7\n', 'Studio': r'2026-\1 \3-\4 \6       com.example.player  \5  \7\n',
    'old Studio': r'2026-\1 \3-\4/com.example.player \5/\6: \7\n'}


def in_form(form, line):
    text = re.sub(CLOCK, FORMS[form], line)
    return re.sub(r'@(\d+):(\d+):(\d+)', lambda at: str(int(at[1]) * 3600 + int(at[2]) * 60 + int(at[3])), text)


def mixed(form, lines):
    """Returns a log in a form, with lines of others between."""
    return b''.join(part for number, line in enumerate(lines) for part in (
        in_form(form, FOREIGN[number % len(FOREIGN)].replace('CLOCK', line[:18])).encode('latin-1'),
        in_form(form, line).encode()))


def made(*lines):
    """Returns a log: each line "SECONDS PROCESS THREAD PRIORITY/TAG: MESSAGE"."""
    log = []
    for line in sorted(lines, key=lambda line: float(line.split()[0])):
        time, pid, tid, rest = line.split(' ', 3)
        hours, left = divmod(float(time), 3600)
        log.append(f'11-24 {int(hours):02}:{int(left // 60):02}:{left % 60:06.3f}  {pid}  {tid} '
                   f'{rest[0]} {rest[2:]}\n')
    return log


def plays(time, number, port=None, pid=500):
    """The lines of level 2 of a decoder that is granted a core, and a port."""
    texts = ['crm: acquired resource, core=0x1, port=0, size=3840/2160', 'core_type: 801', f'resource id {number}']
    texts += [f'crm: acquired display resource, port={port + 1}', f'vdoPort={port}'] if port is not None else []
    return [f'{time + place / 1000} {pid} 501 I/VideoClient: {text}' for place, text in enumerate(texts)]


def reclaims(time, until=None, tag='VideoClient', tid=600, pid=500):
    start = 'reclaim: start' + (', calling-pid=0' if tag == 'VideoClient' else '')
    return [f'{time} {pid} {tid} I/{tag}: {start}'] + (
        [f'{until} {pid} {tid} I/{tag}: reclaim: end'] if until else [])


def window(time, *steps):
    texts = {'connect': '+++ vsc-connect [0]: type=3, idx=0', 'input': '+++ set-input [0]: input=0/0/64/36',
             'disconnect': '+++ vsc-disconnect [0]: type=3',
             'output': '+++ set-output [0]: output=0/0/64/36 displayRegion=1920/1080'}
    return [f'{time + place / 10} 500 501 D/VideoScalerTvhw: {texts[step]}' for place, step in enumerate(steps)]


REFUSED = 'E/VideoClient: crm-acquire: failed to acquire resource, ret={}, try=0'
LATER = '99 500 777 I/VideoScalerTvhw: panel size =1920/1080'
EVENING = [line for change in range(5) for line in plays(10 + change, 70001 + change)]
TUNNELS = [line for change in range(5) for line in plays(10 + change, 70001 + change, 0)]
# A log, the names of its verdicts, and what the report says.
MADE = [
    (EVENING + [line for hour in range(12) for line in reclaims(4000 * hour + 4000, 4000 * hour + 4000.1)], [],
     'releases are not logged.*Nothing is wrong'),
    (TUNNELS + reclaims(20, 20.1), [], r'decoder 70005, process 500 \[reclaimed\]'),
    (TUNNELS, [], r'decoder 70001, process 500 \[released\]'),
    (plays(1, 70001) + reclaims(2) + plays(2.005, 70002) + [LATER], [], 'its line be lost'),
    (plays(1, 70001) + reclaims(2) + [LATER], ['reclaim-hangs'], 'Whose: +decoder 70001'),
    (plays(1, 70001) + reclaims(2) + ['2.1 500 600 F/libc: Fatal signal 11 (SIGSEGV), code 1 in tid 600']
     + plays(2.105, 70002, pid=510) + ['99 510 777 I/VideoScalerTvhw: panel size =1920/1080'], ['process-died'],
     'during a reclaim from decoder 70001: it held the core of decoder 70001'),
    (plays(1, 70001) + ['3 900 900 F/libc: Fatal signal 11 (SIGSEGV), code 1 in tid 900', LATER], [], 'decoder 70001'),
    (['5 500 600 E/VideoClient: reclaim timeout waiting: processing count=2', LATER.replace('I/', 'E/').replace(
        'panel size =1920/1080', 'vsc-connect: device not opened')], ['codec-stuck', 'channel-unopened'], '2 of them'),
    (plays(1, 70001) + reclaims(2, 14.5) + ['12.01 500 502 ' + REFUSED.format(-110), LATER],
     ['patience-over', 'release-slow'], 'Maybe by: +decoder 70001'),
    (plays(1, 70001) + reclaims(2, 2.01) + ['2.5 500 502 ' + REFUSED.format(-16), LATER], ['refused'],
     'if this platform frees the core only'),
    (['1 500 600 W/VideoEncClient: live streaming, reject reclaim', '2 500 502 ' + REFUSED.format(-16),
      '2 500 502 W/VideoEncClient: get resource fail'], ['live-encoder'], 'Whose: encoder without id.*Maybe by: process 500, an encoder'),
    (['1 500 501 V/HostPlatform: TVHW_CRM_ClientInit(VDC, 0, 1) = 0 in 9 us'] + plays(1, 70001) + reclaims(2, 2.01)
     + ['2.1 500 501 W/HostPlatform: mistake: client 70001 is open when the process ends: destroy it'], ['core-kept'],
     'Whose: decoder 70001, process 500: still open when the process ended'),
    (plays(1, 70001) + ['2 500 501 W/HostPlatform: mistake: it was used after it was closed'], ['platform-says'], 'after it was'),
    (['1 500 502 V/HostPlatform: allowsForcedAcquire(1) = 1 in 1 us', '2 500 502 E/VideoClient: crm-resource: ret=-61',
      '2 500 502 W/VideoEncClient: get resource fail'], ['cause-unknown'], 'encoder without id'),
    (['1 500 501 W/VideoClient: crm-acquire: failed to get resource, ret=-5'] + plays(2, 70001), ['grant-unreadable'],
     r'decoder 70001, process 500 \[held'),
    (plays(1, 70001)[:1] + ['1.1 500 501 E/VideoClient: crm-resource: ret=-61', '1.1 500 501 W/VideoClient: get resource '
      'fail'], ['grant-lost'], r'\[refused\].*holds nothing any more'),
    (['2 500 502 ' + REFUSED.format(-22)], ['request-invalid'], 'without sense'),
    (['1 500 501 E/VideoClient: crm: failed to init client, ret=-111', '1 500 501 W/VideoEncClient: acquire resource not '
      'implement'], ['manager-unreachable'], 'Whose: encoder without id.*there is no service'),
    (plays(1, 70001, 0) + ['2 500 501 E/VideoClient: vdoPort=TVHW_CRM_VIDEO_PORT_NONE'], ['port-not-granted'],
     r'decoder 70001, process 500 \[released\]((?!still holds).)*$'),
    (plays(1, 70001) + plays(2, 70002) + ['3 500 501 E/VideoClient: crm-release: ret=-5'], ['give-back-failed'],
     'Whose: process 500'),
    (window(1, 'connect', 'connect', 'input', 'output') + [LATER], [], 'places its window'),
    (window(1, 'connect', 'disconnect', 'connect') + window(4, 'disconnect'), ['never-placed'], 'never placed Proved.*Whose: scaler'),
    (window(1, 'connect') + ['1.1 500 501 E/VideoScalerTvhw: connect vsc 0(vscType 3, port 0)fail', '3 500 501 '
                             'D/VideoScalerTvhw: +++ win-blank [0]: enable=0'], ['window-blank'], r'shown again after 1\.9 s'),
    (['1 500 501 D/VideoScalerTvhw: +++ set-output [0]: output=0/0/64/36 displayRegion=0/0'], ['panel-unknown'], '64x36'),
    (['1 500 501 E/VideoScalerTvhw: failed to open vsc, ret=-16, idx=1', '1 500 501 E/VideoScalerTvhw: vsc-connect: '
      'device not opened'], ['channel-unopened'], 'Whose: scaler channel 1.*the channel is in use'),
    (['1 500 501 E/ImageSink: failed to open vo: ret=-22', '1 500 501 E/ImageSink: TVHW_VO_Config fail'],
     ['output-unopened'], 'no such output'),
    (plays(1, 70001) + ["2 9 9 I/lowmemorykiller: Kill 'player' (500), uid 1, oom_adj 900"], ['process-died'],
     'was killed for its memory: it held the core of decoder 70001'),
    (plays(1, 70001) + ['2 9 9 I/Zygote: Process 500 exited cleanly (0)', '9 9 9 I/ImageSink: x'], [], 'its process ended'),
    (EVENING + reclaims(20, 26) + ['19 9 9 I/ResourceManager: reclaim: client 70003 of process 500 (player) is asked for '
                                   'decoder of 1920x1080'], ['release-slow'], 'Whose: decoder 70003, process 500: at least'),
    (plays(1, 70001) + reclaims(2) + ['2.1 500 600 F/libc: Fatal signal 6 (SIGABRT), code 1', '2.2 500 601 I/VideoClient: '
     'vdoPort=1', '2.3 9 9 F/DEBUG: pid: 500, tid: 600, name: player'], ['process-died'],
     'A process that uses the library died Proved'),
    (plays(1, 70001) + plays(1.1, 70002, pid=510) + reclaims(2, 13) + reclaims(2.5, 13, pid=510)
     + ['12.6 520 502 ' + REFUSED.format(-110), LATER], ['patience-over', 'release-slow'],
     'Maybe by: decoder 70001, process 500; decoder 70002, process 510'),
    (['1 500 501 D/VideoClient: get unknown core_type: 9', '1 500 501 I/VideoClient: core_type: 0',
      '2 500 502 I/VideoClient: core_type: 0'], ['core-unknown'], r'unknown type was granted \(2 times'),
    (plays(1, 70001) + reclaims(2, 3.1) + reclaims(2.5, 3.2), [], 'reclaimed; .* reclaimed; '),
    (plays(1, 70001, 0) + plays(2, 70002) + ['3 500 501 I/VideoClient: Already acquired resource mCoreType=801'] + [
        line.replace('0.', '3.1') for line in plays(0, 0, 1)[3:]] + plays(4, 70003), [],
     r'70002, process 500 \[held(.(?!decoder))*display port 1'),
    (plays(1, 70001, 0) + plays(2, 70001, 0, pid=510), [], r'70001, process 500 \[held'),
]
SERVICE = '9 9 I/ResourceManager: '
INITS = [f'{time} 500 501 V/HostPlatform: TVHW_CRM_ClientInit(VDC, 0, 1) = 0 in 9 us' for time in (0, 9)]
UNREAD = '{} 500 502 E/VideoClient: crm-resource: ret=-61'
AT_ONCE = ['1 500 502 ' + REFUSED.format(-16), UNREAD.format(1)]
CALLED = '99 500 777 V/HostPlatform: TVHW_VBE_DISP_GetPanelSize(0) = 0 in 9 us'
CLEARED = '2.1 500 501 W/VideoClient: clear display resource fail'


def timed(until, microseconds):
    """A reclaim of a length by the clock and one as measured."""
    return plays(1, 70001) + reclaims(2, until) + ['1.9 500 600 V/HostPlatform: reclaim(70001) entered',
                                                   f'{until} 500 600 V/HostPlatform: reclaim(70001) = 1 in {microseconds} us']


MADE += [
    (plays(1, 70001) + reclaims(2) + [LATER.replace('500', '510'), f'9 {SERVICE}a'], [], 'it may have been killed'),
    (['1 500 501 I/VideoClient: acquireResourc% vdoPort=TVHW_CRM_VIDEO_PORT_NONE'] + plays(2, 70001), [], 'that are not known'),
    (plays(1, 70001) + reclaims(2) + ['99 9 9 I/Other: a'], ['reclaim-hangs'], 'Whose: decoder 70001'),
    (plays(1, 70001) + [f'2 {SERVICE}reclaim: client 70001 of process 500 (player), asked 0.1 s ago, keeps it',
                        f'2 {SERVICE}refuse: client 70002 of process 510 (p) gets no decoder of 1x1 after 0.1 s: -16',
                        '2 510 502 ' + REFUSED.format(-16)], ['refused'],
     'Whose: client 70002, process 510.*Maybe by: client 70001 of process 500, which kept it'),
    (EVENING + reclaims(20, 26) + [f'19 {SERVICE}reclaim: client {client} of process 500 (player) is asked for decoder of '
                                   f'1x1 for client {client + 9} of process 510 (p)' for client in (70003, 70004)],
     ['release-slow'], 'Whose: a reclaim in process 500, of one of 5'),
    (EVENING + reclaims(20, 26) + [f'19.{turn} {SERVICE}reclaim: client {client} of process 500 (player){what}'
                                   for turn, (client, what) in enumerate((
                                       (70003, ' is asked for port for client 9 of process 510 (p)'),
                                       (70003, ', asked 12 min ago, keeps it'),
                                       (70004, ' is asked for port for client 9 of process 510 (p)')))],
     ['release-slow'], 'Whose: decoder 70004'),
    (plays(1, 70001) + reclaims(2) + plays(8, 70001) + [LATER], [], 'its line be lost'),
    (plays(1, 70001) + reclaims(2, 8) + ['1.9 500 600 V/HostPlatform: reclaim(70001) entered', '8.1 500 600 V/HostPlatform: '
                                         'reclaim(70001) = 1 in 900 us'], [], r'decoder 70001, process 500 \[reclaimed'),
    (plays(1, 70001) + reclaims(2) + INITS + [LATER], [], 'another has its number'),
    (INITS[:1] + plays(1, 70001) + ['2 500 501 V/HostPlatform: TVHW_CRM_ClientReleaseResource(70001) = 0 in 9 us', CALLED],
     ['never-freed'], 'decoder 70001, process 500: still open 97.0 s later'),
    (plays(1, 70001) + reclaims(2) + INITS + [LATER.replace('99', '8')], ['reclaim-hangs'], 'Whose: .* 6.0 s when its process'),
    (plays(1, 70001) + reclaims(2) + ['8 9 9 I/Zygote: Process 500 exited due to signal (9)', LATER.replace('500', '510')],
     ['process-died', 'reclaim-hangs'], '6.0 s when its process ends'),
    (plays(1, 70001) + reclaims(2) + plays(20, 70002, pid=500)[:1] + ['20.1 500 600 I/VideoClient: core_type: 801', LATER],
     [], 'its line be lost'),
    (plays(1, 70001) + reclaims(2, 3602) + window(3603, 'connect'), [], 'the clock may have been set.*how long it took is not known'),
    (['1 500 502 ' + REFUSED.format(-16), UNREAD.format(31)], ['refused'], 'Whose.*ret=-16.*ret=-61'),
    (['1 500 502 ' + REFUSED.format(-16), UNREAD.format(1), UNREAD.format(31)], ['refused', 'grant-lost'], 'nothing is held'),
    (plays(1, 70001) + reclaims(2) + [LATER, LATER.replace('99', '3600')], ['reclaim-hangs'], '97.0 s when the log'),
    (timed(20, 5000), [], r'\[reclaimed'), (timed(20, 5000) + [CALLED], ['core-kept'], 'still open 79.0 s later'),
    (timed(20, 5000) + [LATER], [], 'too soon'), (plays(1, 70001) + reclaims(2, 2.01) + [CALLED], [], 'Nothing is wrong'),
    (AT_ONCE + [line.replace('VideoC', 'VideoEncC').replace('501', '502') for line in plays(2, 70005)[1:]], ['refused'],
     'Whose: client without id'),
    (['1 500 502 D/VideoEncClient: acquire-resource: w/h=1/1, framerate=0', UNREAD.format(1)], ['cause-unknown'], 'encoder'),
    (plays(1, 70001) + [UNREAD.format(3).replace('502', '501')], ['cause-unknown'], r'70001, process 500 \[held.*client without id'),
    (plays(1, 70001, 0)[:4] + [UNREAD.format(3).replace('502', '501')], ['grant-lost'], r'decoder 70001, process 500 \[refused'),
    (plays(1, 70001) + plays(2, 70002) + ['3 500 501 E/VideoClient: crm-release: ret=-61', '4 500 501 E/ImageSink: failed to '
     'open vo: ret=-61'], ['give-back-failed', 'output-unopened'], 'Whose: process 500'),
    (2 * AT_ONCE, ['refused'], r'for a core Proved.* 2 lines of .* stand there'),
    ([AT_ONCE[0], *AT_ONCE], ['refused'], 'for a core Proved'),
    (AT_ONCE + [AT_ONCE[0].replace('1', '1.001', 1)], ['refused'], r'\(2 times'),
    (['1 ' + 5000 * '9' + ' 501 I/VideoClient: a', '2 500 501 V/HostPlatform: reclaim(\u00b2) entered', LATER], [], 'Nothing is wrong'),
    (timed(20, 5000000), ['release-slow'], 'at least 2.0 s of 5.0 s'),
    (plays(1, 70001) + ['2 500 501 I/VideoClient: clear display resource all 0, port 1', CLEARED], ['ports-not-cleared'],
     r'70001, process 500 \[held((?!not configured).)*$'),
    (plays(1, 70001) + ['2 500 501 I/VideoClient: clear display resource all 1, port 1', CLEARED], ['ports-not-cleared'],
     r'not configured, keeps the core'),
    (plays(1, 70001) + ['2 9 9 I/Zygote: Process 500 exited due to signal (9)', '3 510 502 ' + REFUSED.format(-16)],
     ['process-died', 'refused'], 'Maybe by: gone with its process, .*: decoder 70001'),
    (['1 500 501 W/VideoClient: crm-acquire: video/vvc -> none'] + plays(1, 70001), ['no-codec'], 'granted all the same'),
    (window(1, 'connect') + ['0 500 501 D/VideoScalerTvhw: --- win-blank [0]', '4 500 501 V/HostPlatform: TVHW_VSC_Close(0) '
                             '= 0 in 1 us'], [], 'it was never placed" would be said'),
]
# A reclaim without end is none to speak of where one of these shows that lines are lost.
SIGNS = [
    ['3 9 9 I/chatty: uid=1000 player expire 5 lines'],
    [f'3 {SERVICE}daemon/Service.h:331 refuse: more lines of this second are left out'],
    ['3 500 501 V/Codec: decoder 0x1 flush() entexed'], ['3 500 501 I/VideoClient: resource id 70002'],
    ['3 500 501 E/VideoClient: impl/tvhw/X.cpp:1 f: crm-rasource: ret=-5'],
    ['3 500 501 D/VideoScalerTvhw: --- set-input [0]'], ['3 500 501 D/Codec: decoder 0x1 flush() = 0 in 9 us'],
    window(3, 'input', 'input', 'output') + ['3.05 500 501 D/VideoScalerTvhw: --- set-input [0]'],
    [f'3 500 501 V/HostPlatform: TVHW_CRM_ClientInit(VDC, 0, {number}) = 0 in 9 us' for number in (1, 3)],
]
MADE += [(plays(1, 70001) + reclaims(2) + [LATER, *sign], [], '"A reclaim does not end" would be said') for sign in SIGNS]


class Reader(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        usage = subprocess.run([SITUATION], stderr=subprocess.PIPE, check=False).stderr.decode()
        names = [name.strip() for name in usage.split('\n  ')[1:]]
        assert sorted(names) == sorted(EXPECTED), set(names) ^ set(EXPECTED)
        with concurrent.futures.ThreadPoolExecutor(len(names)) as pool:
            paths = pool.map(lambda name: write_log(name, [SITUATION, name]), names)
        cls.logs = dict(zip(names, paths))
        # As on a device: the host platform names some of the situations itself.
        cls.lines = {name: [line for line in path.read_text().splitlines(True) if ': mistake: ' not in line]
                     for name, path in cls.logs.items()}

    def test_each_situation_is_named_and_nothing_else(self):
        for name, lines in self.lines.items():
            named_from, below, *called = EXPECTED[name]
            for level in range(5):
                expected = (called or [name])[0] if level >= named_from else below.get(level)
                with self.subTest(name, level=level):
                    self.assertEqual(found(up_to(level, lines) if level < 4 else self.logs[name].read_bytes()),
                                     [expected] if expected else [])
            self.assertIn(' 0 of the library or platform that are not known, 0 in no',
                          read(self.logs[name])[1])

    def test_the_innocent_are_not_accused(self):
        chance = random.Random(1)

        def place(lines):
            return chance.randrange(len(lines) + 1)

        def in_a_step(lines, begin):  # A loss of whole operations leaves no sign.
            return next((at for at in range(begin, len(lines)) if ': --- ' in lines[at]), begin)

        damages = {
            'none': ''.join,
            'lost beginning': lambda lines: ''.join(lines[place(lines):])[chance.randrange(50):],
            'lost end': lambda lines: ''.join(lines[:place(lines)]),
            'lost part': lambda lines: ''.join(lines[:len(lines) // 3]
                                               + lines[in_a_step(lines, len(lines) // 3 + place(lines) // 3):]),
            'lost lines': lambda lines: ''.join(line for line in lines if chance.random() > 0.05),
            'killed, and its number reused': lambda lines: ''.join(lines[:place(lines)] + [
                re.sub(r' (\d\d):', lambda hour: f' {int(hour[1]) + 1:02}:', line, count=1) for line in lines]),
        }
        for seed in range(1, RUNS + 1):
            lines = write_log(f'run-{seed}', [SITUATION, str(seed)], KVO_HOST_POOL=POOL).read_text().splitlines(True)
            for level in range(5):
                for damage, damaged in damages.items():
                    log = damaged(up_to(level, lines))
                    with self.subTest(damage, seed=seed, level=level, log=log):
                        self.assertEqual(found(log), [])

    def test_what_the_lines_of_a_device_tell(self):
        for number, (lines, expected, says) in enumerate(MADE):
            with self.subTest(number, log=lines):
                log = made(*lines)
                self.assertEqual(found(log), expected)
                self.assertRegex(' '.join(read('-', stdin=''.join(log).encode())[1].split()), says)

    def test_every_form_is_read(self):
        for form in FORMS:
            for name in ('codec-stuck', 'window-blank', 'still-not-shown', 'may-not-force'):
                log = mixed(form, self.lines[name])
                with self.subTest(name, log=form):
                    self.assertEqual(found(log), [name])
        plain = self.logs['codec-stuck'].read_bytes()
        archive = io.BytesIO()
        with zipfile.ZipFile(archive, 'w') as members:
            members.writestr('FS/log.txt', plain)
        for other in (gzip.compress(plain), gzip.compress(plain)[:-9], archive.getvalue(),
                      plain.decode().encode('utf-16'), plain.decode().encode('utf-16-le')):
            self.assertEqual(found(other), ['codec-stuck'])
        self.assertEqual(read('-', stdin=gzip.compress(plain)[:5])[0], 2)

    def test_a_timed_out_reclaim_is_told_and_drawn(self):
        path = self.logs['codec-stuck']
        trace, svg = WORKING / 'trace.json', WORKING / 'reclaim.svg'
        report = read(path, '--trace', trace, '--svg', svg)[1]
        self.assertRegex(report, r'gave up waiting after 3\.\d+ s for 2 calls: flush \(thread \d+\), flush')
        self.assertRegex(report, r'Whose: .* 2 of them; still inside: flush \(thread')
        drawn = ' '.join(xml.etree.ElementTree.parse(svg).getroot().itertext())
        for text in ('holds core 801', 'waits for 2 calls', 'asks for a core', 'flush', 'decoder 70002'):
            self.assertIn(text, drawn)
        events = json.loads(trace.read_text())['traceEvents']
        arrows = {event['ph']: event for event in events if event['ph'] in 'sf'}
        tracks = {event['tid']: event['args']['name'] for event in events
                  if event['name'] == 'thread_name'}
        self.assertEqual(tracks[arrows['f']['tid']], 'decoder 70001')
        self.assertNotEqual(arrows['s']['tid'], arrows['f']['tid'])
        waits = [event for event in events if event.get('cat') == 'wait']
        self.assertGreater(waits[0]['dur'], 2900000)
        read(self.logs['empty-window'], '--trace', trace)
        kinds = {event.get('cat') for event in json.loads(trace.read_text())['traceEvents']}
        self.assertLessEqual({'blank', 'shown', 'platform'}, kinds)

    def test_a_picture_tells_no_more_than_the_log(self):
        svg = WORKING / 'guess.svg'
        many = [line for client in range(12) for line in plays(1, 70001 + client, pid=700 + client)]
        read('-', '--svg', svg, stdin=''.join(made(*many, *plays(1, 70013), *reclaims(2, 3))).encode())
        drawn = ' '.join(xml.etree.ElementTree.parse(svg).getroot().itertext())
        for text, is_there in (('reclaim: wait and release', True), ('3 more clients left out', True),
                               ('waits for', False), ('every call', False)):
            self.assertEqual(text in drawn, is_there, text)

    def test_every_message_of_the_fault_sweep_is_known(self):
        path = write_log('sweep', [TESTS, '--gtest_filter=FaultSweep.*'])
        report = read(path)[1]
        self.assertIn(' 0 of the library or platform that are not known, 0 in no', report)
        names = {'manager-unreachable', 'free-failed', 'ports-not-cleared', 'window-blank',
                 'still-not-shown', 'output-unclosed', 'channel-unclosed', 'region-refused'}
        self.assertEqual([name for name in names if RULES[RANK[name]].title not in report], [])

    def test_several_processes_rotated_files_and_torn_ones(self):
        names = ('codec-stuck', 'no-codec', 'live-encoder', 'nothing-wrong')
        paths = [self.logs[name] for name in names]
        again = WORKING / 'again.log'
        again.write_bytes(paths[0].read_bytes())
        overlap = WORKING / 'overlap.log'
        overlap.write_text(''.join(self.lines['codec-stuck'][3:]))
        once = json.loads(read(*paths, '--json')[1])
        self.assertEqual([verdict['name'] for verdict in once['verdicts']], list(names[:3]))
        for more in (again, overlap):
            twice = json.loads(read(*paths, more, '--json')[1])
            self.assertEqual((twice['verdicts'], twice['known']), (once['verdicts'], once['known']))
        log = paths[0].read_bytes()
        rotated = [WORKING / 'old.log', WORKING / 'new.log']
        half = log.rindex(b'\n', 0, log.index(b'timeout waiting')) + 1
        rotated[0].write_bytes(log[:half])
        rotated[1].write_bytes(log[half:])
        whole = read(paths[0])[1]
        for order in (rotated, rotated[::-1]):
            self.assertEqual(read(*order)[1].split('VERDICTS')[0], whole.split('VERDICTS')[0])
        for cut in range(0, len(log), 97):
            self.assertLessEqual(set(found(log[cut:])), {'codec-stuck'})

    def test_a_clock_that_jumps_back_and_a_line_of_a_megabyte(self):
        log = self.logs['codec-stuck'].read_text()
        for day, after in (('2026-02-28', '2026-03-01'), ('2028-02-29', '2028-03-01'), ('12-31', '01-01')):
            lines = [line.replace('11-24 24', f'{after} 00').replace('11-24', day) for line in made(
                *plays(86390, 70001), *reclaims(86399), '86408 500 777 I/ImageSink: ---ImageSink configure---')]
            for name, part in (('old', lines[:-1]), ('new', lines[-1:])):
                (WORKING / f'{name}.log').write_text(''.join(part))
            self.assertIn('9.0 s when the log ends', read(WORKING / 'new.log', WORKING / 'old.log')[1])
        early = re.sub(r'(?m)^\S+ \S+(.*reclaim: reclaim: end)$', r'01-01 00:00:00.000\1', log)
        early = early.encode() + b'11-24 20:01:02.345 1 1 I VideoClient: ' + b'a' * 3000000
        self.assertEqual(found(early), ['codec-stuck'])
        self.assertIn('jumped back', read('-', stdin=early)[1])

    def test_mistakes_are_named(self):
        log = self.logs['no-codec'].read_bytes()
        for words, stdin, status, text in (
                ([], b'', 2, 'usage'), (['/nowhere'], b'', 2, 'tvhw-log: /nowhere: No such'),
                ([str(WORKING)], b'', 2, 'Is a directory'),
                (['-', '--svg', '/nowhere/x'], log, 2, 'tvhw-log: /nowhere/x: No such'),
                (['-'], b'', 2, 'the log is empty'), (['-'], b'a\nb\n', 2, '2 of 2 lines are in no form'),
                (['-'], b'I/Other( 1): a\n', 2, '1 line of others'), (['-'], b'PK\3\4 and no more', 2, 'zip file'),
                (['-'], log, 1, ''), (['-'], self.logs['nothing-wrong'].read_bytes(), 0, '')):
            ended = subprocess.run([ROOT / 'tools/tvhw-log', *words], input=stdin, capture_output=True, check=False)
            self.assertEqual((ended.returncode, text in ended.stderr.decode()), (status, True), ended.stderr)
            self.assertNotIn('Traceback', ended.stderr.decode())
            self.assertEqual(status < 2, not ended.stderr)

    def test_levels_may_differ_by_tag(self):
        for levels, tags in (('VideoClient:2,*:-1', {'VideoClient'}), ('Codec:4', {'Codec'}),
                             ('-1', set()), ('*:4,Codec:3,VideoClient:1', {'HostPlatform'})):
            log = write_log('tags-' + levels.replace('*', 'any'), [SITUATION, 'nothing-wrong'], levels)
            self.assertEqual({line.split()[5].rstrip(':') for line in log.read_text().splitlines()}, tags)



# Who has the only core, what comes then, the verdicts from a level on, and from which on they name him.
SHARED = [
    ('hold-live', '$S as ask-encoder', {0: ['refused'], 1: ['live-encoder']}, 1),
    ('hold', 'kill -9 $HOLDER; $S as ask', {0: [], 2: ['process-died']}, 2),
    ('hold', '$S as ask', {0: []}, 5),
    ('hold-stuck', '$S as ask', {0: ['patience-over']}, 1),
    ('hold', '${RUN%/*}/tvhw-resource-manager --force 70001', {0: [], 1: ['forced']}, 1),
]


class OverTheService(unittest.TestCase):
    """Several processes that share the service's cores, and a log."""

    SCRIPT = """until grep -q 'ResourceManager.* gets ' $KVO_MEDIA_LOG_FILE; do sleep 0.05; done
        HOLDER=$(sed -n 's/.*client 70001 of process \\([0-9]*\\).* gets .*/\\1/p' $KVO_MEDIA_LOG_FILE)
        {}; sleep 0.2; kill $HOLDER; true"""

    @classmethod
    def write_log(cls, number):
        """Returns what the processes logged, and the end of one that was killed."""
        holds, then, *_ = SHARED[number]
        path, run_by = WORKING / f'shared-{number}.log', os.environ['TVHW_RUN']
        ended = subprocess.run([run_by, '--cores', 'decoder:1:1920x1088,encoder:1:1920x1088', '--', SITUATION, 'as',
                                holds, '--', 'sh', '-c', cls.SCRIPT.format(then)],
                               stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, check=False,
                               env={**os.environ, 'KVO_MEDIA_LOG_LEVEL': '4', 'KVO_MEDIA_LOG_FILE': str(path),
                                    'S': SITUATION, 'RUN': run_by})
        return path.read_text().splitlines(True), re.findall(r'.* was killed by SIGKILL\n', ended.stderr.decode())

    def test_who_has_the_core_is_named_and_nobody_else(self):
        with concurrent.futures.ThreadPoolExecutor(len(SHARED)) as pool:
            logs = list(pool.map(self.write_log, range(len(SHARED))))
        for (holds, then, verdicts, named_from), (lines, ends) in zip(SHARED, logs):
            holder = re.search(r'client 70001 of process (\d+)', ''.join(lines))[1]
            for level in range(5):
                log = ''.join(up_to(level, lines) + ends)
                read_of = json.loads(read('-', '--json', stdin=log.encode())[1])['verdicts']
                named = ' '.join(' '.join([*finding['candidates'], finding['who'] * (
                    verdict['name'] in ('process-died', 'reclaim-hangs', 'forced'))])
                                 for verdict in read_of for finding in verdict['findings'])
                with self.subTest(holds, then=then, level=level):
                    self.assertEqual([verdict['name'] for verdict in read_of],
                                     verdicts[max(known for known in verdicts if known <= level)])
                    self.assertEqual(set(re.findall(r'process (\d+)', named)), {holder} if level >= named_from else set())


class InABrowser(unittest.TestCase):
    """What the page shows, in headless Chromium."""

    CLICK = """<script>
        const verdict = document.querySelector('.verdict');
        if (verdict) verdict.click();
        const pixels = paint.getImageData(0, 0, canvas.width, canvas.height).data;
        document.body.dataset.drawn = pixels.filter((value, place) => place % 4 == 3 && value).length;
        document.body.dataset.tracks = visible.map(track => data.tracks[track][0]).join();
        document.body.dataset.requests = performance.getEntriesByType('resource').length;
    </script>"""

    @staticmethod
    def dump(address):
        return subprocess.run(['chromium', '--headless=new', '--no-sandbox', '--disable-gpu',
                               '--disable-dev-shm-usage', '--dump-dom',
                               f'--user-data-dir={WORKING}/browser', address],
                              capture_output=True, check=True, timeout=120).stdout.decode()

    @classmethod
    def setUpClass(cls):
        try:
            cls.dump('about:blank')
        except (subprocess.SubprocessError, OSError) as error:  # Some containers let none run.
            raise unittest.SkipTest(f'no browser runs on this machine: {error}') from error

    def shown(self, log):
        page = log.with_suffix('.html')
        read(log, '--html', page)
        page.write_text(page.read_text() + self.CLICK)
        dumped = self.dump(f'file://{page}')
        body = re.search(r'<body[^>]*>', dumped)[0] if '<body' in dumped else ''
        marked = re.findall(r'class="row[^"]* marked"[^>]*>([^<]*)<', dumped)
        return dumped, dict(re.findall(r'data-(\w+)="([^"]*)"', body)), marked

    def test_a_click_on_a_verdict_marks_its_lines(self):
        log = write_log('live-encoder', [SITUATION, 'live-encoder'])
        proofs = json.loads(read(log, '--json')[1])['verdicts'][0]['findings'][0]['lines']
        log.write_text(log.read_text() + '11-24 20:01:02.345  1  1 I VideoClient: <script>throw 1</script>\n')
        dumped, body, marked = self.shown(log)
        self.assertEqual([line.split(':', 2)[1] for line in marked], [str(proof['line']) for proof in proofs])
        self.assertIn('live encoders kept their cores', dumped)
        self.assertIn('encoder 70001', body['tracks'])
        self.assertGreater(int(body['drawn']), 1000)
        self.assertEqual(body['requests'], '0')

    def test_a_log_without_verdicts_and_a_long_one(self):
        dumped, body, marked = self.shown(write_log('nothing-wrong', [SITUATION, 'nothing-wrong']))
        self.assertIn('Nothing is wrong, as far as this log tells.</p>', dumped)
        self.assertIn('decoder 70001', body['tracks'])
        long = WORKING / 'long.log'
        long.write_text(''.join(made(*(line for client in range(720)
                                       for line in plays(60 * client, 70001 + client, client % 2)),
                                     '43200 500 600 I/VideoClient: reclaim: start, calling-pid=0',
                                     '43210 500 777 I/VideoScalerTvhw: panel size =1920/1080')))
        dumped, body, marked = self.shown(long)
        self.assertEqual(len(marked), 1)
        self.assertIn('decoder 70720', dumped)
        self.assertLess(dumped.count('class="row'), 200)


if __name__ == '__main__':
    unittest.main(argv=sys.argv[:1] + sys.argv[3:])
