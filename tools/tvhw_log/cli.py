"""The command line."""

import argparse
import json
import sys
import zipfile

from .formats import merged, opened
from .history import History
from .page import Page
from .picture import Picture
from .report import NOT_READ, as_json, report, what_was_found
from .trace import Trace

DESCRIPTION = '''
Reads logs of programs that use libkvo_media_hw_tvhw and tells what happened: the life of each decoder,
encoder, scaler channel and image sink, then what was wrong, the worst first: what the lines shown prove,
what that suggests, and what to look at next. Where several may have caused it, all are named.

FILE is a log of logcat (every form of -v but raw), of Android Studio or of the host platform; "-" is
standard input. It may be compressed by gzip, a zip archive, or UTF-16. Give all files of a rotated log, and
those of all processes: they are read together, by time, and lines that stand in two of them, or twice in one
by the logs of two readers, count once; but not those of two devices, whose processes may have the same
numbers. Other programs' lines may stand between.

The more levels a log has, the more there is to tell: 0 and 1 the failures; 2 grants and reclaims; 3 what
was asked for, and the scaler's steps; 4, which the host platform alone has, every platform call and every
call into a codec. KVO_MEDIA_LOG_LEVEL=4 and KVO_MEDIA_LOG_FILE=FILE make a host program write all that.

Exit status: 0 nothing is wrong as far as the log tells, 1 there are verdicts, 2 nothing could be read.

--json prints one object instead of the report: "level" (the highest seen, 4 with the host platform's calls),
"lines" and "known" (how many were read, and are the library's), "not_told" (what a log of this level does
not tell), "verdicts" and "notes" (texts). A verdict has "name" (stays the same), "title", "proved",
"suggested", "next", "count", and of the first three times "findings" with "who", "detail", "candidates" and
"lines", each with "file", "line" (its number) and "text".
'''


def arguments(argv, version=''):
    parser = argparse.ArgumentParser(prog='tvhw-log', description=DESCRIPTION,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('files', metavar='FILE', nargs='+')
    parser.add_argument('--version', action='version', version=f'tvhw-log {version}')
    parser.add_argument('--json', action='store_true', help='print the verdicts for a script')
    parser.add_argument('--html', metavar='FILE',
                        help='also write a page that shows it all, for a browser: one file, to attach to a bug')
    parser.add_argument('--trace', metavar='FILE',
                        help='also write a trace that https://ui.perfetto.dev opens')
    parser.add_argument('--svg', metavar='FILE',
                        help='also draw who held which core when: the log, or its longest reclaim')
    return parser.parse_args(argv)


def run(options):
    """Reads and reports. Returns the exit status."""
    sources = opened(options.files)
    trace = Trace(options.trace) if options.trace else None
    picture = Picture() if options.svg else None
    page = Page() if options.html else None
    history = History([observer for observer in (trace, picture, page) if observer])
    for line in merged(sources):
        history.read(line)
    history.finish()
    if trace:
        trace.close(history)
    if picture:
        picture.write(options.svg, history)
    if page and history.first:
        page.write(options.html, history, sources)
    if options.json:
        print(json.dumps(as_json(history, sources), indent=1))
    elif history.known:
        for line in report(history, sources):
            print(line)
    if not history.known:
        print('tvhw-log: ' + NOT_READ.format(what_was_found(history, sources)), file=sys.stderr)
        return 2
    return 1 if history.verdicts.ranked() else 0


def main(version):
    options = arguments(sys.argv[1:], version)
    if sys.stdout is None:
        sys.stdout = open('/dev/full', 'w', encoding='utf-8')
    sys.stdout.reconfigure(errors='replace')
    try:
        status = run(options)
        sys.stdout.flush()
    except BrokenPipeError:
        sys.stderr.close()  # The reader of the report has seen enough.
        return 0
    except (OSError, zipfile.BadZipFile) as error:
        where = getattr(error, 'filename', None) or 'the log or the output'
        print(f'tvhw-log: {where}: {getattr(error, "strerror", None) or error}', file=sys.stderr)
        return 2
    except KeyboardInterrupt:
        return 130
    return status
