"""Waiting for something to become true, with a deadline."""

import os
import time

# Seconds; far above every pause of the service, for a machine that is busy.
DEADLINE = 60.0 if os.environ.get("OV_SANITIZER") else 20.0
INTERVAL = 0.01  # seconds


def wait_until(condition, what, deadline=DEADLINE, interval=INTERVAL, growth=1):
    """Returns the first true result of `condition()`; fails after `deadline` seconds. The interval
    grows by a factor with each look, to half a second at most."""
    end = time.monotonic() + deadline
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > end:
            shown = what() if callable(what) else what
            raise AssertionError(f"not within {deadline} s: {shown}")
        time.sleep(interval)
        interval = max(interval, min(0.5, interval * growth))


def assert_within(seconds, attempt, attempts=3):
    """Fails if `attempt()` takes longer each time; now and then a busy machine makes it do so."""
    durations = []
    while not durations or durations[-1] > seconds:
        assert len(durations) < attempts, durations
        began = time.monotonic()
        attempt()
        durations.append(time.monotonic() - began)


def assert_stays(condition, what, seconds):
    """Watches for `seconds`; fails as soon as `condition()` is no longer true."""
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        if not condition():
            raise AssertionError(what() if callable(what) else what)
        time.sleep(INTERVAL)
