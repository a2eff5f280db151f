"""One picture, as SVG: who held which core when, the calls as bars, and a reclaim: the closed guard, the
wait and the release of the codec. It shows the whole log, or what is around its longest reclaim."""

import collections
from html import escape

KEPT = 4000  # Intervals.
CLIENTS = 10
LEFT, WIDTH, RIGHT = 190, 850, 30
LANE, CALL_LANE, GAP = 24, 13, 16
SHORT = 0.05  # Seconds that are shown around a reclaim at least.
CORES = ['#9ecae1', '#a1d99b', '#fdd0a2', '#dadaeb']
FILLS = {'ask': 'url(#asking)', 'wait': '#fdae6b', 'release': '#de2d26', 'stop': '#ef8a5a', 'closed': 'url(#closed)',
         'blank': '#737373', 'shown': '#c7e9c0', 'call': '#6b8fb5'}
LEGEND = [('ask', 'asks for a core'), ('call', 'call in the codec'), ('wait', 'reclaim waits for calls'),
          ('release', 'reclaim releases the codec'), ('stop', 'reclaim: wait and release'),
          ('closed', 'every call refused'), ('blank', 'window blank'), ('shown', 'shown')]
_PATTERNS = '''<defs>
<pattern id="asking" width="8" height="8" patternUnits="userSpaceOnUse"><rect width="8" height="8"
 fill="#f0f0f0"/><path d="M0 8 8 0" stroke="#999"/></pattern>
<pattern id="closed" width="6" height="6" patternUnits="userSpaceOnUse"><rect width="6" height="6"
 fill="#fee0d2"/><path d="M0 0 6 6" stroke="#cb181d" stroke-width=".7"/></pattern>
<marker id="head" markerWidth="8" markerHeight="8" refX="7" refY="4" orient="auto"><path
 d="M0 0 8 4 0 8z" fill="#a50f15"/></marker>
</defs>'''

Interval = collections.namedtuple('Interval', 'what text begin end life thread')


class Picture:
    def __init__(self):
        self._recent = collections.deque(maxlen=KEPT)
        self._kept = None  # Of the longest reclaim so far.
        self._reclaim = None
        self._window = None

    def interval(self, track, what, text, begin, end, life, _arguments):
        if what in ('platform', 'reclaim') or life is None or (what == 'wait' and begin == end):
            return
        interval = Interval(what, text, begin, end, life, track[2] if track[0] == 'thread' else None)
        self._recent.append(interval)
        if self._kept is not None and begin <= self._window[1] and len(self._kept) < 2 * KEPT:
            self._kept.append(interval)

    def line(self, _line):
        pass

    def arrow(self, _origin, _target, reclaim):
        begin, end = reclaim.begin.time, reclaim.end.time
        if self._reclaim is not None:
            longest = self._reclaim.end.time - self._reclaim.begin.time
            if end - begin <= longest:
                return
        around = max(SHORT, (end - begin) / 2)
        self._reclaim = reclaim
        self._window = (begin - around, end + around)
        self._kept = [interval for interval in self._recent if interval.end >= self._window[0]]

    def write(self, path, history):
        intervals, window = self._chosen(history)
        with open(path, 'w', encoding='utf-8') as file:
            file.write('\n'.join(self._draw(intervals, window, history)) + '\n')

    def _chosen(self, history):
        if history.first is None:
            return [], (0.0, 1.0)
        margin = max(1e-3, (history.last.time - history.first.time) / 40)
        whole = (history.first.time - margin, history.last.time + margin)
        if self._window is None:
            return list(self._recent), whole
        low, high = self._window
        if whole[1] - whole[0] <= 2 * (high - low):
            return list(self._recent), whole
        return ([interval for interval in self._kept if interval.begin <= high],
                (max(low, whole[0]), min(high, whole[1])))

    def _lives(self, intervals):
        lives = []
        if self._reclaim is not None:
            lives = [life for life in (self._reclaim.life, self._reclaim.newcomer) if life]
        for interval in sorted(intervals, key=lambda interval: interval.life.number):
            if interval.life not in lives:
                lives.append(interval.life)
        return sorted(lives[:CLIENTS], key=lambda life: life.number), len(lives[CLIENTS:])

    def _draw(self, intervals, window, history):
        scale = Scale(window)
        body, y, lanes = [], 70, {}
        lives, left_out = self._lives(intervals)
        for life in lives:
            mine = [interval for interval in intervals if interval.life is life]
            lanes[life] = y
            rows, y = _client(life, mine, scale, y)
            body += rows
        reclaim = self._reclaim
        if reclaim and reclaim.newcomer in lanes and reclaim.life in lanes:
            body.append(_arrow(scale.x(reclaim.begin.time), lanes[reclaim.newcomer], lanes[reclaim.life]))
        clock = next((line.clock for line in (reclaim.begin if reclaim else history.first,) if line), '')
        title = f'Reclaim at {clock}' if reclaim else f'From {clock}'
        yield (f'<svg xmlns="http://www.w3.org/2000/svg" width="{LEFT + WIDTH + RIGHT}" height="{y + 50}" '
               'font-family="sans-serif" font-size="12">')
        yield _PATTERNS
        yield f'<rect width="{LEFT + WIDTH + RIGHT}" height="{y + 50}" fill="white"/>'
        yield _text(16, 26, title, 'font-size="16" font-weight="bold"')
        yield from _legend(48, {interval.what for interval in intervals if interval.life in lanes})
        if left_out:
            yield _text(LEFT, y + 40, f'{left_out} more client{"" if left_out == 1 else "s"} left out', 'fill="#555"')
        yield from scale.axis(64, y)
        yield from body
        yield '</svg>'


