"""Scaler channels and image sinks, by the library's lines."""

NOBODYS_PORT = 255  # -1, no port, in the 8 bits of the scaler's record.
STAYS = 2.0  # Seconds after which a window that is not placed, or a picture not shown, is none to come.


class Channels:
    """Handles these lines; each handler returns the channel concerned, or None."""

    def __init__(self, history):
        self._history = history

    @staticmethod
    def scaler_init_failed(*_):
        return None

    def _at(self, line, thread, channel):
        thread.channel = channel
        life = self._history.life_at(line.pid, channel, 'scaler channel', line)
        life.channel = channel
        if thread.panel is not None:  # Written as a client is constructed.
            life.since['begin'], thread.panel = thread.panel, None
        return life

    def of_failure(self, line, thread, channel=None, *_):
        channel = thread.channel if channel is None else channel
        return None if channel is None else self._at(line, thread, channel)

    def scaler_open_failed(self, line, thread, _code, channel):
        return self._at(line, thread, channel)

    scaler_close_failed = scaler_open_failed

    @staticmethod
    def panel(line, thread, *_):
        thread.panel = line

    def open(self, line, thread, channel):
        life = self._at(line, thread, channel)
        if life.moments:  # Its end is not in the log.
            self._close(life, line)
            life = self._at(line, thread, channel)
        life.since['begin'] = line
        return life

    def close(self, line, thread, channel):
        life = self._at(line, thread, channel)
        self._history.closes_channel(line, thread)
        self._judge_placed(life, line.time)
        self._close(life, line)
        return life

    def _close(self, life, line):
        for state in ('blank', 'shown'):
            self._history.show(('life', life), state, state, life.since.pop(state, None), line)
        if life.moments:
            life.tell(line, 'closed')
        life.state = 'closed'
        life.since.clear()

    def blank(self, line, thread, channel, blank):
        life = self._at(line, thread, channel)
        now, before = ('blank', 'shown') if blank else ('shown', 'blank')
        self._history.show(('life', life), before, before, life.since.pop(before, None), line)
        life.since.setdefault(now, line)
        failed = thread.finding
        if not blank and failed and failed.whose is life and failed.rule in ('window-blank', 'adaptive-unset'):
            failed.detail = f'shown again after {line.time - failed.lines[0].time:.1f} s'
            thread.finding = None
        if not blank and life.since.get('connected'):
            life.since.pop('unplaced', None)
        return life

    def connect(self, line, thread, channel, source, port):
        life = self._at(line, thread, channel)
        since = life.since
        if 'connected' not in since and 'begin' in since and 'input' in since:
            since['early'] = since['input']
        since.pop('input', None)
        since['connected'] = since['unplaced'] = line
        life.tell(line, f'connects a source of type {source}, port {port}')
        if port == NOBODYS_PORT:
            since.pop('unplaced')  # There is nothing to place.
            self._history.find('port-of-nobody', life, [line], '', [life])
        return life

    def connect_failed(self, line, thread, channel, source, port):
        life = self._at(line, thread, channel)
        life.since.pop('connected', None)
        life.since.pop('unplaced', None)
        life.tell(line, 'connecting failed: left blank')
        if port == NOBODYS_PORT and self._history.levels.get(line.tag, 0) < 3:
            self._history.find('port-of-nobody', life, [line], '', [life])
        return life

    def adaptive(self, line, thread, channel, adaptive):
        life = self._at(line, thread, channel)
        life.since.pop('input', None)
        early = life.since.pop('early', None)
        if adaptive and early:
            life.since['early'] = early
        return life

    def adaptive_failed(self, line, thread, channel, *_):
        life = self._at(line, thread, channel)
        life.since.pop('unplaced', None)
        return life

    def disconnect(self, line, thread, channel, _source):
        life = self._at(line, thread, channel)
        self._judge_placed(life, line.time)
        for name in ('connected', 'input'):
            life.since.pop(name, None)
        life.since.setdefault('begin', line)
        life.tell(line, 'disconnects')
        return life

    def _judge_placed(self, life, until):
        unplaced, early = (life.since.pop(name, None) for name in ('unplaced', 'early'))
        if unplaced and early:
            self._history.find('region-before-adaptive', life, [early, unplaced], '', [life], absent=True)
        elif unplaced and until - unplaced.time >= STAYS:
            self._history.find('never-placed', life, [unplaced], '', [life], absent=True)

    def input(self, line, thread, channel, _x, _y, width, height):
        life = self._at(line, thread, channel)
        life.since['input'] = line
        if 'connected' in life.since and 'early' not in life.since:
            life.since.pop('unplaced', None)
        self._judge_size(life, line, 'the part of the source', width, height)
        return life

    def input_adaptive(self, line, thread, channel, _x, _y, width, height):
        life = self._at(line, thread, channel)
        before = life.since.pop('input', None)
        life.since.pop('unplaced', None)
        if before:
            self._history.find('region-before-adaptive', life, [before, line], '', [life], absent=True)
        self._judge_size(life, line, 'the part of the source', width, height)
        return life

    def output(self, line, thread, channel, x, y, width, height, panel_width, panel_height):
        life = self._at(line, thread, channel)
        if 'connected' in life.since:
            life.since.pop('unplaced', None)
            life.since.pop('early', None)
        life.tell(line, f'places its window: {width}x{height} at {x}, {y}')
        self._judge_size(life, line, 'the window', width, height)
        if panel_width == 0 or panel_height == 0:
            self._history.find('panel-unknown', life, [line], '', [life])
        return life

    def _judge_size(self, life, line, what, width, height):
        if width == 0 or height == 0:
            self._history.find('empty-window', life, [line], f'{what} is {width}x{height}', [life])

    def finish(self, life):
        unplaced = life.since.get('unplaced')
        if unplaced and self._history.quiet_for(unplaced) >= STAYS:
            self._judge_placed(life, unplaced.time + STAYS)
        for state in ('blank', 'shown'):
            self._history.show(('life', life), state, state, life.since.get(state), self._history.last)


