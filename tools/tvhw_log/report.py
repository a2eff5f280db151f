"""The report as text: the lives, then the verdicts."""

import textwrap

SHOWN_CALLS = 4


def _times(count, word):
    return f'{count} {word}' + ('' if count == 1 else 's')


def _wrapped(label, text):
    return textwrap.fill(text, 100, initial_indent=f'   {label:<10} ', subsequent_indent=' ' * 14,
                         break_on_hyphens=False)


def _calls(life):
    total = sum(count for count, _ in life.calls.values())
    most = sorted(life.calls.items(), key=lambda call: -call[1][0])[:SHOWN_CALLS]
    parts = [f'{name} {_times(count, "time")}, longest {longest / 1000:.1f} ms' for name, (count, longest) in most]
    return f'{_times(total, "call")} into the codec: ' + '; '.join(parts)


def _life(life):
    yield f'{life.who}  [{life.state}]'
    for line, text in sorted(life.moments, key=lambda moment: moment[0].time):
        yield f'  {line.clock:<13} {text}'
    if life.left_out:
        yield f'  {"":<13} (before the last of these: {_times(life.left_out, "more moment")})'
    if life.calls:
        yield f'  {"":<13} {_calls(life)}'


def _verdict(number, rule, count, findings):
    yield f'{number}. {rule.title}' + (f'  ({count} times)' if count > 1 else '')
    yield _wrapped('Means:', rule.meaning)
    yield _wrapped('Look at:', rule.next)
    for finding in findings:
        yield _wrapped('Whose:', finding.who + (f': {finding.detail}' if finding.detail else ''))
        for line in finding.lines:
            yield f'     {line.shown()}'
    if count > len(findings):
        yield f'   ... and {_times(count - len(findings), "time")} more'


def report(history, sources):
    """Yields the lines of the report."""
    yield 'CLIENTS'
    for life in history.lives:
        yield ''
        yield from _life(life)
    if not history.lives:
        yield 'None: no line of the library.'
    if history.dropped:
        yield f'({_times(history.dropped, "earlier client")} left out.)'
    if history.lives and not history.has_calls:
        yield ''
        yield ('The library writes no line when a core is given back: a client that "still holds its core" '
               'here may have\nreleased it. Logs of the host platform at level 4 tell.')
    yield ''
    yield 'VERDICTS, the worst first'
    ranked = history.verdicts.ranked()
    for number, (rule, count, findings) in enumerate(ranked, 1):
        yield ''
        yield from _verdict(number, rule, count, findings)
    if not ranked:
        yield 'Nothing is wrong, as far as this log tells.'
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
