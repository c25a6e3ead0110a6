"""What bash and zsh complete, in a sandbox with definitions."""

import os
import pathlib
import pty
import re
import subprocess
import termios

import pytest

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
CAUSES = re.findall(r"^### (.*)", (REPOSITORY / "docs/ANSWERS.md").read_text(), re.MULTILINE)
KEYS = re.findall(r"^(\w+)=", (REPOSITORY / "examples/ov-event-logger.ini").read_text(),
                  re.MULTILINE)
OPTIONS = {"--settings", "--definitions", "--offline", "--json", "--explain", "--help", "--version"}
FALLBACK = "/tmp/ov-event-def.csv"
DEFINITIONS = "/usr/lib/orvan/ov-event-logger/ov-event-def.csv"
ROWS = """# a comment, b, c, d
perf01, CPU, Processor use, warn
 sys05 ,USB,A device: $(touch /tmp/harm),info
$(touch${IFS}/tmp/harm), a, b, info
short, a, b
"""
BASH = """
. /usr/share/bash-completion/bash_completion
_completion_loader "$2"
COMP_LINE=$1 COMP_POINT=${#1} COMP_WORDS=("${@:2}") COMP_CWORD=$(($# - 2))
function=$(complete -p "$2" | sed 's/.* -F \\([^ ]*\\) .*/\\1/')
$function "$2"
printf '%s\\n' "${COMPREPLY[@]}"
"""
PROMPT = b"ready> "
ZSHRC = f"""
PS1="{PROMPT.decode()}"
fpath=(/tmp/shell/completions $fpath)
autoload -U compinit
compinit -u -d /tmp/compdump
setopt list_rows_first
bindkey '^I' list-choices
"""


@pytest.fixture(scope="module")
def shell_folder(tmp_path_factory):
    """Holds the completions as the package installs them."""
    folder = tmp_path_factory.mktemp("shell")
    (folder / "completions").mkdir()
    for source in (REPOSITORY / "packaging/completions").iterdir():
        (folder / "completions" / source.name).write_text(
            source.read_text().replace("@CAUSES@", " ".join(CAUSES)).replace(
                "@KEYS@", " ".join(KEYS)))
    (folder / "completions/ov-event-logger").symlink_to("ov-event-check")
    (folder / ".zshrc").write_text(ZSHRC)
    (folder / "rows.csv").write_text("door01, a, b, warn\n")
    return folder


def in_sandbox(folder, files, *command):
    """The command that runs this one, with these definitions, in an empty folder."""
    writes = "".join(f'printf %s "$1" >{path}; shift; ' for path in files)
    return [REPOSITORY / "scripts/sandbox", "--keep", folder, "sh", "-ec",
            f'ln -s /run/kept/{folder.name} /tmp/shell; {writes} mkdir /tmp/empty; cd /tmp/empty; '
            '"$@"; test ! -e /tmp/harm', "sh", *files.values(), *command]


def complete_in_bash(folder, line, files):
    """The choices, without the folders of paths."""
    words = re.findall(r"=|[^\s=]+", line) + [""] * line.endswith(" ")
    process = subprocess.run(
        in_sandbox(folder, files, "env", "BASH_COMPLETION_USER_DIR=/tmp/shell", "bash", "-c", BASH,
                   "bash", line, *words), stdout=subprocess.PIPE, check=True, text=True)
    return {choice.rsplit("/", 1)[-1] for choice in process.stdout.split()}


def complete_in_zsh(folder, line, files):
    """The choices, and the lines in which zsh shows them."""
    reader, writer = pty.openpty()
    termios.tcsetwinsize(reader, (100, 70))
    with subprocess.Popen(
            in_sandbox(folder, files, "env", "ZDOTDIR=/tmp/shell", "TERM=dumb", "zsh", "-d", "-i"),
            stdin=writer, stdout=writer, stderr=writer) as process:
        os.close(writer)
        read_until(reader, PROMPT)
        os.write(reader, f"{line}\t\x15exit\r".encode())
        shown = read_until(reader, None)
    os.close(reader)
    assert process.returncode == 0
    lines = [line.strip() for line in shown.split("\r\n")]
    lines = lines[1:next(i for i, line in enumerate(lines) if "exit" in line)]
    return {word for line in lines for word in line.split(" -- ")[0].split()}, lines


def read_until(reader, text):
    """What a terminal shows until this text, or its end."""
    shown = b""
    while text is None or text not in shown:
        try:
            shown += os.read(reader, 4096)
        except OSError:  # nobody holds the other end any more
            break
    return shown.decode()


@pytest.mark.parametrize("line, choices", [
    ("ov-event-logger ", {"-s", "-e"}),
    ("ov-event-logger -s ", set()),
    ("ov-event-logger -e ", {"perf01", "sys05"}),
    ("ov-event-logger -e p", {"perf01"}),
    ("ov-event-check --", OPTIONS),
    ("ov-event-check --offline s", {"settings", "script"}),
    ("ov-event-check --explain ", set(CAUSES)),
    ("ov-event-check --explain=no-h", {"no-header", "no-host"}),
    ("ov-event-check settings ", set(KEYS)),
    ("ov-event-check --settings /tmp/shell/r", {"rows.csv"}),
    ("ov-event-check --definitions=/tmp/shell/r", {"rows.csv"}),
    ("ov-event-check --json event ", {"perf01", "sys05"}),
    ("ov-event-check event perf01 ", set()),
    ("ov-event-check --definitions /tmp/shell/rows.csv event ", {"door01"}),
    ("ov-event-check --definitions=/tmp/shell/rows.csv event ", {"door01"}),
    ("ov-event-check script ", {"perf.sh", "usb-devices.sh", "vmw-signin-status.sh"})])
def test_both_shells_offer_the_same(shell_folder, line, choices):
    files = {DEFINITIONS: ROWS}
    assert complete_in_bash(shell_folder, line, files) == choices
    assert complete_in_zsh(shell_folder, line, files)[0] == choices


def test_first_word_is_a_command_or_an_option(shell_folder):
    commands = {"event", "settings", "script"}
    assert complete_in_bash(shell_folder, "ov-event-check ", {}) == commands | OPTIONS
    assert complete_in_zsh(shell_folder, "ov-event-check ", {})[0] == commands


def test_zsh_shows_descriptions_and_runs_nothing_of_them(shell_folder):
    _, lines = complete_in_zsh(shell_folder, "ov-event-logger -e ", {DEFINITIONS: ROWS})
    assert lines == ["perf01  -- Processor use", "sys05   -- A device: $(touch /tmp/harm)"]


@pytest.mark.parametrize("files, choices", [
    ({FALLBACK: ROWS}, {"perf01", "sys05"}),
    ({FALLBACK: ROWS, DEFINITIONS: "sys10, a, b, info"}, {"sys10"}),
    ({}, set())], ids=["alone", "beside", "no-file"])
def test_fallback_counts_only_without_the_definitions(shell_folder, files, choices):
    assert complete_in_bash(shell_folder, "ov-event-check event ", files) == choices
    assert complete_in_zsh(shell_folder, "ov-event-check event ", files)[0] == choices
