"""The example script of the sign-in monitor: what it prints, and what the service makes of it."""

import random
import stat
import time

import pytest

from support.machine import (
    SIGNIN_STATE, install_scripts, output, replace_command, script, sign_in, start_service_for)
from support.polling import wait_until

SIGNIN = script("vmw-signin-status")
FOLDER = SIGNIN_STATE.removesuffix("/signin")


@pytest.fixture(autouse=True)
def scripts(sandbox):
    install_scripts(sandbox)


def answers(sandbox, env=None):
    """What the script prints for each of its words."""
    return tuple(output(sandbox, SIGNIN, word, env=env) for word in ("user", "success", "error"))


def later_answers(sandbox):
    """The same once the outcome is old enough to count."""
    return answers(sandbox, replace_command(sandbox, "date", "echo 99999999999"))


def answers_to(sandbox, state):
    sandbox.path(FOLDER).mkdir()
    sandbox.path(SIGNIN_STATE).write_bytes(state)
    return later_answers(sandbox)


@pytest.mark.parametrize("state, user", [
    (b"alice\nCORP\n", "alice:CORP"), (b"alice\n\n", "alice: "), (b"alice\n \n", "alice: "),
    (b"\n\n", "unknown: "), (b"  \nCORP\n", "unknown:CORP"),
    (b" al ice  \n COR P \n", "al ice:COR P"), (b"a:b::/c\nD:E/F\n", "a_b___c:D_E_F"),
    (b"a\0b\x1b[2J\rc\x7f\n\t\n", "a_b_[2J_c_:_"),
    (b"$(id)`id`'\"\\n%s*\n~\n", "$(id)`id`'\"\\n%s*:~"),
    ("José\nBüro\n".encode(), "José:Büro"),
    (b"alice\nCORP\nmore\n" + b"x" * 100000, "alice:CORP")],
    ids=["plain", "no-domain", "blank-domain", "no-names", "blank-user", "blanks",
         "colons-and-slashes", "control-characters", "shell-code", "utf-8", "more"])
def test_success_is_told_with_its_user(sandbox, state, user):
    assert answers_to(sandbox, b"success\n" + state) == (f"signin:{user}:success\n",
                                                         "success\n", "")


def test_error_is_told_with_its_user(sandbox):
    assert answers_to(sandbox, b"error\nbob\nLAB\n") == ("signin:bob:LAB:error\n", "", "error\n")


@pytest.mark.parametrize("state", [
    b"", b"\n\n\n", b"success", b"success\nalice\n", b"success\nalice\nCO",
    b"Success\nalice\nCORP\n", b"success \nalice\nCORP\n", b"success\r\nalice\r\nCORP\r\n",
    b"succ\0ess\nalice\nCORP\n", b"failed\nalice\nCORP\n", b"success\n" + b"x" * 5000 + b"\nCORP\n",
    b"\0" * 100000,
    random.Random(1).randbytes(4096).replace(b"success", b"").replace(b"error", b"")],
    ids=["empty", "no-outcome", "word", "two-lines", "half-a-line", "capital", "blank",
         "carriage-returns", "nul", "other-outcome", "long-line", "zeros", "random"])
def test_state_that_tells_no_outcome_gives_nothing(sandbox, state):
    assert answers_to(sandbox, state) == ("", "", "")


@pytest.mark.parametrize("make", [
    ":", "mkdir signin", "mkfifo signin", "truncate -s 100G signin",
    "printf 'success\\na\\nb\\n' >/tmp/s; ln -s /tmp/s signin"],
    ids=["nothing", "folder", "pipe", "huge", "link"])
def test_what_is_no_state_file_gives_nothing(sandbox, make):
    sandbox.sh(f"mkdir {FOLDER}; cd {FOLDER}; {make}")
    assert later_answers(sandbox) == ("", "", "")


def test_outcome_counts_from_its_second_second_on(sandbox):
    started = time.time()
    sign_in(sandbox, "success", "alice", "CORP")
    at_once = answers(sandbox)
    if time.time() - started < 1:
        assert at_once == ("signin:alice:CORP:success\n", "", "")
    wait_until(lambda: output(sandbox, SIGNIN, "success") == "success\n", "the outcome")
    assert time.time() - started > 1


def test_outcome_from_before_the_clock_was_set_back_counts(sandbox):
    sign_in(sandbox, "error", "alice", "CORP")
    earlier = replace_command(sandbox, "date", "echo 1000")
    assert output(sandbox, SIGNIN, "error", env=earlier) == "error\n"


def test_documented_hook_writes_what_only_its_account_can_change(sandbox):
    sign_in(sandbox, "success", "alice", "CORP")
    state = sandbox.path(SIGNIN_STATE)
    modes = [stat.S_IMODE(path.stat().st_mode) for path in (state.parent, state)]
    assert modes == [0o755, 0o644]
    assert state.read_bytes() == b"success\nalice\nCORP\n"


def test_cleared_outcome_is_gone(sandbox):
    sign_in(sandbox, "success", "alice", "CORP")
    sign_in(sandbox, "clear")
    assert later_answers(sandbox) == ("", "", "")


def test_user_is_whole_while_outcomes_come_and_go(sandbox):
    sign_in(sandbox, "success", "alice", "CORP")
    writer = sandbox.start("sh", "-c", "while :; do sh /tmp/signin-hook success alice CORP; "
                                       "sh /tmp/signin-hook error bob LAB; echo; done")
    wait_until(lambda: len(writer.lines) > 1, "the writer")
    users = {"signin:alice:CORP:success", "signin:bob:LAB:error"}
    seen = set()

    def all_seen():
        lines = sandbox.sh(f"for _ in $(seq 80); do {SIGNIN} user; done").lines
        assert (len(lines), set(lines) - users) == (80, set())
        seen.update(lines)
        return seen == users
    wait_until(all_seen, lambda: f"both users in {seen}")


@pytest.mark.parametrize("arguments", [
    (), ("users",), ("",), ("user", "success"), ("user success",), ("-h",)])
def test_other_arguments_are_refused(sandbox, arguments):
    process = sandbox.run(SIGNIN, *arguments)
    assert (process.status, process.stdout, process.stderr) == (
        2, "", f"Usage: {SIGNIN} success|error|user\n")


@pytest.mark.parametrize("outcome, domain, line", [
    ("success", "CORP", b"sec03 alice/CORP"), ("error", "", b"sec04 alice")])
def test_service_reports_a_sign_in(sandbox, udp_collector, outcome, domain, line):
    sandbox.sh("cp /bin/sleep /tmp/horizon-client")
    sandbox.start("/tmp/horizon-client", "3600")
    sign_in(sandbox, outcome, "alice", domain)
    start_service_for(sandbox, "sec03 sec04", vmwSigninMon=1)
    assert udp_collector.wait_for(1) == [line]
