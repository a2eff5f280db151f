"""What can be wrong. RULES lists the verdicts, the worst first; CAUSES says which verdict each failure
line of the library leads to."""

from collections import namedtuple

# Name, title, what it means, what to look at next.
Rule = namedtuple('Rule', 'name title meaning next')

RULES = [Rule(*row) for row in [
    ('reclaim-hangs', 'A reclaim does not end',
     'The resource manager asked for a core back and still has no answer. The wait for calls in flight '
     'ends after 3 seconds, so it is the release() of the codec that does not return. Whoever wants the '
     'core waits with it.',
     'The stack of the thread of "reclaim: start": what the codec\'s release() waits for, often a thread '
     'of the codec that never ends.'),
    ('codec-stuck', 'Calls were stuck in the codec when it was reclaimed',
     'Calls into the codec had not returned 3 seconds after a reclaim began. The codec was then released '
     'under them; until then nobody else got the core.',
     'Which calls these are (named below where the log has calls: level 4) and what they wait for: in the '
     'codec, or in the resource manager\'s Free. A call must return when its input or output stalls.'),
    ('manager-unreachable', 'The resource manager cannot be reached',
     'Opening a client of the resource manager failed. A decoder that needs a core is not configured '
     '(-1); an encoder goes on without a core.',
     'Whether the resource manager runs and this process may talk to it; what its code behind "ret=" '
     'means.'),
    ('free-failed', 'The resource manager failed to free a client',
     'The wrapper gave its core back and closed its client, but the manager reported a failure. The '
     'library has forgotten the client all the same; the manager may still count its core as taken.',
     'The manager\'s own log for this client, and whether later requests find nothing free.'),
    ('give-back-failed', 'The resource manager failed to take a core back',
     'Giving back what a client holds failed. The client is closed next, which may still free the core.',
     'Whether the same client is freed right afterwards; then the manager\'s own log.'),
    ('core-kept', 'A core is kept after a reclaim: its owner has not destroyed the wrapper',
     'The codec was reclaimed and stopped, but its client of the resource manager stays open: after a '
     'reclaim, release() closes nothing, only destruction does. On some platforms the core is not free '
     'until then, and the next player is refused.',
     'Who holds the last reference to this wrapper: after the first -19 its owner must let it go.'),
    ('never-freed', 'A core was released, but its client was never freed',
     'The client gave its core back and stays open at the resource manager. It can still be reclaimed '
     'from, and the manager\'s clients add up.',
     'Who keeps the resource client alive after the release, or whether the process ended in between.'),
    ('id-unreadable', 'A core was granted, but its id cannot be read',
     'The manager granted a core and then could not tell the client\'s id. The configure operation '
     'failed (-1) although the core is held; the next one goes on with that core.',
     'Whether the owner released or destroyed the wrapper after the failure; the manager\'s code behind '
     '"ret=".'),
    ('no-codec', 'The resource manager knows no codec for this type of stream',
     'There is no codec type for the MIME type of the stream (an empty one: the library knows none '
     'either). The request was sent all the same and cannot be served.',
     'The CodecType that the caller passed (for an encoder, its key "outFormat"), and whether this '
     'device has such a codec at all.'),
    ('may-not-force', 'No core is free, and this process may not take one from another',
     'The platform\'s policy denies the calling process a forced acquisition (try=1), and every core '
     'that fits is held.',
     'Who holds the cores (the lives above), whether they should have ended, and whether the policy for '
     'this calling process is right.'),
    ('live-encoder', 'Refused because a live encoder keeps its core',
     'The manager asked an encoder for its core, which refused since it streams live (it was configured '
     'with "useDmaBuffer"). Whoever asked is refused.',
     'Whether that encoder should still be running; only its owner can end it.'),
    ('refused', 'The resource manager refused a request for a core',
     'The request was sent with the right to take a core from another client, and still failed: no core '
     'fits this stream, or a holder kept its core.',
     'The size asked for beside the largest size of the cores; who holds them (the lives above); the '
     'manager\'s code behind "ret=".'),
    ('grant-lost', 'The request was accepted, but nothing is held',
     'The manager accepted the request for a core and then said that the client holds nothing: it was '
     'probably taken back at once.',
     'A reclaim for the same client at that moment; the manager\'s own log.'),
    ('grant-unreadable', 'The resource manager cannot tell what was granted',
     'Reading back what the client holds failed, so the configure operation could not go on.',
     'The lines before these, if the log has lost some; the manager\'s code behind "ret=".'),
    ('no-connection', 'A request was made without a client of the resource manager',
     'There was no connection, so that nothing was asked for.',
     'Whether the manager answered success without a client; whether two threads configure and release '
     'the wrapper at once, which are one thread\'s to do.'),
    ('port-not-granted', 'No display port was granted for tunnel mode',
     'The decoder asked for a display port and got none. With "vdoPort=TVHW_CRM_VIDEO_PORT_NONE" the '
     'tunnel-mode configure failed (-1) and gave the core back; where only reading the port back failed '
     '("crm-resource") it went on without one, and shows nothing.',
     'Who holds the display ports (there are two); the manager\'s code behind "ret=", if there is one.'),
    ('ports-not-cleared', 'The display ports could not be cleared',
     'Pixel mode clears both ports before it starts. That failed, the configure operation too (-1), and '
     'the core stays with the wrapper until it is released.',
     'Whether the owner released the wrapper after the failure; what still shows on the ports.'),
    ('scaler-unusable', 'The video scaler cannot be initialised',
     'No channel can be used in this process; each later operation tries again.',
     'Whether the scaler\'s driver is loaded and this process may use it.'),
    ('channel-unopened', 'A scaler channel cannot be opened',
     'Everything that is asked of this channel is ignored until opening it succeeds: no picture.',
     'Whether another client holds the channel (idx=): it has one user at a time.'),
    ('window-blank', 'The window was left blank: connecting the source failed',
     'The window is blanked before a source is connected, and stays so when that fails.',
     'Whether the source of that type and port exists yet: a decoder that has the port, an input that '
     'has a signal. Connect again, then place the window.'),
    ('adaptive-unset', 'The window was left blank: the adaptive setting failed',
     'The source was connected, but the scaler refused to be told whether its size changes. The window '
     'stays blank and the new source is not noted.',
     'The scaler\'s own log. Connect again, then place the window.'),
    ('blank-failed', 'Blanking or showing the window failed',
     'With (1) the old picture may stay while the source changes, with (0) the window stays blank.',
     'The scaler\'s own log at this time; whether another process uses the channel.'),
    ('region-before-adaptive', 'A region was programmed before the stream was adaptive',
     'The region was given in pixels of the source, as for a stream of one size; then the stream became '
     'adaptive, whose regions are in pixels of the panel. What is shown is cut or scaled wrongly.',
     'The caller\'s order: connect with the adaptive flag first, then updateRegion.'),
    ('never-placed', 'The window was left blank: it was never placed',
     'Connecting a source blanks the window, and only updateRegion shows it. None came for this channel.',
     'Why the caller did not report a region after it connected the source.'),
    ('region-refused', 'The scaler refused a region',
     'The window is shown, but with the region of before.',
     'The four numbers (x/y/width/height) beside the size of the source and of the panel. Values beyond '
     '65535 come from regions whose end lies before their start.'),
    ('disconnect-failed', 'Disconnecting the source failed',
     'The scaler may still show the old source. It names the source by what the last region update said.',
     'Whether type and port in the line are those that were connected.'),
    ('channel-unclosed', 'A scaler channel could not be closed',
     'The next client that opens this channel may be refused.',
     'The scaler\'s own log; whether another client closed the channel.'),
    ('output-unopened', 'The video output for still pictures cannot be opened',
     'Nothing that the sink is asked for can work until opening it succeeds.',
     'Whether the output exists and this process may use it.'),
    ('sink-format', 'The image sink refused the format',
     'A width or height of 0 or missing, or a colour format other than 14: configure answered -2.',
     'The configuration that the caller passed.'),
    ('sink-unconfigured', 'The video output refused the configuration of the image sink',
     'The output could not be prepared for pictures of that size: configure answered -1.',
     'Whether the output is open (a line before says so) and can hold a picture of that size.'),
    ('still-not-shown', 'A still picture was not shown',
     'The output refused the picture, or none was shown after it was configured.',
     'The picture\'s size beside the configured one, its stride (4 bytes a pixel) and its buffer; whether '
     'the sink was configured.'),
    ('output-unclosed', 'The video output could not be closed',
     'It may go on showing the last picture.',
     'Whether somebody else closed it already.'),
    ('panel-unknown', 'The size of the panel is not known',
     'Regions are then not scaled: windows have the caller\'s size and place instead of the panel\'s.',
     'Why the video back end does not tell the panel\'s size.'),
    ('core-unknown', 'A core of an unknown type was granted',
     'The manager names a type of core that the library does not know; the codec is told 0.',
     'Whether the platform has newer cores than this library.'),
    ('log-ends', 'The log ends during a reclaim',
     'Too soon to tell whether it would have ended.',
     'A longer log, or the stacks of a process that still runs.'),
]]

