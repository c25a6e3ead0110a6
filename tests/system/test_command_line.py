"""What the executable makes of its arguments."""

import pytest

from support.sandbox import RECORD_SIZE

USAGE = ("Usage: {0} -e EVENT_ID [VALUES]\n"
         "   or: {0} -s\n"
         "\n"
         " -s \tStart the event service\n"
         " -e \tSend an event. VALUES is a comma separated list of values.\n")
INVALID = "Invalid parameters\n"
UNKNOWN = "Unknown option: {}\n"


def outcome(process):
    return process.stdout, process.stderr, process.status


def run(sandbox, *arguments):
    return outcome(sandbox.run(sandbox.executable, *arguments))


def usage_of(sandbox, complaint):
    """The outcome of a call that the executable refuses."""
    return "", complaint + USAGE.format(sandbox.executable), 1


def test_no_arguments_print_the_usage_and_give_status_1(sandbox):
    assert run(sandbox) == usage_of(sandbox, "")


@pytest.mark.parametrize("further", [["perf01"], ["-e"], ["-s"], [""], ["a", "b", "c"]])
def test_service_option_with_more_arguments_is_invalid(sandbox, further):
    assert run(sandbox, "-s", *further) == usage_of(sandbox, INVALID)


@pytest.mark.parametrize("option", ["-x", "-sx", "-es", "-", "--", "-S", "-E", "--help", "s", "e",
                                    " -s", "-s ", "perf01", "%s%n", "größe"])
def test_any_other_first_argument_is_an_unknown_option(sandbox, option):
    assert run(sandbox, option) == usage_of(sandbox, UNKNOWN.format(option))


def test_empty_first_argument_is_an_unknown_option_without_a_name(sandbox):
    assert run(sandbox, "") == usage_of(sandbox, "Unknown option: \n")


@pytest.mark.parametrize("order", [["-x", "-s"], ["-x", "-e", "perf01"], ["perf01", "-e"]])
def test_options_after_an_unknown_one_are_not_looked_at(sandbox, order):
    assert run(sandbox, *order) == usage_of(sandbox, UNKNOWN.format(order[0]))


def test_event_option_alone_is_invalid(sandbox):
    assert run(sandbox, "-e") == usage_of(sandbox, INVALID)


@pytest.mark.parametrize("further", [["perf01", "95", "80"], ["perf01", "95", "80", "-s"],
                                     ["", "", ""]])
def test_event_option_with_three_or_more_arguments_is_invalid(sandbox, further):
    assert run(sandbox, "-e", *further) == usage_of(sandbox, INVALID)


@pytest.mark.parametrize("name", ["./ov-event-logger", "../kept/ov-event-logger",
                                  "ov-event-logger", "/bin/x%s y", ""])
def test_usage_names_the_program_as_it_was_called(sandbox, name):
    process = sandbox.run("bash", "-c", 'exec -a "$0" "$@"', name, sandbox.executable)
    assert outcome(process) == ("", USAGE.format(name), 1)


def test_every_wrong_call_leaves_the_service_socket_alone(sandbox):
    with sandbox.bind_service_socket() as server:
        server.listen()
        for arguments in [], ["-s", "x"], ["-x"], ["-e"], ["-e", "a", "b", "c"]:
            run(sandbox, *arguments)
        server.setblocking(False)
        with pytest.raises(BlockingIOError):
            server.accept()


@pytest.mark.parametrize("arguments, id_, values", [
    (["sys05"], b"sys05", b""),
    (["sys05", "a,b"], b"sys05", b"a,b"),
    (["sys05", ""], b"sys05", b""),
    (["-s", "-e"], b"-s", b"-e"),
    (["", "a"], b"", b"a"),
])
def test_event_option_sends_its_arguments_as_id_and_values(sandbox, arguments, id_, values):
    with sandbox.bind_service_socket() as server:
        server.listen()
        client = sandbox.run(sandbox.executable, "-e", *arguments)
        record = server.accept()[0].recv(2 * RECORD_SIZE)
    assert (client.status, client.stderr) == (0, "")
    assert (record[:8], record[8:136]) == (id_.ljust(8, b"\0"), values.ljust(128, b"\0"))
