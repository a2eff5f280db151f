"""Platform calls and calls of codecs, which the host platform logs at level 4."""

DISPLAY = '16385'  # The codec type of a request for a display port.
# Calls that a codec may get in any state; so may those that begin with "get", "set" or "test".
ANY_TIME = ('release', 'currentSTCTime')


class Calls:
    """Handles these lines; each handler returns the client concerned, or None."""

    def __init__(self, history):
        self._history = history
        self._clients, self._channels = history.clients, history.channels

    def of_platform(self, line, thread, _kind, _address, operation, arguments, result, taken):
        history = self._history
        if operation == 'reclaim':
            return self._reclaim(line, thread, arguments, result)
        if history.observers:
            history.show(('thread', line.pid, line.tid), 'platform', f'{operation}({arguments}) = {result}',
                         line.time - taken / 1e6, line)
        first = arguments.split(',', 1)[0]
        if operation.startswith('TVHW_CRM_'):
            return self._of_manager(line, thread, operation[len('TVHW_CRM_'):], arguments, result, taken)
        if operation == 'TVHW_VBE_DISP_GetPanelSize' and result != 0:
            history.find('panel-unknown', f'process {line.pid}', [line])
        elif operation in ('TVHW_VSC_Open', 'TVHW_VSC_Close') and result == 0 and first.isdigit():
            return getattr(self._channels, operation[len('TVHW_VSC_'):].lower())(line, thread, int(first))
        elif operation == 'onReclaimedClientReleased':
            fitting = [life for life in history.lives if life.state == 'reclaimed' and life.pid == line.pid
                       and str(life.calling_pid) == arguments and life.told_of_reclaim is None]
            if len(fitting) == 1:
                fitting[0].tell(line, 'its owner released it after the reclaim')
                fitting[0].told_of_reclaim = line
        return None

    def _reclaim(self, line, thread, arguments, result):
        if result is None:
            thread.reclaimed_id = int(arguments) if arguments.isdigit() else None
        else:
            thread.reclaimed_id = None
            if thread.reclaims and str(getattr(thread.reclaims[-1].life, 'id', '')) == arguments:
                self._clients.end_reclaim(thread.reclaims.pop(), line, thread)  # Its own line is lost.
        return None

    def _of_manager(self, line, thread, operation, arguments, result, taken):
        history = self._history
        process = history.process(line.pid)
        if operation == 'ClientInit':
            if process.is_whole is None:
                process.is_whole = arguments.rsplit(' ', 1)[-1] == '1'  # Clients are counted from 1.
                history.begins_in_the_middle |= not process.is_whole
                for early in process.early if process.is_whole else ():
                    self._judge_use(*early)
            return history.new_life('client', line, thread) if result == 0 else None
        if operation == 'CodecTypeFromMIME':
            if thread.life is not None:
                thread.life.mime = arguments
            return thread.life
        first, *rest = arguments.split(', ')
        if not first.isdigit() or first == '0':
            return None
        number = int(first)
        life = history.by_id.get((line.pid, number))
        if life is None:
            life = thread.life if thread.life and thread.life.id is None and thread.life.pid == line.pid \
                else history.new_life('client', line)
            self._clients.identify(life, number)
        if operation == 'ClientReleaseResource':
            if life.state == 'holding':
                life.tell(line, 'gave its core back' if result == 0 else f'gave its core back: code {result}')
                self._clients.end_hold(life, line)
                life.state, life.gave_back = 'released', line
        elif operation == 'ClientFree':
            self._close(life, line)
        elif 'AcquireResource' in operation and len(rest) > 4 and rest[0] != DISPLAY:
            if life.kind == 'client':
                life.kind = 'encoder' if rest[4] == '1' else 'decoder'
        thread.life = life
        return life

    def _close(self, life, line):
        self._clients.end_hold(life, line)
        if life.reclaim is not None and life.reclaim.end is not None:
            self._history.show(('life', life), 'closed', 'reclaimed: refuses every call', life.reclaim.end, line)
        life.tell(line, 'closed')
        life.state = 'closed'

    def of_codec(self, line, thread, kind, address, operation, _arguments, result, taken):
        history = self._history
        key = (line.pid, address)
        life = history.by_codec.get(key)
        is_configure = 'onfigure' in operation
        mine = thread.life
        if is_configure and (result is None or life is None) and mine is not None and mine.codec is None \
                and mine.state in ('holding', 'without a core'):
            if life is not None:  # It goes on with another core.
                mine.in_flight = life.in_flight
            life = history.by_codec[key] = mine
            mine.codec = address
        if life is None and operation == 'release' and thread.life and thread.life.state == 'refused':
            life = thread.life  # Never configured.
        process = history.process(line.pid)
        if life is None:
            life = history.by_codec[key] = history.new_life(kind, line)
            life.codec, life.state = address, 'without a core'
            life.configured = False if process.is_whole else None
        if life.kind == 'client':
            life.kind = kind
        if result is None:
            life.in_flight[line.tid] = (operation, line)
            if is_configure:
                life.configured = None
            return life
        before, entered = life.in_flight.pop(line.tid, (operation, None))
        entered = entered if before == operation else None
        history.begins_in_the_middle |= entered is None
        if entered and life.configured in (False, None) and not is_configure and operation not in ANY_TIME \
                and operation[:3] not in ('get', 'set', 'tes'):
            if life.configured is False:
                self._judge_use(life, entered, operation)
            elif process.is_whole is None and len(process.early) < 10:
                process.early.append((life, entered, operation))
        count = life.calls.setdefault(operation, [0, 0])
        count[0] += 1
        count[1] = max(count[1], taken)
        life.last = line
        if history.observers:
            history.show(('thread', line.pid, line.tid), 'call', operation, entered or line.time - taken / 1e6,
                         line, life, {'client': life.name, 'status': result})
        waiting = life.reclaim
        if waiting and waiting.quiet is None and not life.in_flight:
            waiting.quiet = line
        if is_configure:
            life.configured = result == 0 or None
            life.tell(line, f'{operation}: ' + ('configured' if result == 0 else f'status {result}'))
            if result != 0:
                history.find('codec-refused', life, [entered or line, line], f'status {result}', [life])
        elif operation == 'release':
            life.tell(line, 'its owner released the codec')
            life.configured = False if life.configured else life.configured
            if life.state == 'without a core':
                life.state = 'closed'
        return life

    def _judge_use(self, life, line, operation):
        never = life.id is None and not any('onfigure' in name for name in life.calls)
        if life.state not in ('reclaimed', 'process ended') and not (
                never and self._history.process(line.pid).has_failed):  # Then it is a consequence.
            life.configured = None  # Once is enough.
            lines = [line] if life.last.number >= line.number else [life.last, line]
            self._history.find('not-configured', life, lines, operation, [life])
