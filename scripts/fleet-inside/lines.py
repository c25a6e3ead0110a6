"""The line of an event, as a service prints it and as the database stores it."""

import dataclasses
import re

FACILITIES = ("kern", "user", "mail", "daemon", "auth", "syslog", "lpr", "news", "uucp", "cron",
              "authpriv", "ftp", "ntp", "audit", "alert", "clock", *(f"local{n}" for n in range(8)))
SEVERITIES = ("emerg", "alert", "crit", "err", "warn", "notice", "info", "debug")

# The recommended line of examples/collector/ov-event-logger.ini. Over TCP no line has blanks at its
# ends.
RECOMMENDED = re.compile(
    r'<(?P<priority>\d+)>1 - (?P<host>\S+) ov-event-logger - (?P<id>\S+) \[ev@32473 '
    r'ip="(?P<address>[^"]*)" sev="(?P<severity>[^"]*)" at="(?P<at>[^"]*)" '
    r'desc="(?P<description>[^"]*)"\](?: (?P<values>.*))?', re.DOTALL)


@dataclasses.dataclass(frozen=True, slots=True)
class Line:
    host: str
    address: str
    id: str
    description: str
    values: str
    severity: str
    facility: str
    at: str

    @property
    def event(self):
        """What a raised event and its line have in common."""
        return self.host, self.id, self.values


def parse(text):
    """The fields of a line of the recommended form, or None."""
    match = RECOMMENDED.fullmatch(text.strip())
    if match is None or int(match["priority"]) >= 8 * len(FACILITIES):
        return None
    facility, severity = divmod(int(match["priority"]), 8)
    if SEVERITIES[severity] != match["severity"]:
        return None
    return Line(match["host"], match["address"], match["id"], match["description"],
                match["values"] or "", match["severity"], FACILITIES[facility], match["at"])
