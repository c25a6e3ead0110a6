"""A copy of the project in which mutants are built and tested, so that the tree itself is never
changed. Each worker process has one of its own."""

import contextlib
import ctypes
import os
import pathlib
import shutil
import signal
import subprocess
import xml.etree.ElementTree

from mutants import REPOSITORY

BUILD = "build/debug"
EXPECTED_TARGETS = ("ov-event-logger", "faults", "unit_tests", "process_objects_test",
                    "monitor_lifetime_test")
PARALLEL_TESTS = 4
PR_SET_CHILD_SUBREAPER = 36

# Far above what the tests take; a mutant that hangs them longer is caught by it.
EXPECTED_TESTS_LIMIT = 600  # seconds
WHOLE_SUITE_LIMIT = 3600  # seconds
SINGLE_TEST_LIMIT = 120  # seconds


class CannotRun(Exception):
    """A build or a run of tests came to nothing, which says nothing about the tests."""


class Workshop:
    def __init__(self, number):
        self.folder = REPOSITORY / f"build/mutants/{number}"
        # What a run leaves behind becomes a child of this process, which can then end it.
        ctypes.CDLL(None, use_errno=True).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)
        self._copy_project()
        self._must("configure", "cmake", "--preset", "debug")
        self.build(EXPECTED_TARGETS)

    def _copy_project(self):
        """Leaves files that are already there as they are, so that only changes are built."""
        listed = subprocess.run(
            ["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
            cwd=REPOSITORY, check=True, stdout=subprocess.PIPE).stdout.decode().split("\0")
        files = {name for name in listed if name and (REPOSITORY / name).is_file()}
        for old in self.folder.glob("*/**/*"):
            name = str(old.relative_to(self.folder))
            if old.is_file() and name not in files and not name.startswith("build/"):
                old.unlink()
        for name in files:
            source, target = REPOSITORY / name, self.folder / name
            if not target.exists() or target.read_bytes() != source.read_bytes():
                target.parent.mkdir(parents=True, exist_ok=True)
                shutil.copyfile(source, target)
                shutil.copymode(source, target)
        collectors = self.folder / "build/collectors"
        collectors.parent.mkdir(exist_ok=True)
        if not collectors.exists():
            collectors.symlink_to((REPOSITORY / "build/collectors").resolve())

    def _must(self, step, *command):
        log = self.folder / f"build/{step}.log"
        with open(log, "w", encoding="utf-8") as output:
            status = subprocess.run(command, cwd=self.folder, stdout=output,
                                    stderr=subprocess.STDOUT, check=False).returncode
        if status != 0:
            shown = "\n".join(log.read_text().split("\n")[-20:])
            raise CannotRun(f"does not {step}:\n{shown}")

    def build(self, targets):
        self._must("build", "cmake", "--build", BUILD, "--parallel", "2", "--target", *targets)

    @contextlib.contextmanager
    def mutated(self, mutant, targets):
        """Builds these targets of the mutant, and puts the file back in the end."""
        path = self.folder / "src" / mutant.file
        original = path.read_text()
        path.write_text(mutant.mutate(original))
        try:
            self.build(targets)
            yield
        finally:
            path.write_text(original)

    def test_expected(self, unit, system, workers=0):
        """Runs the unit and the system tests of these expressions, the latter on so many workers
        or on none; returns what failed first, or nothing if all passed."""
        return (unit and self._run_ctest(unit) or
                system and self._run_pytest(system, workers))

    def test_all(self):
        return self._run_ctest()

    def _run_ctest(self, expression=None):
        results = self.folder / "build/results.xml"
        command = ["ctest", "--test-dir", BUILD, "--parallel", str(PARALLEL_TESTS),
                   "--stop-on-failure", "--no-tests=error", "--output-junit", str(results)]
        if expression:
            command += ["-R", expression, "-E", "^system$"]
        limit = EXPECTED_TESTS_LIMIT if expression else WHOLE_SUITE_LIMIT
        caught_by = self._run(command, limit, results, {"PYTEST_ADDOPTS": "-x"})
        if caught_by == "system":
            caught_by, *_ = failures(self.folder / BUILD / "system-results.xml") + [caught_by]
        return caught_by

    def _run_pytest(self, expression, workers):
        results = self.folder / "build/results.xml"
        build = self.folder / BUILD
        return self._run(
            ["pytest-3", "-q", "-x", "-p", "no:cacheprovider", "--timeout", str(SINGLE_TEST_LIMIT),
             "--numprocesses", str(workers), "--junit-xml", str(results), "-k", expression,
             "tests/system"],
            EXPECTED_TESTS_LIMIT, results,
            {"OV_EXECUTABLE": str(build / "src/ov-event-logger"),
             "OV_FAULTS_LIBRARY": str(build / "tests/faults/libfaults.so"),
             "OV_COLLECTORS": str(self.folder / "build/collectors")})

    def _run(self, command, limit, results, environment):
        """Returns the first test that failed, "the time limit", or nothing if all passed."""
        results.unlink(missing_ok=True)
        with open(self.folder / "build/test.log", "wb") as log:
            tests = subprocess.Popen(command, cwd=self.folder, env={**os.environ, **environment},
                                     stdout=log, stderr=subprocess.STDOUT, start_new_session=True)
            try:
                status = tests.wait(limit)
            except subprocess.TimeoutExpired:
                os.killpg(tests.pid, signal.SIGKILL)
                tests.wait()
                return "the time limit"
            finally:
                end_leftovers()
        if status == 0:
            return ""
        failed = failures(results)
        if not failed:
            raise CannotRun(f"{' '.join(command)} ended with status {status}, see {log.name}")
        return failed[0]


def failures(results):
    """The names of the tests that failed, from a report of ctest's or pytest's."""
    if not results.exists():
        return []
    cases = xml.etree.ElementTree.parse(results).iter("testcase")
    return [case.get("name") for case in cases
            if case.get("status") == "fail" or case.find("failure") is not None or
            case.find("error") is not None]


def end_leftovers():
    """Ends every process that a run of tests has left behind, spinning or not."""
    children = pathlib.Path(f"/proc/self/task/{os.getpid()}/children")
    while left := children.read_text().split():
        for process in map(int, left):
            os.kill(process, signal.SIGKILL)
        os.waitpid(-1, 0)  # whichever: the first process of a sandbox ends after all others of it
