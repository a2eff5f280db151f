"""The library's messages, as its sources have them, and the events that they tell of; and the lines
of the host platform, which exist at level 4 only."""

import functools
import re

CLIENT, ENCODER, SCALER, SINK = 'VideoClient', 'VideoEncClient', 'VideoScalerTvhw', 'ImageSink'
PLATFORM, CODEC = 'HostPlatform', 'Codec'
BOTH = (CLIENT, ENCODER)
LONGEST = 2000  # Characters; every message is shorter.

# Event, tags, level, message.
MESSAGES = [
    ('asked', (CLIENT,), 3, 'acquire-resource: adaptive=%u, w/h=%u/%u, max=%u/%u, calling-pid=%d, color=%d'),
    ('encoder_asked', (ENCODER,), 3, 'acquire-resource: w/h=%u/%u, framerate=%u'),
    ('init_failed', (CLIENT,), 0, 'crm: failed to init client, ret=%d'),
    ('not_connected', BOTH, 1, 'acquire resource not implement'),
    ('no_codec', (CLIENT,), 1, 'crm-acquire: %s -> none'),
    ('acquire_refused', (CLIENT,), 0, 'crm-acquire: failed to acquire resource, ret=%d, try=%d'),
    ('grant_lost', (CLIENT,), 1, 'crm-acquire: failed to get resource, ret=%d'),
    ('granted', (CLIENT,), 2, 'crm: acquired resource, core=0x%x, port=%d, size=%d/%d'),
    ('resource_unread', (CLIENT,), 0, 'crm-resource: ret=%d'),
    ('request_unsent', BOTH, 1, 'acquire resource fail'),
    ('grant_unread', BOTH, 1, 'get resource fail'),
    ('core_unknown', BOTH, 3, 'get unknown core_type: %u'),
    ('core_type', BOTH, 2, 'core_type: %u'),
    ('id_failed', (CLIENT,), 0, 'crm-get-id: ret=%d'),
    ('id_unread', BOTH, 0, 'get resource id fail'),
    ('id', BOTH, 2, 'resource id %d'),
    ('no_port', BOTH, 2, 'acquireResource vdoPort=TVHW_CRM_VIDEO_PORT_NONE'),
    ('port', BOTH, 2, 'vdoPort=%d'),
    ('already_held', BOTH, 2, 'Already acquired resource mCoreType=%d'),
    ('port_already_held', (CLIENT,), 2, 'Already acquired display resource mVdoPort=%d'),
    ('connecting', (CLIENT,), 2, 'acquire resource client not init'),
    ('connecting', (CLIENT,), 2, 'resource client not init'),
    ('display_refused', (CLIENT,), 0, 'crm-acquire: failed to acquire display resource, ret=%d, try=%d'),
    ('display_lost', (CLIENT,), 1, 'crm-acquire: failed to get display resource, ret=%d'),
    ('display_granted', (CLIENT,), 2, 'crm: acquired display resource, port=%d'),
    ('display_unrequested', (CLIENT,), 1, 'acquire display resource fail'),
    ('display_none', (CLIENT,), 0, 'vdoPort=TVHW_CRM_VIDEO_PORT_NONE'),
    ('clearing', (CLIENT,), 2, 'clear display resource all %u, port %d'),
    ('clear_failed', (CLIENT,), 0, 'clear crm-resource: ret=%d'),
    ('not_cleared', (CLIENT,), 1, 'clear display resource fail'),
    ('give_back_failed', (CLIENT,), 0, 'crm-release: ret=%d'),
    ('free_failed', (CLIENT,), 0, 'crm: failed to release client, ret=%d'),
    ('reclaim_start', (CLIENT,), 2, 'reclaim: start, calling-pid=%d'),
    ('reclaim_start', (ENCODER,), 2, 'reclaim: start'),
    ('reclaim_timeout', BOTH, 0, 'reclaim timeout waiting: processing count=%u'),
    ('reclaim_rejected', (ENCODER,), 1, 'live streaming, reject reclaim'),
    ('reclaim_end', BOTH, 2, 'reclaim: end'),
    ('panel', (SCALER,), 2, 'panel size =%d/%d'),
    ('scaler_init_failed', (SCALER,), 0, 'failed to init vsc: ret=%d'),
    ('scaler_open_failed', (SCALER,), 0, 'failed to open vsc, ret=%d, idx=%u'),
    ('scaler_close_failed', (SCALER,), 0, 'failed to close vsc, ret=%d, idx=%u'),
    ('connect_closed', (SCALER,), 0, 'vsc-connect: device not opened'),
    ('disconnect_closed', (SCALER,), 0, 'vsc-disconnect: device not opened'),
    ('region_closed', (SCALER,), 0, 'vsc-updateRegion: device not opened'),
    ('blank', (SCALER,), 3, '+++ win-blank [%u]: enable=%d'),
    ('blank_failed', (SCALER,), 0, 'winblank vsc %d (%d) fail'),
    ('connect', (SCALER,), 3, '+++ vsc-connect [%d]: type=%d, idx=%d'),
    ('connect_failed', (SCALER,), 0, 'connect vsc %d(vscType %d, port %d)fail'),
    ('adaptive', (SCALER,), 3, '+++ vsc-adaptive [%d]: adaptive=%d'),
    ('adaptive_failed', (SCALER,), 0, 'setAdaptive vsc %d(%d)fail'),
    ('disconnect', (SCALER,), 3, '+++ vsc-disconnect [%d]: type=%d'),
    ('disconnect_failed', (SCALER,), 0, 'disconnect vsc %d(vscType %d, port %d)fail'),
    ('input_adaptive', (SCALER,), 3, '+++ set-input-adaptive [%u]: input=%u/%u/%u/%u'),
    ('input_failed', (SCALER,), 0, 'set-input-adaptive [%u]: err=%d, input=%u/%u/%u/%u'),
    ('input', (SCALER,), 3, '+++ set-input [%u]: input=%u/%u/%u/%u'),
    ('input_failed', (SCALER,), 0, 'set-input [%u]: err=%d, input=%u/%u/%u/%u'),
    ('output', (SCALER,), 3, '+++ set-output [%u]: output=%u/%u/%u/%u displayRegion=%d/%d'),
    ('output_failed', (SCALER,), 0, 'set-output [%u]: err=%d, output=%u/%u/%u/%u'),
    ('step_end', (SCALER,), 3, '--- win-blank [%u]'),
    ('step_end', (SCALER,), 3, '--- vsc-connect [%d]'),
    ('step_end', (SCALER,), 3, '--- vsc-adaptive [%d]'),
    ('step_end', (SCALER,), 3, '--- vsc-disconnect [%d]'),
    ('step_end', (SCALER,), 3, '--- set-input-adaptive [%u]'),
    ('step_end', (SCALER,), 3, '--- set-input [%u]'),
    ('step_end', (SCALER,), 3, '--- set-output [%u]'),
    ('region_reported', (SCALER,), 3, 'bbdCallbackRegion Rect [%u] %d,%d - %d,%d,%d,%d - %d,%d'),
    ('sink_open_failed', (SINK,), 0, 'failed to open vo: ret=%d'),
    ('sink_configure', (SINK,), 3, '+++ImageSink configure+++'),
    ('sink_format', (SINK,), 0, 'unsupported configuration'),
    ('sink_config_failed', (SINK,), 0, 'TVHW_VO_Config fail'),
    ('sink_configured', (SINK,), 3, '---ImageSink configure---'),
    ('step_end', (SINK,), 3, '+++ImageSink displayPicture+++'),
    ('sink_picture', (SINK,), 3, 'displayPicture: x=%d y=%d width=%d height=%d len_buf=%d stride=%d'),
    ('sink_picture_failed', (SINK,), 0, 'TVHW_VO_DisplayPicture fail'),
    ('sink_shown', (SINK,), 3, '---ImageSink displayPicture---'),
    ('step_end', (SINK,), 3, '+++ImageSink close+++'),
    ('sink_close_failed', (SINK,), 0, 'TVHW_VO_Close fail'),
    ('sink_closed', (SINK,), 3, '---ImageSink close---'),
]

