"""Lines of others that tell of the end of a process, or of lines that the log lost."""

import re
from collections import namedtuple

End = namedtuple('End', 'pid how crashed clean')

# Tag, message with the process as the group "pid", how it ended, whether that was a crash.
_ENDS = [(tag, re.compile(pattern), how, crashed) for tag, pattern, how, crashed in (
    ('libc', r'Fatal signal \d+ \((?P<signal>\w+)\)(?:.* pid (?P<pid>\d+))?', 'was ended by {}', True),
    ('DEBUG', r'pid: (?P<pid>\d+), tid: \d+', 'crashed', True),
    ('AndroidRuntime', r'.*PID: (?P<pid>\d+)', 'was ended by an exception', True),
    ('ActivityManager', r'Process .*\(pid (?P<pid>\d+)\) has died', 'died', False),
    ('ActivityManager', r'Killing (?P<pid>\d+):', 'was killed', False),
    ('am_proc_died', r'\[\d+,(?P<pid>\d+),', 'died', False),
    ('Zygote', r'Process (?P<pid>\d+) exited due to signal \(?(?P<signal>\d+)', 'was ended by signal {}', False),
    ('Zygote', r'Process (?P<pid>\d+) exited cleanly \((?P<status>\d+)\)', 'ended', False),
    ('init', r'.*\(pid (?P<pid>\d+)\) (?:exited with status (?P<status>\d+)|(?:killed by|received) signal '
             r'(?P<signal>\w+))', 'ended', False),
    ('lowmemorykiller', r"[Kk]ill(?:ing)? '.*' \((?P<pid>\d+)\)", 'was killed for its memory', False),
    ('lmkd', r"[Kk]ill(?:ing)? '.*' \((?P<pid>\d+)\)", 'was killed for its memory', False),
    (None, r'tvhw-run: .*\(process (?P<pid>\d+)\) (?:ended with status (?P<status>\d+)|was killed by '
           r'(?P<signal>\w+))', 'ended', False),
)]
_CRASHES = {'SIGSEGV', 'SIGABRT', 'SIGBUS', 'SIGFPE', 'SIGILL', '4', '6', '7', '8', '11'}

SERVICE = 'ResourceManager'  # Of the host platform.
_LOST = {SERVICE: re.compile(r'.*more lines of this second are left out'),
         'chatty': re.compile(r'.* expire \d+ lines?')}
TAGS_OF_OTHERS = {*(tag for tag, *_ in _ENDS), *_LOST}


def end_of_process(line, text):
    """Returns the End that a line tells of; None, or 0, where it tells of none or not whose."""
    for tag, pattern, how, crashed in _ENDS:
        match = pattern.match(text) if tag == line.tag else None
        if match is None:
            continue
        groups = match.groupdict()
        pid = int(groups['pid'] or line.pid)
        signal = groups.get('signal')
        if signal and '{}' not in how:
            how = 'was ended by signal {}' if signal.isdigit() else 'was ended by {}'
        return pid and End(pid, how.format(signal), crashed or signal in _CRASHES, groups.get('status') == '0')
    return None


def tells_of_loss(line):
    return line.tag in _LOST and _LOST[line.tag].search(line.message)
