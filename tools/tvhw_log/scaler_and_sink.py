"""Scaler channels and image sinks, by the library's lines."""


class ScalerAndSink:
    """The part of a History that handles these lines: on_<event>(line, thread, values)."""

    # --- Scaler channels.

    def _stage(self, line, thread, channel=None):
        """Returns the life of a channel, by default of the thread's last one; None if that is unknown."""
        thread.channel = thread.channel if channel is None else channel
        if thread.channel is None:
            return None
        life = self._stages.get((line.pid, thread.channel))
        if life is None:
            life = self._stages[line.pid, thread.channel] = self._new_life('scaler channel', line)
            life.channel = thread.channel
            life.state = 'open'
        return life

    def on_blank(self, line, thread, channel, blank):
        life = self._stage(line, thread, channel)
        if blank:
            self._show(('life', life), 'shown', 'shown', life.shown_since, line)
            life.shown_since, life.blank_since = None, life.blank_since or line
        else:
            self._show(('life', life), 'blank', 'blank', life.blank_since, line)
            life.shown_since, life.blank_since = life.shown_since or line, None

    def on_connect(self, line, thread, channel, source, port):
        life = self._stage(line, thread, channel)
        self._check_placed(life)
        life.early = None if life.connected else life.input
        life.connected = life.unplaced = line
        life.tell(line, f'connects a source of type {source}, port {port}')

    def on_connect_failed(self, line, thread, channel, source, port):
        life = self._stage(line, thread, channel)
        life.connected = life.unplaced = None
        life.tell(line, 'connecting failed: left blank')

    def on_adaptive(self, line, thread, channel, adaptive):
        life = self._stage(line, thread, channel)
        life.input = None
        life.early = life.early if adaptive else None

    def on_adaptive_failed(self, line, thread, channel, *_):
        self._stage(line, thread, channel).unplaced = None

    def on_disconnect(self, line, thread, channel, source):
        life = self._stage(line, thread, channel)
        self._check_placed(life)
        life.connected = life.input = None
        life.tell(line, 'disconnects')

    def _check_placed(self, life):
        if life.unplaced and life.early:
            self._find('region-before-adaptive', life.who, life.early).add(life.unplaced)
        elif life.unplaced:
            self._find('never-placed', life.who, life.unplaced)
        life.unplaced = life.early = None

    def on_input(self, line, thread, channel, *_):
        self._stage(line, thread, channel).input = line

    def on_input_adaptive(self, line, thread, channel, *_):
        life = self._stage(line, thread, channel)
        if life.input:
            self._find('region-before-adaptive', life.who, life.input).add(line)
        life.input = None

    def on_output(self, line, thread, channel, x, y, width, height, panel_width, panel_height):
        life = self._stage(line, thread, channel)
        life.unplaced = life.early = None
        life.tell(line, f'places its window: {width}x{height} at {x}, {y}')
        if panel_width == 0 or panel_height == 0:
            self._find('panel-unknown', life.who, line)

    # --- Image sinks: one output in a process.

    def _sink(self, line):
        life = self._stages.get((line.pid, 'sink'))
        if life is None:
            life = self._stages[line.pid, 'sink'] = self._new_life('image sink', line)
            life.state = 'open'
        return life

    def on_sink_configured(self, line, thread):
        life = self._sink(line)
        life.tell(line, 'configured')
        life.connected = line

    def on_sink_picture(self, line, thread, x, y, width, height, length, stride):
        self._sink(line).stream = f'{width}x{height}, {length} bytes, {stride} a line'

    def on_sink_shown(self, line, thread):
        life = self._sink(line)
        life.connected = None
        life.tell(line, f'shows a picture: {life.stream}')
        life.shown_since = life.shown_since or line

    def on_sink_picture_failed(self, line, thread):
        life = self._sink(line)
        life.connected = None
        life.tell(line, f'not shown: {life.stream}')

    def on_sink_closed(self, line, thread):
        life = self._sink(line)
        self._show(('life', life), 'shown', 'shows a picture', life.shown_since, line)
        life.shown_since = None
        self._check_shown(life)
        life.tell(line, 'closed')

    def _check_shown(self, life):
        if life.connected:
            self._find('still-not-shown', life.who, life.connected, 'configured, then no picture')
            life.connected = None
