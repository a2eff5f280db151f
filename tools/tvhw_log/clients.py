"""Clients of the resource manager, by the library's lines: acquisition and reclaim."""

from .life import Reclaim, seconds
from .messages import ENCODER

TOGETHER = 5.0  # Seconds in which lines of several threads may belong together.


class Clients:
    """The part of a History that handles these lines: on_<event>(line, thread, values)."""

    # --- Acquisition, as the library tells it.

    def on_asked(self, line, thread, adaptive, width, height, max_width, max_height, pid, color):
        life = thread.life
        if life is None or life.state != 'asking' or life.stream:
            life = self._new_life('decoder', line, thread)
        life.calling_pid = pid
        life.stream = f'{width}x{height}' + (f', adaptive up to {max_width}x{max_height}' if adaptive else '')
        thread.finding = None

    def on_encoder_asked(self, line, thread, width, height, rate):
        life = thread.life
        if life is None or life.state != 'asking' or life.stream:
            life = self._new_life('encoder', line, thread)
        life.kind = 'encoder'
        life.stream = f'{width}x{height}, {rate} frames a second'
        thread.finding = None

    def on_acquire_refused(self, line, thread, code, only_tried):
        self._asking(line, thread).tell(
            line, f'refused: code {code}, ' + ('not allowed to force' if only_tried else 'with force'))

    def on_no_codec(self, line, thread, mime):
        self._asking(line, thread).mime = mime or 'no MIME type'

    def on_granted(self, line, thread, core, port, width, height):
        thread.finding = None
        life = self._asking(line, thread)
        if life.held_since is not None:
            life = self._new_life(life.kind, line, thread)
        life.core_type = core
        self._hold(life, line)
        self._show(('life', life), 'ask', 'asks for a core', life.begin, line)
        stream = ' '.join(filter(None, (life.mime, life.stream)))
        life.tell(line, f'acquired a core of type {core}, up to {width}x{height}'
                  + (f', for {stream}' if stream else ''))
        for reclaim in self._ended:
            if line.time - reclaim.end.time <= TOGETHER and reclaim.life.core_type in (None, core):
                reclaim.newcomer = life
                self._ended.remove(reclaim)
                break

    def on_core_type(self, line, thread, core):
        life = self._asking(line, thread)
        life.core = core

    def on_id(self, line, thread, number):
        life = self._asking(line, thread)
        if life.held_since is None:  # The grant came before the log begins.
            self._hold(life, line)
        self._identify(life, number)

    def on_port(self, line, thread, port):
        life = self._asking(line, thread)
        life.port = port
        life.tell(line, f'display port {port}')
        thread.finding = None

    def on_no_port(self, line, thread):
        thread.finding = None

    def on_not_connected(self, line, thread):
        life = self._asking(line, thread)
        life.tell(line, 'no resource manager: ' + ('goes on without a core' if life.kind == 'encoder'
                                                   else 'not configured'))
        life.state = 'without a core' if life.kind == 'encoder' else 'refused'

    def _on_refused(self, line, thread, *_):
        life = self._asking(line, thread)
        if life.held_since is None:
            self._show(('life', life), 'ask', 'asks for a core: refused', life.begin, line)
            life.tell(line, 'not configured')
            life.state = 'refused'

    on_grant_unread = on_request_unsent = _on_refused

    def on_id_unread(self, line, thread):
        self._asking(line, thread).tell(line, 'holds the core, but its id is not known: not configured')

    def on_display_none(self, line, thread):
        self._asking(line, thread).tell(line, 'no display port: not configured, gives everything back')

    def on_display_granted(self, line, thread, port):
        thread.finding = None

    def on_not_cleared(self, line, thread):
        self._asking(line, thread).tell(line, 'ports not cleared: not configured, keeps the core')

    def on_free_failed(self, line, thread, code):
        if thread.life is not None:
            thread.life.tell(line, f'freeing its client failed: code {code}')

    # --- Reclaims.

    def _reclaimed_life(self, line, thread, calling_pid):
        """Returns the client that a reclaim on this thread is meant for."""
        life = self._by_id.get((line.pid, thread.reclaimed_id))
        if life is not None:
            return life
        kind = 'encoder' if line.tag == ENCODER else 'decoder'
        fitting = [life for life in self._holders_in(line.pid) if life.kind == kind
                   and (kind == 'encoder' or life.calling_pid == calling_pid or calling_pid is None)]
        if len(fitting) > 1:
            fitting[0].tell(line, f'(or one of {len(fitting) - 1} others: the log does not say which)')
        return fitting[0] if fitting else self._new_life(kind, line)

    def _begin_reclaim(self, line, thread, calling_pid):
        life = self._reclaimed_life(line, thread, calling_pid)
        if calling_pid:
            life.calling_pid = life.calling_pid or calling_pid
        life.reclaim = thread.reclaim = Reclaim(life, line)

    def on_reclaim_start(self, line, thread, calling_pid=None):
        self._begin_reclaim(line, thread, calling_pid)

    def on_reclaim_timeout(self, line, thread, count):
        reclaim = thread.reclaim
        reclaim.timeout = reclaim.quiet = line
        reclaim.count = max(count, reclaim.count)
        if reclaim.waited_for:
            thread.finding.detail = 'still inside: ' + ', '.join(
                f'{name} (thread {tid})' for tid, (name, _) in reclaim.life.in_flight.items())
        thread.finding.detail = f'{count} of them; ' + thread.finding.detail if thread.finding.detail \
            else f'{count} of them'
        if reclaim.begin is not line:
            thread.finding.lines.insert(0, reclaim.begin)

    def on_reclaim_end(self, line, thread):
        reclaim, thread.reclaim = thread.reclaim, None
        if reclaim is None:
            return  # It began before the log does.
        life = reclaim.life
        reclaim.end = line
        if reclaim.timeout and thread.finding and thread.finding.rule == 'codec-stuck':
            thread.finding.add(line)
        thread.finding = None
        again = life.state == 'reclaimed'
        quiet = reclaim.quiet or line
        life.tell(reclaim.begin, self._reclaim_text(reclaim, quiet, again))
        self._show(('thread', line.pid, line.tid), 'reclaim', f'reclaim from {life.name}', reclaim.begin,
                   line)
        if again:
            return
        self._end_hold(life, line)
        life.state = 'reclaimed'
        self._show(('life', life), 'guard', 'guard closed: a reclaim', reclaim.begin, line)
        self._show(('life', life), 'wait', f'waits for {reclaim.count} calls', reclaim.begin, quiet,
                   arguments={'calls': ', '.join(reclaim.waited_for)})
        self._show(('life', life), 'release', 'release() of the codec', quiet, line)
        for observer in self.observers:
            observer.arrow(('thread', line.pid, line.tid), ('life', life), reclaim)
        self._ended = [reclaim for reclaim in self._ended[-9:]] + [reclaim]

    def _reclaim_text(self, reclaim, quiet, again):
        if again:
            return 'reclaimed again: nothing left to stop'
        calls = f'{reclaim.count} call' + ('' if reclaim.count == 1 else 's')
        if reclaim.waited_for:
            calls += ': ' + ', '.join(reclaim.waited_for)
        waited, taken = seconds(reclaim.begin, quiet), seconds(reclaim.begin, reclaim.end)
        if taken is None:
            return 'reclaimed' + (f'; gave up waiting for {calls}' if reclaim.timeout else '')
        if reclaim.timeout:
            return f'reclaimed; gave up waiting after {waited:.3f} s for {calls}; took {taken:.3f} s'
        if reclaim.life.codec is None:
            return f'reclaimed; wait and release of the codec took {taken:.3f} s'
        return f'reclaimed; waited {waited:.3f} s for {calls}; took {taken:.3f} s'
