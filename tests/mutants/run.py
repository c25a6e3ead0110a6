"""Tries the mutants and says how many of them the tests catch (see scripts/mutants)."""

import argparse
import collections
import concurrent.futures
import concurrent.futures.process
import dataclasses
import multiprocessing
import os
import sys
import time

from mutants import ListError, load
from workshop import EXPECTED_TARGETS, PARALLEL_TESTS, CannotRun, Workshop

WANTED = 95.0  # percent

CAUGHT, SURVIVED, INVALID = "caught", "survived", "invalid"


@dataclasses.dataclass
class Verdict:
    """What came of one mutant."""

    mutant: object
    outcome: str
    detail: str  # the test that caught it, or why it is invalid
    seconds: float = 0.0

    @property
    def unexplained(self):
        return self.outcome == SURVIVED and not self.mutant.survives


def open_workshop(numbers):
    global workshop
    workshop = Workshop(numbers.get())


def check_unchanged(mutants):
    """The tests that are to catch the mutants must pass without them."""
    failed = workshop.test_expected("|".join({mutant.unit for mutant in mutants if mutant.unit}),
                                    " or ".join({mutant.system for mutant in mutants
                                                 if mutant.system}), PARALLEL_TESTS)
    if failed:
        raise CannotRun(f"without a mutant, {failed} stops the tests")


def try_expected(mutant):
    return judge(mutant, EXPECTED_TARGETS,
                 lambda: workshop.test_expected(mutant.unit, mutant.system))


def try_all(mutant):
    return judge(mutant, ("all",), workshop.test_all)


def judge(mutant, targets, run_tests):
    start = time.monotonic()
    try:
        with workshop.mutated(mutant, targets):
            caught_by = run_tests()
        outcome, detail = (CAUGHT, caught_by) if caught_by else (SURVIVED, "")
    except CannotRun as problem:
        outcome, detail = INVALID, str(problem)
    return Verdict(mutant, outcome, detail, time.monotonic() - start)


def print_verdict(verdict):
    print(f"{verdict.outcome:9} {verdict.mutant.kind:17} {verdict.mutant.name}"
          f"  [{verdict.seconds:.0f} s] {verdict.detail}", flush=True)


def print_share(verdicts):
    """Prints the shares by kind and in all, and returns the latter in percent."""
    counts = collections.defaultdict(collections.Counter)
    for verdict in verdicts:
        counts[verdict.mutant.kind][verdict.outcome] += 1
        counts["all"][verdict.outcome] += 1
    print(f"\n{'kind':17} mutants  caught")
    for kind in sorted(counts, key=lambda kind: (kind == "all", kind)):
        print(f"{kind:17} {counts[kind].total():7} {counts[kind][CAUGHT]:7}")
    share = 100 * counts["all"][CAUGHT] / counts["all"].total()
    print(f"{share:.1f} % caught")
    return share


def print_survivors(verdicts):
    for verdict in verdicts:
        mutant = verdict.mutant
        if verdict.outcome == SURVIVED:
            print(f"survives: {mutant.name}: {mutant.survives or 'NO REASON IS GIVEN'}")
        elif mutant.survives:
            print(f"{mutant.name} is said to survive, but does not")


def verdicts_of(pool, step, mutants):
    """Takes the step with each of them, and gives the verdicts as they come."""
    for done in concurrent.futures.as_completed([pool.submit(step, mutant) for mutant in mutants]):
        yield done.result()


def run(mutants, jobs):
    numbers = multiprocessing.Queue()
    for number in range(jobs):
        numbers.put(number)
    verdicts = []
    with concurrent.futures.ProcessPoolExecutor(jobs, initializer=open_workshop,
                                                initargs=(numbers,)) as pool:
        pool.submit(check_unchanged, mutants).result()
        alive = []
        for verdict in verdicts_of(pool, try_expected, mutants):
            if verdict.outcome == SURVIVED:
                alive.append(verdict.mutant)
            else:
                verdicts.append(verdict)
            print_verdict(verdict)
        if alive:
            print("\nWith the whole suite:")
        for verdict in verdicts_of(pool, try_all, alive):
            verdicts.append(verdict)
            print_verdict(verdict)
    return verdicts


def main():
    parser = argparse.ArgumentParser(prog="scripts/mutants", description=__doc__)
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), metavar="N",
                        help="mutants to try at a time (default: as many as processors)")
    parser.add_argument("names", nargs="*", metavar="MUTANT", help="only these (default: all)")
    arguments = parser.parse_args()
    try:
        mutants = load(arguments.names)
        verdicts = run(mutants, min(arguments.jobs, len(mutants)))
    except concurrent.futures.process.BrokenProcessPool:
        return 2  # a worker has said why it could not begin
    except (CannotRun, ListError) as problem:
        print(problem, file=sys.stderr)
        return 2
    share = print_share(verdicts)
    print_survivors(verdicts)
    if any(verdict.outcome == INVALID for verdict in verdicts):
        return 2
    return 0 if share >= WANTED and not any(v.unexplained for v in verdicts) else 1


if __name__ == "__main__":
    sys.exit(main())
