"""What can be wrong. RULES lists the verdicts, the worst first."""

from collections import namedtuple

from .messages import CLIENT, SCALER, SINK

# Name, title, what its lines prove, what that suggests and why, what to look at next.
Rule = namedtuple('Rule', 'name title proved suggested next')

RULES = [Rule(*row) for row in [
    ('process-died', 'A process that uses the library died',
     'The system says so.',
     'Its last lines tell what it was doing; a reclaim under way is named. The platform gives back what it held.',
     'The process\'s own crash report; the last lines of this process.'),
    ('reclaim-hangs', 'A reclaim does not end',
     'It began, and no line tells its end though the log goes on.',
     'The wait for calls ends after 3 seconds, so that the codec\'s release() would be what does not return.',
     'The stack of the thread of "reclaim: start": what release() waits for, often a thread of the codec that never ends.'),
    ('codec-stuck', 'Calls were stuck in the codec when it was reclaimed',
     'Calls had not returned 3 seconds after a reclaim began. The codec, if it is there still, is then '
     'released under them.',
     'They wait in the codec, or in the resource manager\'s Free: nothing else is done inside the guard.',
     'Which calls these are (level 4 names them), what they wait for: a call must return when its input or output stalls.'),
    ('patience-over', 'A reclaim outlived the resource manager\'s patience',
     'A request was refused with -110: on the host platform a holder has not answered for 10 seconds.',
     'The holder is one whose reclaim had begun and not ended; a codec\'s release() is what can take so long.',
     'What the release() of the candidates waits for.'),
    ('forced', 'A core was taken from a client by force',
     'The service was told to, and did not ask the client, whose codec goes on as if it had the core.',
     'Its holder was stuck, or in somebody\'s way.',
     'Who called the service\'s --force, and why.'),
    ('release-slow', 'A codec\'s release() took long in a reclaim',
     'It lasted longer than the 3 seconds for which it waits for calls, or its own line tells so. The newcomer waited, too.',
     'The codec waits in release(), often for a thread of its own; below level 4 a clock that was set looks alike.',
     'What that release() does; a stack of the thread while it lasts.'),
    ('manager-unreachable', 'The resource manager cannot be reached',
     'A client of the resource manager could not be opened, or its request found no service. A decoder that '
     'needs a core is not configured (-1); an encoder goes on without a core if it could not be opened.',
     'The manager does not run, or does not answer this process.',
     'Whether the resource manager runs and this process may talk to it; what its code behind "ret=" means.'),
    ('free-failed', 'The resource manager failed to free a client',
     'The manager reported a failure as a client was closed. The library has forgotten the client.',
     'The manager may still count its core as taken.',
     'The manager\'s own log for this client, and whether later requests find nothing free.'),
    ('give-back-failed', 'The resource manager failed to take a core back',
     'The manager reported a failure as a client gave back what it held. The client is closed next.',
     'That may still free the core.',
     'Whether the same client is freed right afterwards; then the manager\'s own log.'),
    ('never-freed', 'A core was released, but its client was never freed',
     'The client gave its core back, and was open still when the log ended, its process going on.',
     'Somebody keeps the resource client alive: the manager\'s clients add up.',
     'Who keeps the resource client after the release.'),
    ('id-unreadable', 'A core was granted, but its id cannot be read',
     'The client\'s id could not be told. The configure operation failed (-1), the core is held; the next one goes on with it.',
     'A failure in the manager.',
     'Whether the owner released or destroyed the wrapper after the failure; the code behind "ret=".'),
    ('no-codec', 'The resource manager knows no codec for this type of stream',
     'There is no codec type for the MIME type of the stream (an empty one: the library knows none either). '
     'The request was sent all the same.',
     'The caller passed a type that this device does not have.',
     'The CodecType that the caller passed (for an encoder, key "outFormat"), and whether the device has such a codec.'),
    ('no-such-core', 'No core could ever serve the request',
     'A request was refused with -95: on the host platform no core of the pool has the size and use asked for, '
     'or the type of stream has no codec (level 1 tells that). Nobody holds such a core.',
     'The stream is larger than every core, or the pool has no core for encoders, or for decoders.',
     'The size asked for beside the largest size of the cores ("size=" of what was granted).'),
    ('request-invalid', 'The resource manager found no sense in a request',
     'A request was refused with -22: on the host platform no such client is open, or a value is out of range.',
     'The manager was started anew since the client was opened, or the caller passed a negative size.',
     'The values asked for (level 3), and whether the manager ran all the time.'),
    ('may-not-force', 'No core is free, and this process may not take one from another',
     'The request was a try (try=1), which asks nobody, and was refused.',
     'Every core that fits is held. The platform\'s policy denies the calling process the other form.',
     'Who holds the cores (the lives above), and whether the policy for this calling process is right.'),
    ('live-encoder', 'An encoder\'s request was refused, and live encoders kept their cores',
     'In the 10 seconds before, from level 3 on while the request was under way, the candidates refused a reclaim: '
     'they stream live (they were configured with "useDmaBuffer"). No encoder was granted a core.',
     'The request was for one of their cores.',
     'Whether those encoders should still be running; only their owners can end them.'),
    ('refused', 'The resource manager refused a request for a core',
     'The request was sent with the right to take a core from another client, and was refused.',
     'All cores that fit are held and their holders keep them. A candidate may hold one, and is not at fault by that.',
     'The size asked for beside the largest size of the cores; the manager\'s code behind "ret=".'),
    ('grant-lost', 'The request was accepted, but nothing is held',
     'The manager accepted the request for a core and then said that the client holds nothing.',
     'It was probably taken back at once.',
     'A reclaim for the same client at that moment; the manager\'s own log.'),
    ('grant-unreadable', 'The resource manager cannot tell what was granted',
     'Reading back what the client holds failed. With "get resource fail" the configure operation could not go on.',
     'A failure in the manager, unless a line before these is lost.',
     'The manager\'s code behind "ret=".'),
    ('codec-refused', 'A codec refused to be configured',
     'The codec was asked with what was granted, and answered so. The core stays held until the wrapper is released.',
     'The stream, or what the configuration says of it, is not one for this codec.',
     'The codec\'s own log; the configuration that the caller passed.'),
    ('not-configured', 'A codec was called that was not configured, or no longer',
     'A call reached the codec before it was configured or after its owner released it.',
     'The caller\'s order is wrong, or a thread goes on after another has ended the session.',
     'Which thread makes the call named, and who ends it.'),
    ('no-connection', 'A request was made without a client of the resource manager',
     'There was no connection, so that nothing was asked for.',
     'The manager answered success without a client, or two threads configure and release the wrapper at '
     'once, which are one thread\'s to do.',
     'The threads that use this wrapper.'),
    ('port-not-granted', 'No display port was granted for tunnel mode',
     'The decoder asked for a display port and got none. With "vdoPort=TVHW_CRM_VIDEO_PORT_NONE" the '
     'tunnel-mode configure failed (-1) and gave the core back; where only reading the port back failed '
     '("crm-resource") it went on without one, and shows nothing.',
     'Others hold the two ports.',
     'Who holds the display ports; the manager\'s code behind "ret=", if there is one.'),
    ('ports-not-cleared', 'The display ports could not be cleared',
     'Pixel mode clears both first ("all 1", from level 2 on). If that failed, the configure operation did, too (-1); the '
     'wrapper keeps the core. A release clears one by a property ("all 0"); if that failed, the release goes on.',
     'A failure in the manager.',
     'Whether the owner released the wrapper after the failure; what still shows on the ports.'),
    ('port-of-nobody', 'The scaler was given port 255, which no decoder has',
     'The source was to be the decoder of port 255. That is -1, no port, in the record\'s 8 bits.',
     'The caller passed a decoder\'s port before it had one, or one of a decoder without.',
     'Where the caller takes the port from: the decoder\'s "video-port" is -1 without a display port.'),
    ('scaler-unusable', 'The video scaler cannot be initialised',
     'No channel can be used in this process; each later operation tries again.',
     'The scaler\'s driver is not there, or not for this process.',
     'Whether the scaler\'s driver is loaded and this process may use it.'),
    ('channel-unopened', 'A scaler channel cannot be opened',
     'Everything that is asked of this channel is ignored until opening it succeeds: no picture.',
     'Another client has it: a channel has one user at a time.',
     'Who else uses the channel (idx=).'),
    ('window-blank', 'The window was left blank: connecting the source failed',
     'The window is blanked before a source is connected, and stays so when that fails.',
     'There is no source of that type and port yet, or another is connected.',
     'A decoder that has the port, an input that has a signal. Connect again, then place the window.'),
    ('adaptive-unset', 'The window was left blank: the adaptive setting failed',
     'The scaler refused to be told whether the source\'s size changes: blank, and the new source is not noted.',
     'A failure in the scaler.',
     'The scaler\'s own log. Connect again, then place the window.'),
    ('blank-failed', 'Blanking or showing the window failed',
     'With (1) the old picture may stay while the source changes, with (0) the window stays blank.',
     'A failure in the scaler.',
     'The scaler\'s own log at this time; whether another process uses the channel.'),
    ('empty-window', 'A region of no size was programmed',
     'A width or a height of 0: nothing is to be seen of it.',
     'The caller placed the window before it knew its size.',
     'The region that the caller passed.'),
    ('region-before-adaptive', 'A region was programmed before the stream was adaptive',
     'It was given in pixels of the source; then the stream became adaptive, whose regions are in pixels of the panel.',
     'What is shown is cut or scaled wrongly until the next region.',
     'The caller\'s order: connect with the adaptive flag first, then updateRegion.'),
    ('never-placed', 'The window was left blank: it was never placed',
     'Connecting a source blanks the window, and only updateRegion shows it. The log has none for this channel.',
     'The caller forgot it, or gave the source up before it had a picture.',
     'Why the caller did not report a region after it connected the source.'),
    ('region-refused', 'The scaler refused a region',
     'The window is shown, but with the region of before.',
     'It does not fit the source or the panel. A number just below 65536 comes from an end that lies before its start.',
     'The four numbers (x/y/width/height) beside the size of the source and of the panel.'),
    ('disconnect-failed', 'Disconnecting the source failed',
     'The scaler may still show the old source. It names the source by what the last region update said.',
     'Another source is connected, or none.',
     'Whether type and port in the line are those that were connected.'),
    ('channel-unclosed', 'A scaler channel could not be closed',
     'The scaler reported a failure.',
     'The next client that opens this channel may be refused.',
     'The scaler\'s own log; whether another client closed the channel.'),
    ('output-unopened', 'The video output for still pictures cannot be opened',
     'Nothing that the sink is asked for can work until opening it succeeds.',
     'The output is not there, or not for this process.',
     'Whether the output exists and this process may use it.'),
    ('sink-format', 'The image sink refused the format',
     'A width or height of 0 or missing, or a colour format other than 14: configure answered -2.',
     'The caller passed it so.',
     'The configuration that the caller passed.'),
    ('sink-unconfigured', 'The video output refused the configuration of the image sink',
     'The output could not be prepared for pictures of that size: configure answered -1.',
     'It is not open (a line before says so) or cannot hold a picture of that size.',
     'The size that was configured.'),
    ('still-not-shown', 'A still picture was not shown',
     'The output refused the picture, or none was shown after it was configured.',
     'The picture does not fit what was configured, or its memory is not the platform\'s.',
     'The picture\'s size beside the configured one, its stride (4 bytes a pixel) and its buffer.'),
    ('output-unclosed', 'The video output could not be closed',
     'The output reported a failure.',
     'It may go on showing the last picture.',
     'Whether somebody else closed it already.'),
    ('core-kept', 'After a reclaim the wrapper was not destroyed',
     'The codec was reclaimed and stopped, and its client of the resource manager was open still when the log '
     'ended, its process going on: after a reclaim, release() closes nothing, only destruction does.',
     'Its owner has not noticed, or keeps a reference. On some platforms the core is not free until then.',
     'Who holds the last reference to this wrapper: after the first -19 its owner must let it go.'),
    ('no-size', 'A core was asked for without a size',
     'Width or height is 0 or missing. A decoder asks for 1280x720 then or, adaptive, 1920x1080 at least; an encoder for any.',
     'The caller left a key out: the core may be too small for the stream.',
     'The configuration that the caller passed.'),
    ('panel-unknown', 'The size of the panel is not known',
     'Regions are then not scaled: windows have the caller\'s size and place instead of the panel\'s.',
     'A failure in the video back end.',
     'Why the video back end does not tell the panel\'s size.'),
    ('core-unknown', 'A core of an unknown type was granted',
     'The manager names a type of core that the library does not know; the codec is told 0.',
     'The platform has newer cores than this library.',
     'The number in the line beside the types that this library knows, 1 to 4.'),
    ('platform-says', 'The host platform reports a mistake',
     'Its own words are below.',
     'The program or the library used the platform as it is not meant to be.',
     'The line, and what the process did just before it.'),
    ('cause-unknown', 'A request failed, for a reason that is not in the log',
     'Reading back what was granted failed; that is how a refused request ends.',
     'The request was refused before the log begins, or what it granted was taken back at once or cannot be read.',
     'A longer log, of a higher level.'),
]]

