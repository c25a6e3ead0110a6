"""What the executable makes of its arguments."""

import pytest

USAGE = ("Usage: {0} -e EVENT_ID [VALUES]\n"
         "   or: {0} -s\n"
         "\n"
         " -s \tStart the event service\n"
         " -e \tSend an event. VALUES is a comma separated list of values.\n")


def outcome(process):
    return process.stdout, process.stderr, process.status


@pytest.mark.parametrize("arguments, complaint", [
    ([], ""), (["-e"], "Invalid parameters\n"), (["-x"], "Unknown option: -x\n")], ids=str)
def test_wrong_arguments_give_a_complaint_the_usage_and_status_1(sandbox, arguments, complaint):
    process = sandbox.run(sandbox.executable, *arguments)
    assert outcome(process) == ("", complaint + USAGE.format(sandbox.executable), 1)


def test_usage_names_the_program_as_it_was_called(sandbox):
    process = sandbox.run("bash", "-c", 'exec -a "$0" "$@"', "/bin/x%s y", sandbox.executable)
    assert outcome(process) == ("", USAGE.format("/bin/x%s y"), 1)
