"""The service from its start to its end: what it prints, its socket, its threads, its failures."""

import contextlib
import os
import pathlib
import pty
import signal
import subprocess
import threading
import time
import tty

import pytest

from support.polling import wait_until
from support.process import FUTEX, WRITE
from support.records import make_record
from support.sandbox import DEFINITIONS, SERVICE_SOCKET

ROW = "perf01,CPU,CPU usage is high,warn"
SETTINGS = {"allowed": "perf01", "host": "127.0.0.1", "port": 5514, "formatString": "[ID] [VAL]"}

LOADING = "Starting service...\nloading Event definitions...\n"
CYCLE = "Starting event server...\nlistening...\nServer is listening on /tmp/ov-events\n"
NO_HOST = "Invalid IP address or hostname: Name or service not known\n"
BARE_START = LOADING + CYCLE + NO_HOST
BOUND = "Starting event server...\nlistening...\n"


def socket_inode(sandbox):
    return sandbox.path(SERVICE_SOCKET).stat().st_ino


def descriptor_flags(process):
    """The flags of each descriptor above the standard ones."""
    found = {}
    for descriptor in pathlib.Path(f"/proc/{process.pid}/fdinfo").iterdir():
        if int(descriptor.name) > 2:
            with contextlib.suppress(FileNotFoundError):  # it has just been closed
                text = descriptor.read_text()
                found[descriptor.name] = int(text.split("flags:")[1].split()[0], 8)
    return found


def fill(pipe):
    """Leaves no room in a pipe, by its end for writing."""
    with open(f"/proc/self/fd/{pipe}", "wb", buffering=0) as own:
        os.set_blocking(own.fileno(), False)
        for size in 4096, 1:
            while own.write(b"\n" * size) is not None:
                pass


def held_threads(process):
    """How many threads wait for room in the pipe behind standard output, or for one that does."""
    return sum(call == FUTEX or (call, argument) == (WRITE, 1)
               for call, argument in process.waiting_in)


def run_faulty_service(sandbox, faults, **kwargs):
    """A service that has ended."""
    return sandbox.run(sandbox.executable, "-s", env=sandbox.faulty(FAULTS=faults), **kwargs)


def restart(sandbox, service, cycle, **settings):
    sandbox.write_settings(**SETTINGS, cycle=cycle, **settings)
    service.wait_for_cycle(cycle)
    service.wait_for_line(f"cycle: {cycle}")


# What a start prints

def test_start_without_any_file_prints_exactly_its_steps(sandbox):
    service = sandbox.start_service()
    wait_until(lambda: service.stdout == BARE_START, lambda: service.stdout)
    assert service.stderr == ""


def test_start_with_both_files_prints_exactly_its_steps(sandbox):
    sandbox.write_definitions(ROW)
    sandbox.write_settings(host="127.0.0.1")
    service = sandbox.start_service()
    expected = LOADING + f"loading {DEFINITIONS}\n" + CYCLE + "host: 127.0.0.1\n"
    wait_until(lambda: service.stdout == expected, lambda: service.stdout)
    assert service.stderr == ""


def test_second_cycle_prints_its_steps_and_loads_no_definitions(sandbox):
    sandbox.write_settings(host="127.0.0.1")
    service = sandbox.start_listening_service()
    sandbox.write_settings(host="127.0.0.2")
    expected = LOADING + CYCLE + "host: 127.0.0.1\n" + CYCLE + "host: 127.0.0.2\n"
    wait_until(lambda: service.stdout == expected, lambda: service.stdout)
    assert service.stderr == ""


def test_start_is_visible_at_once_when_standard_output_is_a_file(sandbox):
    log = sandbox.path("/tmp/log")
    with open(log, "wb") as file:
        sandbox.start_service(stdout=file)
    wait_until(lambda: log.read_text() == BARE_START, lambda: log.read_text())


def test_start_is_visible_at_once_when_standard_output_is_a_terminal(sandbox):
    terminal, end_of_service = pty.openpty()
    tty.setraw(end_of_service)
    sandbox.start_service(stdout=end_of_service)
    os.close(end_of_service)
    shown = bytearray()
    reader = threading.Thread(target=lambda: [
        shown.extend(os.read(terminal, 1)) for _ in BARE_START], daemon=True)
    reader.start()
    wait_until(lambda: shown.decode() == BARE_START, lambda: shown)


