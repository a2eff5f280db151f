"""The history that the lines tell: the life of each client, and what was found wrong.

A client is named by its process and the resource manager's id. Lines that name none belong to the
client that their thread was concerned with last; those of a reclaim to the client that the host
platform names, else to the one that fits best."""

from .calls import Calls
from .clients import TOGETHER, Clients
from .life import Life, Thread, seconds
from .messages import ENCODER, SCALER, SINK, TAGS, event_of
from .scaler_and_sink import ScalerAndSink
from .verdicts import CAUSES, Finding, Verdicts

RECLAIM_LIMIT = 3.0  # Seconds that a reclaim waits for the calls in flight.
KEPT_LIVES = 2000
KEPT_THREADS = 20000
KEPT_UNKNOWN = 10


class History(Clients, Calls, ScalerAndSink):
    def __init__(self, observers=()):
        self.observers = observers
        self.verdicts = Verdicts()
        self.lives = []
        self.dropped = 0
        self.known = self.foreign = self.unknown = 0
        self.unknown_lines = []
        self.first = self.last = None
        self.has_calls = set()  # Processes whose platform calls are in the log.
        self._by_id, self._by_codec, self._stages = {}, {}, {}
        self._threads = {}
        self._holders = {}  # Process: clients that were granted something, some no longer holding it.
        self._ended = []  # Reclaims whose core nobody has been granted yet.
        self._rejected = None
        self._count = 0

    def read(self, line):
        if line.tag is None:
            return
        self.first = self.first or line
        self.last = line
        if line.tag not in TAGS:
            self.foreign += 1
            return
        event = event_of(line.tag, line.message)
        if event is None:
            self.unknown += 1
            if len(self.unknown_lines) < KEPT_UNKNOWN:
                self.unknown_lines.append(line)
            return
        self.known += 1
        name, *values = event
        thread = self._thread(line)
        if name in CAUSES:
            self._fail(name, line, thread, values)
        handler = getattr(self, 'on_' + name, None)
        if handler is not None:
            handler(line, thread, *values)

    def _thread(self, line):
        key = (line.pid, line.tid)
        thread = self._threads.get(key)
        if thread is None:
            if len(self._threads) >= KEPT_THREADS:
                del self._threads[next(iter(self._threads))]
            thread = self._threads[key] = Thread()
        return thread

    # --- Lives.

    def _new_life(self, kind, line, thread=None):
        if len(self.lives) >= KEPT_LIVES:
            self._forget_some()
        self._count += 1
        life = Life(kind, line, self._count)
        self.lives.append(life)
        if thread is not None:
            thread.life = life
        return life

    def _forget_some(self):
        over = [life for life in self.lives if life.state in ('closed', 'refused')] or self.lives
        forgotten = set(over[:KEPT_LIVES // 10])
        self.lives = [life for life in self.lives if life not in forgotten]
        self.dropped += len(forgotten)
        for index in (self._by_id, self._by_codec, self._stages):
            for key in [key for key, life in index.items() if life in forgotten]:
                del index[key]

    def _asking(self, line, thread):
        """Returns the client whose request is under way on this thread, a new one if there is none."""
        life = thread.life
        if life is None or life.state not in ('asking', 'holding'):
            life = self._new_life('encoder' if line.tag == ENCODER else 'decoder', line, thread)
        if line.tag == ENCODER:
            life.kind = 'encoder'
        return life

    def _identify(self, life, number):
        old = self._by_id.get((life.pid, number))
        if old is not None and old is not life and old.state not in ('closed', 'refused'):
            old.state = 'closed'  # Its end is not in the log.
        life.id = number
        self._by_id[life.pid, number] = life

    def _show(self, track, what, text, begin, end, life=None, arguments=None):
        """Tells the observers of an interval on the track of a thread or life, which ends now."""
        if begin is None or not self.observers:
            return
        start = begin if isinstance(begin, float) else begin.time
        life = track[1] if track[0] == 'life' else life
        for observer in self.observers:
            observer.interval(track, what, text, start, max(start, end.time), life, arguments or {})

    def _hold(self, life, line):
        life.state = 'holding'
        life.held_since = line
        holders = self._holders.setdefault(life.pid, [])
        holders.append(life)
        if len(holders) > KEPT_LIVES:
            del self._holders_in(life.pid)[:-KEPT_LIVES // 2]

    def _holders_in(self, pid):
        """Returns the clients of a process that hold a core, oldest first."""
        self._holders[pid] = [life for life in self._holders.get(pid, ()) if life.state == 'holding']
        return self._holders[pid]

    def _end_hold(self, life, line):
        if life.held_since is not None:
            text = f'core {life.core}' if life.core else f'a core of type {life.core_type}'
            if life.port is not None:
                text += f', port {life.port}'
            self._show(('life', life), 'hold', text, life.held_since, line)
            life.held_since = None

    # --- Failures.

    def _find(self, rule, who, line, detail=''):
        finding = Finding(rule, who, line, detail)
        self.verdicts.add(finding)
        return finding

    def _fail(self, name, line, thread, values):
        rule, explained_by = CAUSES[name]
        finding = thread.finding
        if (finding is not None and (finding.rule in explained_by or finding.rule == rule)
                and name not in finding.events and line.time - finding.lines[-1].time <= TOGETHER):
            finding.events.add(name)
            finding.add(line)
            return
        if name == 'acquire_refused' and self._explain_refusal(line, thread, values[1]):
            return
        if name == 'reclaim_timeout' and thread.reclaim is None:
            self._begin_reclaim(line, thread, None)
        life = self._life_of_failure(name, line, thread, values)
        thread.finding = self._find(rule, life.who if life else f'process {line.pid}', line)
        thread.finding.events.add(name)
        if name == 'acquire_refused' and values[1] == 1:
            self.verdicts.move(thread.finding, 'may-not-force')
        if name == 'reclaim_rejected':
            self._rejected = thread.finding

    def _explain_refusal(self, line, thread, only_tried):
        """Lets a refusal prove the verdict of another thread that explains it."""
        finding = None
        if only_tried == 0:
            if self._rejected and line.time - self._rejected.lines[-1].time <= TOGETHER:
                finding, self._rejected = self._rejected, None
            elif line.pid not in self.has_calls:
                kept = [reclaim for reclaim in self._ended
                        if line.time - reclaim.end.time <= 2 * TOGETHER]
                if kept:
                    finding = self._find('core-kept', kept[-1].life.who, kept[-1].end,
                                         'a reclaim ended, and a request was refused after it')
        if finding is None:
            return False
        finding.events.add('acquire_refused')
        finding.add(line)
        thread.finding = finding
        return True

    def _life_of_failure(self, name, line, thread, values):
        if name == 'reclaim_timeout':
            return thread.reclaim.life
        if name == 'reclaim_rejected':
            life = self._reclaimed_life(line, thread, 0)
            life.tell(line, 'refused a reclaim: it streams live')
            return life
        if line.tag == SCALER:
            if name == 'scaler_init_failed':
                return None
            at = 1 if name in ('scaler_open_failed', 'scaler_close_failed') else 0
            return self._stage(line, thread, *values[at:at + 1])
        if line.tag == SINK:
            return self._sink(line)
        if name in ('give_back_failed', 'free_failed') and thread.life is not None:
            return thread.life
        return self._asking(line, thread)

    # --- The end of the log.

    def finish(self):
        for life in self.lives:
            self._end(life)

    def _end(self, life):
        last = self.last
        if life.kind == 'scaler channel':
            self._check_placed(life)
        elif life.kind == 'image sink':
            self._check_shown(life)
        for state in ('blank', 'shown'):
            self._show(('life', life), state, state, getattr(life, state + '_since'), last)
        for tid, (operation, line) in life.in_flight.items():
            life.tell(line, f'{operation} on thread {tid} had not returned when the log ended')
            self._show(('thread', life.pid, tid), 'call', f'{operation}, not returned', line, last,
                       life, {'client': life.name})
        reclaim = life.reclaim
        if reclaim is not None and reclaim.end is None:
            taken = seconds(reclaim.begin, last)
            life.tell(reclaim.begin, 'a reclaim begins, and has not ended when the log does')
            self._show(('life', life), 'guard', 'guard closed: a reclaim', reclaim.begin, last)
            if reclaim.timeout or (taken or 0) > RECLAIM_LIMIT + 0.5:
                self._find('reclaim-hangs', life.who, reclaim.begin,
                           '' if taken is None else f'{taken:.1f} s when the log ends')
            else:
                self._find('log-ends', life.who, reclaim.begin)
        elif life.state == 'reclaimed':
            self._show(('life', life), 'closed', 'reclaimed: refuses every call', reclaim.end, last)
            after = seconds(reclaim.end, last)
            if life.pid in self.has_calls:
                self._find('core-kept', life.who, reclaim.end, '' if after is None else
                           f'not destroyed when the log ends, {after:.3f} s later')
        elif life.state == 'released' and life.pid in self.has_calls:
            self._find('never-freed', life.who, life.last)
        if life.held_since is not None:
            life.tell(last, 'still holds its core when the log ends')
            self._end_hold(life, last)
