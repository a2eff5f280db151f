"""What the log tells of: clients, scaler channels and image sinks, reclaims, threads and processes."""

KEPT_MOMENTS = 40


class Life:
    """A client of the resource manager, a scaler channel or an image sink."""

    def __init__(self, kind, line, number):
        self.kind, self.number, self.begin = kind, number, line  # "client": not known which.
        self.pid, self.tid = line.pid, line.tid
        self.id = self.channel = self.codec = None
        self.calling_pid = None  # None: not in the log.
        self.moments = []  # (line, text)
        self.left_out = 0
        self.last = line
        self.state = 'asking'  # Then holding, released, reclaimed, closed, or refused.
        self.stream = self.mime = ''
        self.core_type = self.core = self.port = None  # As the manager numbers it, and as codecs know it.
        self.asked = self.held_since = self.gave_back = self.told_of_reclaim = None  # Lines.
        self.reclaim = None
        self.calls = {}  # Operation: [count, longest in microseconds].
        self.in_flight = {}  # Thread: (operation, line, that in which it was called).
        self.since = {}  # Of a channel or sink: the lines since which it is blank, shown, unplaced, ...

    def tell(self, line, text):
        self.last = line
        if len(self.moments) < KEPT_MOMENTS:
            self.moments.append((line, text))
        else:
            self.moments[-1] = (line, text)
            self.left_out += 1

    @property
    def name(self):
        if self.channel is not None:
            return f'scaler channel {self.channel}'
        if self.id is not None:
            return f'{self.kind} {self.id}'
        return self.kind if self.kind == 'image sink' else f'{self.kind} without id'

    @property
    def who(self):
        return f'{self.name}, process {self.pid}' + (f' for {self.calling_pid}' if self.calling_pid else '')


class Reclaim:
    """A reclaim, from whom if that is known; `candidates` are all who may be meant."""

    def __init__(self, line, tid, kind, candidates):
        self.begin, self.tid, self.pid, self.kind = line, tid, line.pid, kind
        self.candidates = candidates
        self.life = candidates[0] if len(candidates) == 1 else None
        self.waited_for = []
        self.knows_calls = False  # Whether the calls in flight are in the log.
        self.quiet = None  # When the last of them had returned: then it releases the codec.
        self.timeout = self.end = self.newcomer = self.granted = None
        self.began = True  # False: its beginning is not in the log.
        self.is_again = False  # Another had ended before it began.
        self.overtaken = False  # Its thread went on to something else: it may have ended.

    @property
    def who(self):
        if self.life is not None:
            return self.life.who
        return f'a reclaim in process {self.pid}, of ' + named(self.candidates, self.kind)


class Thread:
    def __init__(self, process):
        self.process = process
        self.life = self.finding = self.found = self.reclaimed_id = self.channel = self.panel = self.held_up = None
        self.opened = None  # A client that has not asked yet: the one that it replaces is closed in between.
        self.event = self.event_before = None  # The library's last on it, and that before.
        self.clears_both = None  # Ports, and not one.
        self.ended = None  # The reclaim that has ended, until the host platform tells how long it took.
        self.reclaims = []  # Those under way, the innermost last.
        self.is_new = True  # No line of it has been read.
        self.is_first = True  # None of the library has been read of it before this one,
        self.has_spoken = False  # nor this one.


class Process:
    def __init__(self):
        self.first_call = self.last_call = None  # Lines of the platform calls that are in the log.
        self.level = 0  # The highest of a line that it wrote.
        self.opened = self.highest = 0  # How many clients it opened, and the highest number of one.
        self.is_whole = None  # Whether the log has it from its start; None: not known.
        self.last = self.finding = self.end = None

    @property
    def has_calls(self):
        return self.first_call is not None

    def lacks_clients(self):
        """Says whether the log lost the opening of a client."""
        return self.is_whole and self.highest > self.opened


def named(lives, kind='client'):
    """Names candidates, not more of them than one cares to read."""
    if not lives:
        return f'{"an" if kind == "encoder" else "a"} {kind} that is not in the log'
    names = ', '.join(life.name for life in lives[:6])
    return names if len(lives) == 1 else f'one of {len(lives)}: {names}' + (', ...' if len(lives) > 6 else '')


def seconds(begin, end):
    """Returns how long it is from one line to another, or None where that is not known."""
    is_known = begin.clock and end.clock and begin.silence == end.silence
    return max(0.0, end.time - begin.time) if is_known else None
