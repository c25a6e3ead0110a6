"""Prints what llvm-cov exported: a table of the files, and the branches that were not taken. Ends
with status 1 if there are too many of them, or one that uncovered.txt does not explain."""

import dataclasses
import json
import pathlib
import re
import subprocess
import sys

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
PRODUCT = REPOSITORY / "src"
EXPLAINED = pathlib.Path(__file__).with_name("uncovered.txt")
WANTED = 95.0  # percent
ENDLESS = "true"  # the condition of a loop that is left otherwise: no branch


@dataclasses.dataclass(frozen=True, order=True)
class Branch:
    """One of the two ways on from a condition."""

    file: str
    line: int
    column: int
    function: str
    condition: str
    outcome: str  # "true" or "false"

    @property
    def key(self):
        """How uncovered.txt names it: it stays when lines move."""
        return f"{self.file}: {self.function}: {self.condition}: never {self.outcome}"


def plain_name(mangled):
    """The name of a function without its namespace, parameters and template arguments."""
    symbol = mangled.rsplit(":", 1)[-1]  # one of a single file has that in front
    name = subprocess.run(["llvm-cxxfilt", symbol], check=True, stdout=subprocess.PIPE,
                          text=True).stdout.strip()
    name = name.replace("(anonymous namespace)::", "").replace("ov::", "")
    while (shorter := re.sub(r"<[^<>]*>", "", name)) != name:
        name = shorter
    return name.split("(")[0].split(" ")[-1]


def condition_at(path, line, column, end_line, end_column):
    """The text of a condition, on one line."""
    lines = path.read_text().split("\n")[line - 1:end_line]
    lines[-1] = lines[-1][:end_column - 1]
    lines[0] = lines[0][column - 1:]
    return " ".join(" ".join(lines).split())


def branches(functions):
    """How often each branch was taken, over all instances of its function."""
    counts = {}
    for function in functions:
        for *place, taken, not_taken, file_id, _, _ in function["branches"]:
            path = pathlib.Path(function["filenames"][file_id])
            if PRODUCT not in path.parents:
                continue
            condition = condition_at(path, *place)
            if condition == ENDLESS:
                continue
            for outcome, count in (("true", taken), ("false", not_taken)):
                branch = Branch(str(path.relative_to(REPOSITORY)), *place[:2],
                                plain_name(function["name"]), condition, outcome)
                counts[branch] = counts.get(branch, 0) + count
    return counts


def row(name, covered, count, lines):
    share = f"{100 * covered / count:5.1f} %" if count else "-"
    line_share = f"{100 * lines['covered'] / lines['count']:5.1f} %"
    print(f"{name:40} {covered:4} of {count:4} {share:>8} {lines['covered']:6} of "
          f"{lines['count']:5} {line_share:>8}")


def print_table(data, counts):
    """Prints the shares of each file and of all, and returns that of the branches in percent."""
    print(f"{'':40} {'branches':>21} {'lines':>24}")
    for file in data["files"]:
        name = str(pathlib.Path(file["filename"]).relative_to(REPOSITORY))
        taken = [count > 0 for branch, count in counts.items() if branch.file == name]
        row(name, sum(taken), len(taken), file["summary"]["lines"])
    covered = sum(count > 0 for count in counts.values())
    row("all", covered, len(counts), data["totals"]["lines"])
    return 100 * covered / len(counts)


def explanations():
    """The reasons by key: each key is a line, and its reason stands below it, indented."""
    reasons = {}
    key = ""
    for line in EXPLAINED.read_text().splitlines():
        if line.startswith(" "):
            reasons[key] = f"{reasons[key]} {line.strip()}".strip()
        elif line and not line.startswith("#"):
            key = line
            reasons[key] = ""
    return reasons


def print_uncovered(uncovered, reasons):
    """Prints each branch with its reason, and returns whether all have one, and none too many."""
    print("\nNot taken:")
    for branch in sorted(uncovered):
        print(f"{branch.file}:{branch.line}: {branch.function}: {branch.condition}: "
              f"never {branch.outcome}\n    {reasons.get(branch.key) or 'NOT EXPLAINED'}")
    stale = reasons.keys() - {branch.key for branch in uncovered}
    for key in stale:
        print(f"explained, but taken or gone: {key}")
    return not stale and all(reasons.get(branch.key) for branch in uncovered)


def main(path):
    data = json.loads(pathlib.Path(path).read_text())["data"][0]
    counts = branches(data["functions"])
    share = print_table(data, counts)
    explained = print_uncovered([branch for branch, count in counts.items() if count == 0],
                                explanations())
    print(f"\n{share:.1f} % of the branches are taken")
    return 0 if share >= WANTED and explained else 1


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
