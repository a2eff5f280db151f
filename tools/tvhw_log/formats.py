"""Reads log files line by line, in every form of logcat and in Android Studio's; the host platform
writes "threadtime". Compressed files, archives and UTF-16 are read as they are. Every line is passed on;
one in none of the forms has no tag."""

import calendar
import datetime
import filecmp
import functools
import gzip
import heapq
import io
import itertools
import os
import re
import sys
import zipfile
import zlib

LONGEST = 1 << 20  # Bytes that are read of a line at once; the rest counts as further lines.
TOLD = 4000  # Characters of it that are looked at: a device cuts longer ones, and forms take long to fail on them.
JUMP = 1.0  # Seconds that lines of several threads may be out of order.
DAY = 86400
YEAR = 365 * DAY
THIS_IS_LEAP = calendar.isleap(datetime.date.today().year)

_CLOCK = r'(?P<year>\d{4}-)?(?P<clock>\d\d-\d\d \d\d:\d\d:\d\d)[.,](?P<part>\d{3,9})(?: [+-]\d{4})?'
_PRIORITY = r'(?P<priority>[VDIWEFAS])'
_MESSAGE = r'(?: (?P<message>.*)|$)'
_BY_COLUMN = rf'(?:\S+ +)??(?P<pid>\d+) +(?P<tid>\d+) {_PRIORITY} (?P<tag>\w*|.*?) *:{_MESSAGE}'
# Seconds of fewer than three columns are the rest of a line that lost its beginning.
FORMS = {name: re.compile(form) for name, form in (
    ('threadtime', rf'{_CLOCK}\s+{_BY_COLUMN}'),
    ('time', rf'{_CLOCK} {_PRIORITY}/(?P<tag>.*?) *\( *(?:\w+: *)?(?P<pid>\d+)\):{_MESSAGE}'),
    ('brief', rf'{_PRIORITY}/(?P<tag>.*?) *\( *(?:\w+: *)?(?P<pid>\d+)\):{_MESSAGE}'),
    ('epoch, monotonic', rf'(?=[ \d]{{3}}) *(?P<clock>\d+)\.(?P<part>\d{{3,9}})\s+{_BY_COLUMN}'),
    ('long', rf'\[ {_CLOCK} +(?P<pid>\d+): *(?P<tid>\d+) {_PRIORITY}/(?P<tag>.*?) *\]$'),
    ('tag', rf'{_PRIORITY}/(?P<tag>[^(:]*?) *:{_MESSAGE}'),
    ('process', rf'{_PRIORITY}\( *(?P<pid>\d+)\) (?P<message>.*?)  \((?P<tag>[^()]*)\)$'),
    ('thread', rf'{_PRIORITY}\( *(?P<pid>\d+): *(?P<tid>\d+)\){_MESSAGE}'),
    ('Studio', rf'{_CLOCK} +(?P<pid>\d+)-(?P<tid>\d+) +(?P<tag>\S+) +(?:\S+ +)?{_PRIORITY}{_MESSAGE}'),
    ('old Studio', rf'{_CLOCK} +(?P<pid>\d+)-(?P<tid>\d+)/\S+ {_PRIORITY}/(?P<tag>.*?):{_MESSAGE}'),
)}
GROUPS = ('year', 'clock', 'part', 'pid', 'tid', 'priority', 'tag', 'message')
for _name, _form in FORMS.items():  # Every form has all groups.
    FORMS[_name] = re.compile(_form.pattern + ''.join(
        f'(?P<{group}>)' for group in GROUPS if group not in _form.groupindex))
LONG = FORMS['long']
_COLOUR = re.compile(r'\x1b\[[0-9;]*m')
_DAYS_BEFORE = [0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334]


