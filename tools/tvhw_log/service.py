"""What the service of the host platform says of clients: whom it asks, who answers what, and who is
refused because of whom. That names them where the library's lines leave several."""

import collections
import re

SOON = 1.0  # Seconds between the service's line of a refusal and the library's.
PATIENCE = 10.0  # Seconds that a request may take.
_CLIENT = r'client (\d+)(?: of process (\d+) \(.*?\))?'
_TIME = r'\S+ (?:s|min|h)'
_LINES = [(what, re.compile(pattern)) for what, pattern in (
    ('asks', rf'{_CLIENT} is asked for '),
    ('answers', rf'{_CLIENT}, asked {_TIME} ago, (gives up|keeps it)$'),
    ('refuses', rf'{_CLIENT} gets no .* after {_TIME}: (-\d+)(?:, no answer from (.+))?$'),
    ('forces', rf'{_CLIENT} loses by force what it holds$'),
)]


class Service:
    def __init__(self, history):
        self._history = history
        self.asked = {}  # Process: the client that is asked; None where two are, one of which it is.
        self.answers_of = {}  # (process, client): the line of its last answer.
        self.stuck = set()  # (process, client) of those that have not answered in time.
        self._kept = collections.deque(maxlen=50)  # (line, client) of those that answered no.
        self._refused = {}  # Process: (line, client, code, who does not answer) of its last refusal.
        self._unexplained = {}  # Process: the finding, line and client of its last refusal.

    def read(self, line):
        for what, pattern in _LINES:
            match = pattern.search(line.message)
            if match:
                client, pid, *more = match.groups()
                getattr(self, what)(line, int(client), int(pid or 0), *more)
                return

    def asks(self, _line, client, pid):
        self.asked[pid] = None if pid in self.asked else client

    def answers(self, line, client, pid, answer):
        self.asked.pop(pid, None)
        self.answers_of[pid, client] = line
        if answer == 'keeps it':
            self._kept.append((line, f'client {client} of process {pid}, which kept it when asked'))

    def forces(self, line, client, pid):
        life = self._history.by_id.get((pid, client))
        if life:
            self._history.clients.end_hold(life, line)
            life.tell(line, 'its core was taken by force')
            life.state = 'released'
        self._history.find('forced', life or f'client {client} of process {pid}', [line], '', [life] if life else [])

    def refuses(self, line, client, pid, code, silent=None):
        self._refused[pid] = (line, client, int(code), silent)
        self.stuck.update((int(process), int(number))
                          for number, process in re.findall(_CLIENT, silent or '') if process)
        if pid in self._unexplained:
            self.explains(*self._unexplained.pop(pid))

    def explains(self, finding, line, life):
        """Adds to a refusal what the service says of it."""
        told, client, code, silent = self._refused.get(line.pid, (None, 0, 0, None))
        if told is None or abs(line.time - told.time) > SOON or f'ret={code},' not in line.message:
            self._unexplained[line.pid] = (finding, line, life)
            return
        del self._refused[line.pid]
        finding.lines.insert(0, told)
        if life.id is None:
            self._history.clients.identify(life, client)
        since = life.asked.time if life.asked else line.time - PATIENCE
        kept = [who for answer, who in self._kept if since <= answer.time <= line.time]
        if silent or kept:
            finding.candidates = [f'{silent}, which has not answered'] if silent else kept
            finding.is_explained = True
