"""The mutants: single changes to the product code, each of which some test should notice."""

import dataclasses
import pathlib
import tomllib

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
LISTS = pathlib.Path(__file__).parent / "list"


class ListError(Exception):
    """What stands in the lists makes no sense."""


@dataclasses.dataclass(frozen=True)
class Mutant:
    """One block of a list."""

    name: str  # says what the changed program does
    file: str  # below src/
    kind: str
    old: str  # occurs exactly once in the file
    new: str
    unit: str = ""  # the unit tests that should notice, as a regular expression for ctest
    system: str = ""  # the system tests that should, as an expression for pytest
    survives: str = ""  # why no test can notice, for one of which that is known

    def mutate(self, text):
        """The file's text with the change in it."""
        count = text.count(self.old)
        if count != 1:
            raise ListError(f"{self.name}: the old text occurs {count} times in {self.file}")
        if self.old == self.new:
            raise ListError(f"{self.name}: the new text is the old one")
        return text.replace(self.old, self.new)


def load(names=()):
    """All mutants, or those of these names; those of a file stand together."""
    mutants = [Mutant(**block) for path in sorted(LISTS.glob("*.toml"))
               for block in tomllib.loads(path.read_text())["mutant"]]
    known = [mutant.name for mutant in mutants]
    for name in known:
        if known.count(name) > 1:
            raise ListError(f"{name}: there are two of that name")
    for name in names:
        if name not in known:
            raise ListError(f"{name}: there is no such mutant")
    for mutant in mutants:
        mutant.mutate((REPOSITORY / "src" / mutant.file).read_text())
    return [mutant for mutant in mutants if not names or mutant.name in names]
