"""The table of fallible calls in docs/RELIABILITY.md, as data."""

import ctypes
import dataclasses
import errno
import os
import re
import socket

from .sandbox import REPOSITORY

DOCUMENT = REPOSITORY / "docs/RELIABILITY.md"
CALLS = ["Function", "Unit", "Situation", "Errors", "Printed", "Outcome"]
UNCHECKED = ["Functions", "Why"]
MEMORY = ["Process", "End", "First line on standard error"]
STREAMS = ("standard output", "standard error")

_libc = ctypes.CDLL(None)
_libc.gai_strerror.restype = ctypes.c_char_p


@dataclasses.dataclass(frozen=True)
class Error:
    name: str

    @property
    def number(self):
        return getattr(socket if self.name.startswith("EAI_") else errno, self.name)

    @property
    def text(self):
        if self.name.startswith("EAI_"):
            return _libc.gai_strerror(self.number).decode()
        return os.strerror(self.number)


@dataclasses.dataclass(frozen=True)
class Row:
    """One call site in one situation."""
    function: str
    variant: str  # such as the command of fcntl
    caller: str  # the function of Qt that the unit calls, if it is not the function itself
    unit: str
    situation: str
    errors: tuple
    printed: dict  # by stream, the lines in their order
    outcome: str
    leftovers: tuple

    def __str__(self):
        return f"{self.unit}-{self.function}{self.variant}-{self.situation}-{self.errors[0].name}"

    def lines(self, stream, error):
        """What is printed on the stream when the call fails with that error."""
        return [line.replace("%s", error.text).replace("%d", str(error.number))
                for line in self.printed.get(stream, ())]


def tables():
    """Every table of the document: its head, and its rows as lists of cells."""
    found = []
    previous = ""
    for line in DOCUMENT.read_text().splitlines():
        if line.startswith("|"):
            cells = [cell.strip() for cell in line.strip("|").split("|")]
            if not previous.startswith("|"):
                found.append((cells, []))
            elif not set(line) <= set("|-"):
                found[-1][1].append(cells)
        previous = line
    return found


def table(head):
    """The rows of all tables with that head; there must be some."""
    rows = [row for cells, rows in tables() if cells == head for row in rows]
    assert rows, f"no table {head} in {DOCUMENT}"
    return rows


def parse_printed(cell):
    printed = {}
    for part in [] if cell == "nothing" else cell.split("; "):
        stream, lines = part.split(": ", 1)
        assert stream in STREAMS and re.fullmatch("`[^`]+`(, `[^`]+`)*", lines), cell
        printed[stream] = re.findall("`([^`]+)`", lines)
    return printed


def parse_row(cells):
    function, unit, situation, errors, printed, outcome = cells
    parts = re.fullmatch(r"`(\w+)`(?: ([A-Z_]+))?(?: in `([\w:]+)`)?", function)
    assert parts, function
    outcome, *leftovers = outcome.split("; ")
    return Row(*(part or "" for part in parts.groups()), unit.strip("`"), situation,
               tuple(map(Error, errors.split())), parse_printed(printed), outcome,
               tuple(leftovers))


def fallible_calls():
    return [parse_row(cells) for cells in table(CALLS)]


def unchecked_functions():
    """The functions whose failure is not looked at, anywhere."""
    return {name for functions, _ in table(UNCHECKED)
            for name in re.findall("`([^`]+)`", functions)}


def memory_outcomes(process):
    """How a process ends when an allocation fails in it, and the first line of its errors."""
    return {(end, printed.strip("`")) for name, end, printed in table(MEMORY) if name == process}