def test_each_line_is_visible_before_the_next_step(sandbox):
    os.mkfifo(sandbox.path(DEFINITIONS))  # the service waits in its open
    service = sandbox.start_service()
    expected = LOADING + f"loading {DEFINITIONS}\n"
    wait_until(lambda: service.stdout == expected, lambda: service.stdout)
    sandbox.write_definitions(ROW)
    service.wait_for_cycle(1)


def test_listening_is_printed_before_the_socket_file_exists(sandbox):
    service = run_faulty_service(sandbox, "bind:1:13")
    assert service.lines[-1] == "listening..."
    assert not sandbox.path(SERVICE_SOCKET).exists()


def test_socket_file_exists_while_the_service_listens(sandbox):
    sandbox.start_listening_service()
    assert sandbox.path(SERVICE_SOCKET).is_socket()


# What ends a start

# The first three calls of fcntl look at the standard streams.
SETUP_FAILURES = {
    "socket": ("socket:1:24", "Starting event server...\n", "socket: Too many open files\n"),
    "get-flags": ("fcntl:4:22", "Starting event server...\n", "fcntl F_GETFL: Invalid argument\n"),
    "set-flags": ("fcntl:5:22", "Starting event server...\n", "fcntl F_SETFL: Invalid argument\n"),
    "bind": ("bind:1:13", BOUND, "bind: Permission denied\n"),
    "listen": ("listen:1:95", BOUND, "listen: Operation not supported\n"),
    "thread": ("pthread_create:1:11", CYCLE + NO_HOST,
               "Error creating event processing thread: 11\n"),
}
each_setup_failure = pytest.mark.parametrize(
    "faults, progress, error", SETUP_FAILURES.values(), ids=SETUP_FAILURES.keys())


@each_setup_failure
def test_failed_setup_ends_the_service_with_status_1(sandbox, faults, progress, error):
    service = run_faulty_service(sandbox, faults)
    assert (service.stdout, service.stderr) == (LOADING + progress, error)
    assert service.status == 1


@each_setup_failure
def test_failed_setup_is_reported_after_the_steps_before_it(sandbox, faults, progress, error):
    service = run_faulty_service(sandbox, faults, stderr=subprocess.STDOUT)
    assert service.stdout == LOADING + progress + error


@pytest.mark.parametrize("faults, left", [
    ("bind:1:13", False), ("listen:1:95", True), ("pthread_create:1:11", True)])
def test_failed_setup_leaves_a_socket_file_once_there_is_one(sandbox, faults, left):
    run_faulty_service(sandbox, faults)
    assert sandbox.path(SERVICE_SOCKET).exists() == left


@pytest.mark.parametrize("leave", ["touch", "mkdir", "ln -s /nowhere"])
def test_leftover_socket_file_ends_the_service_with_status_1(sandbox, leave):
    sandbox.sh(f"{leave} /tmp/ov-events")
    service = sandbox.run(sandbox.executable, "-s")
    assert service.stdout == LOADING + BOUND
    assert (service.stderr, service.status) == ("bind: Address already in use\n", 1)


def test_second_service_ends_and_leaves_the_first_at_work(sandbox):
    first = sandbox.start_listening_service()
    second = sandbox.run(sandbox.executable, "-s")
    assert (second.stderr, second.status) == ("bind: Address already in use\n", 1)
    client = sandbox.send("perf01")
    first.wait_for_line(client.lines[0])


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGKILL])
def test_signal_ends_the_service_and_leaves_the_socket_file_behind(sandbox, number):
    service = sandbox.start_listening_service()
    service.signal(number)
    assert service.wait() == 128 + number
    assert sandbox.path(SERVICE_SOCKET).is_socket()
    after = sandbox.run(sandbox.executable, "-s")
    assert (after.stderr, after.status) == ("bind: Address already in use\n", 1)


