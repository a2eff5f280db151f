"""The report as text: the lives, then the verdicts."""

import textwrap

SHOWN_CALLS = 4
SHOWN_NOTES = 10


def _times(count, word):
    return f'{count} {word}' + ('' if count == 1 else 's')


def _wrapped(label, text):
    return textwrap.fill(text, 100, initial_indent=f'   {label:<10} ', subsequent_indent=' ' * 14,
                         break_on_hyphens=False)


def _calls_of(life):
    total = sum(count for count, _ in life.calls.values())
    most = sorted(life.calls.items(), key=lambda call: -call[1][0])[:SHOWN_CALLS]
    parts = [f'{name} {_times(count, "time")}, longest {longest / 1000:.1f} ms' for name, (count, longest) in most]
    return f'{_times(total, "call")} into the codec: ' + '; '.join(parts)


def _state_of(life, knows):
    """Returns the last state of a client, as far as it is known; of all else, only whether it is closed."""
    if life.channel is not None or life.kind == 'image sink':
        return 'closed' if life.state == 'closed' else ''
    return life.state if knows or life.state != 'holding' else 'held a core; its release would not be logged'


def told_of(life, knows):
    """Returns who a client is, its last state, and its moments as (clock, text)."""
    moments = [(line.clock, text) for line, text in sorted(life.moments, key=lambda moment: moment[0].time)]
    if life.left_out:
        moments.append(('', f'(before the last of these: {_times(life.left_out, "more moment")})'))
    if life.calls:
        moments.append(('', _calls_of(life)))
    return {'who': life.who, 'state': _state_of(life, knows), 'moments': moments}


def _verdict(number, verdict):
    findings = verdict['findings']
    yield f'{number}. {verdict["title"]}' + (f'  ({verdict["count"]} times)' if verdict['count'] > 1 else '')
    yield _wrapped('Proved:', verdict['proved'])
    yield _wrapped('Suggested:', verdict['suggested'])
    yield _wrapped('Look at:', verdict['next'])
    for finding in findings:
        yield _wrapped('Whose:', ': '.join(filter(None, (finding['who'], finding['detail']))))
        if finding['candidates']:
            yield _wrapped('Maybe by:', '; '.join(finding['candidates']))
        for line in finding['lines']:
            yield f'     {line["file"]}:{line["line"]}: {line["text"][:300]}'
    if verdict['count'] > len(findings):
        yield f'   ... and {_times(verdict["count"] - len(findings), "time")} more'


def what_is_not_told(history):
    """Yields, for a log of this level, what it cannot tell."""
    level = history.level()
    if history.begins_in_the_middle:
        yield 'The log begins in the middle, or has lost lines: who held what before is not known.'
    if history.loss:
        yield (f'The log has lost or damaged lines, the first before or at {history.loss.file}:{history.loss.number}: '
               'what rests on a line that is not there is not told, and a number in a single line may be wrong.')
    if history.silence:
        yield ('Where nothing was logged for 10 minutes or more, the clock may have been set, or nothing happened: such '
               'times do not count.')
    if not history.known or history.has_all_calls():
        return
    if level <= 1:
        yield ('Levels 0 and 1, as far as is seen: only failures are logged. Grants, reclaims that went well, '
               'and who holds what are not.')
    else:
        yield (f'Levels 0 to {level}, as far as is seen: releases are not logged, nor how many cores there are. Who '
               'holds a core, and whom a reclaim is for, is a guess where several fit; the wait for calls and '
               'release() are not told apart.')
    if level == 2:
        yield 'Nor is logged what was asked for, nor what was done with windows and still pictures (level 3).'


NOT_READ = '''No line of the library was read: {}.
Read are the forms of "adb logcat -v" threadtime, time, brief, long, tag, process, thread, epoch, monotonic
and color, also with year, UTC, zone, uid, usec or nsec, and those of Android Studio; not raw. Use:
  adb logcat -v threadtime -s VideoClient VideoEncClient VideoScalerTvhw ImageSink
and a level that the platform prints: the library writes nothing at level 3 where all goes well but what was
asked for. On the host platform, KVO_MEDIA_LOG_LEVEL=4.'''


def what_was_found(history, sources):
    """Returns what there was instead of the library's lines."""
    count = sum(source.lines for source in sources)
    formless = sum(source.formless for source in sources)
    if not count:
        return next((f'{source.name} is damaged: {source.damage}' for source in sources if source.damage),
                    'the log is empty')
    if history.unknown:
        return f'{_times(history.unknown, "line")} of its tags, with messages that are not its own'
    if formless >= count / 2:
        return f'{formless} of {_times(count, "line")} are in no form that is read'
    return f'{_times(history.foreign, "line")} of others'


def report(history, sources):
    """Yields the lines of the report."""
    for text in what_is_not_told(history):
        yield textwrap.fill(text, 100)
        yield ''
    yield 'CLIENTS'
    for life in history.lives:
        yield ''
        told = told_of(life, history.process(life.pid).has_calls)
        yield told['who'] + (f'  [{told["state"]}]' if told['state'] else '')
        for clock, text in told['moments']:
            yield f'  {clock:<13} {text}'
    if not history.lives:
        yield 'None.'
    if history.dropped:
        yield f'({_times(history.dropped, "earlier client")} left out.)'
    yield ''
    yield 'VERDICTS, the worst first'
    verdicts = as_json(history, sources)['verdicts']
    for number, verdict in enumerate(verdicts, 1):
        yield ''
        yield from _verdict(number, verdict)
    if not verdicts:
        yield 'Nothing is wrong, as far as this log tells.'
    if history.notes:
        yield ''
        yield 'NOT TO BE TOLD'
        for note in history.notes[:SHOWN_NOTES]:
            yield textwrap.fill(note, 100, subsequent_indent='  ')
        if len(history.notes) > SHOWN_NOTES:
            yield f'... and {len(history.notes) - SHOWN_NOTES} more'
    yield ''
    yield 'LINES'
    formless = sum(source.formless for source in sources)
    yield (f'{sum(source.lines for source in sources)} read: {history.known} known, {history.foreign} of '
           f'others, {history.unknown} of the library or platform that are not known, {formless} in no '
           'known form.')
    for line in history.unknown_lines:
        yield f'  not known: {line.shown()}'
    for source in sources:
        if source.jumps:
            yield f'The clock of {source.name} jumped back {_times(source.jumps, "time")}.'
        if source.repeated:
            yield f'{_times(source.repeated, "line")} of {source.name} stand there or in another file before.'
        if source.damage:
            yield f'{source.name} is damaged: {source.damage}.'


def as_json(history, sources):
    """Returns the verdicts for a script."""
    def line(each):
        return {'file': each.file, 'line': each.number, 'text': each.raw}
    return {
        'level': 4 if history.known and history.has_all_calls() else history.level(),
        'lines': sum(source.lines for source in sources), 'known': history.known,
        'not_told': list(what_is_not_told(history)),
        'verdicts': [{'name': rule.name, 'title': rule.title, 'proved': rule.proved, 'suggested': rule.suggested,
                      'next': rule.next, 'count': count,
                      'findings': [{'who': finding.who, 'detail': finding.detail,
                                    'candidates': finding.candidates,
                                    'lines': [line(each) for each in finding.lines]} for finding in findings]}
                     for rule, count, findings in history.verdicts.ranked()],
        'notes': history.notes}
