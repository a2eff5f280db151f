"""Clients of the resource manager, by the library's lines: acquisition and reclaim."""

import collections
import re

from .lives import Reclaim, named, seconds
from .messages import CLIENT, ENCODER
from .service import Service
from .verdicts import INVALID, NO_SERVICE, NO_SUCH_CORE, NOTHING_HELD, STUCK

WAIT_LIMIT = 3.0  # Seconds that a reclaim waits for the calls in flight.
PATIENCE = 10.0  # Seconds that the host platform's manager waits for the answer to a reclaim.
SHORT = 0.1  # Seconds in which a wait that is over is noticed.
LONG_RELEASE = 1.0  # Seconds in a codec's release() that are worth a verdict,
LONG_RECLAIM = 1.5  # and in a reclaim of unknown parts that are worth a note.
HANGS_AFTER = 3.5  # Seconds without its end after which a reclaim is not just under way.
GRACE = 1.0  # Seconds in which what is not there may still come,
GRACE_OF_OWNER = 3.0  # and in which an owner may notice that his codec was reclaimed.
OPEN_AT_THE_END = re.compile(r'client (\d+) is open when the process ends')
ENDED = ('closed', 'refused', 'reclaimed', 'released', 'process ended')


class Clients:
    """Handles these lines; each handler returns the client concerned, or None."""

    def __init__(self, history):
        self._history = history
        self._holders = {}  # Process: clients that may hold a core.
        self._on_port = {}  # Port: the client it was granted to last.
        self.lost = collections.deque(maxlen=50)  # The last clients that were reclaimed, or whose process ended.
        self._reclaims = []  # The last that have ended, and those that have not.
        self.service = Service(history)
        self._rejections = []  # (line, encoder) of the last reclaims that encoders refused.

    # --- Acquisition.

    def _new(self, line, thread):
        kind = 'encoder' if line.tag == ENCODER else 'client'
        return self._history.new_life(kind, line, thread)

    def requests(self, line, thread, *_):
        """A line of a request for a core: begins a life unless one is asking on this thread."""
        life = thread.life
        if life is None or life.state != 'asking' or life.held_since is not None or life.port is not None:
            life = self._new(line, thread)
        return life

    init_failed = requests

    def concerned(self, line, thread, *_):
        """A line of the client that the thread is concerned with."""
        life = thread.life
        if life is None or life.state == 'closed':
            life = self._new(line, thread)
        if line.tag == ENCODER:
            life.kind = 'encoder'
        return life

    def asked(self, line, thread, adaptive, width, height, max_width, max_height, pid, _color):
        life = self._asks(line, thread, 'decoder', f'{width}x{height}' + (
            f', adaptive up to {max_width}x{max_height}' if adaptive else ''),
            (width and height) or (adaptive and max_width and max_height))
        life.calling_pid = pid
        return life

    def encoder_asked(self, line, thread, width, height, rate):
        return self._asks(line, thread, 'encoder', f'{width}x{height}, {rate} frames a second', width and height)

    def _asks(self, line, thread, kind, stream, has_size):
        thread.finding = None
        life, thread.opened = thread.opened or thread.life, None
        if life is None or life.state != 'asking' or life.stream:
            life = self._new(line, thread)
        thread.life = life
        life.kind, life.asked, life.stream = kind, line, stream
        if not has_size:
            self._history.find('no-size', life, [line], stream, [life])
        return life

    def no_codec(self, line, thread, mime):
        life = self.requests(line, thread)
        life.mime = mime or 'no MIME type'
        return life

    def acquire_refused(self, line, thread, code, only_tried):
        life = self.requests(line, thread)
        life.tell(line, f'refused: code {code}, ' + ('not allowed to force' if only_tried else 'with force'))
        return life

    @staticmethod
    def rule_of_refusal(code, only_tried):
        if code == NO_SERVICE:
            return 'manager-unreachable'
        rules = {NO_SUCH_CORE: 'no-such-core', STUCK: 'patience-over', INVALID: 'request-invalid'}
        return rules.get(code, 'may-not-force' if only_tried else 'refused')

    def failed(self, name, line, thread):
        """Looks for what explains a refusal, once the lines tell whose it is."""
        finding = thread.finding
        life = thread.life
        if life is None or not finding or name not in ('acquire_refused', 'display_refused', 'grant_unread'):
            return
        if name != 'grant_unread':
            self.service.explains(finding, line, life)
        if finding.rule == 'patience-over' and not finding.is_explained:
            late = [reclaim for reclaim in self._reclaims if reclaim.end is None
                    or line.time - reclaim.end.time < PATIENCE]
            late = [reclaim for reclaim in late if line.time - reclaim.begin.time > PATIENCE - 1]
            finding.candidates = [reclaim.who for reclaim in late]
        if finding.rule not in ('refused', 'live-encoder'):
            return
        since = life.asked.time if life.asked else line.time - PATIENCE
        rejections = [(rejected, who) for rejected, who in self._rejections if rejected.time >= since]
        if life.kind == 'encoder' and rejections:
            self._history.verdicts.move(finding, 'live-encoder')
            finding.candidates = [who for _, who in rejections]
            finding.lines[:0] = [rejected for rejected, _ in rejections[-3:] if rejected not in finding.lines]
        elif not finding.is_explained:
            kind = life.kind if life.kind != 'client' else None
            holders = [other for lives in self._holders.values() for other in lives
                       if other.state == 'holding' and other is not life and kind in (None, other.kind)]
            finding.candidates = [named(holders)] if holders else []
            for state, when in (('reclaimed', 'reclaimed before, if this platform frees the core only when the wrapper is '
                                 'destroyed'),
                                ('process ended', 'gone with its process, if this platform does not free its core then')):
                lost = [other for other in self.lost if other.state == state and kind in (None, other.kind)][-3:]
                if lost:
                    finding.candidates.append(f'{when}: {named(lost)}')

    def grant_lost(self, line, thread, _code):
        life = thread.life
        return life if life is not None and life.state == 'reclaimed' else self.requests(line, thread)

    def granted(self, line, thread, core, port, width, height):
        if thread.finding and thread.finding.rule == 'no-codec':
            thread.finding.detail = 'a core was granted all the same'
        thread.finding = None
        if thread.life and thread.life.state == 'reclaimed' and thread.process.has_calls:
            return thread.life  # At once, before it saw what it was granted.
        life = self.requests(line, thread)
        life.core_type = core
        self._hold(life, line)
        self._history.show(('life', life), 'ask', 'asks for a core', life.asked or life.begin, line)
        stream = ' '.join(filter(None, (life.mime, life.stream)))
        life.tell(line, f'acquired a core of type {core}, up to {width}x{height}'
                  + (f', for {stream}' if stream else ''))
        if port in (1, 2):
            self._take_port(life, port - 1, line)
        self._serves(life, line, core)
        return life

    def _serves(self, life, line, core=None):
        """A grant may be what a reclaim was for, if the request is older."""
        for reclaim in self._reclaims:
            known = core and reclaim.life and reclaim.life.core_type
            if (reclaim.granted is None and life.kind in ('client', reclaim.kind) and known in (None, core, 0)
                    and life is not reclaim.life
                    and (life.asked is None or life.asked.time <= reclaim.begin.time)):
                reclaim.granted = line
                reclaim.newcomer = life if life.asked else None

    def _hold(self, life, line):
        life.state = 'holding'
        life.held_since = line
        holders = self._holders.setdefault(life.pid, [])
        self._holders[life.pid] = [other for other in holders if other.state == 'holding'][-999:] + [life]

    def end_hold(self, life, line):
        if life.held_since is not None:
            text = f'core {life.core}' if life.core else f'a core of type {life.core_type}'
            if life.port is not None:
                text += f', port {life.port}'
            self._history.show(('life', life), 'hold', text, life.held_since, line)
            life.held_since = None

    def _take_port(self, life, port, line):
        before = self._on_port.get(port)
        self._on_port[port] = life
        if before is not None and before is not life and before.state == 'holding' and self._shares_ports(before, life):
            before.tell(line, f'had given everything back by now: port {port} is granted again')
            self.end_hold(before, line)
            before.state = 'released'

    def _shares_ports(self, one, other):
        """Says whether a port of one is the other's, so that it must have been given back in between."""
        known = self._history.by_id  # With ids that are alike, processes have managers of their own.
        return not self._history.process(one.pid).has_calls and (one.pid == other.pid or (
            (one.pid, other.id) not in known and (other.pid, one.id) not in known))

    def core_type(self, line, thread, core):
        if thread.life is not None and (thread.life.core is not None or thread.life.state == 'refused'):
            self._new(line, thread)  # Its grant is not in the log.
        life = self.concerned(line, thread)
        life.core = core
        if life.kind == 'client':
            life.kind = 'encoder' if line.tag == ENCODER else 'decoder' if line.tag == CLIENT else 'client'
        if life.kind == 'encoder':
            self._rejections.clear()  # Nobody was refused for them.
        if core == 0 and (thread.finding is None or thread.finding.rule != 'core-unknown'):  # Below level 3.
            self._history.find('core-unknown', life, [life.held_since or line, line], '', [life])
        return life

    def id(self, line, thread, number):
        life = self.concerned(line, thread)
        if life.id not in (None, number):
            life = self._new(line, thread)
        if life.held_since is None:  # The grant came before the log begins.
            self._hold(life, line)
        self.identify(life, number)
        return life

    def identify(self, life, number):
        known = self._history.by_id
        old = known.get((life.pid, number))
        if old is not None and old is not life:
            if old.state not in ENDED:
                old.state = 'closed'  # Its end is not in the log.
            for reclaim in self._reclaims:  # It may be another process of the same number.
                reclaim.overtaken |= reclaim.pid == life.pid
        life.id = number
        known[life.pid, number] = life

    def port(self, line, thread, port):
        thread.finding = None
        life = self.concerned(line, thread)
        life.port = port
        life.tell(line, f'display port {port}')
        if life.state != 'asking':
            self._take_port(life, port, line)
        return life

    @staticmethod
    def no_port(_line, thread, *_):
        thread.finding = None
        return thread.life

    def display_granted(self, line, thread, _port):
        thread.finding = None
        if thread.life is None:  # A wrapper that went on with its core, which asks for a port if it has none.
            mine = [life for life in self._holders.get(line.pid, ()) if life.state == 'holding' and life.port is None]
            thread.life = mine[0] if len(mine) == 1 else None
        life = self.concerned(line, thread)
        self._serves(life, line)
        return life

    def already_held(self, line, thread, *_):
        """A wrapper goes on with what it has: which one, a thread that has several does not tell."""
        mine = [life for life in self._holders.get(line.pid, ()) if life.state == 'holding']
        if len(mine) > 1 and not self._history.process(line.pid).has_calls:
            thread.life = None
        return thread.life

    def not_connected(self, line, thread):
        life = self.requests(line, thread)
        if line.tag == ENCODER:
            life.kind = 'encoder'
        life.tell(line, 'no resource manager: ' + ('goes on without a core' if life.kind == 'encoder'
                                                   else 'not configured'))
        life.state = 'without a core' if life.kind == 'encoder' else 'refused'
        return life

    def grant_unread(self, line, thread, *_):
        life = self.concerned(line, thread)
        if life.kind == 'client' and line.tag == CLIENT:
            life.kind = 'decoder'
        if life.held_since is None:
            self._history.show(('life', life), 'ask', 'asks for a core: refused', life.begin, line)
            life.tell(line, 'not configured')
            life.state = 'refused'
        return life

    request_unsent = grant_unread

    def resource_unread(self, line, thread, code):
        life = self.concerned(line, thread)
        if life.id is not None and not str(thread.event_before).startswith('display_'):
            life = self._new(line, thread)  # Of a request whose lines are not in the log.
        if code == NOTHING_HELD:
            if life.held_since is not None:
                life.tell(line, 'holds nothing any more')
                self.end_hold(life, line)
            if life.state in ('asking', 'holding'):
                life.state = 'refused'
        return life

    def id_unread(self, line, thread):
        life = self.concerned(line, thread)
        life.tell(line, 'holds the core, but its id is not known: not configured')
        return life

    def display_none(self, line, thread):
        life = self.concerned(line, thread)
        life.tell(line, 'no display port: not configured, gives everything back')
        if life.state == 'holding':
            self.end_hold(life, line)
            life.state, life.gave_back = 'released', line
        return life

    display_unrequested = display_none

    def clearing(self, line, thread, both, _port):
        thread.clears_both = both
        return self.clear_failed(line, thread)

    def clear_failed(self, line, thread, *code):
        """In pixel mode both ports are cleared, in a release one."""
        return self.give_back_failed(line, thread, *code) if thread.clears_both == 0 else self.concerned(line, thread)

    def not_cleared(self, line, thread):
        life = self.clear_failed(line, thread)
        if thread.clears_both:
            life.tell(line, 'ports not cleared: not configured, keeps the core')
        return life

    def give_back_failed(self, line, thread, code=None):
        """A failure on the way out: whose, only a log with calls tells."""
        if not self._history.process(line.pid).has_calls:
            mine = [life for life in self._holders.get(line.pid, ()) if life.state == 'holding']
            return mine[0] if len(mine) == 1 else None
        if thread.life is not None and code is not None:
            thread.life.tell(line, f'giving back or closing failed: code {code}')
        return thread.life

    free_failed = give_back_failed

    # --- Reclaims.

    def _meant(self, line, thread, calling_pid):
        """Returns the clients that a reclaim on this thread may be meant for."""
        if thread.reclaimed_id is not None:
            life = self._history.by_id.get((line.pid, thread.reclaimed_id))
            if life is None:
                life = self._new(line, None)
                self.identify(life, thread.reclaimed_id)
            return [life]
        kind = 'encoder' if line.tag == ENCODER else 'decoder'
        asked = self._history.by_id.get((line.pid, self.service.asked.pop(line.pid, None)))
        if asked is not None and asked.kind in ('client', kind):
            return [asked]
        return [life for life in self._holders.get(line.pid, ()) if life.state == 'holding'
                and life.kind in ('client', kind)
                and (calling_pid in (None, -1) or life.calling_pid in (None, calling_pid))]

    def _begin(self, line, thread, calling_pid):
        thread.finding = None
        kind = 'encoder' if line.tag == ENCODER else 'decoder'
        reclaim = Reclaim(line, line.tid, kind, self._meant(line, thread, calling_pid))
        life = reclaim.life
        if life is not None:
            if life.kind == 'client':
                life.kind = kind
            if calling_pid and calling_pid > 0:
                life.calling_pid = calling_pid
            reclaim.knows_calls = life.codec is not None
            reclaim.waited_for = [f'{name} (thread {tid})' for tid, (name, *_) in life.in_flight.items()]
            reclaim.quiet = line if reclaim.knows_calls and not life.in_flight else None
            life.reclaim = reclaim
            reclaim.is_again = life.state == 'reclaimed'
        thread.reclaims.append(reclaim)
        self._reclaims = [other for other in self._reclaims if other.end is None][-50:] + \
            [other for other in self._reclaims if other.end is not None][-20:] + [reclaim]
        return reclaim

    def was_taken_from(self, life, line):
        """Says whether a reclaim explains that a client holds nothing of what it was granted."""
        since = life.asked.time if life.asked else line.time - GRACE
        return any(reclaim.pid == line.pid and reclaim.begin.time >= since and (
            not self._history.process(line.pid).has_calls or reclaim.life is life) for reclaim in self._reclaims)

    def reclaim_start(self, line, thread, calling_pid=None):
        return self._begin(line, thread, calling_pid).life

    def reclaim_timeout(self, line, thread, count):
        if not thread.reclaims:
            self._begin(line, thread, None).began = False
        reclaim = thread.reclaims[-1]
        reclaim.timeout = reclaim.quiet = line
        inside = [f'{name} (thread {tid})' for tid, (name, *_) in reclaim.life.in_flight.items()] \
            if reclaim.life else []
        finding = self._history.find(
            'codec-stuck', reclaim.who, [reclaim.begin, line] if reclaim.began else [line],
            f'{count} of them' + (f'; still inside: {", ".join(inside)}' if inside else ''),
            reclaim.candidates)
        thread.held_up = finding
        return reclaim.life

    def reclaim_rejected(self, line, thread):
        meant = self._meant(line, thread, None)
        if len(meant) == 1:
            meant[0].tell(line, 'refused a reclaim: it streams live')
        who = meant[0].who if len(meant) == 1 else f'process {line.pid}, {named(meant, "encoder")}'
        self._rejections = self._rejections[-9:] + [(line, who)]
        return meant[0] if len(meant) == 1 else None

    def reclaim_end(self, line, thread):
        if not thread.reclaims:
            self._history.begins_in_the_middle = True
            return None
        reclaim = thread.reclaims.pop()
        self.end_reclaim(reclaim, line, thread)
        return reclaim.life

    def end_reclaim(self, reclaim, line, thread):
        history, life = self._history, reclaim.life
        reclaim.end = line
        if reclaim.timeout and thread.held_up:
            thread.held_up.add(line)
        thread.finding = thread.held_up = None
        if thread.reclaimed_id is None:
            self.judge_length(reclaim)
        else:
            thread.ended = reclaim
        history.show(('thread', line.pid, line.tid), 'reclaim', f'reclaim: {reclaim.who}', reclaim.begin,
                     line, life)
        if life is None:
            return
        life.tell(reclaim.begin, 'reclaimed again: nothing left to stop' if reclaim.is_again else
                  self._reclaim_text(reclaim))
        if life.state in ENDED:
            return
        self.end_hold(life, line)
        life.state, life.told_of_reclaim = 'reclaimed', None
        self.lost.append(life)
        history.show(('life', life), 'guard', 'guard closed: a reclaim', reclaim.begin, line)
        if reclaim.quiet:
            history.show(('life', life), 'wait', self._waits(reclaim), reclaim.begin, reclaim.quiet,
                         arguments={'calls': ', '.join(reclaim.waited_for)})
            history.show(('life', life), 'release', 'release() of the codec', reclaim.quiet, line)
        else:
            history.show(('life', life), 'stop', 'wait for calls, and release() of the codec', reclaim.begin, line)
        for observer in history.observers:
            observer.arrow(('thread', line.pid, line.tid), ('life', life), reclaim)

    @staticmethod
    def _waits(reclaim):
        count = len(reclaim.waited_for)
        if not reclaim.knows_calls:
            return 'waits for calls'
        return f'waits for {count} call' + ('' if count == 1 else 's')

    def _reclaim_text(self, reclaim):
        waited = seconds(reclaim.begin, reclaim.quiet) if reclaim.quiet else None
        taken = seconds(reclaim.begin, reclaim.end)
        calls = self._waits(reclaim)[len('waits for '):]
        if reclaim.waited_for:
            calls += ': ' + ', '.join(reclaim.waited_for)
        text = 'reclaimed'
        if reclaim.timeout:
            text += '; gave up waiting' + (f' after {waited:.3f} s' if waited else '') + f' for {calls}'
        elif reclaim.knows_calls and waited is not None:
            text += f'; waited {waited:.3f} s for {calls}'
        elif taken is not None:
            return text + f'; wait for calls and release of the codec took {taken:.3f} s'
        return text + (f'; took {taken:.3f} s' if taken is not None else '')

    def judge_length(self, reclaim, measured=None):
        """Says what took long in a reclaim that has ended, as far as the log tells its parts; in seconds, as
        measured, or by the clock, which may have been set meanwhile."""
        taken = seconds(reclaim.begin, reclaim.end) if measured is None else measured
        if taken is None or not reclaim.began:
            if reclaim.began and reclaim.begin.silence != reclaim.end.silence:
                self._history.note(f'A reclaim ended after a time without a line ({reclaim.begin.clock} to '
                                   f'{reclaim.end.clock}, {reclaim.who}): how long it took is not known.')
            return
        lines = [line for line in (reclaim.begin, reclaim.quiet, reclaim.end) if line]
        late = f'; the host platform\'s manager waits {PATIENCE:.0f} s' if taken > PATIENCE else ''
        known = min(taken, seconds(reclaim.quiet, reclaim.end) or 0.0) if reclaim.quiet else 0.0
        at_least = 'at least ' if known < taken - WAIT_LIMIT - SHORT else ''
        known = max(known, taken - WAIT_LIMIT)
        if known >= LONG_RELEASE:
            self._history.find('release-slow', reclaim.who, lines,
                               f'{at_least}{known:.1f} s of {taken:.1f} s{late}', reclaim.candidates,
                               absent=not at_least)  # Of calls that it would have waited for.
        elif taken >= LONG_RECLAIM and not reclaim.quiet:
            self._history.note(f'A reclaim took {taken:.1f} s ({reclaim.begin.clock}, {reclaim.who}): whether it '
                               'waited for calls, as it may for 3 s, or for release(), the log does not tell.')

    # --- The end of the log.

    def process_ended(self, pid, last):
        """A reclaim that the process outlived for long is told of; what has died of it is not at fault."""
        self.lost.extend(life for life in self._holders.pop(pid, ()) if life.state == 'holding')
        for reclaim in self._reclaims:
            if reclaim.pid == pid and last.time - reclaim.begin.time >= HANGS_AFTER:
                self._judge_open(reclaim, last, 'its process ends')
        self._reclaims = [reclaim for reclaim in self._reclaims if reclaim.pid != pid]

    def finish_reclaims(self):
        for reclaim in self._reclaims:
            self._judge_open(reclaim, self._history.last, 'the log ends')

    def _judge_open(self, reclaim, until, ends):
        if reclaim.end is not None or not reclaim.began:
            return
        history = self._history
        after = until.time - reclaim.begin.time if until.clock else 0.0
        where = f'{reclaim.begin.clock}, {reclaim.who}'
        thread = history.thread(reclaim.begin)
        in_release = reclaim.quiet is not None and reclaim.timeout is None
        granted = reclaim.granted is not None and reclaim.granted.time - reclaim.begin.time < (
            PATIENCE - 0.5 if reclaim.newcomer else HANGS_AFTER)
        answered = reclaim.life and self.service.answers_of.get((reclaim.pid, reclaim.life.id))
        lines = [line for line in (reclaim.begin, reclaim.quiet) if line]
        if reclaim.overtaken or reclaim not in thread.reclaims or (granted and (reclaim.newcomer or not in_release)) \
                or answered and answered.time >= reclaim.begin.time:
            history.note(f'The end of a reclaim is not in the log ({where}), but its thread went on, it was answered '
                         'or a core was granted: it may have ended, and its line be lost.')
        elif after < HANGS_AFTER:
            history.note(f'The log ends in a reclaim that gave up waiting for calls ({where}).' if reclaim.timeout else
                         f'The log ends during a reclaim ({where}): too soon to tell more'
                         + (', as a time without a line does not count.' if until.silence != reclaim.begin.silence else '.'))
        elif history.quiet_for(reclaim.begin) <= GRACE and not history.has_system and not (
                reclaim.life and (reclaim.pid, reclaim.life.id) in self.service.stuck):
            history.note(f'A reclaim had not ended after {after:.1f} s, when the log ends ({where}), but its process '
                         'wrote nothing any more: it may have been killed.')
        else:
            known = 'the wait was over, release() is next' if reclaim.timeout and not in_release else \
                'inside release()' if in_release else 'waiting or in release()'
            history.find('reclaim-hangs', reclaim.who, lines, f'{after:.1f} s when {ends}, {known}',
                         reclaim.candidates, absent=True)
        if reclaim.life:
            reclaim.life.tell(reclaim.begin, 'a reclaim begins, whose end is not in the log')
            history.show(('life', reclaim.life), 'guard', 'guard closed: a reclaim', reclaim.begin, until)
        history.show(('thread', reclaim.pid, reclaim.tid), 'reclaim', f'reclaim: {reclaim.who}, no end',
                     reclaim.begin, until, reclaim.life)

    def finish(self, life):
        history, last = self._history, self._history.last
        knows = history.process(life.pid).has_calls
        for tid, (operation, line, _) in life.in_flight.items():
            life.tell(line, f'{operation} on thread {tid} had not returned when the log ended')
            history.show(('thread', life.pid, tid), 'call', f'{operation}, not returned', line, last,
                         life, {'client': life.name})
        if life.state == 'reclaimed' and life.reclaim.end is not None:
            if knows:
                history.show(('life', life), 'closed', 'reclaimed: refuses every call', life.reclaim.end, last)
            self._judge_open_client(life, 'core-kept', life.reclaim.end, life.told_of_reclaim)
        elif life.state == 'released' and life.gave_back is not None:
            self._judge_open_client(life, 'never-freed', life.gave_back, None)
        if life.held_since is not None:
            life.tell(last, 'still holds its core when its lines end' if knows else
                      'whether it still holds its core when the log ends is not known')
            self.end_hold(life, last)

    def left_open(self, line):
        """Says whether the host platform tells of a client that stays open though it holds nothing."""
        match = OPEN_AT_THE_END.search(line.message)
        life = self._history.by_id.get((line.pid, int(match[1]))) if match else None
        since = life and (life.gave_back if life.state == 'released' else
                          life.state == 'reclaimed' and life.reclaim.end)
        if not since or not self._history.process(line.pid).has_calls:
            return False
        self._history.find('never-freed' if life.gave_back else 'core-kept', life, [since, line],
                           'still open when the process ended', [life])
        life.state = 'process ended'
        return True

    def _judge_open_client(self, life, rule, since, told):
        """A client that should be closed: wrong once there was time enough to close it. Its process may have logged
        its calls only for a while."""
        history, process = self._history, self._history.process(life.pid)
        if life.id is None or not process.has_calls or not (
                process.first_call.time <= since.time <= process.last_call.time):
            return
        open_for = process.last_call.time - since.time
        if open_for >= (GRACE_OF_OWNER if rule == 'core-kept' else GRACE):
            history.find(rule, life, [line for line in (since, told) if line],
                         f'still open {open_for:.1f} s later, when the log ends', [life], absent=True)
        elif not life.in_flight:
            history.note(f'{life.who}: not closed {open_for:.3f} s after it lost or gave back its core, when '
                         'the log ends: too soon to tell whether it is kept.')
