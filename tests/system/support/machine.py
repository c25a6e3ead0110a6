"""The machine that the example scripts look at: parts of it that a test replaces in a sandbox, and
what else is known of it."""

import json
import pathlib
import shlex
import shutil

from .sandbox import REPOSITORY

SCRIPTS = REPOSITORY / "examples/scripts"
SCRIPT_FOLDER = "/usr/lib/orvan/ov-event-logger"
USB_DEVICES = "/sys/bus/usb/devices"
SIGNIN_STATE = "/run/ov-event-logger/signin"
DISK_KINDS = ("ext4", "xfs", "btrfs", "vfat", "overlay")

# To the script an overlay is a disk; its space is that of the memory file system beneath it.
MAKE_DISK = """
mkdir -p "$1" /tmp/layers
mount -t tmpfs -o size=10m tmpfs /tmp/layers
mkdir /tmp/layers/lower /tmp/layers/upper /tmp/layers/work
mount -t overlay -o lowerdir=/tmp/layers/lower,upperdir=/tmp/layers/upper,workdir=/tmp/layers/work \
    overlay "$1"
head -c "$2" /dev/zero >"$1/file" || [ "$2" = 11M ]
"""

# A file system in user space whose server answers no request: whoever asks it anything waits.
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

COMMA_LOCALE = """
comment_char %
escape_char /
LC_NUMERIC
decimal_point ","
thousands_sep "."
grouping 3;3
END LC_NUMERIC
"""


def install_scripts(sandbox):
    """Puts the scripts where the service looks for them."""
    for path in SCRIPTS.glob("*.sh"):
        shutil.copy(path, sandbox.path(SCRIPT_FOLDER))


def script(name):
    return f"{SCRIPT_FOLDER}/{name}.sh"


def output(sandbox, *command, env=None):
    """What a script prints; it must end well and print no error."""
    process = sandbox.run(*command, env=env)
    assert (process.status, process.stderr) == (0, "")
    return process.stdout


def start_service_for(sandbox, allowed, **settings):
    """A service that may forward these events."""
    sandbox.write_definitions(*(f"{event},X,Text,info" for event in allowed.split()))
    sandbox.write_settings(host="127.0.0.1", port=5514, formatString="[ID] [VAL]", allowed=allowed,
                           **settings)
    return sandbox.start_listening_service()


def replace(sandbox, path, content):
    """Lets a file of the kernel have other content, which is found in the returned file."""
    fake = f"/tmp/fake{path.replace('/', '-')}"
    sandbox.path(fake).write_text(content)
    sandbox.sh(f"mount --bind {fake} {path}")
    return fake


def replace_command(sandbox, name, body):
    """The environment of a program that finds a fake command of that name."""
    command = sandbox.path(f"/tmp/bin/{name}")
    command.parent.mkdir(exist_ok=True)
    command.write_text(f"#!/bin/sh\n{body}\n")
    command.chmod(0o755)
    return {"PATH": "/tmp/bin:/usr/bin:/bin"}


def add_disk(sandbox, used, path="/tmp/disk"):
    """Adds a disk of 10 MiB; used="11M" fills it."""
    made = sandbox.run("sh", "-ec", MAKE_DISK, "sh", path, used)
    assert made.status == 0, made.stderr


def add_hung_mount(sandbox, path):
    sandbox.start("/usr/bin/python3", "-c", HANG, path).wait_for_line("hanging")


def use_of_fullest_disk(sandbox):
    """The use of the fullest disk that can be written to, as the script prints it."""
    listed = sandbox.run("findmnt", "--json", "--list", "--bytes",
                         "--output=TARGET,FSTYPE,OPTIONS,USED,AVAIL").stdout
    # Of mounts on one another the last is the one that is seen. One that another hides has no size.
    mounts = {mount["target"]: mount for mount in json.loads(listed)["filesystems"]}
    use = max(10000 * mount["used"] // (mount["used"] + mount["avail"])
              for mount in mounts.values() if mount["used"] and mount["fstype"] in DISK_KINDS
              and "rw" in mount["options"].split(","))
    return f"{min(use, 9999) / 100:.2f}"


def add_comma_locale(sandbox):
    """The environment of a program whose numbers have a decimal comma."""
    sandbox.path("/tmp/comma.src").write_text(COMMA_LOCALE)
    sandbox.run("localedef", "-c", "--no-archive", "-i", "/tmp/comma.src", "-f", "ANSI_X3.4-1968",
                "/tmp/comma")  # warns of all the categories that it lacks
    return {"LOCPATH": "/tmp", "LC_ALL": "comma"}


def remove_usb_devices(sandbox):
    """Lets the machine have no USB devices but those that the test plugs in."""
    sandbox.sh(f"mount -t tmpfs tmpfs /sys/bus; mkdir -p {USB_DEVICES}")


def plug(sandbox, port, **attributes):
    """Plugs a USB device in at a port such as "1-2", all at once."""
    device = sandbox.path("/sys/bus") / port
    device.mkdir()
    for name, value in attributes.items():
        value = value if isinstance(value, bytes) else value.encode()
        (device / name).write_bytes(value + b"\n")
    device.rename(sandbox.path(USB_DEVICES) / port)


def unplug(sandbox, port):
    """Unplugs it, all at once too."""
    sandbox.sh(f"mv {USB_DEVICES}/{port} /sys/bus; rm -r /sys/bus/{port}")


def sign_in(sandbox, *arguments):
    """Runs the hook that the head of the sign-in script documents, with the widest umask."""
    head = pathlib.Path(SCRIPTS / "vmw-signin-status.sh").read_text().split("#     #!/bin/sh\n")[1]
    hook = "".join(f"{line[6:]}\n" for line in head[:head.index("\n#\n")].split("\n"))
    sandbox.path("/tmp/signin-hook").write_text(hook)
    sandbox.sh(f"umask 0; sh /tmp/signin-hook {shlex.join(arguments)}")
