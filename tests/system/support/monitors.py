"""What the built-in monitors look at, as a test sets it up: scripts whose every run is known, the
client's process, the agent's status; and a service that runs monitors over them."""

import itertools

from .polling import wait_until

FOLDER = "/usr/lib/orvan/ov-event-logger"
STATUS_FILE = "/tmp/ovwsagentstatus"
CLIENT = "/tmp/horizon-client"

NAMES = {"usbDevMon": "USB Device Monitor", "vmwSigninMon": "Omnissa Signin Monitor",
         "agentConnMon": "Secure Connection Monitor", "perfMon": "Performance Monitor"}
EVENTS = ("perf01", "perf02", "perf03", "sys05", "sys06", "sys07", "sec03", "sec04", "net02",
          "net03")
ROWS = [f"{event},label,text,info" for event in (*EVENTS, "end")]
SETTINGS = {"host": "127.0.0.1", "port": 5514, "formatString": "[ID] [VAL]"}

# Each set of answers has a folder, each word that the script is run with has one in it: the first
# run with that word prints the file 1, the second the file 2, and when there are no more, the last
# is printed again.
ANSWERING = """#!/bin/sh
echo "$*" >>{log}
cd {answers}/"word-$1" 2>/dev/null || exit 1
read -r run <next
echo $((run + 1)) >next
[ -e "$run" ] || run=last
exec /bin/cat "$run"
"""

PGREP = """echo "$#" "$*" >>/tmp/pgrep.calls
exec /usr/bin/pgrep "$@"
"""


class Script:
    """A script that the service runs, kept as the test last wrote it."""

    def __init__(self, sandbox, name, folder=FOLDER):
        self.inside = f"{folder}/{name}"
        self.path = sandbox.path(self.inside)
        self.log = f"/tmp/{name}.runs"
        self._sandbox = sandbox
        self._log = sandbox.path(self.log)
        self._sets = (f"/tmp/{name}.{number}" for number in itertools.count())

    def write(self, content, mode=0o755):
        """Puts a file in the place of the script. A run that is under way keeps the old one."""
        new = self.path.with_suffix(".new")
        new.write_bytes(content.encode() if isinstance(content, str) else content)
        new.chmod(mode)
        new.rename(self.path)

    def write_shell(self, commands):
        """Lets the script note its run and then be these commands."""
        self.write(f'#!/bin/sh\necho "$*" >>{self.log}\n{commands}\n')

    def answer(self, *outputs, **outputs_by_word):
        """Lets the runs from now on print these outputs in turn, and the last again and again."""
        answers = next(self._sets)
        for word, texts in {"": outputs, **outputs_by_word}.items():
            folder = self._sandbox.path(f"{answers}/word-{word}")
            folder.mkdir(parents=True)
            texts = [text.encode() if isinstance(text, str) else text for text in texts] or [b""]
            for number, text in enumerate(texts, 1):
                (folder / str(number)).write_bytes(text)
            (folder / "last").write_bytes(texts[-1])
            (folder / "next").write_text("1\n")
        self.write(ANSWERING.format(log=self.log, answers=answers))

    @property
    def runs(self):
        """The arguments of each run so far."""
        return self._log.read_text().split("\n")[:-1] if self._log.exists() else []

    def wait_for_runs(self, count):
        """Waits until the script has been run that often. A run that has begun tells that the
        monitor has done with all before it."""
        wait_until(lambda: len(self.runs) >= count, lambda: f"{count} runs in {self.runs}")

    def wait_for_more_runs(self, count):
        self.wait_for_runs(len(self.runs) + count)


def settings(*switches, allowed=(*EVENTS, "end"), **more):
    """Settings that enable these monitors and allow these events."""
    return {**SETTINGS, **dict.fromkeys(switches, 1), "allowed": " ".join(allowed), **more}


def begin_service(sandbox, *switches, env=None, rows=ROWS, **more):
    """Starts a service with these settings; its pauses are short unless `env` says otherwise."""
    sandbox.write_definitions(*rows)
    sandbox.write_settings(**settings(*switches, **more))
    return sandbox.start_service(env=sandbox.short_pauses() if env is None else env)


def start_monitors(sandbox, *switches, **more):
    """Starts a service and waits until it has started its monitors and accepts clients."""
    service = begin_service(sandbox, *switches, **more)
    for switch in switches:
        service.wait_for_line(starting(switch))
    service.wait_for_cycle(1)
    return service


def reload(sandbox, service, cycle, *switches, **more):
    """Lets the service start its `cycle`th cycle, with these settings and no others."""
    sandbox.write_settings(**settings(*switches, **more), cycle=cycle)
    service.wait_for_line(f"cycle: {cycle}")
    service.wait_for_cycle(cycle)


def starting(switch):
    return f"Starting monitor: {NAMES[switch]}"


def stopping(switch):
    return f"Stopping monitor: {NAMES[switch]}"


def arrived(sandbox, collector):
    """All that was raised before this call, as it arrived: the queue keeps the order, so it is
    there once an event of a client is that is sent now."""
    end = b"end %d" % len(collector.messages)
    sandbox.send("end", end.split()[1].decode())
    wait_until(lambda: end in collector.messages, lambda: f"{end} in {collector.messages}")
    messages = collector.messages[:collector.messages.index(end)]
    return [message for message in messages if not message.startswith(b"end ")]


def start_client(sandbox):
    """A process named as the client is."""
    if not sandbox.path(CLIENT).exists():
        sandbox.sh(f"cp /bin/sleep {CLIENT}")
    client = sandbox.start(CLIENT, "infinity")
    wait_until(lambda: client.facts.name() == "horizon-client", "the client's name")
    return client


def own_pgrep(sandbox, commands=PGREP):
    """A pgrep that notes its runs, and the environment of a service that finds it."""
    sandbox.path("/tmp/bin").mkdir()
    pgrep = Script(sandbox, "pgrep", "/tmp/bin")
    pgrep.write_shell(commands)
    return pgrep, {**sandbox.short_pauses(), "PATH": "/tmp/bin"}


def write_status(sandbox, *lines):
    """Replaces the agent's status file by one of these lines."""
    new = sandbox.path(STATUS_FILE + ".new")
    new.write_bytes("".join(f"{line}\n" for line in lines).encode())
    new.rename(sandbox.path(STATUS_FILE))


def wait_until_checked(service):
    """Waits until a check of the agent has ended that began after this call: each tells its status
    first."""
    before = len(service.error_lines)
    wait_until(lambda: len(service.error_lines) >= before + 3, lambda: service.error_lines)


def wait_until_nothing_is_left(service, monitors=0):
    """Waits for a moment, between two polls, in which the service has no child process, no
    descriptor but its listening socket and the one that it sends from, and no thread but the first,
    the processing thread and those of the monitors."""
    wait_until(
        lambda: not service.children and service.threads == 2 + monitors and sorted(
            target.split(":")[0] for target in service.descriptors.values()) == ["socket"] * 2,
        lambda: f"{service.children}, {service.descriptors}, {service.threads} threads")
