"""ov-event-check in a sandbox."""

import json
import os

from .sandbox import REPOSITORY

PAGES = REPOSITORY / "docs/ANSWERS.md"

# What runs a program as a user without rights.
NOBODY = ("setpriv", "--reuid=65534", "--regid=65534", "--clear-groups")


def has_users():
    """Whether there is any user but root: a user's own namespace has none."""
    with open("/proc/self/uid_map") as mapping:
        return int(mapping.read().split()[2]) > 65534


class Check:
    """Runs the program in a sandbox that keeps it."""

    PROGRAM = os.environ["OV_CHECK"]

    def __init__(self, sandbox):
        self._sandbox = sandbox
        self.program = f"/run/kept/{os.path.basename(self.PROGRAM)}"

    def run(self, *arguments, user=(), **kwargs):
        return self._sandbox.run(*user, self.program, *arguments, **kwargs)

    def json(self, *arguments, **kwargs):
        return json.loads(self.run("--json", *arguments, **kwargs).stdout_bytes)

    def findings(self, *arguments, **kwargs):
        """Each as "LEVEL CAUSE FILE:LINE", as far as it has a place."""
        found = []
        for finding in self.json(*arguments, **kwargs)["findings"]:
            place = [str(finding[name]) for name in ("file", "line") if name in finding]
            found.append(f"{finding['level']} {finding['cause']} {':'.join(place)}".rstrip())
        return found
