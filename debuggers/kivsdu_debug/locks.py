"""Locks: who holds one, and who waits for it."""

from typing import Dict, Iterable, List, NamedTuple

from . import heaps
from .process import CannotTell, Process, Record

MODE_WRITE = 65535
WRITER_INTERESTED, WRITER_ACTIVE, READER_INTERESTED, READER_UNIT = 1, 2, 4, 8
MAX_NODES = 100000  # a longer queue is broken
SECTION_AWAITED = 2


class Waiting(NamedTuple):
    """A lock's state, for the printer of its type and for kiv-lock."""

    summary: str
    addresses: Dict[int, str]  # what a thread that waits has in a register: the lock or its node
    lines: List[str]


def plural(count: int, noun: str) -> str:
    """A count with its noun."""
    return f"{count} {noun}" + ("" if count == 1 else "s")


def uses_tickets(process: Process) -> bool:
    """Whether the process uses the ticket designs."""
    return process.number(process.variable("kiv::hardwareAcceleration"), 1) != 0


# ---- Spinlocks ----


def spinlock(process: Process, address: int) -> Waiting:
    """A KivSdSpinlock."""
    if not uses_tickets(process):
        lock = process.record("kiv::TestAndSetLock", address)
        holder = process.record("kiv::Holder", lock.at("holder"))
        return _word(process, "spinlock", lock, holder.number("owner"), holder.signed("count"))
    lock = process.record("kiv::TicketLock", address)
    holder = process.record("kiv::Holder", lock.at("holder"))
    return _ticket(process, "spinlock", lock, holder.number("owner"), holder.signed("count"))


def lightweight(process: Process, address: int) -> Waiting:
    """A KivSdLWSpinlock."""
    if not uses_tickets(process):
        lock = process.record("(anonymous namespace)::WordLock", address)
        holder = process.record("(anonymous namespace)::Holder", lock.at("holder"))
        return _word(process, "lightweight spinlock", lock, holder.number("owner"),
                     holder.signed("count"))
    lock = process.record("(anonymous namespace)::TicketLock", address)
    return _ticket(process, "lightweight spinlock", lock, lock.number("owner"),
                   lock.signed("count"))


def _held(process: Process, owner: int, count: int) -> str:
    again = "" if count <= 1 else f", entered {count} times"
    return f"held by {process.thread_name(owner)}{again}"


def _word(process: Process, noun: str, lock: Record, owner: int, count: int) -> Waiting:
    if lock.number("word") == 0:
        state = "free"
    elif owner == 0:
        state = "being taken or released"
    else:
        state = _held(process, owner, count)
    return Waiting(f"{noun} (test-and-set), {state}", {lock.address: ""}, [])


def _ticket(process: Process, noun: str, lock: Record, owner: int, count: int) -> Waiting:
    drawn = (lock.number("next") - lock.number("serving")) % (1 << 32)
    state = "free" if drawn == 0 else "being passed on"
    if owner != 0:
        state = _held(process, owner, count)
    if drawn > 1:
        state += f", {plural(drawn - 1, 'thread')} waiting"
    return Waiting(f"{noun} (ticket), {state}", {lock.address: ""}, [])


# ---- Critical sections ----


def critical_section(process: Process, address: int) -> Waiting:
    """A KivSdCritSec of the Linux library."""
    section = process.record("kiv::os::(anonymous namespace)::Section", address)
    owner = section.number("owner")
    state = "free" if section.number("state") == 0 else "being taken or released"
    if owner != 0:
        state = _held(process, owner, section.number("depth"))
    if section.number("state") == SECTION_AWAITED:
        state += ", threads wait"
    return Waiting(f"critical section, {state}", {address: ""}, [])


# ---- The reader-writer lock ----


