"""The table of fallible calls in docs/RELIABILITY.md is complete, and nothing in it is made up."""

import collections

from support.calls import calls_of_units
from support.fault_outcomes import OUTCOMES
from support.fault_situations import SITUATIONS
from support.reliability import fallible_calls, unchecked_functions

CANNOT_FAIL = {
    "_Exit", "abort", "bcmp", "environ", "exit", "free", "freeaddrinfo", "freeifaddrs",
    "gai_strerror", "htons", "memcmp", "memcpy", "memmove", "memset", "sigaddset", "sigemptyset",
    "snprintf", "stderr", "stdout", "strcmp", "strlen", "strnlen",
    "QFile::QFile", "QFile::~QFile",
    "QSettings::allKeys", "QSettings::value", "QSettings::~QSettings"}
TAKES_MEMORY = {"malloc"}  # a chapter of its own


def test_every_fallible_call_of_every_unit_has_a_row():
    told = collections.defaultdict(set)
    for row in fallible_calls():
        told[row.unit].add(row.caller or row.function)
    others = CANNOT_FAIL | TAKES_MEMORY | unchecked_functions()
    untold = {unit: names - told[unit] - others for unit, names in calls_of_units().items()}
    assert {unit: names for unit, names in untold.items() if names} == {}


def test_every_row_is_about_a_call_that_its_unit_makes():
    calls = calls_of_units()
    assert [str(row) for row in fallible_calls()
            if (row.caller or row.function) not in calls[row.unit]] == []


def test_every_function_whose_failure_is_not_looked_at_is_called():
    called = set().union(*calls_of_units().values())
    assert unchecked_functions() - called == set()


def test_no_function_is_looked_at_in_one_unit_and_not_in_another():
    assert {row.caller or row.function for row in fallible_calls()} & unchecked_functions() == set()


def test_every_situation_and_outcome_that_can_be_tested_is_in_the_table():
    rows = fallible_calls()
    assert SITUATIONS.keys() - {row.situation for row in rows} == set()
    assert OUTCOMES.keys() - {row.outcome for row in rows} == set()


def test_no_row_is_there_twice():
    rows = collections.Counter(
        (row.unit, row.function, row.variant, row.caller, row.situation, error)
        for row in fallible_calls() for error in row.errors)
    assert [row for row, count in rows.items() if count > 1] == []