class Line:
    """One line. `time` is in seconds and never far below that of the line before, `clock` is what the
    line says; empty where the form has none. What the form lacks is 0 (pid, tid) or empty (tag)."""
    __slots__ = ('file', 'number', 'raw', 'time', 'silence', 'pid', 'tid', 'priority', 'tag', 'message', '_stamp')

    def __init__(self, file, number, raw, time, stamp, pid, tid, priority, tag, message):
        self.file, self.number, self.raw, self.time, self._stamp = file, number, raw, time, stamp
        self.pid, self.tid, self.priority, self.tag, self.message = pid, tid, priority, tag, message

    @property
    def clock(self):
        clock, part = self._stamp
        return f'{clock[6:] if "-" in clock else clock}.{part[:3]}' if clock else ''

    def shown(self):
        return f'{self.file}:{self.number}: {self.raw[:300]}'


class Source:
    """One file. Counts what it reads, also how often the clock jumped back."""

    def __init__(self, name, stream):
        self.name = name
        self._stream = stream if hasattr(stream, 'peek') else io.BufferedReader(stream)
        self.lines = self.formless = self.jumps = self.repeated = 0
        self.damage = ''  # Why reading ended before the file did.
        self._form = FORMS['threadtime']
        self._second = ('', 0)
        self._latest = self._offset = 0.0
        self._is_astray = False
        self._has_leap_day = THIS_IS_LEAP  # As far as the lines do not tell.

    def _other_form(self, text):
        for form in FORMS.values():
            match = form.match(text)
            if match is not None:
                self._form = form
                return match
        return None

    def _seconds(self, year, clock):
        if '-' in clock:
            month = min(max(int(clock[:2]), 1), 12)
            days = _DAYS_BEFORE[month - 1] + int(clock[3:5])
            if month > 1:
                self._has_leap_day = calendar.isleap(int(year[:4])) if year else (
                    self._has_leap_day or clock[:5] == '02-29')
            days += self._has_leap_day and month > 2
            seconds = days * DAY + int(clock[6:8]) * 3600 + int(clock[9:11]) * 60 + int(clock[12:14])
        else:
            seconds = int(clock[-12:])
        self._second = (clock, seconds)
        return seconds

    def _corrected(self, time):
        """Returns a time that does not go back, whatever the clock does."""
        if time is None:
            return self._latest
        time += self._offset
        back = self._latest - time
        if back > YEAR - 30 * DAY:
            year = YEAR + DAY * self._has_leap_day
            self._has_leap_day = THIS_IS_LEAP
            self._offset += year
            return time + year
        if back > JUMP:  # One line alone is astray; several follow a clock that was set.
            if self._is_astray:
                self._offset += back
            self.jumps += not self._is_astray
            self._is_astray = not self._is_astray
            return self._latest
        self._is_astray = False
        if back < 0:
            self._latest = time
        return time

    def begins_next_year(self, first):
        """Puts the lines behind those of a source that begins late in the year before."""
        first.time += YEAR
        self._offset += YEAR
        self._latest += YEAR

    def _texts(self):
        """Yields the lines as far as the file can be read."""
        try:
            start = self._stream.peek(4)[:4]
            wide = {b'\xff\xfe': 'utf-16', b'\xfe\xff': 'utf-16'}.get(start[:2]) or (
                'utf-16-le' if len(start) == 4 and not start[1] and not start[3] and start[0] else None)
            text = io.TextIOWrapper(self._stream, wide or 'utf-8-sig', 'replace', '\n')
            yield from iter(functools.partial(text.readline, LONGEST), '')
        except (EOFError, zlib.error, zipfile.BadZipFile, gzip.BadGzipFile, RuntimeError) as error:
            self.damage = str(error) or 'it ends too soon'

    def _once(self):
        """Leaves out what the logs of two readers in one file have twice: a line, or all lines, of one time."""
        for stamp, lines in itertools.groupby(self._read(), lambda line: line._stamp):
            if stamp[0]:
                lines = list(lines)
                texts = [line.raw for line in lines]
                half = len(texts) // 2
                if texts == 2 * texts[:half]:
                    texts[half:] = [texts[half - 1]] * half
                self.repeated += len(lines)
                lines = [line for line, text, before in zip(lines, texts, ['', *texts]) if text != before]
                self.repeated -= len(lines)
            yield from lines

    def __iter__(self):
        """Yields each line once the next tells whether its clock is ahead of all others."""
        held = None
        for line in self._once():
            if held is not None:
                if held.time is not None and line.time is not None and line.time < held.time - JUMP and \
                        self._latest and self._latest - JUMP <= line.time + self._offset:
                    held.time = None  # It alone is ahead: its clock is damaged.
                held.time = self._corrected(held.time)
                yield held
            held = line
        if held is not None:
            held.time = self._corrected(held.time)
            yield held

    def _read(self):
        header = None  # Of the form "long".
        number = 0
        for raw in self._texts():
            self.lines = number = number + 1
            raw = raw.rstrip('\r\n')
            text = (_COLOUR.sub('', raw) if '\x1b' in raw else raw)[:TOLD]
            match = self._form.match(text) or self._other_form(text)
            is_header = match is not None and self._form is LONG
            if is_header:
                header = match
            elif match is None and text:
                match = header
            else:
                header = None
            if match is None or is_header:
                self.formless += bool(text) and not is_header
                yield Line(self.name, number, raw, None, ('', ''), 0, 0, '', None, '')
                continue
            year, clock, part, pid, tid, priority, tag, message = match.group(*GROUPS)
            time = None
            if clock:
                seconds = self._second[1] if clock == self._second[0] else self._seconds(year, clock)
                time = seconds + int(part) / 10 ** len(part)
            yield Line(self.name, number, raw, time, (clock, part), int(pid or 0), int(tid or 0), priority, tag,
                       text if match is header else (message or '').strip())


