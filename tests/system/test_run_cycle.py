"""The service from its start to its end: what it prints, what ends it, what it holds."""

import contextlib
import os
import pty
import signal
import subprocess
import tty

import pytest

from support.polling import wait_until
from support.sandbox import DEFINITIONS, ROW, SERVICE_SOCKET, TCP, UDP

LOADING = "Starting service...\nloading Event definitions...\n"
BOUND = "Starting event server...\nlistening...\n"
CYCLE = BOUND + "Server is listening on /tmp/ov-events\n"
NO_HOST = "Invalid IP address or hostname: Name or service not known\n"
BARE_START = LOADING + CYCLE + NO_HOST


def run_service(sandbox, faults="", **kwargs):
    """A service that has ended."""
    return sandbox.run(sandbox.executable, "-s",
                       env=sandbox.faulty(FAULTS=faults) if faults else None, **kwargs)


# What a start prints

def test_start_without_any_file_prints_exactly_its_steps(sandbox):
    service = sandbox.start_service()
    wait_until(lambda: service.stdout == BARE_START, lambda: service.stdout)
    assert service.stderr == ""


def test_second_cycle_prints_its_steps_and_loads_no_definitions(sandbox):
    sandbox.write_definitions(ROW)
    sandbox.write_settings(host="127.0.0.1")
    service = sandbox.start_listening_service()
    sandbox.write_settings(host="127.0.0.2")
    expected = (LOADING + f"loading {DEFINITIONS}\n" + CYCLE + "host: 127.0.0.1\n" +
                CYCLE + "host: 127.0.0.2\n")
    wait_until(lambda: service.stdout == expected, lambda: service.stdout)
    assert service.stderr == ""


@pytest.mark.parametrize("make_ends", [os.pipe, pty.openpty], ids=["pipe", "terminal"])
def test_output_is_visible_at_once(sandbox, make_ends):
    reader, writer = make_ends()
    if os.isatty(writer):
        tty.setraw(writer)
    os.mkfifo(sandbox.path(DEFINITIONS))  # the service waits in its open
    sandbox.start_service(stdout=writer)
    os.set_blocking(reader, False)
    shown = bytearray()

    def is_shown(text):
        with contextlib.suppress(BlockingIOError):
            shown.extend(os.read(reader, 4096))
        return shown.decode() == text
    start = LOADING + f"loading {DEFINITIONS}\n"
    wait_until(lambda: is_shown(start), lambda: shown)
    sandbox.write_definitions(ROW)
    wait_until(lambda: is_shown(start + CYCLE + NO_HOST), lambda: shown)


# What ends a service

def test_failed_setup_beside_a_processing_thread_ends_the_service_with_status_1(sandbox):
    service = run_service(sandbox, "accept4:1:24,bind:2:13")
    assert service.stdout == BARE_START + BOUND
    assert service.stderr == "accept: Too many open files\nbind: Permission denied\n"
    assert service.status == 1


def test_failure_is_reported_after_the_steps_before_it(sandbox):
    service = run_service(sandbox, "bind:1:13", stderr=subprocess.STDOUT)
    assert service.stdout == LOADING + BOUND + "bind: Permission denied\n"


def test_failed_setup_runs_no_destructors_on_what_another_thread_may_use(sandbox):
    loader_log = {"LD_DEBUG": "files", "LD_DEBUG_OUTPUT": "/tmp/loader"}
    service = sandbox.run(sandbox.executable, "-s",
                          env={**sandbox.faulty(FAULTS="bind:1:13"), **loader_log})
    assert service.status == 1
    [loader] = sandbox.path("/tmp").glob("loader.*")
    assert "calling init: " in loader.read_text()
    assert "calling fini: " not in loader.read_text()


@pytest.mark.parametrize("leave", ["touch", "mkdir", "ln -s /nowhere"])
def test_leftover_socket_file_ends_the_service_with_status_1(sandbox, leave):
    sandbox.sh(f"{leave} {SERVICE_SOCKET}")
    service = run_service(sandbox)
    assert (service.stdout, service.stderr, service.status) == (
        LOADING + BOUND, "bind: Address already in use\n", 1)


def test_second_service_ends_and_leaves_the_first_at_work(sandbox):
    first = sandbox.start_listening_service()
    assert run_service(sandbox).stderr == "bind: Address already in use\n"
    client = sandbox.send("perf01")
    first.wait_for_line(client.lines[0])


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGKILL])
def test_signal_ends_the_service_and_leaves_the_socket_file_behind(sandbox, number):
    service = sandbox.start_listening_service()
    service.facts.send_signal(number)
    assert service.wait() == 128 + number
    assert sandbox.path(SERVICE_SOCKET).is_socket()


