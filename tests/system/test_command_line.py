"""What the executable makes of its arguments."""

import pytest

USAGE = ("Usage: {0} -e EVENT_ID [VALUES]\n"
         "   or: {0} -s\n"
         "\n"
         " -s \tStart the event service\n"
         " -e \tSend an event. VALUES is a comma separated list of values.\n")
INVALID = "Invalid parameters\n"


def outcome(process):
    return process.stdout, process.stderr, process.status


@pytest.mark.parametrize("arguments, complaint", [
    ([], ""),
    (["-s", "-e"], INVALID),
    (["-s", "a", "b", "c"], INVALID),
    (["-e"], INVALID),
    (["-e", "perf01", "95", "80"], INVALID),
    (["-x"], "Unknown option: -x\n"),
    (["-sx"], "Unknown option: -sx\n"),
    (["-x", "-s"], "Unknown option: -x\n"),
    ([""], "Unknown option: \n"),
    (["%s%n"], "Unknown option: %s%n\n")], ids=str)
def test_wrong_arguments_give_a_complaint_the_usage_and_status_1(sandbox, arguments, complaint):
    process = sandbox.run(sandbox.executable, *arguments)
    assert outcome(process) == ("", complaint + USAGE.format(sandbox.executable), 1)


@pytest.mark.parametrize("name", ["../kept/ov-event-logger", "/bin/x%s y", ""])
def test_usage_names_the_program_as_it_was_called(sandbox, name):
    process = sandbox.run("bash", "-c", 'exec -a "$0" "$@"', name, sandbox.executable)
    assert outcome(process) == ("", USAGE.format(name), 1)
