"""The history that the lines tell: the life of each client, and what was found wrong.

A client is named by its process and the resource manager's id. Lines that name none belong to the
client that their thread was concerned with last. Whom a reclaim is for is told by the host platform's
calls; without them all clients that fit are candidates."""

from .calls import Calls
from .clients import Clients
from .lives import Life, Process, Thread, named
from .messages import (AFTER, AT_ONCE, BEFORE, CLIENT, CODEC, ENCODER, EXPLAINED_BY, MESSAGES, NEXT, PLATFORM, SCALER,
                       SINK, STEP_ENDS, TAGS, event_of)
from .others import SERVICE, TAGS_OF_OTHERS, end_of_process, tells_of_loss
from .scaler_and_sink import Channels, Sinks
from .verdicts import HOST_CODES, MISTAKES, NOTHING_HELD, Finding, Verdicts

TOGETHER = 5.0  # Seconds in which failure lines of one operation follow each other.
SOON = 1.0  # Seconds in which the host platform and the library tell of the same.
SILENCE = 600.0  # Seconds without a line from which on the clock may have been set: they do not count.
NOT_OF_A_GRANT = ('acquire_refused', 'give_back_failed', 'free_failed')  # That nothing is held says little there.
KEPT_LIVES = 2000
KEPT_THREADS = 20000
KEPT_UNKNOWN = 10
_CAUSES = {event: rule for event, _, _, _, *rules in MESSAGES for rule in rules}


