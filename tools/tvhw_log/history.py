"""The history that the lines tell: the life of each client, and what was found wrong.

A client is named by its process and the resource manager's id. Lines that name none belong to the
client that their thread was concerned with last. Whom a reclaim is for is told by the host platform's
calls; without them all clients that fit are candidates."""

from .calls import Calls
from .clients import NOTHING_HELD, Clients
from .lives import Life, Process, Thread, named
from .messages import CLIENT, CODEC, ENCODER, PLATFORM, SCALER, SINK, TAGS, event_of
from .processes import end_of_process
from .scaler_and_sink import Channels, Sinks
from .verdicts import CAUSES, HOST_CODES, Finding, Verdicts

TOGETHER = 5.0  # Seconds in which failure lines of one operation follow each other.
KEPT_LIVES = 2000
KEPT_THREADS = 20000
KEPT_UNKNOWN = 10


class History:
    def __init__(self, observers=()):
        self.observers = observers
        self.verdicts = Verdicts()
        self.notes = []
        self.lives = []
        self.dropped = 0
        self.known = self.foreign = self.unknown = 0
        self.unknown_lines = []
        self.first = self.last = None
        self.begins_in_the_middle = False
        self.levels = {}  # Tag: the highest level that was seen.
        self.processes = {}
        self.by_id, self.by_codec, self._by_place = {}, {}, {}
        self._threads = {}
        self._count = 0
        self.clients = clients = Clients(self)
        self.channels = channels = Channels(self)
        self.sinks = sinks = Sinks(self)
        calls = Calls(self)
        self._table = {
            'asked': clients.asked, 'encoder_asked': clients.encoder_asked,
            'init_failed': clients.requests, 'no_codec': clients.no_codec,
            'acquire_refused': clients.refused, 'grant_lost': clients.grant_lost,
            'granted': clients.granted, 'core_type': clients.core_type, 'id': clients.identified,
            'port': clients.port, 'no_port': clients.succeeds, 'display_granted': clients.display_granted,
            'already_held': clients.already_held, 'not_connected': clients.not_connected,
            'grant_unread': clients.not_configured, 'request_unsent': clients.not_configured,
            'id_unread': clients.id_unread, 'display_none': clients.no_display,
            'display_unrequested': clients.no_display, 'not_cleared': clients.not_cleared,
            'give_back_failed': clients.giving_back, 'free_failed': clients.giving_back,
            'reclaim_start': clients.reclaim_start, 'reclaim_timeout': clients.reclaim_timeout,
            'reclaim_rejected': clients.reclaim_rejected, 'reclaim_end': clients.reclaim_end,
            'panel': channels.panel, 'blank': channels.blank, 'connect': channels.connect,
            'connect_failed': channels.connect_failed, 'adaptive': channels.adaptive,
            'adaptive_failed': channels.adaptive_failed, 'disconnect': channels.disconnect,
            'input': channels.input, 'input_adaptive': channels.input_adaptive,
            'output': channels.output, 'scaler_init_failed': channels.none,
            'scaler_open_failed': channels.by_index, 'scaler_close_failed': channels.by_index,
            'sink_configured': sinks.configured, 'sink_picture': sinks.picture,
            'sink_picture_failed': sinks.not_shown, 'sink_shown': sinks.shown,
            'sink_closed': sinks.closed,
            'platform_call': calls.of_platform, 'codec_call': calls.of_codec,
        }
        self._others = {SCALER: channels.of_failure, SINK: sinks.of_failure}

    def read(self, line):
        if line.tag is None:
            if 'tvhw-run: ' in line.raw:
                self._end_process(line, line.raw)
            return
        self.first = self.first or line
        self.last = line
        if line.tag not in TAGS and line.tag:
            self.foreign += 1
            self._end_process(line, line.message)
            if line.tag == 'ResourceManager':
                self.clients.told_by_service(line)
            return
        event = event_of(line.tag, line.message)
        if event is None:
            if line.tag == PLATFORM and line.priority in 'EWFA':
                self.known += 1
                if not self.clients.left_open(line):
                    self.find('platform-says', f'process {line.pid}', [line], line.message)
            elif line.tag:
                self.unknown += 1
                if len(self.unknown_lines) < KEPT_UNKNOWN:
                    self.unknown_lines.append(line)
            else:
                self.foreign += 1
            return
        self.known += 1
        line.tag, name, level, values = event
        if level > self.levels.get(line.tag, -1):
            self.levels[line.tag] = level
        process = self.process(line.pid)
        process.last = line
        if line.tag == PLATFORM:
            process.has_calls = True
        thread = self.thread(line)
        handler = self._table.get(name) or self._others.get(line.tag, self.clients.concerned)
        life = handler(line, thread, *values)
        if name in CAUSES:
            self._fail(name, line, thread, values, life)
        thread.is_new = False
        for observer in self.observers:
            observer.line(line)

    def process(self, pid):
        process = self.processes.get(pid)
        if process is None:
            process = self.processes[pid] = Process()
        return process

    def thread(self, line):
        key = (line.pid, line.tid)
        thread = self._threads.get(key)
        if thread is None:
            if len(self._threads) >= KEPT_THREADS:
                del self._threads[next(iter(self._threads))]
            thread = self._threads[key] = Thread()
        return thread

    # --- Lives.

    def new_life(self, kind, line, thread=None):
        if len(self.lives) >= KEPT_LIVES:
            self._forget_some()
        self._count += 1
        life = Life(kind, line, self._count)
        self.lives.append(life)
        if thread is not None:
            thread.life = life
        return life

    def life_at(self, pid, place, kind, line):
        """Returns the channel or sink in this place of a process, a new one where there is none."""
        life = self._by_place.get((pid, place))
        if life is None or life.state == 'closed':
            life = self._by_place[pid, place] = self.new_life(kind, line)
            life.state = 'open'
        return life

    def _forget_some(self):
        over = [life for life in self.lives if life.state in ('closed', 'refused')] or self.lives
        forgotten = set(over[:KEPT_LIVES // 10])
        self.lives = [life for life in self.lives if life not in forgotten]
        self.dropped += len(forgotten)
        for index in (self.by_id, self.by_codec, self._by_place):
            for key in [key for key, life in index.items() if life in forgotten]:
                del index[key]
        self.clients.forget(forgotten)

    def show(self, track, what, text, begin, end, life=None, arguments=None):
        """Tells the observers of an interval on the track of a thread or life, which ends now."""
        if begin is None or not self.observers:
            return
        start = begin if isinstance(begin, float) else begin.time
        life = track[1] if track[0] == 'life' else life
        for observer in self.observers:
            observer.interval(track, what, text, start, max(start, end.time), life, arguments or {})

    # --- What is wrong.

    def find(self, rule, who, lines, detail='', lives=()):
        finding = Finding(rule, who, lines, detail, lives)
        self.verdicts.add(finding)
        return finding

    def note(self, text):
        self.notes.append(text)

    def _fail(self, name, line, thread, values, life):
        rule, explained_by = CAUSES[name]
        if name == 'acquire_refused':
            rule = self.clients.rule_of_refusal(*values)
        before = thread.finding
        if (before is not None and (before.rule in explained_by or before.rule == rule)
                and name not in before.events and line.time - before.lines[-1].time <= TOGETHER):
            before.events.add(name)
            before.add(line)
        else:
            if thread.is_new and name in ('resource_unread', 'grant_unread'):
                rule = 'cause-unknown'
            elif name == 'resource_unread' and life is not None and life.id is not None and life.held_since:
                rule = 'port-not-granted'  # The core was read before.
            elif name == 'resource_unread' and values[0] == NOTHING_HELD:
                rule = 'grant-lost'
            codes = HOST_CODES.get(line.tag, {})
            code = next((value for value in values if value in codes), None)
            detail = f'{code} is for the host platform: {codes[code]}' if code is not None else ''
            thread.finding = Finding(rule, life or f'process {line.pid}', [line], detail, [life] if life else [])
            if NOTHING_HELD in values and life is not None and self.clients.was_taken_from(life, line):
                self.note(f'{life.who} was reclaimed before it saw what it was granted ({line.clock}).')
            else:
                self.verdicts.add(thread.finding)
            thread.finding.events.add(name)
        if line.tag in (CLIENT, ENCODER):
            self.process(line.pid).has_failed = True
        self.clients.failed(name, line, thread)

    def _end_process(self, line, text):
        ended = end_of_process(line, text)
        process = ended and self.processes.get(ended.pid)
        if not process or not process.last:
            return
        lives = [life for life in self.lives if life.pid == ended.pid
                 and life.state not in ('closed', 'refused', 'process ended')]
        if process.end is not None and (not lives or line.time - process.end.time < TOGETHER):
            if process.finding:
                process.finding.add(line)
            return
        process.end = line
        holders = [life for life in lives if life.held_since is not None]
        for life in lives:
            if life.reclaim is not None and life.reclaim.end is None:
                ended.how += f', during a reclaim from {life.name}'
        if ended.crashed or (not ended.clean and holders):
            held = named(holders) if holders else ''
            if holders and not process.has_calls:
                held += ' (as far as is known: releases are not in the log)'
            process.finding = self.find('process-died', f'process {ended.pid} {ended.how}', [line],
                                        f'it held the core of {held}' if held else 'it held no core', lives)
        for life in lives:
            self.clients.end_hold(life, line)
            life.tell(line, 'its process ended')
            life.state = 'process ended'
            life.in_flight.clear()
        for key in [key for key in self._threads if key[0] == ended.pid]:
            del self._threads[key]
        for index in (self.by_id, self.by_codec, self._by_place):
            for key in [key for key in index if key[0] == ended.pid]:
                del index[key]
        self.clients.process_ended(ended.pid)
        process.is_whole = process.last = None

    # --- The end of the log.

    def quiet_for(self, line):
        """Returns for how many seconds after a line its process still wrote lines."""
        last = self.processes[line.pid].last
        return last.time - line.time if last is not None and line.clock else 0.0

    def finish(self):
        for life in self.lives:
            if life.state == 'process ended':
                continue
            if life.channel is not None:
                self.channels.finish(life)
            elif life.kind == 'image sink':
                self.sinks.finish(life)
            else:
                self.clients.finish(life)
        self.clients.finish_reclaims()

    def has_all_calls(self):
        return all(process.has_calls for process in self.processes.values())

    def level(self):
        """Returns the highest level that was seen of any tag, but of the host platform's own lines."""
        return max((level for tag, level in self.levels.items() if tag not in (PLATFORM, CODEC)), default=0)
