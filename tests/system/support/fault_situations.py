"""The situations of docs/RELIABILITY.md: each starts a service, and perhaps a client, in which the
row's call fails, and brings it to that call."""

import contextlib
import errno
import fcntl
import os
import socket

from .collectors import PORT
from .fault_run import LOG, MARK
from .monitors import Script, stopping, write_status
from .polling import wait_until
from .process import CLOCK_NANOSLEEP
from .sandbox import DEFINITIONS, SETTINGS

STATUS_FILE = "/tmp/ovwsagentstatus"
TCP = {"protocol": "syslog-tcp"}
USB = {"usbDevMon": 1, "allowed": "perf01 sys05 sys06 sys07"}
AGENT = {"agentConnMon": 1, "allowed": "perf01 net02 net03"}
HOLD = "/tmp/hold"
OTHER_PORT = PORT + 1  # where no collector is

# The calls of a function that a unit makes, told from those of others and of the libraries.
DETAILS = {
    ("app/client_sender", "sleep"): 1,
    ("base/standard_streams", "open"): "/dev/null",
    ("config/settings", "access"): SETTINGS,
    ("config/settings", "open64"): SETTINGS,
    ("config/settings", "read"): SETTINGS,
    ("config/settings", "stat"): SETTINGS,
    ("monitors/agent_conn_mon", "fstat"): STATUS_FILE,
    ("monitors/agent_conn_mon", "open"): STATUS_FILE,
    ("monitors/child_process", "poll"): "pipe",
    ("monitors/child_process", "read"): "pipe",
    ("monitors/monitor", "sleep"): 3,
    ("output/tcp_syslog_sender", "connect"): int(socket.AF_INET),
    ("output/tcp_syslog_sender", "socket"): int(socket.AF_INET),
    ("output/udp_syslog_sender", "socket"): int(socket.AF_INET),
    ("service/event_catalogue", "access"): DEFINITIONS,
    ("service/event_catalogue", "open64"): DEFINITIONS,
    ("service/event_intake", "poll"): "socket",
    ("service/event_intake", "read"): "socket",
    ("service/processing_thread", "sleep"): 3,
    ("service/run_cycle", "socket"): int(socket.AF_UNIX),
}
GIVE_UP = f"poll@pipe:1:{errno.EIO}"  # the first program; with an error that is in no row
A_CLIENT = "read@socket"  # the call that tells that a client was taken in


def place(row, call=1, detail=None, after=""):
    """The row's call in the form of OV_FAULTS, without the error."""
    detail = detail or (getattr(fcntl, row.variant) if row.variant else
                        DETAILS.get((row.unit, row.function)))
    return (row.function + (f"@{detail}" if detail is not None else "")
            + (f">{after}" if after else "") + f":{call}")


def start(run, **settings):
    run.start_service(place(run.row), **settings)


# Clients

def start_client(run, call=1, others=()):
    run.start_service()
    run.service.wait_for_cycle(1)
    run.start_client(place(run.row, call), *others)


def fail_every_try(run):
    start_client(run, "1+")


def fail_the_pause(run):
    start_client(run, others=[f"connect:1:{errno.ECONNREFUSED}"])


# Starts and cycles

def start_without_input(run):
    run.start_service(place(run.row), closed_input=True)


def read_definitions(run):
    """With a monitor only where nobody looks for its events' descriptions in vain."""
    if run.row.outcome == "no event is defined":
        write_usb_script(run, "echo A")
        monitor = {**USB, "formatString": "[ID] [VAL] [DESC]"}
    else:
        monitor = {}
    run.start_service(place(run.row, detail=DEFINITIONS), **monitor)


def begin_first_cycle(run):
    second = (run.row.function, run.row.caller) == ("access", "QSettings::QSettings")
    run.start_service(place(run.row, 2 if second else 1))


def begin_first_cycle_over_tcp(run):
    start(run, **TCP)


def change_settings(run, call=1, change=(), **settings):
    """Lets the call fail after a client was taken in, then changes the settings. The first look at
    the settings, which comes without a change, is over by then: the first pause follows it."""
    run.start_service(place(run.row, call, after=A_CLIENT), **settings)
    run.service.wait_for_cycle(1)
    run.service.wait_for_call(CLOCK_NANOSLEEP)
    run.raise_arriving_event()
    run.change_settings(**dict(change))


