"""The road of an event, from the client to the collector."""

ROW = "perf01,CPU,CPU usage is high,warn"
SETTINGS = {"allowed": "perf01", "host": "127.0.0.1", "port": 5514, "facility": 16,
            "formatString": "<[PRI]>[NAME]([IP]): [ID] [DESC] - [VAL] ([SEV])"}
LINE = "<132>tc-0042(127.0.0.1): perf01 CPU usage is high - 95,80 (warn)"


def test_event_arrives_as_one_datagram(sandbox, udp_collector):
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**SETTINGS)
    sandbox.start_listening_service()
    sandbox.send("perf01", "95,80")
    assert udp_collector.wait_for(1) == [LINE.encode()]


def test_event_arrives_as_one_line_of_one_connection(sandbox, tcp_collector):
    sandbox.write_definitions(ROW)
    sandbox.write_settings(**SETTINGS, protocol="syslog-tcp")
    sandbox.start_listening_service()
    sandbox.send("perf01", "95,80")
    tcp_collector.wait_for(1)
    assert tcp_collector.connections == [LINE.encode() + b"\n"]
