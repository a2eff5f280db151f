"""Tests tvhw-log on logs that programs write while they run. usage: test_reader.py SITUATION-PROGRAM
TEST-PROGRAM [unittest's arguments]"""

import concurrent.futures
import contextlib
import io
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.dont_write_bytecode = True
sys.path.insert(0, str(ROOT / 'tools'))
from tvhw_log.cli import arguments, run  # noqa: E402
from tvhw_log.verdicts import RANK, RULES  # noqa: E402

SITUATION, TESTS = sys.argv[1:3]
ONLY_BY_CALLS = ('core-kept', 'never-freed')
LIBRARY = re.compile(r' (?:VideoClient|VideoEncClient|VideoScalerTvhw|ImageSink): ')
FOREIGN = [b'--------- beginning of main', b'11-24 20:01:02.345   501   777 D Other   : a: b',
           b'E/AndroidRuntime(  501): FATAL', b'\xff\xfe\x00 broken', b'x' * 3000, b'',
           b'11-24 20:01:02.345   501   777 I VideoClient: of somebody else with the same tag']
WORKING = pathlib.Path(tempfile.mkdtemp(prefix='tvhw-log-'))


def write_log(name, command, level=4):
    path = WORKING / f'{name}.log'
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, env={
        **os.environ, 'KVO_MEDIA_LOG_LEVEL': str(level), 'KVO_MEDIA_LOG_FILE': str(path)})
    return path


def read(*words, stdin=b''):
    """Returns the report, as the program would print it."""
    printed, before = io.StringIO(), sys.stdin
    sys.stdin = io.TextIOWrapper(io.BytesIO(stdin))
    try:
        with contextlib.redirect_stdout(printed):
            run(arguments([str(word) for word in words]))
    finally:
        sys.stdin = before
    return printed.getvalue()


def verdicts(report):
    return re.findall(r'^\d+\. (.*?)(?:  \(\d+ times\))?$', report, re.MULTILINE)


def title(name):
    return RULES[RANK[name]].title


def of_library(lines):
    return [line for line in lines if LIBRARY.search(line)]


def mixed(lines):
    """Returns a log with foreign lines between."""
    return b'\n'.join(part for number, line in enumerate(lines)
                      for part in (FOREIGN[number % len(FOREIGN)], line.encode())) + b'\n'


THREADTIME = re.compile(r'(\S+ \S+) +(\d+) +(\d+) (\w) (\w+): (?:\S+:\d+ )?(?:\w+: )?(.*)')
FORMS = {'threadtime': r'\1 \2 \3 \4 \5    : \6', 'with year and user': r'2026-\g<1>456 +0000 media \2 \3 \4 \5: \6',
         'time': r'\1 \4/\5( \2): \6', 'brief': r'\4/\5( \2): \6'}