NO_SUCH_CORE, STUCK, NO_SERVICE, INVALID, NOTHING_HELD = -95, -110, -111, -22, -61  # The host platform's codes.

RANK = {rule.name: rank for rank, rule in enumerate(RULES)}

# Words of the host platform's mistakes: the verdict.
MISTAKES = [(' before it is configured:', 'not-configured'), (' after its release:', 'not-configured'),
            (' without width or height:', 'no-size'), ('TVHW_VSC_Connect() to port ', 'port-of-nobody'),
            ('() with a window of ', 'empty-window'), ('a codec is still being stopped', 'patience-over')]

# What the host platform's codes mean, by the tag of the line.
HOST_CODES = {
    CLIENT: {-16: 'nothing is free, or its holders keep it', -22: 'no such client, or a request without sense',
             -61: 'the client holds nothing', -95: 'no core of the pool could ever serve the request',
             -110: 'a holder has not answered a reclaim for 10 seconds', -111: 'there is no service'},
    SCALER: {-6: 'the scaler is not initialised', -9: 'the channel is not open',
             -16: 'the channel is in use', -22: 'no such channel, or a request without sense', -34: 'a region outside the panel',
             -107: 'another source is connected, or none'},
    SINK: {-9: 'the output is not open', -22: 'no such output, or a request without sense',
           -61: 'no picture was configured'},
}