TAGS = {CLIENT, ENCODER, SCALER, SINK, PLATFORM, CODEC}
CALL_LEVEL = 4

_VALUES = {'%d': r'(-?\d+)', '%u': r'(\d+)', '%x': r'([0-9a-f]+)', '%s': r'(.*)'}


def _pattern(message):
    parts = re.split(r'(%[dusx])', message)
    return ''.join(_VALUES.get(part) or re.escape(part) for part in parts)


def _patterns(tag):
    alternatives = '|'.join(f'(?P<m{number}>{_pattern(entry[3])})'
                            for number, entry in enumerate(MESSAGES) if tag in entry[1])
    # As the host writes it, and with whatever another log function puts before the message.
    return (re.compile(rf'(?:\S+:\d+ )?(?:[~\w]+: )?(?:{alternatives})$'),
            re.compile(rf'(?<![^\s:\])>])(?:{alternatives})$'))


_OF_TAG = {tag: _patterns(tag) for tag in (CLIENT, ENCODER, SCALER, SINK)}
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
    if tag == '':
        found = [event for event in (event_of(each, text) for each in (*_OF_TAG, PLATFORM)) if event]
        if len(found) > 1:
            return ('', *found[0][1:])
        return found[0] if found else None
    if tag in (PLATFORM, CODEC):
        match = _CALL.match(text)
        if match is None:
            return None
        kind, address, operation, arguments, entered, result, taken = match.groups()
        return (CODEC if kind else PLATFORM, 'codec_call' if kind else 'platform_call', CALL_LEVEL,
                (kind, address, operation, arguments, None if entered else int(result), int(taken or 0)))
    return _event_of_library(tag, text)


@functools.lru_cache(maxsize=4096)
def _event_of_library(tag, text):
    whole, end = _OF_TAG[tag]
    match = whole.match(text) or end.search(text)
    if match is None:
        return None
    number = int(match.lastgroup[1:])
    values = match.groups()[match.lastindex:]
    event, _, level, message = MESSAGES[number]
    if event == 'display_none' and text[:match.start()].rstrip()[-1:].isalnum():
        return None  # The rest of a longer message, which is damaged.
    return (tag, event, level, tuple(_number(value) for value in values[:message.count('%')]))
