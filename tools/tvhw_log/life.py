"""A client, as far as the log tells of it."""

KEPT_MOMENTS = 40


class Life:
    """A client of the resource manager, a scaler channel or an image sink."""

    def __init__(self, kind, line, number):
        self.kind, self.number, self.begin = kind, number, line
        self.pid, self.tid = line.pid, line.tid
        self.id = self.channel = None
        self.calling_pid = 0
        self.moments = []  # (line, text)
        self.left_out = 0
        self.last = line
        self.state = 'asking'  # Then holding, released, reclaimed, closed, or refused.
        self.stream = self.mime = ''
        self.core_type = self.core = self.port = None  # As the manager numbers it, and as codecs know it.
        self.held_since = self.codec = self.reclaim = None
        self.calls = {}  # Operation: [count, longest in microseconds].
        self.in_flight = {}  # Thread: (operation, line).
        self.blank_since = self.shown_since = None  # Of a channel or sink: lines.
        self.connected = self.unplaced = self.input = self.early = None  # Of a channel: lines.

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
    def __init__(self, life, line):
        self.life, self.begin, self.tid = life, line, line.tid
        self.waited_for = [f'{name} (thread {tid})' for tid, (name, _) in life.in_flight.items()]
        self.count = len(self.waited_for)
        self.quiet = line if not life.in_flight else None  # When the wait was over.
        self.timeout = self.end = self.newcomer = None


class Thread:
    def __init__(self):
        self.life = self.finding = self.reclaim = None
        self.reclaimed_id = self.channel = None


def seconds(begin, end):
    """Returns how long it is from one line to another, or None where lines have no time."""
    return max(0.0, end.time - begin.time) if begin.clock and end.clock else None
