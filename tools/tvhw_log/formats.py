"""Reads log files line by line: logcat's forms "threadtime" (which the host platform writes too),
"time" and "brief". Every line is passed on; one in none of the forms has no tag."""

import heapq
import itertools
import re
import sys

LONGEST = 1 << 20  # Bytes that are read of a line at once; the rest counts as further lines.
JUMP = 1.0  # Seconds that lines of several threads may be out of order.
DAY = 86400
YEAR = 366 * DAY

_CLOCK = r'(?:\d{4}-)?(\d\d-\d\d \d\d:\d\d:\d\d)[.,](\d{3,9})(?: [+-]\d{4})?'
_FORMS = [re.compile(form) for form in (
    _CLOCK + r'\s+(?:\S+ +)?(?P<pid>\d+) +(?P<tid>\d+) (?P<priority>[VDIWEFA]) (?P<tag>.*?) *: (.*)',
    _CLOCK + r' (?P<priority>[VDIWEFA])/(?P<tag>.*?) *\( *(?P<pid>\d+)\): (.*)',
    r'()()(?P<priority>[VDIWEFA])/(?P<tag>.*?) *\( *(?P<pid>\d+)\): (.*)',
)]
_DAYS_BEFORE = [0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335]


class Line:
    """One line. `time` is in seconds and never far below that of the line before, `clock` is what the
    line says; both are empty in the form "brief", which has no thread (tid) either, as "time"."""
    __slots__ = ('file', 'number', 'time', 'clock', 'pid', 'tid', 'tag', 'message', 'raw')

    def shown(self):
        return f'{self.file}:{self.number}: {self.raw[:300]}'


class Source:
    """One file. Counts what it reads, also how often the clock jumped back."""

    def __init__(self, path):
        self.name = 'standard input' if path == '-' else path.rsplit('/', 1)[-1]
        self._stream = sys.stdin.buffer if path == '-' else open(path, 'rb')
        self.lines = self.formless = self.jumps = 0
        self._form = _FORMS[0]
        self._second = ('', 0)
        self._latest = self._offset = 0.0

    def _parse(self, text):
        match = self._form.match(text)
        if match is None:
            for form in _FORMS:
                match = form.match(text)
                if match is not None:
                    self._form = form
                    break
        return match

    def _seconds(self, clock, fraction):
        if clock != self._second[0]:
            month = min(max(int(clock[:2]), 1), 12)
            days = _DAYS_BEFORE[month - 1] + int(clock[3:5])
            seconds = int(clock[6:8]) * 3600 + int(clock[9:11]) * 60 + int(clock[12:14])
            self._second = (clock, days * DAY + seconds)
        time = self._second[1] + int(fraction) / 10 ** len(fraction) + self._offset
        if time < self._latest - JUMP:
            back = self._latest - time
            if back > YEAR - 30 * DAY:
                self._offset += YEAR
                return time + YEAR
            self.jumps += 1
            self._offset += back
            time = self._latest
        self._latest = max(self._latest, time)
        return time

    def __iter__(self):
        for raw in iter(lambda: self._stream.readline(LONGEST), b''):
            text = raw.decode('utf-8', 'replace').rstrip('\r\n')
            self.lines += 1
            line = Line()
            line.file, line.number, line.raw = self.name, self.lines, text
            match = self._parse(text)
            if match is None:
                self.formless += 1
                line.tag = None
                line.time = self._latest
            else:
                clock, fraction = match.group(1, 2)
                groups = match.groupdict()
                line.clock = f'{clock[6:]}.{fraction[:3]}' if clock else ''
                line.time = self._seconds(clock, fraction) if clock else self._latest
                line.pid, line.tid = int(groups['pid']), int(groups.get('tid') or 0)
                line.tag, line.message = groups['tag'], match.group(match.lastindex)
            yield line


def merged(sources):
    """Yields the lines of all sources by time, of the earliest source first where times are the same:
    rotated files of one log in any order, as well as logs of several processes."""
    if len(sources) == 1:
        return iter(sources[0])
    started = []
    for source in sources:
        lines = iter(source)
        first = next(lines, None)
        if first is not None:
            started.append((first.time, itertools.chain([first], lines)))
    started.sort(key=lambda start: start[0])
    return heapq.merge(*(lines for _, lines in started), key=lambda line: line.time)
