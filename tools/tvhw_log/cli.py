"""The command line."""

import argparse
import sys

from .formats import Source, merged
from .history import History
from .picture import Picture
from .report import report
from .trace import Trace

DESCRIPTION = '''
Reads logs of programs that use libkvo_media_hw_tvhw and tells what happened: the life of each decoder,
encoder, scaler channel and image sink, then what was wrong, the worst first, with the lines that prove
it and what to look at next.

FILE is a log of logcat (forms threadtime, brief, time) or of the host platform; "-" is standard input.
Give all files of a rotated log, and those of all processes: they are read together, by time. Other
programs' lines may stand between.

The more levels a log has, the more there is to tell: 0 and 1 the failures; 2 grants and reclaims; 3 what
was asked for, and the scaler's steps; 4, which the host platform alone has, every platform call and every
call into a codec. KVO_MEDIA_LOG_LEVEL=4 and KVO_MEDIA_LOG_FILE=FILE make a host program write all that.
'''


def arguments(argv):
    parser = argparse.ArgumentParser(prog='tvhw-log', description=DESCRIPTION,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('files', metavar='FILE', nargs='+')
    parser.add_argument('--trace', metavar='FILE',
                        help='also write a trace that https://ui.perfetto.dev opens')
    parser.add_argument('--svg', metavar='FILE',
                        help='also draw who held which core when: the log, or its longest reclaim')
    return parser.parse_args(argv)


def run(options):
    sources = [Source(path) for path in options.files]
    trace = Trace(options.trace) if options.trace else None
    picture = Picture() if options.svg else None
    history = History([observer for observer in (trace, picture) if observer])
    for line in merged(sources):
        history.read(line)
    history.finish()
    if trace:
        trace.close(history)
    if picture:
        picture.write(options.svg, history)
    for line in report(history, sources):
        print(line)


def main(argv=None):
    options = arguments(argv)
    sys.stdout.reconfigure(errors='replace')
    try:
        run(options)
        sys.stdout.flush()
    except BrokenPipeError:
        sys.stderr.close()  # The reader of the report has seen enough.
        return 0
    except OSError as error:
        print(f'tvhw-log: {error.filename or "output"}: {error.strerror}', file=sys.stderr)
        return 2
    except KeyboardInterrupt:
        return 130
    return 0
