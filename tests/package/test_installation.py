"""What the package puts on a machine, keeps, and takes away again."""

import re
import subprocess
import textwrap

import pytest

from machine import DEFINITIONS, PACKAGE, REPOSITORY, SETTINGS, UNIT, Machine, wait_until

SCRIPTS = "/usr/lib/orvan/ov-event-logger"
OPERATING = (REPOSITORY / "docs/OPERATING.md").read_text()


@pytest.fixture
def bare(tmp_path):
    """A machine without the package."""
    machine = Machine(tmp_path, package=None)
    yield machine
    machine.close()


def repacked(folder, package, change):
    """The package after `change` was made to its unpacked tree."""
    tree = folder / package
    subprocess.run(["dpkg-deb", "--raw-extract", PACKAGE, tree], check=True)
    change(tree)
    subprocess.run(["dpkg-deb", "--build", "--root-owner-group", tree], check=True,
                   stdout=subprocess.DEVNULL)
    return f"{tree}.deb"


def replace(path, old, new):
    text = path.read_text()
    assert old in text
    path.write_text(text.replace(old, new))


@pytest.fixture
def earlier(tmp_path_factory):
    """An earlier version, whose definitions have another text."""
    def change(tree):
        control = tree / "DEBIAN/control"
        control.write_text(re.sub("Version: .*", "Version: 0.0.1", control.read_text()))
        replace(tree / DEFINITIONS.lstrip("/"), "Update installed", "Earlier text")
    return repacked(tmp_path_factory.mktemp("earlier"), "earlier", change)


def test_lintian_has_nothing_to_say():
    report = subprocess.run(["lintian", "--allow-root", "--pedantic", "--display-experimental",
                             "--display-info", PACKAGE], capture_output=True, text=True)
    assert (report.stdout, report.stderr, report.returncode) == ("", "", 0)


def test_same_commit_gives_the_same_bytes_in_another_folder(tmp_path):
    clone = tmp_path / "another folder"
    subprocess.run(["git", "clone", "--quiet", REPOSITORY, clone], check=True)
    subprocess.run([clone / "scripts/package"], check=True, stdout=subprocess.DEVNULL)
    assert (clone / "build/package" / PACKAGE.name).read_bytes() == PACKAGE.read_bytes()


def test_version_can_be_asked_of_the_package(machine):
    version = machine.sh("dpkg-query --show --showformat='${Version}' ov-event-logger")
    assert f"ov-event-check {version}\n" == machine.sh("ov-event-check --version")


def test_package_is_installed_where_systemd_does_not_run(machine):
    assert machine.sh(f"systemctl is-enabled {UNIT}") == "enabled\n"
    assert "forwarded   yes\n" in machine.sh(
        f"ov-event-check --offline --settings {SETTINGS} event sys10 || true")


def test_companions_are_installed_and_off(machine):
    assert machine.run("systemctl is-enabled ov-event-logger-boot.service "
                       "ov-event-logger-shutdown.service ov-event-logger-heartbeat.timer"
                       ).stdout == "disabled\n" * 3


def test_service_starts_with_the_installation(bare):
    bare.boot()
    bare.install(PACKAGE)
    bare.wait_until_active()


def test_upgrade_keeps_what_was_edited_and_renews_the_rest(bare, earlier):
    bare.boot()
    bare.install(earlier)
    bare.write_settings()
    bare.sh(f"systemctl restart {UNIT}")
    bare.sh("systemctl enable --now ov-event-logger-heartbeat.timer")
    bare.wait_until_active()
    bare.raise_event("queued")
    settings = bare.sh(f"cat {SETTINGS}")
    bare.install(PACKAGE)
    bare.wait_until_active()
    assert bare.sh(f"cat {SETTINGS}") == settings
    assert "Update installed" in bare.sh(f"cat {DEFINITIONS}")
    assert " Earlier text - queued " in bare.collector.wait_for(" - queued ")
    assert bare.sh("systemctl is-active ov-event-logger-heartbeat.timer") == "active\n"
    bare.raise_and_wait("upgraded")


# Each path with its kind, mode and owner, and the contents of those in /etc.
LISTING = r"""
    find / /tmp -xdev ! -path '/proc/*' ! -path '/root/*' ! -path '/var/cache/*' ! -path '/run/*' \
        ! -path '/var/lib/dpkg/*' ! -path '/var/log/*.log' ! -path '/etc/*-' \
        ! -path '/var/lib/systemd/*' ! -path '/etc/.pwd.lock' -printf '%p %y %m %u\n' | sort
    find /run -name '*ov-event*'
    systemctl list-units --state=active,failed --plain --no-legend '*ov-event*' || true
    find /etc -type f ! -name '*-' ! -name .pwd.lock ! -name ld.so.cache -exec sha256sum {} + |
        sort"""


def test_purge_leaves_nothing(bare):
    bare.boot()
    before = set(bare.sh(LISTING).splitlines())
    bare.install(PACKAGE)
    bare.write_settings()
    bare.sh(f"systemctl restart {UNIT}")
    bare.wait_until_active()
    bare.raise_and_wait("here")
    bare.sh("systemctl enable --now ov-event-logger-heartbeat.timer; "
            "systemctl start ov-event-logger-heartbeat.service")
    bare.collector.wait_for(" sys03 ")
    bare.sh(f"mkdir -p /var/lib/ov-event-logger; systemctl kill --signal=KILL {UNIT}; "
            "dpkg --remove ov-event-logger")
    assert bare.path(SETTINGS).exists()
    bare.sh("dpkg --purge ov-event-logger")
    assert set(bare.sh(LISTING).splitlines()) ^ before == set()


def platform_package(folder, version):
    """A package of a platform, as the page for operators describes it."""
    preinst, postrm = re.findall(r"^    #!/bin/sh\n(?:    .*\n|\n)+", OPERATING, re.M)[:2]
    tree = folder / f"platform{version}"
    for path, text in ((f"{SCRIPTS}/perf.sh", f"#!/bin/sh\necho platform {version}\n"),
                       (f"{SCRIPTS}/ov-event-def.csv", "sys10,A,Platform text,info\n"),
                       ("DEBIAN/control", f"Package: platform\nVersion: {version}\n"
                        "Architecture: all\nMaintainer: x <x@x>\nDescription: x\n"),
                       ("DEBIAN/preinst", textwrap.dedent(preinst)),
                       ("DEBIAN/postrm", textwrap.dedent(postrm))):
        file = tree / path.lstrip("/")
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text)
        file.chmod(0o755)
    subprocess.run(["dpkg-deb", "--build", "--root-owner-group", tree], check=True,
                   stdout=subprocess.DEVNULL)
    return f"{tree}.deb"


def test_platform_brings_scripts_and_definitions_of_its_own(bare, tmp_path):
    bare.install(PACKAGE)
    bare.install(platform_package(tmp_path, 1))
    bare.install(PACKAGE)  # an upgrade of either
    bare.install(platform_package(tmp_path, 2))
    bare.write_settings()
    assert bare.sh(f"{SCRIPTS}/perf.sh") == "platform 2\n"
    bare.boot()
    bare.wait_until_active()
    assert " Platform text - x " in bare.raise_and_wait("x")
    bare.sh("dpkg --purge platform")
    assert bare.sh(f"{SCRIPTS}/perf.sh").startswith("cpu=")
    wait_until(lambda: bare.raise_event("y") and any(
        " Update installed - y " in line for line in bare.collector.lines), "the old text", 60, 1)
