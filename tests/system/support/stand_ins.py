"""Stand-ins for parts of a machine that the example scripts look at, made in a sandbox."""

import shlex

from .sandbox import REPOSITORY

FORMAT = {"host": "127.0.0.1", "port": 5514, "formatString": "[ID] [VAL]"}
SCRIPTS = REPOSITORY / "examples/scripts"
SCRIPT_FOLDER = "/usr/lib/orvan/ov-event-logger"
USB_DEVICES = "/sys/bus/usb/devices"
SIGNIN_STATE = "/run/ov-event-logger/signin"

# An overlay is a disk to the script; its space is that of the memory file system beneath it.
MAKE_DISK = """
mkdir -p "$1" /tmp/layers
mount -t tmpfs -o size=10m tmpfs /tmp/layers
mkdir /tmp/layers/lower /tmp/layers/upper /tmp/layers/work
mount -t overlay -o lowerdir=/tmp/layers/lower,upperdir=/tmp/layers/upper,workdir=/tmp/layers/work \
    overlay "$1"
head -c "$2" /dev/zero >"$1/file" || [ "$2" = 11M ]
"""

# A file system in user space whose server takes no request: whoever asks it anything waits.
HANG = """
import ctypes, os, sys, time
server = os.open("/dev/fuse", os.O_RDWR)
os.makedirs(sys.argv[1], exist_ok=True)
options = f"fd={server},rootmode=40000,user_id=0,group_id=0".encode()
if ctypes.CDLL(None).mount(b"server:/home", sys.argv[1].encode(), b"fuse.sshfs", 0, options):
    sys.exit("mount")
print("hanging", flush=True)
time.sleep(3600)
"""


def install_scripts(sandbox):
    """Puts the scripts where the service looks for them. The sandbox must keep SCRIPTS."""
    sandbox.sh(f"cp -p /run/kept/{SCRIPTS.name}/*.sh {SCRIPT_FOLDER}")


def script(name):
    return f"{SCRIPT_FOLDER}/{name}"


def replace(sandbox, path, content):
    """Lets a file of the kernel have other content, which is found in the returned file."""
    stand_in = f"/tmp/instead-of{path.replace('/', '-')}"
    sandbox.path(stand_in).write_text(content)
    sandbox.sh(f"mount --bind {stand_in} {path}")
    return stand_in


def replace_command(sandbox, name, body):
    """The environment of a program that finds other commands of that name."""
    command = sandbox.path(f"/tmp/bin/{name}")
    command.parent.mkdir(exist_ok=True)
    command.write_text(f"#!/bin/sh\n{body}\n")
    command.chmod(0o755)
    return {"PATH": "/tmp/bin:/usr/bin:/bin"}


def add_disk(sandbox, used="9M", path="/tmp/disk"):
    """Adds a disk of 10 MiB; used="11M" fills it."""
    made = sandbox.run("sh", "-ec", MAKE_DISK, "sh", path, used)
    assert made.status == 0, made.stderr


def add_hung_mount(sandbox, path):
    server = sandbox.start("python3", "-c", HANG, path)
    server.wait_for_line("hanging")


def replace_sysfs_bus(sandbox):
    """Lets the machine have no USB devices but those that the test plugs in."""
    sandbox.sh(f"mount -t tmpfs tmpfs /sys/bus; mkdir -p {USB_DEVICES}")


def plug(sandbox, place, **attributes):
    """Plugs a USB device in at a place such as "1-2", all at once."""
    device = sandbox.path(USB_DEVICES) / place
    unfinished = sandbox.path(f"/sys/bus/{place}")
    unfinished.mkdir()
    for name, value in attributes.items():
        value = value if isinstance(value, bytes) else value.encode()
        (unfinished / name).write_bytes(value + b"\n")
    unfinished.rename(device)


def unplug(sandbox, place):
    """Unplugs it, all at once too."""
    sandbox.sh(f"mv {USB_DEVICES}/{place} /sys/bus; rm -r /sys/bus/{place}")


def documented_hook():
    """The sign-in hook that the head of the script shows."""
    lines = (SCRIPTS / "vmw-signin-status.sh").read_text().split("\n")
    start = lines.index("#     #!/bin/sh")
    hook = []
    for line in lines[start:]:
        if not line.startswith("#     "):
            break
        hook.append(line.removeprefix("#     "))
    return "\n".join(hook) + "\n"


def sign_in(sandbox, *arguments):
    """Runs the documented hook, as an account whose files anybody may change unless it says so."""
    sandbox.path("/tmp/signin-hook").write_text(documented_hook())
    sandbox.sh(f"umask 0; sh /tmp/signin-hook {shlex.join(arguments)}")


def write_state(sandbox, content):
    state = sandbox.path(SIGNIN_STATE)
    state.parent.mkdir(exist_ok=True)
    state.write_bytes(content)


def output(sandbox, *command, env=None):
    """What a script prints; it must end well and complain of nothing."""
    process = sandbox.run(*command, env=env)
    assert (process.status, process.stderr) == (0, "")
    return process.stdout


def start_service_for(sandbox, allowed, **settings):
    """A service that may forward these events, which it describes as it likes."""
    sandbox.write_definitions(*(f"{event},X,Text,info" for event in allowed.split()))
    sandbox.write_settings(**FORMAT, allowed=allowed, **settings)
    return sandbox.start_listening_service()