def change_collector(run):
    change_settings(run, change={"port": OTHER_PORT})


def change_collector_over_tcp(run):
    change_settings(run, change={"port": OTHER_PORT}, **TCP)


def change_protocol(run):
    run.start_service(place(run.row, 2))
    run.service.wait_for_cycle(1)
    run.change_settings(**TCP)
    run.service.wait_for_cycle(2)


def look_at_settings(run):
    start(run)
    run.wait_until_failed()


# Clients at the service

def look_for_client(run):
    run.start_service(place(run.row, after=A_CLIENT))
    run.raise_event()


def let_clients_wait(run):
    run.start_service(place(run.row, after=A_CLIENT))
    connection, _, record = run.open_client()
    wait_until(lambda: len(run.service.descriptors) == 3, "a client that is taken in")
    run.raise_struck_event()
    run.raise_struck_event()
    with connection:
        connection.sendall(record)
    run.service.wait_for_cycle(2)  # only then does no client reach the socket that is given up


def raise_one_event(run, is_slow=False):
    start(run)
    connection, values, record = run.open_client()
    run.struck.add(values)
    with connection, contextlib.suppress(BrokenPipeError):  # the service has hung up
        if is_slow:
            run.wait_until_failed()
            run.wait_until_printed()
        connection.sendall(record)


def take_in_slow_client(run):
    raise_one_event(run, is_slow=True)


def read_from_slow_client(run):
    run.start_service(f"read@socket:1:{errno.EAGAIN}", "read@socket:2")
    run.raise_struck_event()


def give_up_silent_client(run):
    run.start_service("poll@socket:1:-1", place(run.row))
    connection, values, _ = run.open_client()
    run.struck.add(values)
    with connection:
        run.wait_until_printed()


# Passes

def begin_pass(run):
    run.start_service(place(run.row, after=A_CLIENT))
    run.raise_event()


def send_batch_over_tcp(run):
    start(run, **TCP)
    run.raise_event()


def send_line(run, **settings):
    run.start_service(place(run.row, 2), **settings)
    run.raise_arriving_event()
    run.raise_struck_event()


def send_line_over_tcp(run):
    send_line(run, **TCP)


# Ends of cycles

def hold_end_of_cycle(run, waiting):
    """Lets the cycle wait for a monitor's script once it takes in no more clients."""
    write_usb_script(run, f"while [ -e {HOLD} ]; do sleep 0.01; done")
    run.sandbox.path(HOLD).touch()
    run.start_service(place(run.row, after="shutdown"), usbDevMon=1)
    run.raise_arriving_event()
    run.change_settings(usbDevMon=0)
    run.service.wait_for_line(stopping("usbDevMon"))
    for _ in range(waiting):
        run.raise_struck_event()
    run.sandbox.path(HOLD).unlink()


def end_cycle_with_clients(run):
    hold_end_of_cycle(run, waiting=2)


def end_cycle_without_client(run):
    hold_end_of_cycle(run, waiting=0)


def stop_monitor(run):
    """The processing thread is joined first."""
    write_usb_script(run, ":")
    change_settings(run, call=2, usbDevMon=1)


# Monitors

def write_usb_script(run, commands):
    Script(run.sandbox, "usb-devices.sh").write(f"#!/bin/sh\n{commands}\n")


def run_program(run, *faults):
    write_usb_script(run, "echo A")
    run.start_service(*faults or [place(run.row)], **USB)


def make_input(run):
    input_end = {"posix_spawn_file_actions_adddup2": {"detail": str(0)}}
    run_program(run, place(run.row, 1, **input_end.get(run.row.function, {})))


def make_output(run):
    if run.row.function == "pipe2":
        run_program(run, place(run.row, 2))
    else:
        run_program(run, place(run.row, detail=1))


def end_program(run):
    run_program(run, place(run.row, detail=os.WNOHANG))