@pytest.mark.parametrize("faults", ["accept4:1:24,bind:2:13", "bind:2:13"],
                         ids=["failed-accept", "changed-settings"])
def test_socket_file_is_removed_between_cycles(sandbox, faults):
    sandbox.write_settings(**UDP)
    service = sandbox.start_service(env=sandbox.faulty(FAULTS=faults))
    service.wait_for_line("port: 5514")
    sandbox.write_settings(**UDP, cycle=2)
    assert service.wait() == 1
    assert not sandbox.path(SERVICE_SOCKET).exists()


def test_client_that_meets_the_gap_between_cycles_tries_again(sandbox):
    sandbox.write_settings(**UDP)
    service = sandbox.start_listening_service(env=sandbox.faulty(DELAYS="bind:2:2000"))
    sandbox.write_settings(**UDP, cycle=2)
    service.wait_for_line("listening...", 2)
    client = sandbox.start_client("perf01", "95")
    assert (client.wait(), client.stderr) == (0, "")
    service.wait_for_line(client.lines[0])


# Output whose reader is gone

def test_service_whose_reader_is_gone_ends_by_sigpipe_at_its_next_line(sandbox):
    reader, writer = os.pipe()
    service = sandbox.start_listening_service(stderr=writer)
    os.close(writer)
    os.close(reader)
    sandbox.connect().close()
    assert service.wait() == 128 + signal.SIGPIPE


def test_lost_reader_does_not_end_a_service_that_was_started_to_ignore_it(sandbox, udp_collector):
    reader, writer = os.pipe()
    os.close(reader)
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**UDP)
    sandbox.start_listening_service(prelude="trap '' PIPE", stderr=writer)
    os.close(writer)
    sandbox.connect().close()
    sandbox.send("perf01", "95")
    assert udp_collector.wait_for(1) == [b"perf01 95"]


# A failed accept

def test_failed_accept_starts_the_next_cycle_beside_the_processing_thread(sandbox):
    service = sandbox.start_service(env=sandbox.faulty(FAULTS="accept4:1:24,accept4:2:4"))
    expected = BARE_START + (CYCLE + NO_HOST) * 2
    wait_until(lambda: service.stdout == expected, lambda: service.stdout)
    assert service.stderr == "accept: Too many open files\naccept: Interrupted system call\n"
    wait_until(lambda: service.threads == 4, lambda: service.threads)


def test_service_with_two_processing_threads_sends_each_event_once(sandbox, udp_collector):
    sandbox.has_invariant = False  # the threads send beside each other
    service = sandbox.start_forwarding_service(env=sandbox.faulty(FAULTS="accept4:2:24"))
    service.wait_for_cycle(2)
    for number in range(20):
        sandbox.send("perf01", str(number))
    service.wait_for_line("> Received event", 20)
    wait_until(lambda: len(udp_collector.messages) >= 20, lambda: udp_collector.messages)
    service.wait_until_idle()
    assert sorted(udp_collector.messages) == sorted(b"perf01 %d" % number for number in range(20))


# What the service holds

def flags_of_descriptors(service):
    """The flags of each descriptor above the standard ones."""
    return [int(line.split()[1], 8) for number in service.descriptors
            for line in open(f"/proc/{service.pid}/fdinfo/{number}") if line.startswith("flags:")]


def test_every_descriptor_is_closed_in_a_program_that_the_service_runs(sandbox):
    service = sandbox.start_forwarding_service(**TCP)
    sandbox.send("perf01", "95")
    service.wait_for_error_line("connect: Connection refused")  # its socket stays open
    with sandbox.connect():
        wait_until(lambda: len(service.descriptors) == 3, lambda: service.descriptors)
        assert all(flags & os.O_CLOEXEC for flags in flags_of_descriptors(service))


def test_cycles_leave_no_thread_and_no_descriptor_behind(sandbox):
    service = sandbox.start_forwarding_service(env=sandbox.short_pauses())
    for cycle in 2, 3, 4:
        sandbox.reload(service, cycle)
    wait_until(lambda: (service.threads, service.sockets) == (2, 2),
               lambda: f"{service.threads} threads, {service.descriptors}")


def test_closed_standard_streams_are_not_taken_by_sockets(sandbox):
    service = sandbox.start_service(prelude="exec <&- >&- 2>&-")
    wait_until(sandbox.path(SERVICE_SOCKET).exists, "the service socket")
    streams = [os.readlink(f"/proc/{service.pid}/fd/{number}") for number in range(3)]
    assert streams == ["/dev/null"] * 3