def test_setup_that_fails_in_a_later_cycle_ends_the_service_with_status_1(sandbox):
    sandbox.write_settings(host="127.0.0.1")
    service = sandbox.start_listening_service(env=sandbox.faulty(FAULTS="bind:2:13"))
    sandbox.write_settings(host="127.0.0.2")
    assert service.wait() == 1
    assert service.stdout == LOADING + CYCLE + "host: 127.0.0.1\n" + BOUND
    assert service.stderr == "bind: Permission denied\n"


# Between cycles

def test_socket_file_is_removed_between_cycles(sandbox):
    sandbox.write_settings(**SETTINGS)
    service = sandbox.start_listening_service(env=sandbox.faulty(FAULTS="bind:2:13"))
    sandbox.write_settings(**SETTINGS, cycle=2)
    assert service.wait() == 1
    assert not sandbox.path(SERVICE_SOCKET).exists()


def test_socket_file_is_created_again_in_the_next_cycle(sandbox):
    sandbox.write_settings(**SETTINGS)
    service = sandbox.start_listening_service()
    first = socket_inode(sandbox)
    restart(sandbox, service, 2)
    assert socket_inode(sandbox) != first


def test_client_that_meets_the_gap_between_cycles_tries_again(sandbox):
    sandbox.write_settings(**SETTINGS)
    service = sandbox.start_listening_service(env=sandbox.faulty(DELAYS="bind:2:2000"))
    sandbox.write_settings(**SETTINGS, cycle=2)
    service.wait_for_line("listening...", 2)
    client = sandbox.start_client("perf01", "95")
    assert (client.wait(), client.stderr) == (0, "")
    service.wait_for_line(client.lines[0])


def test_cycles_leave_no_thread_and_no_descriptor_behind(sandbox):
    sandbox.write_settings(**SETTINGS, cycle=1)
    service = sandbox.start_listening_service()
    for cycle in 2, 3, 4:
        restart(sandbox, service, cycle)
    wait_until(lambda: service.threads == 2, lambda: service.threads)
    wait_until(lambda: len(descriptor_flags(service)) == 2, lambda: descriptor_flags(service))


def test_failed_join_is_reported_and_the_next_cycle_starts(sandbox, udp_collector):
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**SETTINGS, cycle=1)
    service = sandbox.start_listening_service(env=sandbox.faulty(FAULTS="pthread_join:1:3"))
    restart(sandbox, service, 2)
    assert service.stderr == "pthread_join: No such process\n"
    sandbox.send("perf01", "95")
    assert udp_collector.wait_for(1) == [b"perf01 95"]


def test_line_of_a_thread_that_could_not_be_joined_is_sent_before_the_socket_is_closed(
        sandbox, udp_collector):
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**SETTINGS)
    service = sandbox.start_listening_service(env=sandbox.hasty(
        FAULTS="pthread_join:1:3", DELAYS="sendto:1:1000"))
    sandbox.send("perf01", "95")
    service.wait_for_line(">>> perf01 95")
    restart(sandbox, service, 2)
    assert udp_collector.wait_for(1) == [b"perf01 95"]
    assert "Error sending message" not in service.lines


# A reader of the output that goes away

def test_service_whose_reader_of_standard_output_is_gone_ends_by_sigpipe_at_its_next_line(sandbox):
    reader, writer = os.pipe()
    service = sandbox.start_service(stdout=writer)
    os.close(writer)
    started = b""
    while not started.endswith(NO_HOST.encode()):
        started += os.read(reader, 4096)
    connection = sandbox.connect()
    with connection:
        os.close(reader)
        connection.sendall(make_record("perf01", "95"))
    service.wait()
    assert service.ended_by == signal.SIGPIPE


def test_service_whose_reader_of_standard_error_is_gone_ends_by_sigpipe_at_its_next_line(sandbox):
    reader, writer = os.pipe()
    os.close(reader)
    service = sandbox.start_service(stderr=writer, env=sandbox.faulty(FAULTS="accept4:2:24"))
    os.close(writer)
    service.wait()
    assert service.ended_by == signal.SIGPIPE


