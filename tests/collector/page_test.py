#!/usr/bin/env python3
"""The collector's page in a real browser: every figure against a second count of the events that were sent."""
import collections
import csv
import datetime
import json
import math
import os
import pathlib
import random
import re
import tempfile
import unittest
import urllib.parse

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

from collector import form, line, run, running, wait_until

SCREENSHOTS = pathlib.Path(os.environ["SCREENSHOTS"])
DAY = datetime.timedelta(days=1)
NOW = datetime.datetime.now(datetime.timezone.utc).replace(microsecond=0, tzinfo=None)
START = NOW.replace(hour=0, minute=0, second=0) - 10 * DAY
MARKUP = '<img src=x onerror="hacked=1"><b>b</b>'
HOSTILE = [MARKUP, "x" * 1000, "control\u0001\u007f", "abc\u202etxt.exe", "=1+1", "a&b=c#d%zz", "日本語"]
class Event(collections.namedtuple("Event", "installation application version name at members")):
    @property
    def fact(self):
        return f"os_name:{self.members.get('os_name')}"


def made_up():
    """Three weeks of events of twenty installations, the last ten days of which the page shows."""
    chance = random.Random(7)
    for i in range(20):
        installation = f"installation-{i:02}"
        application, version = chance.choice([("editor", "1.0"), ("editor", "1.1"), ("viewer", "1.0")])
        for _ in range(chance.randint(5, 60)):
            at = NOW - datetime.timedelta(seconds=chance.randrange(int(chance.choice([8, 20]) * 86400)))
            name = chance.choice(["launch", "launch", "open", "save", "quit", *HOSTILE])
            members = {"os_name": chance.choice(["Debian", "Windows"])} if name == "launch" else {}
            if name == "open":
                members = {"kind": chance.choice(["text", "sheet", MARKUP]), "ms": chance.randint(1, 500)}
            yield Event(installation, application, version, name, at, members)


EVENTS = list(made_up())


def send(collector, events, **fields):
    """Sends events as installations do, each its own."""
    by_sender = collections.defaultdict(list)
    for event in events:
        by_sender[event.installation].append(line(json.dumps(event.name)[1:-1], json.dumps(event.members), *event[:3], str(event.at)))
    for sender, lines in by_sender.items():
        assert collector.upload(form("\n".join(lines), sender, **fields)) == 200


def counted(events, group):
    groups = collections.defaultdict(list)
    for event in events:
        groups[group(event)].append(event)
    return {key: {"events": len(some), "installations": len({event.installation for event in some})} for key, some in groups.items()}


def week_of(at):
    return at.date() - datetime.timedelta(days=at.weekday())


