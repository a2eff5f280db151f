"""One self-contained page: verdicts, a timeline, the lives and the log's lines. page.html draws it from
the data that is put into it here."""

import json
import pathlib

from .report import as_json, told_of

KEPT = 20000  # Bars and lines of calls, and as many of all else.


class Page:
    def __init__(self):
        self._bars = {False: [], True: []}  # By whether they are calls.
        self._lines = {False: [], True: []}
        self._left_out = {'bars': 0, 'lines': 0}
        self._tracks = {}

    def _keep(self, name, kept, entry):
        if len(kept) < KEPT:
            kept.append(entry)
        else:
            self._left_out[name] += 1

    def line(self, line):
        self._keep('lines', self._lines[line.tag in ('HostPlatform', 'Codec')], line)

    def interval(self, track, what, text, begin, end, life, arguments):
        key = (track[1].pid, 0, track[1].number) if track[0] == 'life' else (track[1], 1, track[2])
        self._tracks[key] = track[1].name if track[0] == 'life' else f'thread {track[2]}'
        details = ', '.join(f'{name} {value}' for name, value in arguments.items() if value != '')
        self._keep('bars', self._bars[what in ('call', 'platform')],
                   [key, what, f'{text} ({details})' if details else text, begin, end])

    def arrow(self, _origin, _target, _reclaim):
        """A reclaim's bars say as much."""

    def write(self, path, history, sources):
        data = as_json(history, sources)
        cited = {id(line): line for _, _, findings in history.verdicts.ranked()
                 for finding in findings for line in finding.lines}
        lines = {id(line): line for kept in self._lines.values() for line in kept} | cited
        lines = sorted(lines.values(), key=lambda line: (line.time, line.file, line.number))
        places = {(line.file, line.number): place for place, line in enumerate(lines)}
        for verdict in data['verdicts']:
            for finding in verdict['findings']:
                finding['lines'] = [places[line['file'], line['line']] for line in finding['lines']]
        tracks = sorted(self._tracks)
        rows = {key: row for row, key in enumerate(tracks)}
        start = history.first.time
        data.update(
            files=[source.name for source in sources], left_out=self._left_out,
            clock=history.first.clock, span=max(history.last.time - start, 1e-3),
            tracks=[[self._tracks[key], key[0], key[1]] for key in tracks],
            bars=[[rows[key], what, text, round(begin - start, 6), round(end - start, 6)]
                  for key, what, text, begin, end in self._bars[False] + self._bars[True]],
            lives=[told_of(life, history.process(life.pid).has_calls) for life in history.lives],
            log=[[line.file, line.number, line.raw[:2000], round(line.time - start, 6)] for line in lines])
        page = (pathlib.Path(__file__).parent / 'page.html').read_text(encoding='utf-8').split('"DATA"')
        with open(path, 'w', encoding='utf-8') as file:
            file.write(page[0] + '{')
            for place, (name, value) in enumerate(data.items()):  # Not all at once: it may be long.
                text = json.dumps({name: value}, separators=(',', ':')).replace('<', '\\u003c')
                file.write((',' if place else '') + text[1:-1])
            file.write('}' + page[1])
