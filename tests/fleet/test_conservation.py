"""What is lost, doubled, changed and forged is told apart."""

import pathlib
import sys

import pytest

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(REPOSITORY / "scripts/fleet-inside"))

import faults  # noqa: E402
from conservation import (DOUBLED, LOST, Allowance, Raised, Rule, Sent, Stored,  # noqa: E402
                          judge)
from lines import Line, parse  # noqa: E402

LOSS = Rule(LOST, "document", "a line may be lost")
DOUBLE = Rule(DOUBLED, "document", "a line may be stored twice")
RULES = [Allowance(LOSS, 100, 200), Allowance(DOUBLE, 100, 200)]
SENDERS = {"c001": "192.0.2.1"}


def line(values, **changes):
    return Line(**{"host": "c001", "address": "192.0.2.1", "id": "sys10",
                   "description": "Update installed", "values": values, "severity": "notice",
                   "facility": "daemon", "at": "Nov 14 22:13:20", **changes})


def account(stored, sent_at=150, allowances=RULES):
    """Of a machine that raised and sent "1" and "2"."""
    events = [Raised("c001", "sys10", values, sent_at - 3) for values in "12"]
    sent = [Sent(line(one.values), sent_at) for one in events]
    return judge(events, sent, [Stored(one, "192.0.2.1", sent_at + 1) for one in stored],
                 allowances, SENDERS)


def only(account):
    [violation] = account.violations
    return violation


def test_each_line_stored_once_is_no_violation():
    result = account([line("2"), line("1")])
    assert (result.violations, result.by_rule) == ([], {})


def test_a_lost_line_is_a_violation():
    assert only(account([line("1")], allowances=[])).startswith("lost without a rule")


def test_a_double_is_a_violation():
    assert only(account([line("1"), line("2"), line("2")], allowances=[])).startswith(
        "doubled without a rule")


def test_a_loss_and_a_double_do_not_cancel_out():
    assert len(account([line("1"), line("1")], allowances=[]).violations) == 2


def test_a_line_lost_under_a_rule_is_counted_for_the_rule():
    result = account([line("1")])
    assert (result.violations, result.by_rule) == ([], {LOSS: [line("2")]})


def test_each_further_copy_under_a_rule_is_counted_for_the_rule():
    result = account([line("1"), line("2"), line("2"), line("2")])
    assert (result.violations, result.by_rule) == ([], {DOUBLE: [line("2")] * 2})


@pytest.mark.parametrize("sent_at", [99, 201])
def test_a_rule_does_not_hold_outside_its_time(sent_at):
    assert only(account([line("1")], sent_at)).startswith("lost without a rule")


def test_a_rule_for_doubles_allows_no_loss():
    assert only(account([line("1")], allowances=RULES[1:])).startswith("lost without a rule")


@pytest.mark.parametrize("field", ["address", "description", "severity", "facility", "at"])
def test_a_changed_field_is_a_violation_even_under_rules(field):
    assert only(account([line("1"), line("2", **{field: "x"})])).startswith("stored, but not sent")


def test_a_line_that_nobody_sent_is_a_violation():
    assert only(account([line("1"), line("2"), line("3")])).startswith("stored, but not sent")


def test_a_wrong_sender_is_a_violation():
    sent = [Sent(line("1"), 150)]
    result = judge([Raised("c001", "sys10", "1", 150)], sent,
                   [Stored(line("1"), "192.0.2.2", 151)], RULES, SENDERS)
    assert only(result).startswith("stored with the sender 192.0.2.2")


@pytest.mark.parametrize("numbers", [(1, 0), (0, 1), (1, 2), (2, 1)])
def test_an_event_that_is_not_sent_once_is_a_violation(numbers):
    raised, sent = numbers
    result = judge([Raised("c001", "sys10", "1", 150)] * raised, [Sent(line("1"), 150)] * sent,
                   [Stored(line("1"), "192.0.2.1", 151)] * sent, [], SENDERS)
    assert f"raised {raised} times, sent {sent} times" in result.violations[0]


def test_the_printed_line_gives_the_fields():
    text = ('<29>1 - c001 ov-event-logger - sys10 [ev@32473 ip="192.0.2.1" sev="notice" '
            'at="Nov 14 22:13:20" desc="Update installed"] 1 "x" [y]\\')
    assert parse(text) == line('1 "x" [y]\\')


def test_a_printed_line_without_values_ends_with_its_bracket():
    text = ('<29>1 - c001 ov-event-logger - sys10 [ev@32473 ip="192.0.2.1" sev="notice" '
            'at="Nov 14 22:13:20" desc="Update installed"] ')
    assert parse(text) == line("")


def test_a_line_of_another_form_is_not_parsed():
    assert parse("<29> Nov 14 22:13:20 c001(192.0.2.1): sys10 Update - 1 (notice)") is None


@pytest.mark.parametrize("rule", [one for one in vars(faults).values() if isinstance(one, Rule)],
                         ids=lambda rule: rule.sentence)
def test_a_rule_is_a_sentence_of_its_document(rule):
    text = " ".join((REPOSITORY / rule.document).read_text().split())
    assert rule.sentence in text