RANK = {rule.name: rank for rank, rule in enumerate(RULES)}

_NO_CORE = ('no-codec', 'may-not-force', 'live-encoder', 'refused', 'core-kept', 'grant-lost',
            'grant-unreadable')

# Failure line: its verdict, and the verdicts that explain it if one of their lines came before it in
# the same operation; it then is a proof of those.
CAUSES = {
    'init_failed': ('manager-unreachable', ()),
    'not_connected': ('manager-unreachable', ()),
    'no_codec': ('no-codec', ()),
    'acquire_refused': ('refused', ('no-codec',)),  # See also History._explain_refusal.
    'grant_lost': ('grant-lost', ('no-codec',)),
    'resource_unread': ('grant-unreadable', (*_NO_CORE, 'port-not-granted')),
    'request_unsent': ('no-connection', ('manager-unreachable',)),
    'grant_unread': ('grant-unreadable', _NO_CORE),
    'id_failed': ('id-unreadable', ()),
    'id_unread': ('id-unreadable', ()),
    'display_refused': ('port-not-granted', ()),
    'display_lost': ('port-not-granted', ()),
    'display_unrequested': ('port-not-granted', ('manager-unreachable', 'no-connection')),
    'display_none': ('port-not-granted', ()),
    'clear_failed': ('ports-not-cleared', ()),
    'not_cleared': ('ports-not-cleared', ('manager-unreachable',)),
    'give_back_failed': ('give-back-failed', ()),
    'free_failed': ('free-failed', ()),
    'reclaim_timeout': ('codec-stuck', ()),
    'reclaim_rejected': ('live-encoder', ()),
    'scaler_init_failed': ('scaler-unusable', ()),
    'scaler_open_failed': ('channel-unopened', ()),
    'scaler_close_failed': ('channel-unclosed', ()),
    'connect_closed': ('channel-unopened', ('scaler-unusable',)),
    'disconnect_closed': ('channel-unopened', ('scaler-unusable',)),
    'region_closed': ('channel-unopened', ('scaler-unusable',)),
    'connect_failed': ('window-blank', ()),
    'adaptive_failed': ('adaptive-unset', ()),
    'blank_failed': ('blank-failed', ()),
    'input_failed': ('region-refused', ()),
    'output_failed': ('region-refused', ()),
    'disconnect_failed': ('disconnect-failed', ()),
    'sink_open_failed': ('output-unopened', ()),
    'sink_format': ('sink-format', ()),
    'sink_config_failed': ('sink-unconfigured', ('output-unopened',)),
    'sink_picture_failed': ('still-not-shown', ('output-unopened', 'sink-unconfigured', 'sink-format')),
    'sink_close_failed': ('output-unclosed', ('output-unopened',)),
    'core_unknown': ('core-unknown', ()),
}


class Finding:
    """One time that a verdict applies: to whom, and the lines that prove it."""

    def __init__(self, rule, who, line, detail=''):
        self.rule, self.who, self.detail = rule, who, detail
        self.lines = [line]
        self.events = set()

    def add(self, line):
        if len(self.lines) < 8:
            self.lines.append(line)


class Verdicts:
    """All that was found: each rule's first findings, and how often it applied."""
    KEPT = 3

    def __init__(self):
        self.found = {}
        self.counts = {}

    def add(self, finding):
        self.counts[finding.rule] = self.counts.get(finding.rule, 0) + 1
        kept = self.found.setdefault(finding.rule, [])
        if len(kept) < self.KEPT:
            kept.append(finding)

    def move(self, finding, rule):
        """Puts a finding under another rule, once more is known."""
        self.counts[finding.rule] -= 1
        if finding in self.found[finding.rule]:
            self.found[finding.rule].remove(finding)
        finding.rule = rule
        self.add(finding)

    def ranked(self):
        names = sorted((name for name in self.counts if self.counts[name]), key=RANK.get)
        return [(RULES[RANK[name]], self.counts[name], self.found[name]) for name in names]
