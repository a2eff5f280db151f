"""The library's messages, as its sources have them, the events that they tell of and the verdicts that
failures lead to; and the lines of the host platform, which exist at level 4 only."""

import functools
import re

CLIENT, ENCODER, SCALER, SINK = 'VideoClient', 'VideoEncClient', 'VideoScalerTvhw', 'ImageSink'
PLATFORM, CODEC = 'HostPlatform', 'Codec'
BOTH = (CLIENT, ENCODER)
LONGEST = 2000  # Characters; every message is shorter.

# Event, tags, level, message, and the verdict of a failure. An event is handled by the operation of its name.
MESSAGES = [
    ('asked', (CLIENT,), 3, 'acquire-resource: adaptive=%u, w/h=%u/%u, max=%u/%u, calling-pid=%d, color=%d'),
    ('encoder_asked', (ENCODER,), 3, 'acquire-resource: w/h=%u/%u, framerate=%u'),
    ('init_failed', (CLIENT,), 0, 'crm: failed to init client, ret=%d', 'manager-unreachable'),
    ('not_connected', BOTH, 1, 'acquire resource not implement', 'manager-unreachable'),
    ('no_codec', (CLIENT,), 1, 'crm-acquire: %s -> none', 'no-codec'),
    ('acquire_refused', (CLIENT,), 0, 'crm-acquire: failed to acquire resource, ret=%d, try=%d', 'refused'),
    ('grant_lost', (CLIENT,), 1, 'crm-acquire: failed to get resource, ret=%d', 'grant-lost'),
    ('granted', (CLIENT,), 2, 'crm: acquired resource, core=0x%x, port=%d, size=%d/%d'),
    ('resource_unread', (CLIENT,), 0, 'crm-resource: ret=%d', 'grant-unreadable'),
    ('request_unsent', BOTH, 1, 'acquire resource fail', 'no-connection'),
    ('grant_unread', BOTH, 1, 'get resource fail', 'grant-unreadable'),
    ('core_unknown', BOTH, 3, 'get unknown core_type: %u', 'core-unknown'),
    ('core_type', BOTH, 2, 'core_type: %u'),
    ('id_failed', (CLIENT,), 0, 'crm-get-id: ret=%d', 'id-unreadable'),
    ('id_unread', BOTH, 0, 'get resource id fail', 'id-unreadable'),
    ('id', BOTH, 2, 'resource id %d'),
    ('no_port', BOTH, 2, 'acquireResource vdoPort=TVHW_CRM_VIDEO_PORT_NONE'),
    ('port', BOTH, 2, 'vdoPort=%d'),
    ('already_held', BOTH, 2, 'Already acquired resource mCoreType=%d'),
    ('port_already_held', (CLIENT,), 2, 'Already acquired display resource mVdoPort=%d'),
    ('connecting', (CLIENT,), 2, 'acquire resource client not init'),
    ('connecting', (CLIENT,), 2, 'resource client not init'),
    ('display_refused', (CLIENT,), 0, 'crm-acquire: failed to acquire display resource, ret=%d, try=%d',
     'port-not-granted'),
    ('display_lost', (CLIENT,), 1, 'crm-acquire: failed to get display resource, ret=%d', 'port-not-granted'),
    ('display_granted', (CLIENT,), 2, 'crm: acquired display resource, port=%d'),
    ('display_unrequested', (CLIENT,), 1, 'acquire display resource fail', 'port-not-granted'),
    ('display_none', (CLIENT,), 0, 'vdoPort=TVHW_CRM_VIDEO_PORT_NONE', 'port-not-granted'),
    ('clearing', (CLIENT,), 2, 'clear display resource all %u, port %d'),
    ('clear_failed', (CLIENT,), 0, 'clear crm-resource: ret=%d', 'ports-not-cleared'),
    ('not_cleared', (CLIENT,), 1, 'clear display resource fail', 'ports-not-cleared'),
    ('give_back_failed', (CLIENT,), 0, 'crm-release: ret=%d', 'give-back-failed'),
    ('free_failed', (CLIENT,), 0, 'crm: failed to release client, ret=%d', 'free-failed'),
    ('reclaim_start', (CLIENT,), 2, 'reclaim: start, calling-pid=%d'),
    ('reclaim_start', (ENCODER,), 2, 'reclaim: start'),
    ('reclaim_timeout', BOTH, 0, 'reclaim timeout waiting: processing count=%u'),
    ('reclaim_rejected', (ENCODER,), 1, 'live streaming, reject reclaim'),
    ('reclaim_end', BOTH, 2, 'reclaim: end'),
    ('panel', (SCALER,), 2, 'panel size =%d/%d'),
    ('scaler_init_failed', (SCALER,), 0, 'failed to init vsc: ret=%d', 'scaler-unusable'),
    ('scaler_open_failed', (SCALER,), 0, 'failed to open vsc, ret=%d, idx=%u', 'channel-unopened'),
    ('scaler_close_failed', (SCALER,), 0, 'failed to close vsc, ret=%d, idx=%u', 'channel-unclosed'),
    ('connect_closed', (SCALER,), 0, 'vsc-connect: device not opened', 'channel-unopened'),
    ('disconnect_closed', (SCALER,), 0, 'vsc-disconnect: device not opened', 'channel-unopened'),
    ('region_closed', (SCALER,), 0, 'vsc-updateRegion: device not opened', 'channel-unopened'),
    ('blank', (SCALER,), 3, '+++ win-blank [%u]: enable=%d'),
    ('blank_failed', (SCALER,), 0, 'winblank vsc %d (%d) fail', 'blank-failed'),
    ('connect', (SCALER,), 3, '+++ vsc-connect [%d]: type=%d, idx=%d'),
    ('connect_failed', (SCALER,), 0, 'connect vsc %d(vscType %d, port %d)fail', 'window-blank'),
    ('adaptive', (SCALER,), 3, '+++ vsc-adaptive [%d]: adaptive=%d'),
    ('adaptive_failed', (SCALER,), 0, 'setAdaptive vsc %d(%d)fail', 'adaptive-unset'),
    ('disconnect', (SCALER,), 3, '+++ vsc-disconnect [%d]: type=%d'),
    ('disconnect_failed', (SCALER,), 0, 'disconnect vsc %d(vscType %d, port %d)fail', 'disconnect-failed'),
    ('input_adaptive', (SCALER,), 3, '+++ set-input-adaptive [%u]: input=%u/%u/%u/%u'),
    ('input_failed', (SCALER,), 0, 'set-input-adaptive [%u]: err=%d, input=%u/%u/%u/%u', 'region-refused'),
    ('input', (SCALER,), 3, '+++ set-input [%u]: input=%u/%u/%u/%u'),
    ('input_failed', (SCALER,), 0, 'set-input [%u]: err=%d, input=%u/%u/%u/%u', 'region-refused'),
    ('output', (SCALER,), 3, '+++ set-output [%u]: output=%u/%u/%u/%u displayRegion=%d/%d'),
    ('output_failed', (SCALER,), 0, 'set-output [%u]: err=%d, output=%u/%u/%u/%u', 'region-refused'),
    ('blank_end', (SCALER,), 3, '--- win-blank [%u]'),
    ('connect_end', (SCALER,), 3, '--- vsc-connect [%d]'),
    ('adaptive_end', (SCALER,), 3, '--- vsc-adaptive [%d]'),
    ('disconnect_end', (SCALER,), 3, '--- vsc-disconnect [%d]'),
    ('input_adaptive_end', (SCALER,), 3, '--- set-input-adaptive [%u]'),
    ('input_end', (SCALER,), 3, '--- set-input [%u]'),
    ('output_end', (SCALER,), 3, '--- set-output [%u]'),
    ('region_reported', (SCALER,), 3, 'bbdCallbackRegion Rect [%u] %d,%d - %d,%d,%d,%d - %d,%d'),
    ('sink_open_failed', (SINK,), 0, 'failed to open vo: ret=%d', 'output-unopened'),
    ('sink_configure', (SINK,), 3, '+++ImageSink configure+++'),
    ('sink_format', (SINK,), 0, 'unsupported configuration', 'sink-format'),
    ('sink_config_failed', (SINK,), 0, 'TVHW_VO_Config fail', 'sink-unconfigured'),
    ('sink_configured', (SINK,), 3, '---ImageSink configure---'),
    ('sink_picture_begin', (SINK,), 3, '+++ImageSink displayPicture+++'),
    ('sink_picture', (SINK,), 3, 'displayPicture: x=%d y=%d width=%d height=%d len_buf=%d stride=%d'),
    ('sink_picture_failed', (SINK,), 0, 'TVHW_VO_DisplayPicture fail', 'still-not-shown'),
    ('sink_shown', (SINK,), 3, '---ImageSink displayPicture---'),
    ('sink_close_begin', (SINK,), 3, '+++ImageSink close+++'),
    ('sink_close_failed', (SINK,), 0, 'TVHW_VO_Close fail', 'output-unclosed'),
    ('sink_closed', (SINK,), 3, '---ImageSink close---'),
]

