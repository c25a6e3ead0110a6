"""The sign-in monitor: the outcome of a sign-in through the client, once per run of the client."""

import pytest

from support.monitors import Script, arrived, reload, start_client, start_monitors

CHECKING = "VmwSigninMon: check status"
ALICE = "x:alice:CORP:y\n"
PGREP = """echo "$#" "$*" >>/tmp/pgrep.calls
exec /usr/bin/pgrep "$@"
"""


def start(sandbox, **settings):
    return start_monitors(sandbox, "vmwSigninMon", **settings)


def own_pgrep(sandbox, commands):
    """The environment of a service that finds this pgrep, which notes its runs."""
    sandbox.path("/tmp/bin").mkdir()
    pgrep = Script(sandbox, "pgrep", "/tmp/bin")
    pgrep.write_shell(commands)
    return pgrep, {**sandbox.hasty(), "PATH": "/tmp/bin"}


def user_text(sandbox, collector, script, output):
    """What is reported of a user whom the script tells in that way."""
    script.answer(user=[output], success=["ok"])
    start_client(sandbox)
    start(sandbox)
    message = collector.wait_for(1)[0]
    assert message.startswith(b"sec03 ")
    return message[len(b"sec03 "):]


# Outcomes

def test_success_is_reported_once_while_the_client_keeps_running(
        sandbox, udp_collector, signin_script):
    signin_script.answer(user=[ALICE], success=["ok\n"])
    pgrep, env = own_pgrep(sandbox, PGREP)
    start_client(sandbox)
    start(sandbox, env=env)
    udp_collector.wait_for(1)
    pgrep.wait_for_more_runs(5)
    assert arrived(sandbox, udp_collector) == [b"sec03 alice/CORP"]
    assert signin_script.runs == ["user", "success", "error"]


def test_error_is_reported_once_while_the_client_keeps_running(
        sandbox, udp_collector, signin_script):
    signin_script.answer(user=[ALICE], error=["failed\n"])
    pgrep, env = own_pgrep(sandbox, PGREP)
    start_client(sandbox)
    start(sandbox, env=env)
    udp_collector.wait_for(1)
    pgrep.wait_for_more_runs(5)
    assert arrived(sandbox, udp_collector) == [b"sec04 alice/CORP"]
    assert signin_script.runs == ["user", "success", "error"]


def test_both_outcomes_of_one_check_are_reported_success_first(
        sandbox, udp_collector, signin_script):
    signin_script.answer(user=[ALICE], success=["ok\n"], error=["failed\n"])
    pgrep, env = own_pgrep(sandbox, PGREP)
    start_client(sandbox)
    start(sandbox, env=env)
    udp_collector.wait_for(2)
    pgrep.wait_for_more_runs(5)
    assert arrived(sandbox, udp_collector) == [b"sec03 alice/CORP", b"sec04 alice/CORP"]
    assert signin_script.runs == ["user", "success", "error"]


def test_outcome_is_asked_for_every_period_until_there_is_one(
        sandbox, udp_collector, signin_script):
    signin_script.answer(user=["x:a:b:y", "x:c:d:y", "x:e:f:y"], error=["", "", "failed"])
    start_client(sandbox)
    service = start(sandbox)
    assert udp_collector.wait_for(1) == [b"sec04 e/f"]
    assert signin_script.runs == ["user", "success", "error"] * 3
    assert service.error_lines.count(CHECKING) == 3


@pytest.mark.parametrize("output", ["\n", " ", "no\n"])
def test_any_output_at_all_means_yes(sandbox, udp_collector, signin_script, output):
    signin_script.answer(user=[ALICE], success=[output])
    start_client(sandbox)
    start(sandbox)
    assert udp_collector.wait_for(1) == [b"sec03 alice/CORP"]


def test_status_of_the_script_does_not_count(sandbox, udp_collector, signin_script):
    signin_script.write_shell(
        'case $1 in user) echo x:alice:CORP:y; exit 1 ;; error) echo no; exit 9 ;; esac')
    start_client(sandbox)
    start(sandbox)
    assert udp_collector.wait_for(1) == [b"sec04 alice/CORP"]


