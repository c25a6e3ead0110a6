"""Event records as the service reads them from its socket."""

import struct
import time


def make_record(identifier, values="", seconds=None):
    """The record of an event at that time (seconds since the epoch), or now. Texts or bytes."""
    def as_bytes(text):
        return text.encode() if isinstance(text, str) else text
    return struct.pack("<8s128sq", as_bytes(identifier), as_bytes(values),
                       int(time.time()) if seconds is None else seconds)
