"""The fallible calls: those that tests/faults/ lists and those that the product's objects make."""

import collections
import csv
import ctypes
import dataclasses
import errno
import fcntl
import os
import pathlib
import re
import socket
import subprocess

from .sandbox import REPOSITORY

FOLDER = REPOSITORY / "tests/faults"

# The classes of Qt that reach beyond the process.
QT_CLASSES = re.compile(r"Q(Dir|File|FileDevice|FileInfo|IODevice|LockFile|Process|SaveFile|"
                        r"Settings|SysInfo)::.*")
# gcc makes these two of a call of fputs, and clang does not.
FPUTS = {"fputc", "fwrite"}

_libc = ctypes.CDLL(None)
_libc.gai_strerror.restype = ctypes.c_char_p


def number_of(name):
    """The number of an error, of a command of fcntl or of a family of sockets."""
    return int(next(getattr(module, name) for module in (errno, fcntl, socket)
                    if hasattr(module, name)))


@dataclasses.dataclass(frozen=True)
class Row:
    """One call in one situation, which fails with one error."""
    unit: str
    within: str  # the function of Qt that makes the call, or nothing
    call: str  # as OV_FAULTS names it; other faults that it needs come first
    error: str
    situation: str
    printed: str
    outcome: str
    left: str  # what stays open or runs on

    def __str__(self):
        return f"{self.unit}-{self.call}-{self.error}"

    @property
    def function(self):
        """The function that the unit calls."""
        return self.within or re.split("[@>:]", self.call.split()[-1])[0]

    @property
    def faults(self):
        """The elements of OV_FAULTS."""
        faults = [*self.call.split()[:-1], f"{self.call.split()[-1]}:{self.error}"]
        return [re.sub(r"(?<=[@:])[A-Z_]{3,}\b", lambda name: str(number_of(name[0])), fault)
                for fault in faults]

    def lines(self, stream):
        """What is printed on "stdout" or "stderr"."""
        number = number_of(self.error)
        text = (_libc.gai_strerror(number).decode() if self.error.startswith("EAI_") else
                os.strerror(number))
        lines = [line.split(": ", 1) for line in self.printed.split(" | ") if line]
        return [line.replace("%s", text).replace("%d", str(number))
                for name, line in lines if name == stream]


def read(name):
    with open(FOLDER / name, newline="") as file:
        return list(csv.DictReader(file))


def fallible_calls():
    return [Row(**row) for row in read("calls.csv")]


def unchecked_functions():
    """The functions whose failure nobody looks at, each with a reason."""
    return {name for row in read("unchecked_calls.csv") if row["reason"]
            for name in row["functions"].split()}


def unit_of(member):
    """app/main for main.cpp.o; nothing for what only the tests' builds link."""
    for source in (REPOSITORY / "src").glob(f"*/{member.removesuffix('.o')}"):
        return str(source.relative_to(REPOSITORY / "src").with_suffix(""))
    return None


def name_of(symbol):
    """Of a function of C its name, of one of the classes above class and name, else nothing."""
    name, _, parameters = symbol.partition("(")
    if QT_CLASSES.fullmatch(name):
        return f"{name}(int)" if parameters.startswith("int,") else name
    checked = re.fullmatch(r"__(\w+)_chk", symbol)  # of a build that looks at buffer sizes
    if checked:
        return checked[1]
    return symbol if re.fullmatch(r"(?!__|_GLOBAL|_Unwind|qt_)\w+", symbol) else None


def calls_of_units():
    """What each unit calls, by the objects of the static library."""
    library = pathlib.Path(os.environ["OV_EXECUTABLE"]).with_name("libov_event_logger.a")
    listing = subprocess.run(["nm", "--undefined-only", "--demangle", library], check=True,
                             stdout=subprocess.PIPE, text=True).stdout
    calls = collections.defaultdict(set)
    for line in listing.splitlines():
        if line.endswith(".o:"):
            unit = unit_of(line.removesuffix(":"))
        elif line and unit:
            name = name_of(line.split(maxsplit=1)[1])
            calls[unit] |= FPUTS if name == "fputs" else {name}
    return {unit: names - {None} for unit, names in calls.items()}
