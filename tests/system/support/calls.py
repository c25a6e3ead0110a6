"""The calls that each unit of the product makes, out of its objects in the static library."""

import collections
import os
import pathlib
import re
import subprocess

from .sandbox import REPOSITORY

# What may be called of Qt that reaches beyond the process.
QT_CLASSES = re.compile(r"Q(AbstractSocket|Dir|File|FileDevice|FileInfo|HostInfo|IODevice|"
                        r"LocalSocket|LockFile|Process|SaveFile|Settings|TcpSocket|UdpSocket)::.*")

# What gcc makes of a call of fputs, and clang does not.
FPUTS = {"fputc", "fwrite"}


def unit_of(member):
    """Such as app/main for main.cpp.o; nothing for what only the tests' builds link."""
    for source in (REPOSITORY / "src").glob(f"*/{member.removesuffix('.o')}"):
        return str(source.relative_to(REPOSITORY / "src").with_suffix(""))
    return None


def name_of(symbol):
    """Of a function of C its name, of one of the classes above class and name, else nothing."""
    name, _, parameters = symbol.partition("(")
    if QT_CLASSES.fullmatch(name):
        return f"{name}(int)" if parameters.startswith("int") else name
    checked = re.fullmatch(r"__(\w+)_chk", symbol)  # of a build that looks at buffer sizes
    if checked:
        return checked[1]
    return symbol if re.fullmatch(r"(?!__|_GLOBAL|_Unwind|qt_)\w+", symbol) else None


def calls_of_units():
    """The names by unit."""
    library = pathlib.Path(os.environ["OV_EXECUTABLE"]).with_name("libov_event_logger.a")
    listing = subprocess.run(["nm", "--undefined-only", "--demangle", library], check=True,
                             stdout=subprocess.PIPE, text=True).stdout
    calls = collections.defaultdict(set)
    for line in listing.splitlines():
        if line.endswith(".o:"):
            unit = unit_of(line.removesuffix(":"))
        elif line and unit:
            symbol = line.split(maxsplit=1)[1]
            name = name_of(symbol)
            calls[unit] |= FPUTS if name == "fputs" else {name}
    return {unit: names - {None} for unit, names in calls.items()}
