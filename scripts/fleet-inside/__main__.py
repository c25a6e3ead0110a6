"""The part of scripts/fleet that runs inside the sandbox: leads a fleet through phases and faults,
and holds it to conservation."""

import argparse
import collections
import resource
import shutil
import sys
import time

from chart import draw_chart
from conservation import LOST, judge
from faults import ALL
from fleet import Fleet
from machines import RESULTS, STATE
from phases import STEADY, STORM, Director
from raising import HEARTBEAT
from report import write_report


def read_arguments():
    parser = argparse.ArgumentParser(prog="scripts/fleet")
    parser.add_argument("clients", type=int, metavar="N")
    parser.add_argument("--executable", required=True, help=argparse.SUPPRESS)
    parser.add_argument("--seconds", type=float, default=60, help="of raising, about (60)")
    parser.add_argument("--rate", type=float, default=20,
                        help="events a second of the real client (20)")
    parser.add_argument("--storm", type=int, default=25,
                        help="events of each client in a storm (25)")
    parser.add_argument("--fault", action="append", default=[], choices=ALL, metavar="NAME",
                        help=f"one of {', '.join(ALL)}; may be repeated")
    parser.add_argument("--all-faults", action="store_true", help="each fault once")
    return parser.parse_args()


def set_up():
    """Removes the state of the last run; a failed one's is left for a look."""
    shutil.rmtree(STATE, ignore_errors=True)
    STATE.mkdir(parents=True)
    _, most = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (most, most))


def wrong_losses(fleet, account):
    """Where the database is wrong about the heartbeats that were lost."""
    lost = collections.Counter(
        line.host for rule, lines in account.by_rule.items() if rule.effect == LOST
        for line in lines if line.id == HEARTBEAT)
    told = fleet.lost_by_host()
    return [f"{host} lost {lost[host]} heartbeats, lost_lines says {told.get(host, 0)}"
            for host in lost.keys() | told.keys() if lost[host] != told.get(host, 0)]


def main():
    arguments = read_arguments()
    started = time.monotonic()

    def tell(text):
        print(f"{time.monotonic() - started:7.1f} s  {text}", flush=True)

    set_up()
    fleet = Fleet(arguments.clients, arguments.executable, arguments.rate)
    tell(f"{arguments.clients} services, the relay, the centre and the database run")
    fleet.usage.start()
    log_begin = fleet.log_position()
    names = list(ALL) if arguments.all_faults else arguments.fault
    faults = [ALL[name](fleet) for name in names]
    seconds = arguments.seconds / (2 + len(faults))
    director = Director(fleet, arguments.storm, tell)
    director.run(STEADY, seconds, storms=False)
    director.run(STORM, seconds)
    for fault in faults:
        director.run(fault.name, seconds, fault)
    fleet.read_rows()
    account = judge(fleet.raiser.raised, fleet.sent, fleet.stored,
                    [one for fault in faults for one in fault.allowances()], fleet.senders)
    report = write_report(fleet, director.phases, account, fleet.database_size(log_begin))
    print("\n" + report)
    (RESULTS / "tables.md").write_text(report)
    draw_chart(RESULTS / "chart.png", fleet, director.phases, faults)
    failures = [*account.violations, *wrong_losses(fleet, account),
                *fleet.raiser.failures, *fleet.reader.failures,
                *(f"{fault.name} was not to be seen, so the run tells nothing of it"
                  for fault in faults if not fault.was_seen())]
    for failure in failures[:50]:
        print(failure)
    print(f"Conservation did not hold: {len(failures)} findings." if failures
          else "Conservation held.")
    return 1 if failures else 0


sys.exit(main())