def retention(events, filters):
    known = [e for e in EVENTS if filters.get("application", e.application) == e.application]
    first = {i: min(e.at for e in known if e.installation == i) for i in {e.installation for e in known}}
    rows = collections.defaultdict(set)
    for installation, at in first.items():
        if at >= START and filters.get("installation", installation) == installation:
            rows[week_of(at)].add(installation)
    last = max((week_of(e.at) for e in events), default=START.date())
    weeks = {week: range((last - week).days // 7 + 1) for week in rows}
    active = collections.defaultdict(set)
    for event in events:
        active[week_of(event.at)].add(event.installation)
    return {str(week): [len(some), *(len(some & active[week + 7 * i * DAY]) for i in weeks[week])] for week, some in rows.items()}


def steps_reached(events, names):
    at, step = datetime.datetime.min, 0
    for event in sorted(events, key=lambda e: e.at):
        if step < len(names) and event.name == names[step] and event.at >= at:
            at, step = event.at, step + 1
    return step


class Browser(webdriver.Chrome):
    def __init__(self, downloads):
        options = webdriver.ChromeOptions()
        for word in ["no-sandbox", "headless=new", "disable-dev-shm-usage", "disable-gpu", "disable-background-networking",
                     "disable-component-update", "no-first-run", f"user-data-dir={downloads}/profile"]:
            options.add_argument("--" + word)
        options.add_experimental_option("prefs", {"download.default_directory": downloads})
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        super().__init__(service=Service("/usr/bin/chromedriver"), options=options)
        self.resize(1600)

    def resize(self, width, height=1000):
        self.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                             {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})

    def js(self, code, *given):
        return self.execute_script("return " + code, *given)

    def settled(self, action):
        """Runs what makes the page ask anew, and waits until all its panels were drawn."""
        before = self.js("document.body?.dataset.ready ?? '0'")
        action()
        wait_until(lambda: int(self.js("document.body?.dataset.ready ?? '0'")) > int(before))

    def show(self, collector, **words):
        self.get("about:blank")
        self.settled(lambda: self.get(f"http://127.0.0.1:{collector.page_port}/?{urllib.parse.urlencode(words, doseq=True)}"))

    def rows(self, panel):
        """Name and figures of each row of a table, in their order."""
        return self.js("""[...document.querySelectorAll(`table[data-panel="${arguments[0]}"] tbody tr`)].map((row) =>
            [row.querySelector("th").textContent, Object.fromEntries([...row.querySelectorAll("td[data-field]")].map((cell) =>
              [cell.dataset.field, Number(cell.dataset.value)]))])""", panel)

    def words(self):
        return urllib.parse.parse_qs(urllib.parse.urlsplit(self.current_url).query)

    def press(self, *keys):
        self.find_element(By.TAG_NAME, "body").send_keys(*keys)

    def click(self, element):
        # By script: where a panel scrolls, the pointer would first have to find the row.
        self.settled(lambda: self.js("arguments[0].click()", element))

    def button(self, text, within=""):
        return self.js("[...document.querySelectorAll(`${arguments[1]} button`)].find((b) => b.textContent.startsWith(arguments[0]))", text, within)

    def text(self, selector):
        return self.js("document.querySelector(arguments[0]).textContent", selector)

    def picture(self, name):
        SCREENSHOTS.mkdir(parents=True, exist_ok=True)
        self.save_screenshot(str(SCREENSHOTS / f"{name}.png"))


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = cls.enterClassContext(tempfile.TemporaryDirectory())
        cls.browser = Browser(cls.folder)
        cls.addClassCleanup(cls.browser.quit)

    def tearDown(self):
        self.browser.get("about:blank")  # leaves the live stream before the collector ends it
        self.browser.resize(1600)
        self.assertEqual([entry["message"] for entry in self.browser.get_log("browser")], [], "the console is not clean")

    def start(self, *options, events=EVENTS):
        collector = self.enterContext(running("--rate-address", "0", "--rate-installation", "0", *options))
        send(collector, events)
        return collector

    def check_figures(self, filters):
        events = [e for e in EVENTS if e.at >= START and all(getattr(e, word) == value for word, value in filters.items())]
        known = [e for e in EVENTS if filters.get("application", e.application) == e.application]
        first = {i: min(e.at for e in known if e.installation == i) for i in {e.installation for e in known}}
        active = {e.installation for e in events}
        launches = [e for e in events if "os_name" in e.members]
        expected = {
            "names": counted(events, lambda e: e.name),
            "versions": counted(events, lambda e: f"{e.application} {e.version}"),
            "facts": counted(launches, lambda e: e.members["os_name"]),
            "installations": {i: {"events": sum(e.installation == i for e in events)} for i in active},
        }
        for panel, rows in expected.items():
            self.assertEqual(dict(self.browser.rows(panel)), rows, panel)
        tiles = {"events": len(events), "installations": len(active), "versions": len(expected["versions"]),
                 "new_installations": sum(first[i] >= START for i in active)}
        shown = self.browser.js("Object.fromEntries([...document.querySelectorAll('[data-tile]')].map((t) => [t.dataset.tile, t.dataset.value]))")
        self.assertEqual({key: shown[key] for key in tiles}, {key: str(value) for key, value in tiles.items()})
        days = counted(events, lambda e: str(e.at.date()))
        shown = {at[:10]: {key: row[key] for key in ("events", "installations")} for at, row in self.browser.rows("series")}
        self.assertEqual({at: row for at, row in shown.items() if row["events"]}, days)
        self.assertEqual(len(shown), 11, "days without anything are there, too")
        cells = """Object.fromEntries([...document.querySelectorAll('table[data-panel="retention"] tbody tr')].map((row) =>
            [row.querySelector("th").textContent, [...row.querySelectorAll("td[data-value]")].map((td) => Number(td.dataset.value))]))"""
        self.assertEqual(self.browser.js(cells), retention(events, filters))

    def test_figures_agree_with_a_second_count(self):
        collector = self.start()
        for filters in [{}, {"name": "launch"}, {"application": "editor", "version": "1.0"}, {"installation": "installation-03"},
                        {"fact": "os_name:Debian"},
                        {"name": MARKUP, "application": "viewer"}]:
            with self.subTest(**filters):
                self.browser.show(collector, **{"from": START.date(), "step": "day"}, **filters)
                self.check_figures(filters)

    def test_properties_of_a_name_agree_with_a_second_count(self):
        collector = self.start()
        opened = [e.members for e in EVENTS if e.name == "open" and e.at >= START]
        self.browser.show(collector, **{"from": START.date(), "name": "open", "key": "ms"})
        numbers = sorted(members["ms"] for members in opened)
        place = lambda share: numbers[math.ceil(share * len(numbers)) - 1]
        shown = self.browser.js("Object.fromEntries([...document.querySelectorAll('[data-number]')].map((b) => [b.dataset.number, Number(b.dataset.value)]))")
        self.assertAlmostEqual(shown.pop("mean"), sum(numbers) / len(numbers))
        self.assertEqual(shown, {"min": numbers[0], "median": place(.5), "95th percentile": place(.95), "max": numbers[-1]})
        parts = [0] * 20
        for number in numbers:
            parts[min(19, int((number - numbers[0]) / (numbers[-1] - numbers[0]) * 20))] += 1
        told = self.browser.js("document.querySelector('.histogram').getAttribute('aria-label')").split(": ")[-1]
        self.assertEqual(told, ", ".join(map(str, parts)))
        self.browser.click(self.browser.button("kind", "#properties"))
        kinds = collections.Counter(members["kind"] for members in opened)
        self.assertEqual(dict(self.browser.rows("property-values")), {kind: {"events": n} for kind, n in kinds.items()})
        over_time = self.browser.js("""[...document.querySelectorAll('table[data-panel="property-series"] tbody td')].reduce((sum, td) =>
            sum + Number(td.dataset.value), 0)""")
        self.assertEqual(over_time, len(opened))

    def test_funnel_counts_installations_in_order(self):
        collector = self.start()
        names = ["launch", "open", "save"]
        self.browser.show(collector, **{"from": START.date(), "event": names})
        recent = [e for e in EVENTS if e.at >= START]
        reached = [steps_reached([e for e in recent if e.installation == i], names) for i in {e.installation for e in recent}]
        self.assertEqual(self.browser.rows("funnel"),
                         [[name, {"installations": sum(r > i for r in reached)}] for i, name in enumerate(names)])

    def test_rejects_and_dropped_lines_are_shown(self):
        collector = self.start()
        self.assertEqual(collector.upload(form("no event\n<b>neither</b>", "bad")), 200)
        self.assertEqual(collector.upload(form("", "bad", b="1" * 32, o="0", d="7", n="0")), 200)
        self.browser.show(collector)
        self.assertEqual(self.browser.js("['rejects', 'dropped'].map((tile) => document.querySelector(`[data-tile=${tile}]`).dataset.value)"), ["2", "7"])
        self.assertEqual(sum(row["dropped"] for _, row in self.browser.rows("days")), 7)
        self.assertIn("<b>neither</b>", self.browser.text("table[data-panel=rejects]"))

    def test_filters_and_keys_change_the_address(self):
        collector = self.start()
        self.browser.show(collector)
        self.browser.click(self.browser.button("launch", "#names"))
        self.assertEqual(self.browser.words(), {"name": ["launch"]})
        self.browser.click(self.browser.button("editor 1.0", "#versions"))
        self.browser.click(self.browser.button("Debian", "#facts"))
        self.assertEqual(self.browser.js("[...document.querySelectorAll('[data-chip]')].map((chip) => chip.dataset.chip)"),
                         ["application", "version", "name", "fact"])
        self.browser.click(self.browser.button("application", "#chips"))
        self.assertEqual(sorted(self.browser.words()), ["fact", "name", "version"])
        self.assertEqual(self.browser.words()["fact"], ["os_name:Debian"])
        self.browser.settled(lambda: self.browser.press(Keys.ESCAPE))
        self.assertEqual(self.browser.words(), {})
        span = lambda: (lambda w: (w.get("from", [None])[0], w.get("to", [None])[0]))(self.browser.words())
        hour = lambda at: at.strftime("%Y-%m-%dT%H:00:00Z")
        end = datetime.datetime.now(datetime.timezone.utc).replace(tzinfo=None) + datetime.timedelta(seconds=3599)
        for key, expected in [("w", (hour(end - 7 * DAY), None)), (Keys.ARROW_LEFT, (hour(end - 14 * DAY), hour(end - 7 * DAY))),
                              (Keys.ARROW_RIGHT, (hour(end - 7 * DAY), None)), ("m", (NOW.strftime("%Y-%m-01T00:00:00Z"), None)),
                              ("d", (NOW.strftime("%Y-%m-%dT00:00:00Z"), None)), ("t", (hour(end - 30 * DAY), None))]:
            self.browser.settled(lambda: self.browser.press(key))
            self.assertEqual(span(), expected, key)
        self.browser.settled(lambda: self.browser.press("x"))
        self.assertEqual(self.browser.words()["compare"], ["1"])
        self.browser.press("/")
        self.assertEqual(self.browser.js("document.activeElement.getAttribute('aria-label')"), "Search Event names")
        self.browser.switch_to.active_element.send_keys("laun")
        self.assertEqual([name for name, _ in self.browser.rows("names")], ["launch"])
        self.browser.switch_to.active_element.send_keys(Keys.ESCAPE)
        self.browser.press("?")
        self.assertTrue(self.browser.js("document.querySelector('dialog').open"))

    def test_mistyped_periods_show_what_they_can(self):
        collector = self.start(events=EVENTS[:5])
        for words in [{"from": "soon"}, {"from": "0001-01-01"}, {"from": NOW.date(), "to": "2001-01-01"}, {"from": "2001-01-01", "step": "hour"}]:
            with self.subTest(**words):
                self.browser.show(collector, **words)
                self.assertEqual(self.browser.text("#message"), "")

    def test_drawing_on_the_chart_sets_the_period(self):
        collector = self.start()
        self.browser.show(collector)
        over = self.browser.find_element(By.CSS_SELECTOR, "#plot .u-over")
        drag = webdriver.ActionChains(self.browser).move_to_element_with_offset(over, -100, 0).click_and_hold().move_by_offset(100, 0)
        self.browser.settled(drag.release().perform)
        start, end = (datetime.datetime.fromisoformat(self.browser.words()[word][0][:-1]) for word in ("from", "to"))
        self.assertLess(end - start, 3 * DAY)

    def test_live_stream_shows_what_is_stored_now(self):
        collector = self.start(events=[])
        self.browser.show(collector, name="tick", fact="shown:true")
        wait_until(lambda: self.browser.js("document.querySelector('.dot.on') !== null"))
        texts = lambda: self.browser.js("[...document.querySelectorAll('[data-panel=live-events] .event b')].map((b) => b.textContent)")
        tick = lambda name, i, members='{"shown": true}': collector.upload(form(line(name, members, installation=f"l{i}"), f"l{i}"))
        tick("other", 1)
        tick("tick", 1, "{}")
        tick("tick", 2)
        wait_until(lambda: texts() == ["tick"])
        self.browser.press(" ")
        tick("tick", 3)
        wait_until(lambda: self.browser.button("Go on (1"))
        self.assertEqual(texts(), ["tick"])
        self.browser.press(" ")
        self.assertEqual(texts(), ["tick", "tick"])

    def test_installation_shows_its_events_and_is_forgotten(self):
        collector = self.start()
        self.browser.show(collector, name="launch")
        self.browser.js("arguments[0].click()", self.browser.button("installation-05", "#installations"))
        wait_until(lambda: self.browser.rows("timeline"))
        newest = sorted((str(e.at) for e in EVENTS if e.installation == "installation-05"), reverse=True)[:100]
        self.assertEqual([at for at, _ in self.browser.rows("timeline")], newest)
        self.assertEqual(collector.ask("/api/timeline?installation=installation-05&limit=1&from=2000-01-01")["total"], len(newest))
        self.browser.js("arguments[0].click()", self.browser.button("Forget it", "dialog"))
        self.assertEqual(len(collector.export("--installation", "installation-05")), len(newest), "it asks first")
        self.browser.click(self.browser.button("Forget it for good", "dialog"))
        self.assertEqual(collector.export("--installation", "installation-05"), [])
        self.assertNotIn("installation-05", dict(self.browser.rows("installations")))

    def test_names_from_strangers_stay_texts(self):
        events = [Event("i", "app", "1", name, NOW, {name: name}) for name in HOSTILE]
        collector = self.start(events=events)
        self.browser.resize(400)
        self.browser.show(collector)
        self.assertEqual(sorted(name for name, _ in self.browser.rows("names")), sorted(HOSTILE))
        for name in HOSTILE:
            self.browser.click(self.browser.js("[...document.querySelectorAll('#names th button')].find((b) => b.textContent === arguments[0])", name))
            self.assertEqual(self.browser.words()["name"], [name])
            self.assertEqual(self.browser.text("#properties .tools button"), name)
            self.browser.settled(lambda: self.browser.press(Keys.ESCAPE))
        self.assertIsNone(self.browser.js("window.hacked ?? document.querySelector('main img')"))
        self.assertLessEqual(self.browser.js("document.documentElement.scrollWidth"), 400)

    def test_every_view_can_be_exported(self):
        collector = self.start()
        self.browser.show(collector, name="launch", event=["launch", "quit"])
        links = self.browser.js("[...document.querySelectorAll('h2 a')].map((a) => a.getAttribute('href'))")
        views = [urllib.parse.urlsplit(link).path for link in links if "live" not in link]
        self.assertEqual(views, ["/api/" + view for view in ["series", "series", "names", "versions", "facts", "properties",
                                                             "installations", "retention", "funnel", "rejects"]])
        for link in links:
            if "live" not in link:
                self.assertIn("rows", collector.ask(link))
        self.browser.settled(lambda: self.browser.press(Keys.ESCAPE))
        self.browser.js("arguments[0].click()", self.browser.button("Export", "#names"))
        saved = pathlib.Path(self.folder) / "names.csv"
        wait_until(saved.exists)
        rows = list(csv.reader(saved.read_text().splitlines()))
        self.assertEqual(len(rows), 1 + len(self.browser.rows("names")))
        self.assertIn("'=1+1", [row[0] for row in rows], "no formula for a spreadsheet")

    def test_login_opens_the_page_and_logout_closes_it(self):
        users = os.path.join(self.folder, "users")
        run("user", "add", "me", "--users", users, given="a long password\n")
        collector = self.start("--users", users, events=[])
        self.browser.get(f"http://127.0.0.1:{collector.page_port}/")
        self.browser.find_element(By.NAME, "name").send_keys("me")
        self.browser.settled(lambda: self.browser.find_element(By.NAME, "password").send_keys("a long password", Keys.ENTER))
        self.browser.find_element(By.CSS_SELECTOR, "#logout button").click()
        wait_until(lambda: self.browser.current_url.endswith("/login"))

    def test_pictures_in_light_dark_narrow_and_empty(self):
        collector = self.start()
        whole = lambda: self.browser.js("document.documentElement.scrollHeight")
        for name, width, scheme, words in [("light", 1600, "light", {"compare": 1, "name": "open", "event": ["launch", "open", "save"]}),
                                           ("dark", 1600, "dark", {}), ("narrow", 400, "light", {"name": "open", "key": "ms"}),
                                           ("empty", 1600, "light", {"from": "2001-01-01", "to": "2001-01-02"})]:
            with self.subTest(name):
                self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [{"name": "prefers-color-scheme", "value": scheme}]})
                self.browser.resize(width)
                self.browser.show(collector, **words)
                self.browser.resize(width, whole())
                self.browser.picture(name)
                self.assertLessEqual(self.browser.js("document.documentElement.scrollWidth"), width)
                self.assertEqual(self.browser.js("""[...document.querySelectorAll("main table")].filter((table) =>
                    !table.matches(".u-legend") && !(table.caption?.textContent && table.querySelector("th[scope]"))).length"""), 0)


class Cluster(Page):
    def test_a_shard_that_is_missing_is_said_above_the_figures(self):
        with open(os.environ["CLUSTER"] + "/address", encoding="ascii") as file:
            store = f"{file.read().strip()}/page_{os.getpid()}"
        self.assertEqual(run("cluster", "init", "--store", store).returncode, 0)
        lost = re.sub(r"[+].*/", "+127.0.0.1:1/", store)
        for address, says in [(store, ""), (lost, "These figures are not whole: Shard 2 does not answer (127.0.0.1:1: ")]:
            collector = self.start("--store", address, "--spool", f"{self.folder}/spool.db", events=[])
            self.browser.show(collector)
            self.assertEqual(self.browser.text("#message")[:len(says) or None], says)
            self.browser.get("about:blank")
            collector.stop()


def load_tests(loader, _tests, _pattern):
    named = Page if "CLUSTER" not in os.environ else Cluster
    return unittest.TestSuite(named(name) for name in loader.getTestCaseNames(named) if name in vars(named))


if __name__ == "__main__":
    unittest.main(verbosity=2)