# Verdicts on the lines before which explain a failure line of the same operation.
_NO_CORE = ('no-codec', 'may-not-force', 'live-encoder', 'refused', 'grant-lost', 'grant-unreadable', 'no-such-core',
            'request-invalid', 'patience-over', 'manager-unreachable', 'cause-unknown')
EXPLAINED_BY = {
    'acquire_refused': ('no-codec',),
    'grant_lost': ('no-codec',),
    'resource_unread': (*_NO_CORE, 'port-not-granted'),
    'request_unsent': ('manager-unreachable',),
    'grant_unread': _NO_CORE,
    'display_unrequested': ('manager-unreachable', 'no-connection'),
    'not_cleared': ('manager-unreachable',),
    'connect_closed': ('scaler-unusable',),
    'disconnect_closed': ('scaler-unusable',),
    'region_closed': ('scaler-unusable',),
    'sink_config_failed': ('output-unopened',),
    'sink_picture_failed': ('output-unopened', 'sink-unconfigured', 'sink-format'),
    'sink_close_failed': ('output-unopened',),
}

# Lines that follow the failure of their operation at once, whatever the clock says.
AT_ONCE = ('resource_unread', 'grant_unread')
# What the same thread must have logged just before an event, and just after one: else lines are lost.
AFTER = {name: name[:-len('_end')] for name, *_ in MESSAGES if name.endswith('_end') and name != 'reclaim_end'}
STEP_ENDS = set(AFTER)
NEXT = {begin: {end} for end, begin in AFTER.items()}
AFTER.update(id='core_type', grant_unread='resource_unread', id_unread='id_failed', sink_shown='sink_picture')
NEXT.update(granted={'core_type', 'core_unknown', 'resource_unread'}, core_type={'id', 'id_failed'},
            connect_end={'connect_failed', 'adaptive'}, input_end={'input_failed', 'output'},
            input_adaptive_end={'input_failed', 'output'}, output_end={'output_failed', 'blank'})
