"""The report page, as a browser shows it."""

import datetime
import subprocess

import pytest
from selenium import webdriver
from selenium.webdriver.common.by import By

import centre
from centre import REPOSITORY

HOSTILE = """<script>document.title = "hostile"</script>
<img src=x onerror='document.title = "hostile"'> $\\frac{1}{2}$ {{ 7 * 7 }} &amp; \u202e"""


@pytest.fixture(scope="module")
def browser():
    options = webdriver.ChromeOptions()
    for argument in "headless=new", "no-sandbox", "disable-gpu", "user-data-dir=/tmp/chromium":
        options.add_argument("--" + argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    driver = webdriver.Chrome(options=options)
    yield driver
    driver.quit()


@pytest.fixture
def store(writer, now):
    def store(id, host="tc-1", values="", severity="info", minutes_ago=1.0):
        received = now - datetime.timedelta(minutes=minutes_ago)
        centre.store(writer, f"timestamptz '{received}'", id=id, host=host, values=values,
                     severity=severity)
    return store


@pytest.fixture
def page(debian, browser):
    def page(width=1000):
        database = f"host={debian.path('/run/postgresql')} dbname=ov_events user=ov_reader"
        subprocess.run([REPOSITORY / "scripts/fleet-report", "--database", database,
                        "/tmp/report.html"], check=True)
        browser.set_window_size(width, 1000)
        browser.get("file:///tmp/report.html")
        return browser
    return page


def table(page, heading):
    """The rows of a section's last table, as they can be read."""
    rows = page.find_elements(
        By.XPATH, f"//section[h2='{heading}']//div[last()]/table[last()]/tbody/tr")
    return [[cell.text for cell in row.find_elements(By.XPATH, "./*")] for row in rows]


def test_the_counts_are_shown(page, store):
    store("sys03", "silent", values="3", minutes_ago=30)
    store("sys03", "gap", values="3", minutes_ago=5)
    store("sys03", "gap", values="6")
    store("net03", "gone")
    counts = [element.text.split("\n") for element in
              page().find_elements(By.CSS_SELECTOR, ".counts div")]
    assert counts == [
        ["machines", "3"], ["silent", "1"], ["disconnected", "1"], ["full disks", "0"],
        ["heartbeats lost in 24 hours", "2"], ["unknown USB devices", "0"], ["lines refused", "0"]]


def test_the_tables_are_shown(page, store, now):
    store("sys03", "silent", values="3", minutes_ago=30)
    store("net03", "gone", values="DISCONNECTED")
    store("perf03", "full", values="81.00% > 80.00%")
    store("sec03", "used", values="alice/CORP")
    store("sys06", "used", values="0951:1666 stick")
    shown = page()
    minute = (now - datetime.timedelta(minutes=1)).strftime("%Y-%m-%d %H:%M:%S")
    headings = ("Disconnected machines", "Full disks", "Signed in", "Unknown USB devices",
                "Lost lines")
    assert {heading: table(shown, heading) for heading in headings} == {
        "Disconnected machines": [["gone", minute, "DISCONNECTED", "192.0.2.1"]],
        "Full disks": [["full", minute, "81.00% > 80.00%", "192.0.2.1"]],
        "Signed in": [["used", minute, "alice/CORP", "192.0.2.1"]],
        "Unknown USB devices": [["used", minute, "0951:1666 stick", "192.0.2.1"]],
        "Lost lines": [["None"]]}
    assert [row[0] for row in table(shown, "Silent machines")] == ["silent"]


def test_the_most_frequent_events_come_first(page, store):
    store("sys10")
    for _ in range(4):
        store("perf01", severity="warn")
    shown = page()
    assert [row[:4] for row in table(shown, "Most frequent events")] == [
        ["perf01", "warn", "4", "1"], ["sys10", "info", "1", "1"]]
    first, second = shown.find_elements(By.CSS_SELECTOR, ".bar span")
    assert second.size["width"] == pytest.approx(first.size["width"] / 4, abs=1)


def test_the_chart_has_a_bar_for_each_hour_and_severity(page, store):
    store("sys10")
    store("perf01", severity="warn", minutes_ago=0)
    store("perf01", severity="warn", minutes_ago=180)
    store("perf01", severity="no such severity", minutes_ago=180)
    shown = page()
    legend = [item.text for item in shown.find_elements(By.CSS_SELECTOR, ".legend li")]
    assert legend == ["info", "warn", "other"]
    colours = [element.value_of_css_property("fill") for element in
               shown.find_elements(By.CSS_SELECTOR, "figure svg g[id^=patch] > path")
               if element.rect["height"] > 10]
    assert [colours.count(colour) for colour in (
        "rgb(74, 144, 217)", "rgb(217, 154, 28)", "rgb(160, 120, 90)")] == [1, 2, 1]


def test_a_page_of_an_empty_database_says_so(page, database):
    assert table(page(), "Most frequent events") == [["None"]]


def test_a_hostile_value_is_shown_and_does_nothing(page, store):
    store(HOSTILE, HOSTILE, HOSTILE, HOSTILE)
    store("net03", HOSTILE, HOSTILE)
    store("sys06", HOSTILE, HOSTILE)
    shown = page()
    seen = " ".join(HOSTILE.split()).strip()
    assert table(shown, "Disconnected machines")[0][0].strip() == seen
    assert table(shown, "Most frequent events")[0][0].strip() == seen
    assert shown.title == "Thin clients"
    assert shown.find_elements(By.CSS_SELECTOR, "script, img") == []
    assert [entry for entry in shown.get_log("browser") if "report.html" in entry["message"]] == []


def test_a_phone_need_not_scroll_sideways(page, store):
    store("sys06", "a" * 60, "0951:1666 " + "x" * 100)
    assert page(400).execute_script(
        "return document.documentElement.scrollWidth <= document.documentElement.clientWidth")


def test_the_chart_has_a_text_and_the_tables_have_headings(page, store):
    store("sys10")
    shown = page()
    figure = shown.find_element(By.TAG_NAME, "figure")
    assert (figure.aria_role, figure.accessible_name) == (
        "image", "Bars: events of each hour by severity. The table below has the numbers.")
    for element in shown.find_elements(By.TAG_NAME, "table"):
        headings = element.find_elements(By.CSS_SELECTOR, "thead th[scope=col]")
        first_row = element.find_elements(By.CSS_SELECTOR, "tbody tr:first-child > *")
        assert headings and len(first_row) in (1, len(headings))