class _Queue:
    """The nodes of a lock that can be reached."""

    def __init__(self, process: Process, lock: Record):
        self.lock = lock
        self.process = process
        self.nodes: Dict[int, Record] = {}
        readers = self._chain(lock.number("readerTail"))
        writers = self._chain(lock.number("writerHead")) + self._chain(lock.number("writerTail"))
        self.readers = [node for node in readers if node.number("blocked") != 0]
        self.writers = [node for node in _unique(writers) if node.number("blocked") != 0]
        self.holders = [node for node in _unique(writers) if node.signed("depth") > 0]

    def _chain(self, address: int) -> List[Record]:
        chain = []
        seen = set()
        while address != 0 and address not in seen and len(seen) < MAX_NODES:
            seen.add(address)
            try:
                node = self.process.record("KivRWLockNode", address)
            except CannotTell:
                break  # the head of a queue that has moved on may lead anywhere
            if node.number("lock") != self.lock.address:
                break
            chain.append(node)
            address = node.number("queueLink")
        return chain

    def add_holders(self, nodes: Iterable[Record]) -> None:
        """Adds nodes that were found elsewhere."""
        known = {node.address for node in self.holders}
        self.holders += [node for node in nodes
                         if node.number("mode") != 0 and node.address not in known]


def _unique(nodes: Iterable[Record]) -> List[Record]:
    return list({node.address: node for node in nodes}.values())


def nodes_in_heaps(process: Process, lock: int) -> List[Record]:
    """The nodes of a lock whose threads hold it or wait, in blocks of the thread heaps."""
    size = process.layout("KivRWLockNode").size
    found = []
    for heap in heaps.thread_heaps(process):
        for block in heaps.Walk(heaps.Arena(process, heap)).in_use:
            if block.size == size + heaps.k.kBlockHeaderBytes:
                node = process.record("KivRWLockNode",
                                      heap + block.offset + heaps.k.kBlockHeaderBytes)
                if node.number("lock") == lock and node.signed("depth") > 0:
                    found.append(node)
    return found


def reader_writer(process: Process, address: int, search: bool = False) -> Waiting:
    """A KivRWLock. With `search`, looks for the nodes of its holders in the thread heaps."""
    lock = process.record("KivRWLock", address)
    word = lock.number("countAndFlags")
    inside = word // READER_UNIT
    summary = f"reader-writer lock, {_state_of(word)}"
    if not process.knows("KivRWLockNode"):
        return Waiting(summary + " (its queue needs debug symbols)", {address: ""}, [])
    queue = _Queue(process, lock)
    if search:
        queue.add_holders(nodes_in_heaps(process, address))
    waiting = ([plural(len(queue.writers), "writer")] if queue.writers else []) + (
        [plural(len(queue.readers), "reader")] if queue.readers else [])
    if waiting:
        summary += f"; waiting: {' and '.join(waiting)}"
    lines = [_node_line("held by node", node) for node in queue.holders]
    if inside > len(queue.holders) or (inside == 0 and word & WRITER_ACTIVE and not queue.holders):
        lines.append("not all holders are known: a lock does not link their nodes")
    addresses = {node.address: _node_line("waiting", node)
                 for node in queue.writers + queue.readers}
    return Waiting(summary, addresses, lines)


def _state_of(word: int) -> str:
    inside = word // READER_UNIT
    if inside != 0:
        return f"held by {plural(inside, 'reader')}"
    if word & WRITER_ACTIVE:
        return "held by a writer"
    return "free" if word == 0 else "being passed on"


def _node_line(prefix: str, node: Record) -> str:
    mode = {0: "", 1: " for reading", MODE_WRITE: " for writing"}.get(node.number("mode"), "")
    times = node.signed("depth")
    again = f", entered {times} times" if times > 1 else ""
    sleeps = ", asleep" if node.number("sleeping") != 0 else ""
    return f"{prefix} {node.address:#x}{mode}{again}{sleeps}"


# ---- Who waits ----


def waiters(process: Process, state: Waiting) -> List[str]:
    """The threads inside the library that have the lock or one of its nodes in a register."""
    lines = []
    left = {address: line for address, line in state.addresses.items() if line}
    for thread in process.threads_inside():
        meant = [address for address in state.addresses if address in thread.words]
        if not meant:
            continue
        place = f"{process.thread_name(thread.system_id)} waits in {thread.operation}"
        note = left.pop(meant[0], "")
        lines.append(place + (f" ({note.replace('waiting ', 'node ')})" if note else ""))
    return lines + [f"{line}, by an unknown thread" for line in left.values()]