@pytest.mark.parametrize("allowed, words, events", [
    ("sec03", ["user", "success"], [b"sec03 alice/CORP"]),
    ("sec04", ["user", "error"], [b"sec04 alice/CORP"])])
def test_outcome_that_is_disallowed_is_not_asked_for(
        sandbox, udp_collector, signin_script, allowed, words, events):
    signin_script.answer(user=[ALICE], success=["ok\n"], error=["failed\n"])
    pgrep, env = own_pgrep(sandbox, PGREP)
    start_client(sandbox)
    start(sandbox, env=env, allowed=[allowed, "end"])
    udp_collector.wait_for(1)
    pgrep.wait_for_more_runs(5)
    assert arrived(sandbox, udp_collector) == events
    assert signin_script.runs == words


def test_only_pgrep_is_run_when_both_outcomes_are_disallowed(
        sandbox, udp_collector, signin_script):
    signin_script.answer(user=[ALICE], success=["ok\n"], error=["failed\n"])
    pgrep, env = own_pgrep(sandbox, PGREP)
    start_client(sandbox)
    service = start(sandbox, env=env, allowed=["end"])
    pgrep.wait_for_runs(5)
    assert arrived(sandbox, udp_collector) == []
    assert (signin_script.runs, service.stderr) == ([], "")


# The client

def test_nothing_is_asked_for_while_no_client_runs(sandbox, udp_collector, signin_script):
    signin_script.answer(user=[ALICE], success=["ok\n"])
    pgrep, env = own_pgrep(sandbox, PGREP)
    service = start(sandbox, env=env)
    pgrep.wait_for_runs(5)
    assert arrived(sandbox, udp_collector) == []
    assert (signin_script.runs, service.stderr) == ([], "")


def test_next_run_of_the_client_is_reported_again(sandbox, udp_collector, signin_script):
    signin_script.answer(user=[ALICE, "x:bob:CORP:y"], success=["ok\n"])
    pgrep, env = own_pgrep(sandbox, PGREP)
    client = start_client(sandbox)
    start(sandbox, env=env)
    udp_collector.wait_for(1)
    client.kill()
    pgrep.wait_for_more_runs(3)
    start_client(sandbox)
    udp_collector.wait_for(2)
    pgrep.wait_for_more_runs(3)
    assert arrived(sandbox, udp_collector) == [b"sec03 alice/CORP", b"sec03 bob/CORP"]


def test_second_client_beside_the_first_is_not_another_run(
        sandbox, udp_collector, signin_script):
    signin_script.answer(user=[ALICE], success=["ok\n"])
    pgrep, env = own_pgrep(sandbox, PGREP)
    first = start_client(sandbox)
    start(sandbox, env=env)
    udp_collector.wait_for(1)
    start_client(sandbox)
    first.kill()
    pgrep.wait_for_more_runs(5)
    assert arrived(sandbox, udp_collector) == [b"sec03 alice/CORP"]


def test_client_that_is_signed_in_is_reported_again_after_a_reload(
        sandbox, udp_collector, signin_script):
    signin_script.answer(user=[ALICE], success=["ok\n"])
    pgrep, env = own_pgrep(sandbox, PGREP)
    start_client(sandbox)
    service = start(sandbox, env=env)
    udp_collector.wait_for(1)
    reload(sandbox, service, 2, "vmwSigninMon")
    udp_collector.wait_for(2)
    pgrep.wait_for_more_runs(3)
    assert arrived(sandbox, udp_collector) == [b"sec03 alice/CORP"] * 2


def test_process_is_looked_for_by_its_name_alone(sandbox):
    pgrep, env = own_pgrep(sandbox, PGREP)
    start(sandbox, env=env)
    pgrep.wait_for_runs(3)
    assert set(sandbox.path("/tmp/pgrep.calls").read_text().split("\n")[:2]) == {
        "1 horizon-client"}


def test_process_whose_name_holds_the_clients_counts_as_the_client(
        sandbox, udp_collector, signin_script):
    signin_script.answer(user=[ALICE], success=["ok\n"])
    sandbox.sh("cp /bin/sleep /tmp/xhorizon-client")
    sandbox.start("/tmp/xhorizon-client", "infinity")
    start(sandbox)
    assert udp_collector.wait_for(1) == [b"sec03 alice/CORP"]


