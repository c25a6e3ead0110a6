"""What the collectors that administrators really use make of the lines."""

import pytest

from support import real_collectors
from support.sandbox import Sandbox

COLLECTORS = {"rsyslog": ("rsyslog", real_collectors.start_rsyslog),
              "syslog_ng": ("syslog-ng-core", real_collectors.start_syslog_ng)}

VALUES = ["95,80", "", "a", "with blanks inside", "grüße,東京,🙂", "100%,%s,%1", '"quoted",\\n',
          "<1>1 - -: x[3]", "'; $(date) `id` &|", "v" * 127]


@pytest.mark.parametrize("protocol", ["syslog-udp", "syslog-tcp"])
@pytest.mark.parametrize("collector", COLLECTORS)
def test_ten_lines_are_stored_as_they_were_printed(collector, protocol):
    package, start = COLLECTORS[collector]
    sandbox = Sandbox(keep=[real_collectors.unpacked(package)])
    try:
        real_collectors.wait_until_listening(sandbox, start(sandbox))
        sandbox.write_definitions("perf01,CPU,CPU usage is high,warn")
        sandbox.write_settings(allowed="perf01", host="127.0.0.1", port=5514, protocol=protocol)
        service = sandbox.start_listening_service()
        for values in VALUES:
            sandbox.send("perf01", values)
        stored = [line.decode() for line in real_collectors.wait_for_stored(sandbox, 10)]
        printed = [line[4:] for line in service.lines if line.startswith(">>> ")]
        assert stored == printed
        assert [line.split(" - ", 1)[1] for line in stored] == [f"{v} (warn)" for v in VALUES]
    finally:
        sandbox.close()