# What it must have logged just before, if the log has such lines.
BEFORE = {'connect': {'blank_end', 'blank_failed'}, 'adaptive': {'connect_end'},
          'disconnect': {'blank_end', 'blank_failed'}, 'output': {'input_end', 'input_adaptive_end', 'input_failed'},
          'sink_configured': {'sink_configure'}, 'sink_picture': {'sink_picture_begin'},
          'sink_closed': {'sink_close_begin'}}

CALL_LEVEL = 4
_VALUES = {'%d': r'(-?\d+)', '%u': r'(\d+)', '%x': r'([0-9a-f]+)', '%s': r'(.*)'}


def _pattern(message):
    return ''.join(_VALUES.get(part) or re.escape(part) for part in re.split(r'(%[dusx])', message))


def _patterns(tag):
    alternatives = '|'.join(f'(?P<m{number}>{_pattern(entry[3])})'
                            for number, entry in enumerate(MESSAGES) if tag in entry[1])
    # As the host writes it, and with whatever another log function puts before the message.
    return (re.compile(rf'(?:\S+:\d+ )?(?:[~\w]+: )?(?:{alternatives})$'),
            re.compile(rf'(?<![^\s:\])>])(?:{alternatives})$'))


_OF_TAG = {tag: _patterns(tag) for tag in (CLIENT, ENCODER, SCALER, SINK)}
TAGS = {*_OF_TAG, PLATFORM, CODEC}
_CALL = re.compile(r'(?:(decoder|encoder) (\S+) )?(\w+)\((.*)\) (?:(entered)|= (-?\d+) in (\d+) us)$')


def _number(text):
    try:
        return int(text)
    except ValueError:
        return text


def event_of(tag, text):
    """Returns the tag, event, level and values that a message tells of, or None. An empty tag, as in a
    form without tags, is told by the message, if that is one tag's only. A call, which only the host
    platform logs, has as values the kind of codec, its address, operation, arguments, result or None
    where it was entered, and microseconds."""
    if len(text) > LONGEST:
        return None
    if tag in (PLATFORM, CODEC):
        match = _CALL.match(text)
        if match is None:
            return None
        kind, address, operation, arguments, entered, result, taken = match.groups()
        return (CODEC if kind else PLATFORM, 'codec_call' if kind else 'platform_call', CALL_LEVEL,
                (kind, address, operation, arguments, None if entered else int(result), int(taken or 0)))
    if tag:
        return _event_of_library(tag, text)
    found = [event for event in (event_of(each, text) for each in (*_OF_TAG, PLATFORM)) if event]
    return ('', *found[0][1:]) if len(found) > 1 else found[0] if found else None


@functools.lru_cache(maxsize=4096)
def _event_of_library(tag, text):
    whole, end = _OF_TAG[tag]
    match = whole.match(text) or end.search(text)
    if match is None:
        return None
    event, _, level, message, *_ = MESSAGES[int(match.lastgroup[1:])]
    if event == 'display_none' and text[:match.start()].rstrip()[-1:] not in tuple(':])>-|') + ('',):
        return None  # The rest of a longer message, which is damaged.
    values = match.groups()[match.lastindex:]
    return (tag, event, level, tuple(_number(value) for value in values[:message.count('%')]))