class Sinks:
    """Handles these lines; each handler returns the sink concerned: one output in a process."""

    def __init__(self, history):
        self._history = history

    def of_sink(self, line, *_):
        return self._history.life_at(line.pid, 'sink', 'image sink', line)

    def sink_configured(self, line, _thread):
        life = self.of_sink(line)
        life.tell(line, 'configured')
        life.since['configured'] = line
        return life

    def sink_picture(self, line, _thread, _x, _y, width, height, length, stride):
        life = self.of_sink(line)
        life.since.pop('configured', None)
        life.stream = f'{width}x{height}, {length} bytes, {stride} a line'
        return life

    def sink_shown(self, line, _thread):
        life = self.of_sink(line)
        life.since.pop('configured', None)
        life.tell(line, f'shows a picture: {life.stream}')
        life.since.setdefault('shown', line)
        return life

    def sink_picture_failed(self, line, _thread):
        life = self.of_sink(line)
        life.since.pop('configured', None)
        life.tell(line, f'not shown: {life.stream}')
        return life

    def sink_closed(self, line, _thread):
        life = self.of_sink(line)
        self._history.show(('life', life), 'shown', 'shows a picture', life.since.pop('shown', None), line)
        configured = life.since.get('configured')
        if configured and configured.tid == line.tid:  # Another thread may close a sink of its own.
            self._judge(life, line.time)
        life.tell(line, 'closed')
        life.state = 'closed'
        return life

    def _judge(self, life, until):
        configured = life.since.pop('configured')
        if until - configured.time >= STAYS:
            self._history.find('still-not-shown', life, [configured], 'configured, then no picture', [life], absent=True)

    def finish(self, life):
        configured = life.since.get('configured')
        if configured and self._history.quiet_for(configured) >= STAYS and life.state != 'closed':
            self._judge(life, configured.time + STAYS)
        self._history.show(('life', life), 'shown', 'shown', life.since.get('shown'), self._history.last)
