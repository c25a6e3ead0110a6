import pytest

from machine import Machine


def tell(machine):
    """Shown for a test that has failed."""
    print(machine.run("journalctl --namespace=ov-event-logger | tail -n 60").stdout)


@pytest.fixture
def machine(tmp_path):
    """A machine with the package, not booted yet."""
    machine = Machine(tmp_path)
    yield machine
    tell(machine)
    machine.close()


@pytest.fixture(scope="module")
def running(tmp_path_factory):
    """A booted machine that the tests of a module share. It speaks German."""
    machine = Machine(tmp_path_factory.mktemp("machine"))
    machine.path("/etc/default/locale").write_text("LANG=de_DE.UTF-8\n")
    machine.boot()
    machine.wait_until_active()
    yield machine
    tell(machine)
    machine.close()