def end_program_that_printed(run):
    """Fails both times that the output is looked at, or the end of one program and the next."""
    run_program(run, place(run.row, 1), place(run.row, 2))


def go_on_until_failed(run):
    """What lets a program go on until the row's call has failed."""
    return f"until grep -qx '{run.failure}' {LOG}; do sleep 0.01; done"


def run_program_on(run):
    write_usb_script(run, f"echo A\n{go_on_until_failed(run)}")
    run.start_service(place(run.row), **USB)


def run_silent_program(run):
    write_usb_script(run, f"[ -e {MARK} ] && exec echo A\n: >{MARK}\nexec sleep 0.5")
    run.start_service(place(run.row), **USB)


def kill_program(run, *faults):
    """Lets the first program run until it is killed, or until that has failed."""
    write_usb_script(run, f"{go_on_until_failed(run)}\necho A")
    run.start_service(*faults, **USB)


def leave_output_unread(run):
    """Fails once the program has printed, which a look that failed before has left in the pipe."""
    write_usb_script(run, f"[ -e {MARK} ] && exec echo A\n: >{MARK}\necho A\nexec sleep 10")
    run.start_service(f"ioctl:1:{errno.EBADF}", f"{run.row.function}>ioctl:1", **USB)


def give_up_program(run):
    kill_program(run, GIVE_UP, place(run.row))


def end_given_up_program(run):
    is_poll = run.row.function == "poll"
    kill_program(run, GIVE_UP, "poll@anon_inode:1" if is_poll else "waitpid>kill:1")


def end_program_without_descriptor(run):
    kill_program(run, f"pidfd_open:1:{errno.EMFILE}", "waitpid@0:1")


def read_agent_status(run):
    """Fails once the agent was seen connected. Each look at it reads twice."""
    write_status(run.sandbox, "1", "2", "CONNECTED")
    run.start_service(
        place(run.row, 3 if run.row.function == "read" else 2, detail=STATUS_FILE), **AGENT)


SITUATIONS = {
    "a client starts": start_client,
    "a client tries to connect": start_client,
    "every try of a client to connect": fail_every_try,
    "a client pauses between two tries": fail_the_pause,
    "a client sends its event": start_client,
    "the service starts": start,
    "the service starts without standard input": start_without_input,
    "the definitions are read": read_definitions,
    "the first cycle begins": begin_first_cycle,
    "the first cycle over TCP begins": begin_first_cycle_over_tcp,
    "a later cycle begins": change_settings,
    "a later cycle has another collector": change_collector,
    "a later cycle over TCP has another collector": change_collector_over_tcp,
    "a later cycle has another protocol": change_protocol,
    "the service looks at its settings": look_at_settings,
    "a changed file is looked at": change_settings,
    "the service looks for a client": look_for_client,
    "clients wait to be taken in": let_clients_wait,
    "the service pauses between two looks": start,
    "a client is taken in": raise_one_event,
    "a slow client is taken in": take_in_slow_client,
    "a slow client has written": read_from_slow_client,
    "a silent client is given up": give_up_silent_client,
    "a pass begins": begin_pass,
    "a line is sent": send_line,
    "a batch is sent over TCP": send_batch_over_tcp,
    "a line is sent over TCP": send_line_over_tcp,
    "the processing thread pauses": start,
    "a cycle ends": change_settings,
    "no client waits as a cycle ends": end_cycle_without_client,
    "clients wait as a cycle ends": end_cycle_with_clients,
    "a monitor starts": run_program,
    "a monitor pauses": run_program,
    "a monitor is stopped": stop_monitor,
    "the input of a program is made": make_input,
    "the output of a program is made": make_output,
    "a program is started": run_program,
    "a program runs": run_program,
    "a program runs that has not printed": run_silent_program,
    "what a program printed is not yet read": leave_output_unread,
    "a program that goes on has printed": run_program_on,
    "a program has printed and ended": end_program_that_printed,
    "a program has ended": end_program,
    "a program is given up": give_up_program,
    "a program that is given up ends": end_given_up_program,
    "a program without a descriptor ends": end_program_without_descriptor,
    "the agent's status is read": read_agent_status,
}