def test_lost_reader_does_not_end_a_service_that_was_started_to_ignore_it(sandbox, udp_collector):
    reader, writer = os.pipe()
    os.close(reader)
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**SETTINGS)
    service = sandbox.start_service(prelude="trap '' PIPE", stderr=writer,
                                    env=sandbox.faulty(FAULTS="accept4:2:24"))
    os.close(writer)
    service.wait_for_cycle(2)
    sandbox.send("perf01", "95")
    assert udp_collector.wait_for(1) == [b"perf01 95"]


def test_reader_that_stops_reading_holds_each_thread_at_its_next_line_and_loses_no_event(sandbox):
    reader, writer = os.pipe()
    os.set_blocking(reader, False)
    printed = bytearray()

    def has_printed(line, count=1):
        with contextlib.suppress(BlockingIOError):
            printed.extend(os.read(reader, 1 << 20))
        return printed.decode().splitlines().count(line) >= count

    sandbox.write_definitions(ROW)
    sandbox.write_settings(**SETTINGS)
    sandbox.hold_events()
    service = sandbox.start_service(stdout=writer, env=sandbox.hasty())
    sandbox.send("perf01", "1")
    wait_until(lambda: has_printed("> Client address is unknown"), lambda: printed)
    fill(writer)
    sandbox.send("perf01", "2")
    wait_until(lambda: held_threads(service) == service.threads, "every thread to be held")
    sandbox.release_events()
    for value in "12":
        wait_until(lambda: has_printed(f">>> perf01 {value}"), lambda: printed)
    assert service.is_running()


# A failed accept

@pytest.mark.parametrize("number, message", [
    (24, "Too many open files"), (4, "Interrupted system call"),
    (103, "Software caused connection abort")])
def test_failed_accept_starts_the_next_cycle(sandbox, number, message):
    service = sandbox.start_service(env=sandbox.faulty(FAULTS=f"accept4:1:{number}"))
    expected = BARE_START + CYCLE + NO_HOST
    wait_until(lambda: service.stdout == expected, lambda: service.stdout)
    assert service.stderr == f"accept: {message}\n"


def test_failed_accept_removes_the_socket_file(sandbox):
    run_faulty_service(sandbox, "accept4:1:24,bind:2:13")
    assert not sandbox.path(SERVICE_SOCKET).exists()


def test_cycle_after_a_failed_accept_creates_the_socket_file_again(sandbox):
    service = sandbox.start_listening_service(
        env=sandbox.faulty(FAULTS="accept4>read@socket:1:24"))
    first = socket_inode(sandbox)
    sandbox.send_bytes(make_record("perf01"))
    service.wait_for_cycle(2)
    assert socket_inode(sandbox) != first


def test_failed_accept_leaves_its_processing_thread_running_beside_the_next(sandbox):
    service = sandbox.start_service(env=sandbox.faulty(FAULTS="accept4:1:24,accept4:2:24"))
    service.wait_for_cycle(3)
    wait_until(lambda: service.threads == 4, lambda: service.threads)


def test_service_with_two_processing_threads_sends_each_event_once(sandbox, udp_collector):
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**SETTINGS)
    service = sandbox.start_service(env=sandbox.faulty(
        FAULTS="accept4:2:24", DELAYS="socket@1:2:1500"))  # half a pause lies between the threads
    service.wait_for_cycle(2)
    for number in range(20):
        sandbox.send("perf01", str(number))
    arrived = udp_collector.wait_for(20)
    assert sorted(arrived) == sorted(f"perf01 {number}".encode() for number in range(20))


def test_next_cycle_leaves_the_socket_open_until_the_line_on_it_is_sent(sandbox, udp_collector):
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**SETTINGS)
    sandbox.hold_events()
    service = sandbox.start_listening_service(env=sandbox.faulty(
        FAULTS="accept4>sendto:1:24,usleep:1+:4",
        DELAYS="sendto:1:500,socket@2>sendto:1:1000,usleep:1+:1"))
    sandbox.send_batch(service, make_record("perf01", "95"))  # and the accept that follows fails
    service.wait_for_cycle(2)
    assert udp_collector.wait_for(1) == [b"perf01 95"]


