"""Platform calls and calls of codecs, which the host platform logs at level 4."""

DISPLAY = '16385'  # The codec type of a request for a display port.
MANY = 1 << 20  # What a program that calls the manager itself puts in the place of a number is above it.


class Calls:
    """Handles these lines; each handler returns the client concerned, or None."""

    def __init__(self, history):
        self._history = history
        self._clients, self._channels = history.clients, history.channels

    def of_platform(self, line, thread, _kind, _address, operation, arguments, result, taken):
        history = self._history
        thread.process.first_call, thread.process.last_call = thread.process.first_call or line, line
        if operation == 'reclaim':
            return self._reclaim(line, thread, arguments, result, taken / 1e6)
        if history.observers:
            history.show(('thread', line.pid, line.tid), 'platform', f'{operation}({arguments}) = {result}',
                         line.time - taken / 1e6, line)
        first = arguments.split(',', 1)[0]
        if operation.startswith('TVHW_CRM_'):
            return self._of_manager(line, thread, operation[len('TVHW_CRM_'):], arguments, result, taken)
        if operation == 'TVHW_VBE_DISP_GetPanelSize' and result != 0:
            history.find('panel-unknown', f'process {line.pid}', [line])
        elif operation in ('TVHW_VSC_Open', 'TVHW_VSC_Close') and result == 0 and first.isdecimal():
            return getattr(self._channels, operation[len('TVHW_VSC_'):].lower())(line, thread, int(first))
        elif operation == 'onReclaimedClientReleased':
            fitting = [life for life in self._clients.lost if life.state == 'reclaimed' and life.pid == line.pid
                       and str(life.calling_pid) == arguments and life.told_of_reclaim is None]
            if len(fitting) == 1:
                fitting[0].tell(line, 'its owner released it after the reclaim')
                fitting[0].told_of_reclaim = line
        return None

    def _reclaim(self, line, thread, arguments, result, taken):
        if result is None:
            thread.reclaimed_id = int(arguments) if arguments.isdecimal() else None
        else:
            thread.reclaimed_id = None
            if thread.reclaims and str(getattr(thread.reclaims[-1].life, 'id', '')) == arguments:
                self._clients.end_reclaim(thread.reclaims.pop(), line, thread)  # Its own line is lost.
            if thread.ended:
                self._clients.judge_length(thread.ended, taken)
                thread.ended = None
        return None

    def _of_manager(self, line, thread, operation, arguments, result, taken):
        history, process = self._history, thread.process
        if operation == 'ClientInit':
            number = arguments.rsplit(' ', 1)[-1]  # Clients are counted from 1.
            if number == '1' and process.is_whole is not None:
                history.end_process(line.pid, line, 'its process ended: another has its number', process.last)
                thread = history.thread(line)
            if number.isdecimal() and int(number) < MANY:
                process.opened += 1
                process.highest = max(process.highest, int(number))
            if process.is_whole is None:
                process.is_whole = number == '1'
                history.begins_in_the_middle |= not process.is_whole
            thread.opened = history.new_life('client', line, thread) if result == 0 else None
            return thread.opened
        if operation == 'CodecTypeFromMIME':
            if thread.life is not None:
                thread.life.mime = arguments
            return thread.life
        first, *rest = arguments.split(', ')
        if not first.isdecimal() or first == '0':
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
        if life is None:
            life = history.by_codec[key] = history.new_life(kind, line)
            life.codec, life.state = address, 'without a core'
        if life.kind == 'client':
            life.kind = kind
        if result is None:
            outer = life.in_flight.get(line.tid)
            if outer and outer[0] == operation and line.tid:
                history.loses(line)  # The return from the same call before.
                outer = None
            life.in_flight[line.tid] = (operation, line, outer)
            return life
        before, entered, outer = life.in_flight.pop(line.tid, (operation, None, None))
        if outer:
            life.in_flight[line.tid] = outer
        entered = entered if before == operation else None
        if entered is None:
            history.begins_in_the_middle = True
            if not thread.is_new:
                history.loses(line)
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
            life.tell(line, f'{operation}: ' + ('configured' if result == 0 else f'status {result}'))
            if result != 0:
                history.find('codec-refused', life, [entered or line, line], f'status {result}', [life])
        elif operation == 'release':
            life.tell(line, 'its owner released the codec')
            if life.state == 'without a core':
                life.state = 'closed'
        return life