@pytest.mark.parametrize("commands", ["echo; exit 1", "echo '1\n2'; exit 0"])
def test_any_line_of_pgrep_means_that_the_client_runs(
        sandbox, udp_collector, signin_script, commands):
    signin_script.answer(user=[ALICE], success=["ok\n"])
    _, env = own_pgrep(sandbox, commands)
    start(sandbox, env=env)
    assert udp_collector.wait_for(1) == [b"sec03 alice/CORP"]


@pytest.mark.parametrize("commands", ["exit 0", "echo 1 >&2"])
def test_pgrep_without_output_means_that_no_client_runs(
        sandbox, udp_collector, signin_script, commands):
    signin_script.answer(user=[ALICE], success=["ok\n"])
    pgrep, env = own_pgrep(sandbox, commands)
    service = start(sandbox, env=env)
    pgrep.wait_for_runs(4)
    assert arrived(sandbox, udp_collector) == []
    assert (signin_script.runs, service.stderr) == ([], "")


def test_missing_pgrep_leaves_the_monitor_idle_until_there_is_one(
        sandbox, udp_collector, signin_script):
    signin_script.answer(user=[ALICE], success=["ok\n"])
    pgrep, env = own_pgrep(sandbox, PGREP)
    pgrep.path.rename(pgrep.path.with_name("away"))
    start_client(sandbox)
    service = start(sandbox, env=env)
    assert arrived(sandbox, udp_collector) == []
    assert (signin_script.runs, service.stderr) == ([], "")
    pgrep.path.with_name("away").rename(pgrep.path)
    assert udp_collector.wait_for(2)[1:] == [b"sec03 alice/CORP"]


# The user

@pytest.mark.parametrize("output, user", [
    ("x:alice:CORP:y", "alice/CORP"), ("x:alice:CORP:y\n", "alice/CORP"),
    ("x:alice: :y", "alice"), ("x:alice:\t\r :y\n", "alice"), ("x: :CORP:y", " /CORP"),
    ("x: alice : CORP :y", " alice / CORP "), ("x::alice::CORP:y", "alice/CORP"),
    (":x:alice:CORP:y:", "alice/CORP"), ("x:%1:%2:y", "%1/%2"), ("x:älice:ÇORP:y", "älice/ÇORP"),
    ("x:alice:CORP:\n", "alice/CORP"), ("\n:alice:CORP:y", "alice/CORP")])
def test_second_and_third_of_four_fields_are_the_user(
        sandbox, udp_collector, signin_script, output, user):
    assert user_text(sandbox, udp_collector, signin_script, output) == user.encode()


@pytest.mark.parametrize("output", [
    "alice", "alice\n", "x::alice:y", "a:b:c:d:e", "x:alice:CORP:\n:y", "", "\n", ":::", "  alice ",
    "x:alice::y\n"])
def test_output_of_any_other_form_is_the_user_as_it_is(
        sandbox, udp_collector, signin_script, output):
    assert user_text(sandbox, udp_collector, signin_script, output) == output.encode()


def test_long_user_is_cut_to_127_bytes(sandbox, udp_collector, signin_script):
    assert user_text(sandbox, udp_collector, signin_script, f"x:{'a' * 100}:{'b' * 100}:y") == (
        b"a" * 100 + b"/" + b"b" * 26)


# What it tells on standard error

def test_each_check_of_an_unreported_client_is_told_with_the_scripts_output(
        sandbox, udp_collector, signin_script):
    signin_script.answer(user=["alice", 'x:"bob":CORP:y\n'], success=["", "ok"])
    start_client(sandbox)
    service = start(sandbox)
    udp_collector.wait_for(1)
    assert service.stderr == (
        f"{CHECKING}\n" 'VmwSigninMon::GetUsername:  "alice"\n'
        f"{CHECKING}\n" 'VmwSigninMon::GetUsername:  "x:\\"bob\\":CORP:y\\n"\n')


def test_missing_script_is_told_as_no_output_every_period(sandbox, udp_collector):
    start_client(sandbox)
    service = start(sandbox)
    service.wait_for_error_line(CHECKING, 3)
    assert arrived(sandbox, udp_collector) == []
    assert service.error_lines[:4] == [CHECKING, 'VmwSigninMon::GetUsername:  ""'] * 2
