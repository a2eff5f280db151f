"""A trace in the trace-event format, for ui.perfetto.dev: a track a thread with its calls, a track a
client with its core, port and guard, and an arrow from each reclaim to the client it takes from. It is
written while the log is read."""

import json

CLIENT_TRACKS = 1 << 24  # Above every thread id.


class Trace:
    def __init__(self, path):
        self._file = open(path, 'w', encoding='utf-8')
        self._file.write('{"displayTimeUnit":"ms","traceEvents":[')
        self._separator = '\n'
        self._encode = json.JSONEncoder(separators=(',', ':')).encode
        self._named = set()
        self._start = None
        self._reclaims = 0

    def _write(self, **event):
        self._file.write(self._separator + self._encode(event))
        self._separator = ',\n'

    def _time(self, time):
        if self._start is None:
            self._start = int(time)
        return round((time - self._start) * 1e6)

    def _track(self, track):
        """Returns the process and thread of a track, whose name is written the first time."""
        if track[0] == 'life':
            life = track[1]
            pid, tid, name = life.pid, CLIENT_TRACKS + life.number, life.name
        else:
            _, pid, tid = track
            name = f'thread {tid}'
        if (tid, name, pid) not in self._named:
            self._named.add((tid, name, pid))
            self._write(ph='M', name='thread_name', pid=pid, tid=tid, args={'name': name})
            if track[0] == 'life':  # Below the threads, oldest first.
                self._write(ph='M', name='thread_sort_index', pid=pid, tid=tid,
                            args={'sort_index': tid})
        return {'pid': pid, 'tid': tid}

    def interval(self, track, what, text, begin, end, _life, arguments):
        start = self._time(begin)
        self._write(ph='X', cat=what, name=text, ts=start, dur=self._time(end) - start,
                    args=arguments, **self._track(track))

    def line(self, _line):
        pass

    def arrow(self, origin, target, reclaim):
        self._reclaims += 1
        at = {'cat': 'reclaim', 'name': 'takes the core', 'id': self._reclaims,
              'ts': self._time(reclaim.begin.time)}
        self._write(ph='s', **at, **self._track(origin))
        self._write(ph='f', bp='e', **at, **self._track(target))

    def close(self, history):
        for pid in sorted({life.pid for life in history.lives}):
            self._write(ph='M', name='process_name', pid=pid, args={'name': f'process {pid}'})
        self._file.write('\n]}\n')
        self._file.close()