class History:
    def __init__(self, observers=()):
        self.observers = observers
        self.verdicts = Verdicts()
        self._absences = Verdicts()  # Those that rest on the absence of lines: true if none is lost.
        self.notes = []
        self.lives = []
        self.dropped = 0
        self.known = self.foreign = self.unknown = 0
        self.unknown_lines = []
        self.first = self.last = None
        self.begins_in_the_middle = False
        self.has_system = False  # Whether lines of others are in it, which would tell of the end of processes.
        self.loss = None  # The first line by which the log is known to have lost some.
        self.silence = 0.0  # Seconds that do not count so far.
        self._seen = set()  # Events that this log has,
        self._odd = {}  # and those one of which is missing: where it was first.
        self.levels = {}  # Tag: the highest level that was seen.
        self.processes = {}
        self.by_id, self.by_codec, self._by_place = {}, {}, {}
        self._threads = {}
        self._count = 0
        self.clients, self.channels, self.sinks = Clients(self), Channels(self), Sinks(self)
        calls = Calls(self)
        self._handlers = {'platform_call': calls.of_platform, 'codec_call': calls.of_codec}
        for part, tags, others in ((self.clients, (CLIENT, ENCODER), self.clients.concerned),
                                   (self.channels, (SCALER,), self.channels.of_failure),
                                   (self.sinks, (SINK,), self.sinks.of_sink)):
            self._handlers.update((event, getattr(part, event, others))
                                  for event, of, *_ in MESSAGES if of[0] in tags)

    def read(self, line):
        gap = line.time - self.silence - self.last.time if self.last else 0.0
        self.silence += gap if gap >= SILENCE else 0.0
        line.silence = self.silence
        line.time -= self.silence
        if line.tag is None:
            self._read_formless(line)
            return
        if self.first is None:
            self.first = line
        self.last = line
        if line.tag not in TAGS and line.tag:
            self.foreign += 1
            self.has_system |= line.tag != SERVICE
            if line.tag in TAGS_OF_OTHERS:
                self._read_of_others(line)
            return
        event = event_of(line.tag, line.message)
        if event is None:
            self._read_unknown(line)
            return
        self.known += 1
        line.tag, name, level, values = event
        if level > self.levels.get(line.tag, -1):
            self.levels[line.tag] = level
        thread = self.thread(line)
        thread.process.level = max(level, thread.process.level)
        if level <= 3 and line.tid:
            self._judge_order(name, line, thread)
        thread.is_first = not thread.has_spoken
        thread.has_spoken |= level <= 3
        goes_on = level <= 3 and line.tid and name not in ('reclaim_timeout', 'reclaim_end')
        for reclaim in thread.reclaims:
            reclaim.overtaken |= bool(goes_on)
        life = self._handlers[name](line, thread, *values)
        if name in _CAUSES:
            self._fail(name, line, thread, values, life)
        thread.is_new, thread.process.last = False, line
        for observer in self.observers:
            observer.line(line)

    def _read_formless(self, line):
        if 'tvhw-run: ' in line.raw:
            self._end_process(line, line.raw)
        elif self.first is not None and any(tag + ':' in line.raw for tag in TAGS):
            self.loses(line)  # A part of a line.

    def _read_of_others(self, line):
        self._end_process(line, line.message)
        if tells_of_loss(line):
            self.loses(line)
        elif line.tag == SERVICE:
            self.clients.service.read(line)

    def _read_unknown(self, line):
        if line.tag == PLATFORM and 'mistake: ' in line.message:
            self.known += 1
            if not self.clients.left_open(line):
                self._read_mistake(line)
        elif line.tag:
            self.unknown += 1
            if len(self.unknown_lines) < KEPT_UNKNOWN:
                self.unknown_lines.append(line)
            if line.tag in (PLATFORM, CODEC) or '.cpp:' in line.message:
                self.loses(line)  # One of the host's, and damaged.
        else:
            self.foreign += 1

    def _read_mistake(self, line):
        """The host platform names many a mistake, on the thread that makes it."""
        rule = next((rule for words, rule in MISTAKES if words in line.message), 'platform-says')
        thread = self.thread(line)
        if thread.finding and rule == 'not-configured':
            thread.finding.add(line)  # It goes on though its configuration failed.
        elif thread.found and thread.found.rule == rule and line.time - thread.found.lines[-1].time < SOON:
            thread.found.add(line)
        else:
            finding = self.find(rule, f'process {line.pid}', [line], line.message)
            if rule == 'patience-over':
                thread.finding = finding  # The library's own lines follow.

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
            thread = self._threads[key] = Thread(self.process(line.pid))
        return thread

    # --- What is lost.

    def loses(self, line):
        """Before this line others are missing, or it is damaged."""
        self.loss = self.loss or line

    def _judge_order(self, name, line, thread):
        if name.startswith('reclaim') or name == 'region_reported':
            return  # It comes at any time.
        before = thread.event_before = thread.event
        thread.event = name
        has_both = line.tag != ENCODER or CLIENT in self.levels  # An encoder's request logs with two tags.
        if before is not None and AFTER.get(name, before) != before and has_both:
            self.loses(line)
        elif name not in NEXT.get(before, (name,)):
            self._lacks(NEXT[before], line)
        elif before is not None and before not in BEFORE.get(name, (before,)):
            self._lacks(BEFORE[name], line)
        self._seen.add(name)

    def _lacks(self, events, line):
        """One of these events should have come before this line."""
        self._odd.setdefault(frozenset(STEP_ENDS if events <= STEP_ENDS else events), line)

    def closes_channel(self, line, thread):
        if thread.event in NEXT:  # In the middle of an operation.
            self._lacks(NEXT[thread.event], line)

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

    def show(self, track, what, text, begin, end, life=None, arguments=None):
        """Tells the observers of an interval on the track of a thread or life, which ends now."""
        if begin is None or not self.observers:
            return
        start = begin if isinstance(begin, float) else begin.time
        life = track[1] if track[0] == 'life' else life
        for observer in self.observers:
            observer.interval(track, what, text, start, max(start, end.time), life, arguments or {})

    # --- What is wrong.

    def find(self, rule, who, lines, detail='', lives=(), absent=False):
        """Adds a finding; `absent` says that it rests on lines which are not there."""
        finding = Finding(rule, who, lines, detail, lives)
        thread = self._threads.get((lines[-1].pid, lines[-1].tid))
        if thread:
            thread.found = finding
        (self._absences if absent else self.verdicts).add(finding)
        return finding

    def note(self, text):
        self.notes.append(text)

    def _fail(self, name, line, thread, values, life):
        rule, explained_by = _CAUSES[name], EXPLAINED_BY.get(name, ())
        if name == 'acquire_refused':
            rule = self.clients.rule_of_refusal(*values)
        before = thread.finding
        if (before is not None and (before.rule in explained_by or before.rule == rule) and name not in before.events
                and (name in AT_ONCE or line.time - before.lines[-1].time <= TOGETHER)):
            before.events.add(name)
            before.add(line)
            before.whose = life or before.whose
        else:
            is_read = name == 'resource_unread'
            if name == 'grant_unread' or is_read and (thread.is_first or (
                    NOTHING_HELD in values and thread.process.level >= 2 and not life.core_type and not life.core)):
                rule = 'cause-unknown'  # The line that tells it is not there.
            elif values[:1] == (NOTHING_HELD,) and line.tag == CLIENT and name not in NOT_OF_A_GRANT:
                rule = 'grant-lost'
            elif name == 'grant_lost':
                rule = 'grant-unreadable'
            elif is_read and life.core is not None and life.held_since:
                rule = 'port-not-granted'  # The core was read before.
            codes = HOST_CODES.get(line.tag, {})
            code = next((value for value in values if value in codes), None)
            detail = f'{code} is for the host platform: {codes[code]}' if code is not None else ''
            thread.finding = Finding(rule, life or f'process {line.pid}', [line], detail, [life] if life else [])
            if NOTHING_HELD in values and life is not None and self.clients.was_taken_from(life, line):
                self.note(f'{life.who} was reclaimed before it saw what it was granted ({line.clock}).')
            else:
                self.verdicts.add(thread.finding)
            thread.finding.events.add(name)
        self.clients.failed(name, line, thread)

    def _end_process(self, line, text):
        ended = end_of_process(line, text)
        process = ended and self.processes.get(ended.pid)
        if not process or not process.last:
            return
        lives = self._alive(ended.pid)
        if process.end is not None and (not lives or line.time - process.end.time < TOGETHER):
            if process.finding:
                process.finding.add(line)
            return
        holders = [life for life in lives if life.held_since is not None]
        during = ''.join(f', during a reclaim from {life.name}' for life in lives
                         if life.reclaim is not None and life.reclaim.end is None)
        if ended.crashed or (not ended.clean and holders):
            held = named(holders) if holders else ''
            if holders and not process.has_calls:
                held += ' (as far as is known: releases are not in the log)'
            process.finding = self.find('process-died', f'process {ended.pid} {ended.how}{during}', [line],
                                        f'it held the core of {held}' if held else 'it held no core', lives)
        self.end_process(ended.pid, line, 'its process ended', line if line.clock else process.last)

    def _alive(self, pid):
        return [life for life in self.lives if life.pid == pid
                and life.state not in ('closed', 'refused', 'process ended')]

    def end_process(self, pid, line, text, last):
        """Ends all of a process that is no more, and that ran until the line `last`."""
        process = self.processes[pid]
        self.clients.process_ended(pid, last)
        for life in self._alive(pid):
            self.clients.end_hold(life, line)
            life.tell(line, text)
            life.state = 'process ended'
            life.in_flight.clear()
        for key in [key for key in self._threads if key[0] == pid]:
            del self._threads[key]
        for index in (self.by_id, self.by_codec, self._by_place):
            for key in [key for key in index if key[0] == pid]:
                del index[key]
        if process.lacks_clients():
            self.loses(line)
        process.end, process.is_whole, process.last = line, None, None
        process.opened = process.highest = process.level = 0

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
        for events, line in self._odd.items():
            if not events.isdisjoint(self._seen):  # Else it has no such lines.
                self.loses(line)
        if self.loss is None and not any(process.lacks_clients() for process in self.processes.values()):
            self.verdicts.take(self._absences)
        else:
            for rule, _, findings in self._absences.ranked():
                self.note(f'"{rule.title}" would be said of {findings[0].who}, but lines are lost, which may '
                          'tell otherwise.')

    def has_all_calls(self):
        return all(process.has_calls for process in self.processes.values())

    def level(self):
        """Returns the highest level that was seen of any tag, but of the host platform's own lines."""
        return max((level for tag, level in self.levels.items() if tag not in (PLATFORM, CODEC)), default=0)
