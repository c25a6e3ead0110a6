"""Tries mutants and says how many of them the tests catch (see scripts/mutants)."""

import argparse
import concurrent.futures
import os
import pathlib
import random
import re
import shutil
import subprocess
import sys
import tomllib

from generate import generate

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
SURVIVORS = pathlib.Path(__file__).with_name("survivors.toml")
FOLDER = REPOSITORY / "build/mutants"
TREE = FOLDER / "tree"  # a copy of the project and what is built from it, without a mutant
WANTED = 92.0  # percent
TIME_LIMIT = 3600  # seconds for one mutant, far above what the tests take
STOP_AT_FAILURE = {"GTEST_FAIL_FAST": "1", "PYTEST_ADDOPTS": "-x"}
CAUGHT, SURVIVED, NOT_BUILT = "caught", "survived", "does not compile"
BUILD_FAILED, TEST_FAILED = 41, 42  # exit statuses of the shell in a layer

# In namespaces of its own, a layer over the tree takes all changes, and every process ends with
# the shell that makes the layer.
LAYER = """set -eu
mount -t tmpfs tmpfs layer
mkdir layer/upper layer/work
mount -t overlay overlay -o lowerdir=tree,upperdir=layer/upper,workdir=layer/work tree
[ -z "$1" ] || cat >"tree/$1"
cd tree"""


def test_commands(preset):
    """Every test, the quick ones first. Nothing else here knows the tests, but how they fail."""
    command = f"scripts/test {preset} --stop-on-failure"
    return [f"{command} -E '^system$'", f"{command} -R '^system$'"]


def failed_test(log):
    found = re.search(r"^FAILED \S*/(\S+::\S+)|^\[  FAILED  \] ([^,\n]+)|^\s*\d+ - (.+) \(",
                      log, re.M)
    return next(filter(None, found.groups())) if found else "a test without a name"