# Failure lines that Clients judges together with others.
JUDGED_WITH_OTHERS = ('reclaim_timeout', 'reclaim_rejected')


class Finding:
    """One time that a verdict applies: to whom, the lines that prove it, and who may have caused it."""

    def __init__(self, rule, who, lines, detail='', lives=()):
        self.rule, self.whose, self.detail, self.lives = rule, who, detail, list(lives)
        self.lines = list(lines)
        self.candidates = []
        self.is_explained = False  # The service told who the candidates are.
        self.events = set()

    @property
    def who(self):
        """Names the client as it is known at last."""
        return getattr(self.whose, 'who', self.whose)

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

    def take(self, others):
        """Adds what was found apart from these."""
        for rule, findings in others.found.items():
            self.found.setdefault(rule, []).extend(findings)
            self.counts[rule] = self.counts.get(rule, 0) + others.counts[rule]

    def move(self, finding, rule):
        """Puts a finding under another rule, once more is known."""
        if rule == finding.rule:
            return
        self.counts[finding.rule] -= 1
        if finding in self.found[finding.rule]:
            self.found[finding.rule].remove(finding)
        finding.rule = rule
        self.add(finding)

    def ranked(self):
        names = sorted((name for name in self.counts if self.counts[name]), key=RANK.get)
        return [(RULES[RANK[name]], self.counts[name], self.found[name]) for name in names]
