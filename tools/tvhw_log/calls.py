"""Platform calls and calls of codecs, which the host platform logs at level 4."""

from .messages import CODEC


class Calls:
    """The part of a History that handles these lines."""

    def on_call(self, line, thread, kind, address, operation, arguments, result, taken):
        if line.tag == CODEC:
            self._codec_call(line, thread, kind, address, operation, result, taken)
            return
        self.has_calls.add(line.pid)
        if operation == 'reclaim':
            thread.reclaimed_id = int(arguments) if result is None and arguments.isdigit() else None
            return
        self._show(('thread', line.pid, line.tid), 'platform', f'{operation}({arguments}) = {result}',
                   line.time - taken / 1e6, line)
        if operation.startswith('TVHW_CRM_'):
            self._manager_call(line, thread, operation[len('TVHW_CRM_'):], arguments, result)
        elif operation == 'TVHW_VBE_DISP_GetPanelSize' and result != 0:
            self._find('panel-unknown', f'process {line.pid}', line)
        elif operation == 'onReclaimedClientReleased':
            for life in self.lives:
                if life.state == 'reclaimed' and str(life.calling_pid) == arguments:
                    life.tell(line, 'released by its owner after the reclaim')
                    break

    def _manager_call(self, line, thread, operation, arguments, result):
        if operation == 'ClientInit':
            if result == 0:
                self._new_life('decoder', line, thread)
            return
        if operation == 'CodecTypeFromMIME':
            if thread.life is not None:
                thread.life.mime = arguments
            return
        first = arguments.split(',', 1)[0]
        if not first.isdigit() or first == '0':
            return
        number = int(first)
        life = self._by_id.get((line.pid, number))
        if life is None:
            life = thread.life if thread.life and thread.life.id is None and thread.life.pid == line.pid \
                else self._new_life('client', line)
            self._identify(life, number)
        if operation == 'ClientReleaseResource':
            if life.state == 'holding':
                life.tell(line, 'gave its core back' if result == 0 else f'gave its core back: code {result}')
                self._end_hold(life, line)
                life.state = 'released'
        elif operation == 'ClientFree':
            self._close(life, line)
        else:
            thread.life = life

    def _close(self, life, line):
        self._end_hold(life, line)
        if life.reclaim is not None and life.reclaim.end is not None:
            self._show(('life', life), 'closed', 'reclaimed: refuses every call', life.reclaim.end, line)
        life.tell(line, 'closed')
        life.state = 'closed'

    def _codec_call(self, line, thread, kind, address, operation, result, taken):
        key = (line.pid, address)
        life = self._by_codec.get(key)
        if 'onfigure' in operation and result is None:
            mine = thread.life
            if mine is not None and mine.codec is None and mine.state in ('holding', 'without a core'):
                life = self._by_codec[key] = mine
                mine.codec = address
        if life is None and operation == 'release' and thread.life and thread.life.state == 'refused':
            life = thread.life  # Never configured.
        if life is None:
            life = self._by_codec[key] = self._new_life(kind, line)
            life.codec, life.state = address, 'without a core'
        if result is None:
            life.in_flight[line.tid] = (operation, line)
            return
        entered = life.in_flight.pop(line.tid, (operation, None))[1]
        count = life.calls.setdefault(operation, [0, 0])
        count[0] += 1
        count[1] = max(count[1], taken)
        life.last = line
        self._show(('thread', line.pid, line.tid), 'call', f'{operation}',
                   entered or line.time - taken / 1e6, line, life, {'client': life.name, 'status': result})
        reclaim = life.reclaim
        if reclaim and reclaim.quiet is None and not life.in_flight:
            reclaim.quiet = line
        if 'onfigure' in operation:
            life.tell(line, f'{operation}: ' + ('configured' if result == 0 else f'status {result}'))
        elif operation == 'release':
            life.tell(line, 'its owner released the codec')
            if life.state == 'without a core':
                life.state = 'closed'
