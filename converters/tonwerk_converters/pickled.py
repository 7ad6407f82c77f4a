# SPDX-License-Identifier: MIT
"""Reads pickled data without Python's unpickler, so that nothing a file asks for can run.

A pickle is a program for a stack machine. This is that machine with the instructions that build data only; what the
program calls by name is looked up in a table of the caller's, and a name that is not there ends the reading.
"""

import pickletools
from collections.abc import Callable, Mapping
from typing import Any, BinaryIO, NamedTuple

from .errors import ConversionError

MOST_INSTRUCTIONS = 10_000_000  # a checkpoint of a thousand tensors has some 50,000

Makers = Mapping[str, Callable[..., Any]]  # by full name: what stands in for a class or function of that name


class Name(NamedTuple):
    """A class or function that the file names; nothing is imported."""

    module: str
    name: str

    def __str__(self) -> str:
        """Printable, whatever the file says."""
        return ascii(f"{self.module}.{self.name}")[1:-1]


class _Machine:
    """The stack, its marks and the memo."""

    def __init__(self, makers: Makers, persistent: Callable[[Any], Any]) -> None:
        self.makers = makers
        self.persistent = persistent
        self.stack: list[Any] = []
        self.marks: list[int] = []
        self.memo: dict[int, Any] = {}

    def step(self, name: str, argument: Any) -> None:
        """One instruction; ValueError, TypeError, KeyError or IndexError if it makes no sense."""
        if name in _IGNORED:
            return
        if name in _CONSTANTS:
            self.stack.append(_CONSTANTS[name]())
        elif name in _LITERALS:
            self.stack.append(argument)
        elif name == "MARK":
            self.marks.append(len(self.stack))
        elif name in _ACTIONS:
            _ACTIONS[name](self, argument)
        else:
            raise ValueError(f"the instruction {name}")

    def since_mark(self) -> list[Any]:
        start = self.marks.pop()
        items = self.stack[start:]
        del self.stack[start:]
        return items

    def tuple(self, count: int) -> None:
        if len(self.stack) < count:
            raise IndexError("a short stack")
        start = len(self.stack) - count
        self.stack[start:] = [tuple(self.stack[start:])]

    def fill_dict(self, items: list[Any]) -> None:
        target = self.stack[-1]
        if not isinstance(target, dict) or len(items) % 2:
            raise TypeError("entries for what is no dictionary")
        target.update(zip(items[::2], items[1::2]))

    def fill_list(self, items: list[Any]) -> None:
        target = self.stack[-1]
        if not isinstance(target, list):
            raise TypeError("entries for what is no list")
        target.extend(items)

    def call(self) -> None:
        """What the program wants called is made by the caller's table or not at all."""
        arguments, function = self.stack.pop(), self.stack.pop()
        if not isinstance(function, Name) or not isinstance(arguments, tuple):
            raise TypeError("a call of what cannot be called")
        if str(function) not in self.makers:
            raise ConversionError(f"it asks for {function}, which no table of weights needs. Nothing of it was run")
        self.stack.append(self.makers[str(function)](*arguments))

    def name(self) -> None:
        name, module = self.stack.pop(), self.stack.pop()
        if not isinstance(name, str) or not isinstance(module, str):
            raise TypeError("a name that is no text")
        self.stack.append(Name(module, name))


_IGNORED = {"PROTO", "FRAME"}
_CONSTANTS: dict[str, Callable[[], Any]] = {
    "NONE": lambda: None, "NEWTRUE": lambda: True, "NEWFALSE": lambda: False, "EMPTY_DICT": dict, "EMPTY_LIST": list,
    "EMPTY_TUPLE": tuple, "EMPTY_SET": list}
_LITERALS = {"BININT", "BININT1", "BININT2", "LONG1", "LONG4", "INT", "LONG", "FLOAT", "BINFLOAT", "BINUNICODE",
             "SHORT_BINUNICODE", "BINUNICODE8", "UNICODE", "STRING", "BINSTRING", "SHORT_BINSTRING", "BINBYTES",
             "SHORT_BINBYTES", "BINBYTES8"}
_ACTIONS: dict[str, Callable[[_Machine, Any], None]] = {
    "POP": lambda machine, _: machine.stack.__delitem__(-1),
    "POP_MARK": lambda machine, _: machine.since_mark().clear(),
    "DUP": lambda machine, _: machine.stack.append(machine.stack[-1]),
    "PUT": lambda machine, place: machine.memo.__setitem__(int(place), machine.stack[-1]),
    "BINPUT": lambda machine, place: machine.memo.__setitem__(place, machine.stack[-1]),
    "LONG_BINPUT": lambda machine, place: machine.memo.__setitem__(place, machine.stack[-1]),
    "MEMOIZE": lambda machine, _: machine.memo.__setitem__(len(machine.memo), machine.stack[-1]),
    "GET": lambda machine, place: machine.stack.append(machine.memo[int(place)]),
    "BINGET": lambda machine, place: machine.stack.append(machine.memo[place]),
    "LONG_BINGET": lambda machine, place: machine.stack.append(machine.memo[place]),
    "TUPLE": lambda machine, _: machine.stack.append(tuple(machine.since_mark())),
    "TUPLE1": lambda machine, _: machine.tuple(1),
    "TUPLE2": lambda machine, _: machine.tuple(2),
    "TUPLE3": lambda machine, _: machine.tuple(3),
    "LIST": lambda machine, _: machine.stack.append(machine.since_mark()),
    "APPEND": lambda machine, _: machine.fill_list([machine.stack.pop()]),
    "APPENDS": lambda machine, _: machine.fill_list(machine.since_mark()),
    "ADDITEMS": lambda machine, _: machine.fill_list(machine.since_mark()),
    "SETITEM": lambda machine, _: machine.fill_dict([machine.stack.pop(-2), machine.stack.pop()]),
    "SETITEMS": lambda machine, _: machine.fill_dict(machine.since_mark()),
    "GLOBAL": lambda machine, both: machine.stack.append(Name(*both.split(" ", 1))),
    "STACK_GLOBAL": lambda machine, _: machine.name(),
    "BINPERSID": lambda machine, _: machine.stack.append(machine.persistent(machine.stack.pop())),
    "REDUCE": lambda machine, _: machine.call(),
    "NEWOBJ": lambda machine, _: machine.call(),
    "BUILD": lambda machine, _: machine.stack.__delitem__(-1),  # attributes of an object: data needs none
}


def read_pickle(stream: BinaryIO, makers: Makers, persistent: Callable[[Any], Any]) -> Any:
    """The data of one pickle; the stream stands behind it then.

    persistent turns what the file says of a thing that is stored elsewhere into what stands in for it.
    Raises ConversionError, its message without a subject, if the data are broken or ask for a name that is not in
    makers.
    """
    machine = _Machine(makers, persistent)
    try:
        for count, (instruction, argument, _) in enumerate(pickletools.genops(stream)):
            if count > MOST_INSTRUCTIONS:
                raise ValueError("no end")
            if instruction.name == "STOP":
                return machine.stack.pop()
            machine.step(instruction.name, argument)
    except (ValueError, TypeError, KeyError, IndexError, AttributeError, OverflowError, RecursionError) as failure:
        raise ConversionError("its pickled data are broken") from failure
    raise ConversionError("its pickled data have no end")