def opened(paths):
    """Returns the sources in these files; the same content given twice counts once."""
    found, read = [], []
    for path in paths:
        if path == '-':
            name, stream = 'standard input', io.BufferedReader(sys.stdin.buffer)
        else:
            name, stream = path.rsplit('/', 1)[-1], open(path, 'rb')
            if any(os.path.getsize(path) == os.path.getsize(other) and filecmp.cmp(path, other, False)
                   for other in read):
                continue
            if os.path.isfile(path):
                read.append(path)
        start = stream.peek(4)[:4]
        if start == b'PK\3\4':
            archive = zipfile.ZipFile(stream if stream.seekable() else io.BytesIO(stream.read()))
            found += [Source(f'{name}/{member.filename}', archive.open(member))
                      for member in archive.infolist()
                      if not member.is_dir() and not member.flag_bits & 1]
        else:
            found.append(Source(name, gzip.open(stream) if start[:2] == b'\x1f\x8b' else stream))
    return found


def merged(sources):
    """Yields the lines of all sources by time, of the earliest source first where times are the same:
    rotated files of one log in any order, as well as logs of several processes. A line that another
    source had at the same time is left out: files may overlap."""
    if len(sources) == 1:
        yield from sources[0]
        return
    started = []
    for source in sources:
        lines = zip(source, itertools.repeat(source))
        first = next(lines, None)
        if first is not None:
            started.append((first[0], source, itertools.chain([first], lines)))
    latest = max((first.time for first, *_ in started), default=0)
    for first, source, _ in started:
        if '-' in first._stamp[0] and latest - first.time > YEAR - 30 * DAY:
            source.begins_next_year(first)
    started.sort(key=lambda start: start[0].time)
    now, counts = None, {}
    for line, source in heapq.merge(*(lines for *_, lines in started), key=lambda entry: entry[0].time):
        if line.time != now:
            now, counts = line.time, {}
        if line.tag is not None and line.clock:
            count = counts.setdefault(line.raw, {})
            count[source] = count.get(source, 0) + 1
            if any(other is not source and count[other] >= count[source] for other in count):
                source.repeated += 1
                continue
        yield line
