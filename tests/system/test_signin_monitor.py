"""The sign-in monitor: the outcome of a sign-in through the client, once per run of the client."""

import pytest

from support.monitors import arrived, own_pgrep, reload, start_client, start_monitors

CHECKING = "VmwSigninMon: check status"
ALICE = "x:alice:CORP:y\n"
OUTCOMES = {"success": ["ok\n"], "error": ["failed\n"]}


def start(sandbox, **settings):
    return start_monitors(sandbox, "vmwSigninMon", **settings)


@pytest.mark.parametrize("words, allowed, events, runs", [
    (["success"], ["sec03", "sec04"], [b"sec03 alice/CORP"], ["user", "success", "error"]),
    (["error"], ["sec03", "sec04"], [b"sec04 alice/CORP"], ["user", "success", "error"]),
    (["success", "error"], ["sec03", "sec04"], [b"sec03 alice/CORP", b"sec04 alice/CORP"],
     ["user", "success", "error"]),
    (["success", "error"], ["sec03"], [b"sec03 alice/CORP"], ["user", "success"]),
    (["success", "error"], ["sec04"], [b"sec04 alice/CORP"], ["user", "error"]),
    (["success", "error"], [], [], [])],
    ids=["success", "error", "both", "success-allowed", "error-allowed", "nothing-allowed"])
def test_allowed_outcome_is_reported_once_while_the_client_keeps_running(
        sandbox, udp_collector, signin_script, words, allowed, events, runs):
    signin_script.answer(user=[ALICE], **{word: OUTCOMES[word] for word in words})
    pgrep, env = own_pgrep(sandbox)
    start_client(sandbox)
    start(sandbox, env=env, allowed=[*allowed, "end"])
    pgrep.wait_for_runs(5)
    udp_collector.wait_for(len(events))
    pgrep.wait_for_more_runs(3)
    assert arrived(sandbox, udp_collector) == events
    assert signin_script.runs == runs
    assert set(sandbox.path("/tmp/pgrep.calls").read_text().split("\n")[:2]) == {
        "1 horizon-client"}


def test_outcome_is_asked_for_every_period_until_there_is_one(
        sandbox, udp_collector, signin_script):
    signin_script.answer(user=["x:a:b:y", 'x:"c":d:y\n', "x:e:f:y"], error=["", "", "\n"])
    start_client(sandbox)
    service = start(sandbox)
    assert udp_collector.wait_for(1) == [b"sec04 e/f"]
    assert signin_script.runs == ["user", "success", "error"] * 3
    assert service.error_lines == [
        CHECKING, 'VmwSigninMon::GetUsername:  "x:a:b:y"',
        CHECKING, 'VmwSigninMon::GetUsername:  "x:\\"c\\":d:y\\n"',
        CHECKING, 'VmwSigninMon::GetUsername:  "x:e:f:y"']


def test_next_run_of_the_client_is_reported_again(sandbox, udp_collector, signin_script):
    signin_script.answer(user=[ALICE, "x:bob: :y"], success=["ok\n"])
    pgrep, env = own_pgrep(sandbox)
    client = start_client(sandbox)
    start(sandbox, env=env)
    udp_collector.wait_for(1)
    client.kill()
    pgrep.wait_for_more_runs(3)
    start_client(sandbox)
    udp_collector.wait_for(2)
    pgrep.wait_for_more_runs(3)
    assert arrived(sandbox, udp_collector) == [b"sec03 alice/CORP", b"sec03 bob"]


def test_client_that_is_signed_in_is_reported_again_after_a_reload(
        sandbox, udp_collector, signin_script):
    signin_script.answer(user=["alice\n"], success=["ok\n"])
    start_client(sandbox)
    service = start(sandbox)
    udp_collector.wait_for(1)
    reload(sandbox, service, 2, "vmwSigninMon")
    assert udp_collector.wait_for(2) == [b"sec03 alice\n"] * 2


@pytest.mark.parametrize("commands, events", [
    ("echo; exit 1", [b"sec03 alice/CORP"]), ("echo 1 >&2", []), (None, [])],
    ids=["any-output", "no-output", "missing"])
def test_client_runs_as_soon_as_pgrep_prints_anything(
        sandbox, udp_collector, signin_script, commands, events):
    signin_script.answer(user=[ALICE], success=["ok\n"])
    pgrep, env = own_pgrep(sandbox, commands or "")
    if commands is None:
        pgrep.path.unlink()
        start_client(sandbox)
    service = start(sandbox, env=env)
    udp_collector.wait_for(len(events))
    service.wait_for_pauses(2)
    assert arrived(sandbox, udp_collector) == events
    assert signin_script.runs == (["user", "success", "error"] if events else [])