def test_line_that_is_due_while_the_next_cycle_replaces_the_socket_is_sent(sandbox, udp_collector):
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**SETTINGS)
    service = sandbox.start_listening_service(env=sandbox.hasty(
        FAULTS="accept4>read@socket:1:24", DELAYS="socket@2:2:1000"))
    sandbox.send("perf01", "95")  # and the accept that follows fails, before the next pass
    assert udp_collector.wait_for(1) == [b"perf01 95"]
    service.wait_for_error_line("accept: Too many open files")
    assert len(service.error_lines) == 1
    assert "Error sending message" not in service.lines


def test_changed_settings_also_end_an_older_processing_thread_that_looks_in_time(sandbox):
    sandbox.write_settings(**SETTINGS)
    service = sandbox.start_listening_service(env=sandbox.hasty(
        FAULTS="accept4:2:24", DELAYS="pthread_join:1:5000"))  # it looks ten times a second
    service.wait_for_cycle(2)
    wait_until(lambda: service.threads == 3, lambda: service.threads)
    restart(sandbox, service, 3)
    wait_until(lambda: service.threads == 2, lambda: service.threads)


def test_setup_that_fails_beside_a_running_thread_ends_the_service_with_status_1(sandbox):
    service = run_faulty_service(sandbox, "accept4:1:24,bind:2:13")
    assert service.stdout == BARE_START + BOUND
    assert service.stderr == "accept: Too many open files\nbind: Permission denied\n"
    assert service.status == 1


def test_failed_setup_runs_no_destructors_on_what_another_thread_may_use(sandbox):
    loader_log = {"LD_DEBUG": "files", "LD_DEBUG_OUTPUT": "/tmp/loader"}
    service = sandbox.run(sandbox.executable, "-s",
                          env={**sandbox.faulty(FAULTS="bind:1:13"), **loader_log})
    assert service.status == 1
    [loader] = sandbox.path("/tmp").glob("loader.*")
    assert "calling init: " in loader.read_text()
    assert "calling fini: " not in loader.read_text()


# What the service holds

def test_every_descriptor_is_closed_in_a_program_that_the_service_would_run(sandbox):
    sandbox.write_settings(**SETTINGS)
    service = sandbox.start_listening_service()
    with sandbox.connect():  # says nothing, so that its connection stays for a while
        flags = wait_until(lambda: len(descriptor_flags(service)) == 3 and
                           descriptor_flags(service), lambda: descriptor_flags(service))
    assert [fd for fd, flag in flags.items() if not flag & os.O_CLOEXEC] == []


def test_connection_to_a_tcp_collector_is_closed_in_a_program_that_the_service_would_run(sandbox):
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**SETTINGS, protocol="syslog-tcp")
    service = sandbox.start_listening_service()
    sandbox.send("perf01", "95")
    service.wait_for_error_line("connect: Connection refused")  # its socket stays open
    flags = wait_until(lambda: len(descriptor_flags(service)) == 2 and descriptor_flags(service),
                       lambda: descriptor_flags(service))
    assert [fd for fd, flag in flags.items() if not flag & os.O_CLOEXEC] == []


def test_eleven_clients_that_wait_are_all_served(sandbox):
    service = sandbox.start_listening_service()
    with sandbox.connect():  # holds the service while the others queue up
        waiting = [sandbox.connect() for _ in range(11)]
        for number, connection in enumerate(waiting):
            connection.sendall(b"id%d" % number)
            connection.close()
    service.wait_for_line("Event [id10] () at 0")
    received = [line for line in service.lines if line.startswith("Event [")]
    assert received == [f"Event [id{number}] () at 0" for number in range(11)]


def test_clients_that_wait_are_served_without_a_pause_between_them(sandbox):
    service = sandbox.start_listening_service()
    started = time.monotonic()
    for number in range(50):
        sandbox.send_bytes(b"id%d" % number)
    service.wait_for_line("> Received event", 50)
    assert time.monotonic() - started < 10  # fifty pauses would take fifty seconds


def test_closed_standard_streams_are_not_taken_by_sockets(sandbox):
    service = sandbox.start_service(prelude="exec <&- >&- 2>&-")
    wait_until(sandbox.path(SERVICE_SOCKET).exists, "the service socket")
    descriptors = pathlib.Path(f"/proc/{service.pid}/fd")
    streams = [os.readlink(descriptors / str(number)) for number in range(3)]
    assert streams == ["/dev/null"] * 3
