"""The alerts, as the programs of Prometheus understand them."""

import json

import pytest
from aiosmtpd.controller import Controller

from centre import store
from support.polling import wait_until

FILES = ["ov-queries.yml", "ov-rules.yml", "prometheus.yml", "alertmanager.yml"]


def faster(text):
    """The same without the waits."""
    for slow, fast in {"_interval: 1m": "_interval: 1s", "for: 2m": "for: 1s",
                       "group_wait: 30s": "group_wait: 1s"}.items():
        text = text.replace(slow, fast)
    return text


@pytest.fixture(scope="session")
def prometheus(debian):
    for name in FILES:
        debian.install(f"prometheus/{name}", f"/etc/prometheus/{name}")
    return debian


def test_the_files_are_correct(prometheus):
    prometheus.run("promtool", "check", "config", "/etc/prometheus/prometheus.yml")
    prometheus.run("amtool", "check-config", "/etc/prometheus/alertmanager.yml")


@pytest.mark.parametrize("alert, series, minute", [
    # The first minute at which it fires.
    ("MachinesSilent", {"ov_fleet_silent_machines": "0 1+0x9"}, 3),
    ("LinesLost", {"ov_fleet_lost_heartbeats": "5+0x4 6+0x9"}, 5),
    ("DisksFull", {"ov_fleet_full_disks": "0 1"}, 1),
    ("ManySignInsFail", {"ov_fleet_failed_sign_ins": "20 21"}, 1),
    ("ManyDisconnected", {"ov_fleet_disconnected_machines": "10 11+0x9",
                          "ov_fleet_machines": "100+0x9"}, 3),
    ("ManyDisconnected", {"ov_fleet_disconnected_machines": "100 101+0x9",
                          "ov_fleet_machines": "2000+0x9"}, 3),
    ("RelaySilent", {'ov_relay_seconds_silent{relay="relay-1"}': "600 660 720"}, 2),
    ("LinesRefused", {"ov_fleet_refused_lines": "0 1"}, 1),
    ("DatabaseUnreachable", {"ov_fleet_machines": "200 stale"}, 3),
])
def test_an_alert_fires(prometheus, alert, series, minute):
    def rule_test(minute, fires):
        return {"interval": "1m",
                "input_series": [{"series": name, "values": values}
                                 for name, values in series.items()],
                "promql_expr_test": [{
                    "expr": f'count(ALERTS{{alertname="{alert}", alertstate="firing"}})',
                    "eval_time": f"{minute}m",
                    "exp_samples": [{"labels": "{}", "value": 1}] if fires else []}]}

    prometheus.path("/etc/prometheus/test.yml").write_text(json.dumps({
        "rule_files": ["ov-rules.yml"],
        "tests": [rule_test(minute - 1, False), rule_test(minute, True)]}))
    prometheus.run("promtool", "test", "rules", "/etc/prometheus/test.yml")


class Mailbox:
    def __init__(self):
        self.mails = []

    async def handle_DATA(self, server, session, envelope):
        self.mails.append(envelope.content.decode())
        return "250 OK"


@pytest.fixture
def mailbox():
    mailbox = Mailbox()
    controller = Controller(mailbox, hostname="127.0.0.1", port=25)
    controller.start()
    yield mailbox
    controller.stop()


def environment(text):
    """What systemd makes of an EnvironmentFile."""
    lines = text.replace("\\\n", "").splitlines()
    return {name: value.strip("'\"") for name, value in
            (line.split("=", 1) for line in lines if not line.startswith("#"))}


@pytest.fixture
def watching(debian, prometheus, database, mailbox):
    """The exporter, prometheus and alertmanager, as Debian's units run them, without the waits."""
    debian.install("prometheus/prometheus-postgres-exporter",
                   "/etc/default/prometheus-postgres-exporter")
    for name in FILES:
        debian.install(f"prometheus/{name}", f"/etc/prometheus/{name}", faster)
    settings = environment(debian.path("/etc/default/prometheus-postgres-exporter").read_text())
    processes = [
        debian.start("prometheus-postgres-exporter", *settings["ARGS"].split(), user="prometheus",
                     environment={"DATA_SOURCE_NAME": settings["DATA_SOURCE_NAME"]}),
        debian.start("prometheus", "--config.file=/etc/prometheus/prometheus.yml",
                     "--storage.tsdb.path=/var/lib/prometheus/metrics2", user="prometheus"),
        debian.start("prometheus-alertmanager", "--config.file=/etc/prometheus/alertmanager.yml",
                     "--cluster.listen-address=", "--storage.path=/var/lib/prometheus/alertmanager",
                     user="prometheus")]
    yield mailbox
    for process in processes:
        process.terminate()
        process.wait(20)


def test_a_mail_tells_of_a_silent_machine(watching, writer):
    for host, age in ("silent", "1 hour"), ("alive", "0"):
        store(writer, f"now() - interval '{age}'", host=host, id="sys03", values="7")
    wait_until(lambda: any("1 machines are silent" in mail for mail in watching.mails),
               lambda: f"the mail: {watching.mails}")
