"""Summaries and commands for lldb."""

import functools

import lldb  # the debugger provides it

from . import commands, process, summaries

WORD = (1 << 64) - 1
MAX_VARIABLES = 100  # of one name


class LldbProcess(process.Process):
    """The process or core file that lldb shows."""

    def __init__(self, target):
        super().__init__()
        self._target = target

    def read(self, address, size):
        error = lldb.SBError()
        data = self._target.process.ReadMemory(address & WORD, size, error)
        if not error.Success() or data is None or len(data) != size:
            raise process.CannotTell(f"The memory at {address:#x} cannot be read.")
        return data

    def _type(self, name):
        """The complete type of a qualified name."""
        for found in self._target.FindTypes(name.rsplit("::", 1)[-1]):
            if found.GetName() == name and found.IsTypeComplete() and found.GetByteSize() != 0:
                return found
        return None

    def _find_layout(self, name):
        found = self._type(name)
        if found is None:
            return None
        found = found.GetCanonicalType()
        fields = [found.GetFieldAtIndex(i) for i in range(found.GetNumberOfFields())]
        return process.Layout(found.GetByteSize(), {
            field.GetName(): (field.GetOffsetInBytes(), field.GetType().GetByteSize())
            for field in fields if field.GetName()})

    def _find_variable(self, name):
        for value in self._target.FindGlobalVariables(name.rsplit("::", 1)[-1], MAX_VARIABLES):
            module = value.GetAddress().GetModule().GetFileSpec().GetFilename() or ""
            if value.GetName() in (name, name.replace("(anonymous namespace)::", "")) or (
                    "::" in name and value.GetName() == f"::{name}"):
                return value.GetLoadAddress()
            if module.startswith("libkivsdu") and value.GetName().endswith(name.rsplit("::")[-1]):
                return value.GetLoadAddress()
        return None

    def enumerators(self, name):
        found = self._type(name)
        if found is None:
            return {}
        return {member.GetValueAsUnsigned(): member.GetName().rsplit("::", 1)[-1]
                for member in found.GetEnumMembers()}

    def thread_numbers(self):
        return {thread.GetThreadID(): thread.GetIndexID() for thread in self._target.process}

    def threads_inside(self):
        threads = sorted(self._target.process, key=lambda thread: thread.GetIndexID())
        found = [_inside(thread) for thread in threads]
        return [thread for thread in found if thread is not None]


def _inside(thread):
    frames = []
    for index in range(min(thread.GetNumFrames(), process.INNERMOST_FRAMES)):
        frame = thread.GetFrameAtIndex(index)
        module = frame.GetModule().GetFileSpec().GetFilename() or ""
        frames.append(process.Frame(frame.GetFunctionName() or "", module,
                                    functools.partial(_registers, frame)))
    return process.thread_inside(thread.GetThreadID(), frames)


def _registers(frame):
    for register in frame.GetRegisters().GetFirstValueByName("General Purpose Registers"):
        if register.GetValue() is not None:
            yield register.GetValueAsUnsigned()


# ---- Summaries ----


def _name(found):
    name = found.GetCanonicalType().GetUnqualifiedType().GetName()
    return name.removeprefix("struct ").removeprefix("class ")


def summarise(value, _dictionary):
    """Shows a structure as one line."""
    name, address = _name(value.GetType()), value.GetLoadAddress()
    if address == lldb.LLDB_INVALID_ADDRESS:
        return f"a copy of a {name}; kiv-show describes the original"  # as in a core file
    return summaries.describe(LldbProcess(value.GetTarget()), name, address)


def summarise_handle(value, _dictionary):
    """Shows what a handle names."""
    return summaries.handle(LldbProcess(value.GetTarget()), value.GetValueAsUnsigned())


# ---- Commands ----


def _value(debugger, text):
    """An expression's value. Variables are read without running code, as a core file needs it."""
    target = debugger.GetSelectedTarget()
    frame = target.GetProcess().GetSelectedThread().GetSelectedFrame()
    value = frame.EvaluateExpression(text) if frame.IsValid() else target.EvaluateExpression(text)
    if not value.GetError().Success():
        raise process.CannotTell(str(value.GetError().GetCString()).strip())
    return value


def _run(debugger, result, lines):
    try:
        for line in lines(LldbProcess(debugger.GetSelectedTarget())):
            result.AppendMessage(line)
    except process.CannotTell as problem:
        result.SetError(str(problem))


def _number(debugger, text):
    return _value(debugger, text).GetValueAsUnsigned() if text.strip() else None


def kiv_heap(debugger, text, result, _dictionary):
    # pylint: disable=missing-function-docstring
    _run(debugger, result, lambda seen: commands.heap(seen, _number(debugger, text)))


def kiv_handle(debugger, text, result, _dictionary):
    # pylint: disable=missing-function-docstring
    _run(debugger, result, lambda seen: commands.handle(seen, _number(debugger, text)))


def kiv_show(debugger, text, result, _dictionary):
    # pylint: disable=missing-function-docstring
    _run(debugger, result, lambda seen: commands.show(
        seen, *_structure(debugger, text, commands.SHOW_HELP)))


def kiv_lock(debugger, text, result, _dictionary):
    # pylint: disable=missing-function-docstring
    _run(debugger, result, lambda seen: commands.lock(
        seen, *_structure(debugger, text, commands.LOCK_HELP)))


def _structure(debugger, text, help_text):
    """The name and address of the structure that an expression is or points to."""
    if not text.strip():
        raise process.CannotTell(help_text)
    value = _value(debugger, text)
    if not value.GetType().GetCanonicalType().IsPointerType():
        value = _value(debugger, f"&({text})")  # the result of an expression is a copy
    return _name(value.GetType().GetCanonicalType().GetPointeeType()), value.GetValueAsUnsigned()


kiv_heap.__doc__ = commands.HEAP_HELP
kiv_show.__doc__ = commands.SHOW_HELP
kiv_lock.__doc__ = commands.LOCK_HELP
kiv_handle.__doc__ = commands.HANDLE_HELP


def register(debugger, module):
    """Adds the summaries and commands, which lldb finds in the module of this name."""
    category = "type summary add -w kivsdu"
    for name in summaries.BY_TYPE:
        debugger.HandleCommand(f'{category} -F {module}.summarise "{name}"')
    debugger.HandleCommand(f"{category} --cascade false -F {module}.summarise_handle KivHandle")
    debugger.HandleCommand("type category enable kivsdu")
    for name in ("show", "heap", "lock", "handle"):
        debugger.HandleCommand(f"command script add -f {module}.kiv_{name} kiv-{name}")