class Reader(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        usage = subprocess.run([SITUATION], stderr=subprocess.PIPE, check=False).stderr.decode()
        cls.names = usage.split('\n  ')[1:]
        cls.names = [name.strip() for name in cls.names]
        with concurrent.futures.ThreadPoolExecutor() as pool:
            paths = pool.map(lambda name: write_log(name, [SITUATION, name]), cls.names)
        cls.logs = dict(zip(cls.names, paths))

    def test_the_right_verdict_comes_first(self):
        self.assertGreaterEqual(len(self.names), 16)
        for name, path in self.logs.items():
            expected = [] if name == 'nothing-wrong' else [title(name)]
            with self.subTest(name, log='of the host'):
                report = read(path)
                self.assertEqual(verdicts(report)[:1], expected)
                self.assertIn(' 0 of the library or platform that are not known, 0 in no', report)
            if name in ONLY_BY_CALLS:
                continue
            lines = of_library(path.read_text().splitlines())
            for form, template in FORMS.items():
                if name == 'reclaim-hangs' and form == 'brief':
                    continue  # Without times nobody can tell.
                with self.subTest(name, log=form):
                    log = mixed(THREADTIME.sub(template, line) for line in lines)
                    self.assertEqual(verdicts(read('-', stdin=log))[:1], expected)

    def test_a_core_kept_shows_in_a_refusal_where_calls_are_not_logged(self):
        lines = of_library(self.logs['core-kept'].read_text().splitlines())
        refused = of_library(self.logs['may-not-force'].read_text().splitlines())
        end = next(at for at, line in enumerate(lines) if line.endswith('reclaim: end')) + 1
        refusal = next(line for line in refused if 'failed to acquire' in line)
        log = '\n'.join(lines[:end] + [refusal.replace('try=1', 'try=0')])
        log = re.sub(r'\d\d:\d\d:\d\d\.\d{3}', '20:00:00.000', log)
        self.assertEqual(verdicts(read('-', stdin=log.encode())), [title('core-kept')])

    def test_a_timed_out_reclaim_is_told_and_drawn(self):
        path = self.logs['codec-stuck']
        trace, svg = WORKING / 'trace.json', WORKING / 'reclaim.svg'
        report = read(path, '--trace', trace, '--svg', svg)
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

    def test_every_message_of_the_fault_sweep_is_known(self):
        path = write_log('sweep', [TESTS, '--gtest_filter=FaultSweep.*'])
        report = read(path)
        self.assertIn(' 0 of the library or platform that are not known, 0 in no', report)
        for name in ('manager-unreachable', 'free-failed', 'ports-not-cleared', 'window-blank',
                     'still-not-shown', 'output-unclosed', 'channel-unclosed', 'region-refused'):
            self.assertIn(title(name), verdicts(report))

    def test_several_processes_rotated_files_and_torn_ones(self):
        names = ('codec-stuck', 'no-codec', 'live-encoder', 'nothing-wrong')
        together = verdicts(read(*(self.logs[name] for name in names)))
        expected = [*names[:1], 'core-kept', *names[1:-1]]  # The stuck codec's owner keeps it, too.
        self.assertEqual(together, [title(name) for name in expected])
        log = self.logs['codec-stuck'].read_bytes()
        rotated = [WORKING / 'old.log', WORKING / 'new.log']
        half = log.rindex(b'\n', 0, log.index(b'timeout waiting')) + 1
        rotated[0].write_bytes(log[:half])
        rotated[1].write_bytes(log[half:])
        whole = read(self.logs['codec-stuck'])
        for order in (rotated, rotated[::-1]):
            self.assertEqual(read(*order).split('VERDICTS')[0], whole.split('VERDICTS')[0])
        for cut in range(0, len(log), 97):
            read('-', stdin=log[cut:])

    def test_a_clock_that_jumps_back_and_a_line_of_a_megabyte(self):
        log = self.logs['codec-stuck'].read_text()
        early = re.sub(r'(?m)^\S+ \S+(.*reclaim: reclaim: end)$', r'01-01 00:00:00.000\1', log)
        report = read('-', stdin=early.encode() + b'11-24 20:01:02.345 1 1 I VideoClient: ' + b'a' * 3000000)
        self.assertEqual(verdicts(report)[0], title('codec-stuck'))
        self.assertIn('jumped back', report)

    def test_mistakes_are_named(self):
        for words, status, text in (([], 2, 'usage'), (['/nowhere'], 2, 'tvhw-log: /nowhere: No such'),
                                        ([str(WORKING)], 2, 'Is a directory'),
                                        (['-', '--svg', '/nowhere/x'], 2, 'tvhw-log: /nowhere/x: No such')):
            ended = subprocess.run([ROOT / 'tools/tvhw-log', *words], input=b'', capture_output=True,
                                 check=False)
            self.assertEqual(ended.returncode, status)
            self.assertIn(text, ended.stderr.decode())
            self.assertNotIn('Traceback', ended.stderr.decode())
        for variable, value in (('LEVEL', 'loud'), ('LEVEL', '5'), ('LEVEL', 'Tag:'), ('LEVEL', '1,'),
                                ('LEVEL', '1;2'), ('FILE', '/nowhere/x')):
            ended = subprocess.run([SITUATION, 'nothing-wrong'], capture_output=True, check=False,
                                   env={**os.environ, f'KVO_MEDIA_LOG_{variable}': value})
            self.assertEqual(ended.returncode, 2, value)
            self.assertRegex(ended.stderr.decode(), rf'^KVO_MEDIA_LOG_{variable}={value}: .*\n$')

    def test_levels_may_differ_by_tag(self):
        for levels, tags in (('VideoClient:2,*:-1', {'VideoClient'}), ('Codec:4', {'Codec'}),
                             ('-1', set()), ('*:4,Codec:3,VideoClient:1', {'HostPlatform'})):
            log = write_log('tags-' + levels.replace('*', 'any'), [SITUATION, 'nothing-wrong'], levels)
            self.assertEqual({line.split()[5].rstrip(':') for line in log.read_text().splitlines()}, tags)


if __name__ == '__main__':
    unittest.main(argv=sys.argv[:1] + sys.argv[3:])