def copy_project():
    """Keeps the times of the files, so that only changes are built."""
    listed = subprocess.run(["git", "ls-files", "--cached", "--others", "--exclude-standard"],
                            cwd=REPOSITORY, check=True, stdout=subprocess.PIPE, text=True).stdout
    for folder in FOLDER / "layer", TREE / "build":
        folder.mkdir(parents=True, exist_ok=True)
    for old in TREE.iterdir():
        if old.is_dir() and old.name != "build":
            shutil.rmtree(old)
    for name in listed.splitlines():
        if (REPOSITORY / name).is_file():
            (TREE / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy2(REPOSITORY / name, TREE / name)
    if not (TREE / "build/collectors").exists():
        (TREE / "build/collectors").symlink_to(REPOSITORY / "build/collectors")


def in_tree(*command):
    """Runs a command in the tree that must succeed, and prints only what it says if it fails."""
    done = subprocess.run(command, cwd=TREE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, check=False)
    if done.returncode != 0:
        sys.exit(f"{' '.join(command)}:\n{done.stdout[-4000:]}")


def configure(preset):
    # Nobody debugs a mutant, and without symbols it is built sooner.
    in_tree("cmake", "--preset", preset, "-DCMAKE_C_FLAGS_DEBUG=", "-DCMAKE_CXX_FLAGS_DEBUG=")


def try_in_layer(presets, log, file="", content=b""):
    """Builds and tests the tree with this content of the file. Returns the outcome and by what a
    mutant was caught."""
    script = [LAYER, *(f"cmake --build build/{preset} || exit {BUILD_FAILED}"
                       for preset in presets)]
    script += [f"{command} || exit {TEST_FAILED}"
               for preset in presets for command in test_commands(preset)]
    command = ["setpriv", "--pdeathsig", "KILL", "unshare", "--mount", "--pid", "--fork",
               "--kill-child", "--mount-proc", "--propagation", "private"]
    if os.geteuid() != 0:
        command += ["--user", "--map-root-user"]
    with open(log, "wb") as output:
        try:
            status = subprocess.run(
                [*command, "sh", "-c", "\n".join(script), "sh", file], cwd=FOLDER, input=content,
                stdout=output, stderr=subprocess.STDOUT, timeout=TIME_LIMIT, check=False,
                env={**os.environ, **STOP_AT_FAILURE}).returncode
        except subprocess.TimeoutExpired:
            return CAUGHT, "the time limit"
    if status not in (0, BUILD_FAILED, TEST_FAILED):
        raise RuntimeError(f"{log}: there is no layer over {TREE}")
    if status == TEST_FAILED:
        return CAUGHT, failed_test(log.read_text(errors="replace"))
    return NOT_BUILT if status == BUILD_FAILED else SURVIVED, ""


def try_mutant(mutant, presets=("debug",)):
    content = mutant.apply((TREE / mutant.file).read_bytes())
    outcome, by = try_in_layer(presets, FOLDER / f"{mutant.name}.log", mutant.file, content)
    print(f"{outcome} {by}\n    {describe(mutant)}", flush=True)
    return mutant, outcome


def describe(mutant):
    return (f"{mutant.name} {mutant.kind} in {mutant.file}, {mutant.function}\n"
            f"      - {mutant.before}\n      + {mutant.after}")


def try_sample(pool, mutants, count):
    """Tries mutants in their order until so many could be built."""
    tried, order = [], iter(mutants)
    while batch := [mutant for _, mutant in zip(range(count - len(tried)), order)]:
        tried += [pair for pair in pool.map(try_mutant, batch) if pair[1] != NOT_BUILT]
    return tried


def listed_survivors(mutants):
    """The verdicts on the listed survivors, by their keys."""
    entries = tomllib.loads(SURVIVORS.read_text()).get("survivor", [])
    listed = {(entry["file"], entry["function"], entry["before"], entry["after"],
               entry.get("number", 1)): entry["verdict"] for entry in entries if entry["reason"]}
    if len(listed) < len(entries) or not set(listed.values()) <= {"equivalent", "gap"}:
        sys.exit(f"{SURVIVORS}: an entry without a verdict or a reason, or one that stands twice")
    if stale := listed.keys() - {mutant.key for mutant in mutants}:
        sys.exit(f"{SURVIVORS}: no change of the code makes these: {stale}")
    return listed


def report(tried, listed):
    """Prints the survivors and the share, and returns whether both are as they must be."""
    survivors = [mutant for mutant, outcome in tried if outcome == SURVIVED]
    for mutant in survivors:
        print(f"survives, {listed.get(mutant.key, 'NOT LISTED')}: {describe(mutant)}")
    counted = sum(outcome == CAUGHT or listed.get(mutant.key) != "equivalent"
                  for mutant, outcome in tried)
    share = 100 * (len(tried) - len(survivors)) / max(counted, 1)
    print(f"{share:.1f} % of {counted} mutants that are not equivalent are caught")
    return share >= WANTED and all(mutant.key in listed for mutant in survivors)


def main():
    parser = argparse.ArgumentParser(prog="scripts/mutants", description=__doc__)
    parser.add_argument("--sample", type=int, default=60, metavar="COUNT")
    parser.add_argument("--seed", type=int, default=1, help="chooses the sample")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="mutants at a time")
    parser.add_argument("--list", action="store_true", help="print the sample, and try none")
    parser.add_argument("--sanitizers", action="store_true",
                        help="try survivors in the builds with sanitizers, too")
    parser.add_argument("names", nargs="*", metavar="MUTANT", help="try these and no sample")
    arguments = parser.parse_args()

    copy_project()
    configure("debug")
    mutants = generate(TREE, TREE / "build/debug")
    listed = listed_survivors(mutants)
    if arguments.names:
        chosen = [mutant for mutant in mutants if mutant.name in arguments.names]
    else:
        # The place of a mutant in this order depends on no other.
        chosen = sorted(
            (mutant for mutant in mutants if listed.get(mutant.key) != "equivalent"),
            key=lambda mutant: random.Random(f"{arguments.seed} {mutant.name}").random())
    if arguments.list:
        print(*map(describe, chosen[:arguments.sample]), f"of {len(mutants)} mutants", sep="\n")
        return 0

    in_tree("cmake", "--build", "build/debug")
    with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
        # Under the load under which mutants are tried, the tests must pass without one.
        for outcome, by in pool.map(
                lambda job: try_in_layer(["debug"], FOLDER / f"unchanged-{job}.log"),
                range(arguments.jobs)):
            if outcome != SURVIVED:
                sys.exit(f"Without a mutant, {by} fails")
        tried = try_sample(pool, chosen, arguments.sample)
        if arguments.sanitizers:
            for preset in "asan", "tsan":
                configure(preset)
                in_tree("cmake", "--build", f"build/{preset}")
            again = [mutant for mutant, outcome in tried if outcome == SURVIVED]
            tried = [pair for pair in tried if pair[1] != SURVIVED] + list(
                pool.map(lambda mutant: try_mutant(mutant, ("asan", "tsan")), again))
    return 0 if report(tried, listed) else 1


if __name__ == "__main__":
    sys.exit(main())
