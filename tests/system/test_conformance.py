"""That the tables of docs/COLLECTORS.md are what the real rsyslog and syslog-ng do. This makes them
anew, in the document:

    OV_WRITE_TABLES=1 PYTEST_ADDOPTS='-k conformance' scripts/test debug -R system
"""

import concurrent.futures
import fcntl
import os
import re

import pytest

from support import conformance
from support.example_collectors import BOTH
from support.sandbox import REPOSITORY

DOCUMENT = REPOSITORY / "docs/COLLECTORS.md"


def expect_in_document(heading, rows):
    """The first table below the heading; it is replaced if OV_WRITE_TABLES is set."""
    with open(DOCUMENT, "r+") as document:
        fcntl.flock(document, fcntl.LOCK_EX)  # the tests run beside each other
        text = document.read()
        found = re.search(rf"^### {heading}\n[^|]*^((?:\|.*\n)+)", text, re.MULTILINE)
        if os.environ.get("OV_WRITE_TABLES"):
            document.seek(0)
            document.truncate()
            document.write(text[:found.start(1)] + "\n".join(rows) + "\n" + text[found.end(1):])
            return
    assert found[1].splitlines() == rows


@pytest.mark.slow
@pytest.mark.parametrize("template", conformance.TEMPLATES, ids=lambda template: template.name)
def test_collectors_store_what_the_table_says(template):
    with concurrent.futures.ThreadPoolExecutor() as pool:
        stored, said = zip(*pool.map(lambda kind: conformance.records_of_all(kind, template), BOTH))
    expect_in_document(template.name, conformance.table_of(template, *stored))
    for records, answers in zip(stored, said):
        assert answers == {
            (case.name, over): conformance.expected_answer(
                case.name, conformance.outcome(case, template, records[case.name, over]))
            for case in conformance.CASES for over in conformance.TRANSPORTS}


def test_cases_are_those_of_the_table():
    expect_in_document("Cases", conformance.table_of_cases())
