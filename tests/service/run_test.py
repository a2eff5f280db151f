"""tvhw-run ends what it starts, however it ends itself, and tells how. usage: run_test.py TVHW-RUN"""
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

RUN = sys.argv.pop(1)


def run(*words, **options):
    return subprocess.run([RUN, *words], capture_output=True, text=True, check=False, timeout=25,
                          **options)


def begin(script):
    """Starts a program that prints process ids, and returns tvhw-run and the line's numbers."""
    started = subprocess.Popen([RUN, '--', 'sh', '-c', script], stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE, text=True, start_new_session=True)
    return started, [int(word) for word in started.stdout.readline().split()]


def is_running(pid):
    try:
        with open(f'/proc/{pid}/stat', encoding='ascii') as stat:
            return stat.read().rsplit(')', 1)[1].split()[0] != 'Z'
    except FileNotFoundError:
        return False


GONE = 'while kill -0 $TVHW_SERVICE_PID 2>/dev/null; do sleep 0.05; done'


class TvhwRun(unittest.TestCase):
    def assert_gone(self, *pids):
        limit = time.monotonic() + 20
        while any(is_running(pid) for pid in pids):
            self.assertLess(time.monotonic(), limit, [pid for pid in pids if is_running(pid)])
            time.sleep(0.02)

    def test_statuses(self):
        for words, status, told in (
                (['--', 'true'], 0, r'^(?![\s\S]*tvhw-run)'), (['--', 'true', '--', 'true'], 0, 'true .* ended with status 0'),
                (['--', 'sh', '-c', 'sleep 0.5; exit 3', '--', 'sh', '-c', 'exit 4'], 4, 'status 3'),
                (['--', 'sh', '-c', 'kill -KILL $$'], 137, 'was killed by SIGKILL'),
                (['--', 'sh', '-c', 'kill -ABRT $TVHW_SERVICE_PID; ' + GONE], 134,
                 'the service .* was killed by SIGABRT'),
                (['--', 'sh', '-c', 'kill -TERM $TVHW_SERVICE_PID; ' + GONE], 1,
                 'the service .* ended with status 0'),
                (['--', 'sh', '-c', '(trap "kill -KILL $TVHW_SERVICE_PID; sleep 0.5; exit" TERM; '
                  'while :; do sleep 0.1; done) & sleep 0.5'], 137, 'the service .* SIGKILL'),
                (['--', 'sh', '-c', 'kill -40 $$'], 168, 'was killed by SIG40'),
                (['--', b'/nowhere\xff'], 127, r'/nowhere\?: No such file'),
                (['--', RUN + '/'], 126, 'Not a directory'),
                (['--cores', 'x', '--', 'true'], 2, 'KVO_HOST_POOL=x'),
                (['--cores'], 2, 'see --help'), (['--', 'true', '--'], 2, 'no program'),
                (['--wrong', '--', 'true'], 2, '--wrong'), (['--help'], 0, None)):
            with self.subTest(words):
                ended = run(*words)
                self.assertEqual(ended.returncode, status)
                self.assertRegex(ended.stderr, told or '^$')

    def test_arguments_and_input_arrive_as_they_are(self):
        script = ('import os, sys; print(repr(sys.argv[1:]), sys.stdin.read(), '
                  'os.environ["LD_LIBRARY_PATH"].split(":")[1:])')
        arguments = ['a\n', "it's", '', '--help']
        ended = run('--', sys.executable, '-c', script, *arguments, input='a word',
                    env=os.environ | {'LD_LIBRARY_PATH': '/nowhere'})
        self.assertEqual(ended.stdout, f"{arguments!r} a word ['/nowhere']\n")
        ended = subprocess.run(['sh', '-c', 'exec "$@" <&- >&- 2>&-', 'sh', RUN, '--', 'sh', '-c',
                                'cat && echo a && echo b >&2'], timeout=60, check=False)
        self.assertEqual(ended.returncode, 0, 'what is closed is /dev/null')

    def test_what_is_missing_is_told(self):
        with tempfile.TemporaryDirectory() as folder:
            def write(name, script):
                with open(os.path.join(folder, name), 'w', encoding='ascii') as file:
                    file.write('#!/bin/sh\n' + script)
                os.chmod(file.name, 0o700)

            for script, status, told in (
                    (None, 2, 'dbus-daemon is missing'), ('exit 3', 2, 'there is no bus'),
                    ('kill $PPID; exec /bin/sleep 600', 143, '^$')):
                if script:
                    write('dbus-daemon', script)
                ended = run('--', '/bin/true', env={'PATH': folder})
                self.assertEqual(ended.returncode, status)
                self.assertRegex(ended.stderr, told)
            words = [shutil.copy(RUN, folder), '--', '/nowhere']
            ended = subprocess.run(words, stderr=subprocess.PIPE, text=True, check=False)
            self.assertRegex(ended.stderr, 'there is no libkvo_hal_crm.so')
            write('libkvo_hal_crm.so', '')
            os.symlink('.', os.path.join(folder, 'lib'))
            os.remove(os.path.join(folder, 'dbus-daemon'))
            write('dbus-send', '[ -e "${0%/*}/ready" ] && kill $PPID && echo true')
            write('tvhw-resource-manager', 'trap "echo ended; exit" TERM\n: >"${0%/*}/ready"\n'
                  'while :; do sleep 0.1; done')
            ended = subprocess.run(words, stdout=subprocess.PIPE, timeout=60, check=False,
                                   env=os.environ | {'PATH': f'{folder}:{os.environ["PATH"]}'})
            self.assertEqual((ended.stdout, ended.returncode), (b'ended\n', 143), 'a signal comes first')

    def test_what_a_program_leaves_behind_ends(self):
        script = """if True:
            import os, signal, sys
            ready, begin = os.pipe()
            if child := os.fork():
                os.read(ready, 1)
                print(child, flush=True)
                sys.exit(3)
            os.setsid()
            signal.signal(signal.SIGTERM, lambda *_: os.write(1, b'told\\n'))
            os.write(begin, b' ')
            while True:
                signal.pause()"""
        # Though nothing can be said of it.
        ended = subprocess.run(['sh', '-c', 'exec "$@" 2>/dev/full', 'sh', RUN, '--', sys.executable, '-c', script],
                               stdout=subprocess.PIPE, timeout=12, check=False)
        self.assertEqual(ended.returncode, 3)
        pid, *told = ended.stdout.split()
        self.assertEqual(told, [b'told'], 'once')
        self.assert_gone(int(pid))

    def test_a_signal_ends_all(self):
        for number in signal.SIGINT, signal.SIGTERM, signal.SIGHUP:
            started, pids = begin('sleep 600 & echo $$ $! $TVHW_SERVICE_PID; wait')
            started.send_signal(number)
            self.assertEqual(started.wait(20), 128 + number)
            self.assertEqual([pid for pid in pids if is_running(pid)], [])

    def test_the_service_outlives_the_programs(self):
        manager = os.path.join(os.path.dirname(RUN), 'tvhw-resource-manager')
        started, _ = begin(f'trap "" INT; trap "{manager} --status; exit" TERM; echo; while :; do sleep 0.1; done')
        os.killpg(started.pid, signal.SIGINT)  # As from the keyboard.
        self.assertIn('CORE', started.communicate(timeout=20)[0])

    def test_a_second_signal_kills_what_does_not_end(self):
        started, pids = begin('trap "echo told" TERM; echo $$ $TVHW_SERVICE_PID; while :; do sleep 0.1; done')
        begun = time.monotonic()
        started.terminate()
        self.assertEqual(started.stdout.readline(), 'told\n')
        started.terminate()
        self.assertEqual(started.communicate(timeout=20)[0], '')
        self.assertEqual(started.returncode, 143)
        self.assertLess(time.monotonic() - begun, 5)
        self.assert_gone(*pids)

    def test_a_signal_comes_at_no_wrong_time(self):
        for wait in range(10):
            started = subprocess.Popen([RUN, '--', 'sh', '-c', 'echo started; sleep 600'],
                                       stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
            time.sleep(wait * 0.02)
            started.terminate()
            started.communicate(timeout=20)
            # Python's own start ends by the signal itself.
            self.assertIn(started.returncode, (143, -signal.SIGTERM))

    def test_nothing_outlives_its_death(self):
        script = 'echo $$ $TVHW_SERVICE_PID $(pgrep -P $PPID dbus-daemon); exec sleep 600'
        started, pids = begin(script)
        self.assertEqual(len(pids), 3)
        started.kill()
        self.assert_gone(*pids)

    def test_nothing_begins_after_its_death(self):
        script = """if True:
            import os, runpy, signal, sys
            class Libc:
                def prctl(*_):
                    os.kill(parent, signal.SIGKILL)
                    while os.getppid() == parent:
                        pass
            parent = os.getpid()
            run = runpy.run_path(sys.argv[1])['Run'](False)
            run.libc = Libc
            run.start({}, 'echo', ['echo', 'begun'])"""
        ended = subprocess.run([sys.executable, '-c', script, RUN], stdout=subprocess.PIPE, timeout=20, check=False)
        self.assertEqual((ended.stdout, ended.returncode), (b'', -signal.SIGKILL))


unittest.main()