class Scale:
    """Turns times into places."""

    def __init__(self, window):
        self.begin, self.end = window
        self._pixels = WIDTH / max(1e-6, self.end - self.begin)

    def x(self, time):
        return LEFT + min(max(time - self.begin, 0), self.end - self.begin) * self._pixels

    def axis(self, top, bottom):
        span = self.end - self.begin
        step = 1e-6
        while span / step > 12:
            step *= 10 if step * 10 * 6 <= span else 5 if span / (step * 5) >= 5 else 2
        unit, name = (1, 's') if step >= 0.1 else (1e3, 'ms')
        for count in range(int(span / step) + 1):
            x = LEFT + count * step * self._pixels
            yield f'<path d="M{x:.1f} {top}V{bottom}" stroke="#e5e5e5"/>'
            yield _text(x, bottom + 18, f'{count * step * unit:g} {name}', 'text-anchor="middle" fill="#555"')


def _text(x, y, text, style=''):
    return f'<text x="{x:.1f}" y="{y:.1f}" {style}>{escape(text)}</text>'


def _box(scale, interval, y, height, style, text=''):
    left = scale.x(interval.begin)
    width = max(1.0, scale.x(interval.end) - left)
    yield (f'<rect x="{left:.1f}" y="{y}" width="{width:.1f}" height="{height}" {style}>'
           f'<title>{escape(interval.text)}</title></rect>')
    size = 11 if height > 15 else 9
    if text and len(text) * size * 0.56 < width - 6:
        colour = 'white' if interval.what in ('release', 'blank', 'call') else '#111'
        plate = ' stroke="white" stroke-width="3" paint-order="stroke"' if interval.what in ('closed', 'ask') else ''
        yield _text(left + 4, y + (height + size) / 2 - 1.5, text, f'font-size="{size}" fill="{colour}"{plate}')


def _bar(scale, interval, y, height):
    number = int(''.join(filter(str.isdigit, str(interval.life.core))) or 0)
    fill = FILLS.get(interval.what) or CORES[number % len(CORES)]
    text = ('holds ' if interval.what == 'hold' else '') + interval.text
    return _box(scale, interval, y, height, f'fill="{fill}" stroke="#333" stroke-width=".4"', text)


def _client(life, intervals, scale, top):
    """Returns the rows of a client and where the next one begins."""
    rows = [_text(16, top + 15, life.name, 'font-weight="bold"'),
            _text(16, top + 29, f'process {life.pid}' + (f' for {life.calling_pid}' if life.calling_pid else ''),
                  'font-size="10" fill="#555"')]
    has_guard = False
    for interval in intervals:
        if interval.what == 'guard':
            has_guard = True
            rows += _box(scale, interval, top - 3, 2 * LANE + 3,
                         'fill="none" stroke="#cb181d" stroke-width="1.5" stroke-dasharray="5 3"')
        elif interval.what in ('wait', 'release', 'stop'):
            rows += _bar(scale, interval, top + LANE + 3, LANE - 6)
        elif interval.what != 'call':
            rows += _bar(scale, interval, top, LANE)
    y = top + max(34, LANE * (2 if has_guard else 1) + 4)  # Below the names.
    for thread in sorted({interval.thread for interval in intervals if interval.what == 'call'}):
        rows.append(_text(LEFT - 8, y + 10, f'thread {thread}', 'font-size="9" fill="#555" text-anchor="end"'))
        for call in intervals:
            if call.what == 'call' and call.thread == thread:
                rows += _bar(scale, call, y, CALL_LANE - 3)
        y += CALL_LANE
    return rows, y + GAP


def _arrow(x, newcomer, victim):
    start, end = (newcomer - 2, victim + 2 * LANE) if newcomer > victim else (newcomer + LANE, victim - 4)
    return (f'<path d="M{x - 6:.1f} {start}V{end}" stroke="#a50f15" stroke-width="1.6" fill="none" '
            'marker-end="url(#head)"/>')


def _legend(y, shown):
    x = LEFT
    for what, text in LEGEND:
        if what in shown:
            yield (f'<rect x="{x}" y="{y - 10}" width="14" height="11" fill="{FILLS[what]}" stroke="#333" '
                   'stroke-width=".4"/>')
            yield _text(x + 19, y, text, 'font-size="11"')
            x += 32 + len(text) * 6.1
