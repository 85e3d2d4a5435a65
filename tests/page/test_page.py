#!/usr/bin/python3
"""The registry page in headless Chromium, driven the way a person uses it.

Starts qes-registryd on a free port of 127.0.0.1 with a copy of the given data, opens the page
and checks it against the server's REST interface: searching, opening an element, saving a
change, a refused change, a change made from outside arriving through the feed, adding and
deleting where the resource allows it, the feed's indicator across a server restart, and the
narrow layout. Any error in the browser's console fails the test. Saves a screenshot.

    test_page.py --server build/release/examples/qes-registryd --data examples/data \
                 --page page [--screenshot doc/page.png] [name-part ...]

Name parts pick the tests whose names hold one of them.

Exit status 0 when every test passed, 1 otherwise, 77 when Chromium cannot start here.
"""

import argparse
import json
import os
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.error
import urllib.parse
import urllib.request

from selenium import webdriver
from selenium.common.exceptions import StaleElementReferenceException, WebDriverException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select, WebDriverWait

SKIPPED = 77
WAIT = 5.0  # seconds any page reaction may take, except the feed's (one second)
SERVER_START = 10.0

ARGS = None
SERVER = None
DRIVER = None


class Server:
    """qes-registryd on a free port with a private copy of the data; stopped by stop()."""

    def __init__(self, program, data, page, options=()):
        self.program = program
        self.page = page
        self.options = list(options)
        self.scratch = tempfile.mkdtemp(prefix="page-test-")
        self.data = os.path.join(self.scratch, "data")
        shutil.copytree(data, self.data)
        self.log = open(os.path.join(self.scratch, "server.log"), "w+")
        self.port = 0
        self.process = None

    def start(self):
        """Starts the server (on the port it had before, when restarted) and waits for its URL."""
        self.process = subprocess.Popen(
            [self.program, "--data", self.data, "--page", self.page, "--port", str(self.port), *self.options],
            stdout=subprocess.PIPE, stderr=self.log, text=True)
        deadline = time.monotonic() + SERVER_START
        while time.monotonic() < deadline:
            ready, _, _ = select.select([self.process.stdout], [], [], 0.2)
            if ready:
                line = self.process.stdout.readline()
                if "http://" in line:
                    url = line[line.index("http://"):].split()[0]
                    self.url = url.rstrip("/")
                    self.port = urllib.parse.urlsplit(self.url).port
                    return
            if self.process.poll() is not None:
                break
        self.stop()
        raise RuntimeError("qes-registryd did not start:\n" + self.server_log())

    def stop(self):
        if self.process and self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
            try:
                self.process.wait(timeout=10)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        self.process = None

    def server_log(self):
        self.log.flush()
        self.log.seek(0)
        return self.log.read()[-4000:]

    def close(self):
        self.stop()
        self.log.close()
        shutil.rmtree(self.scratch, ignore_errors=True)

    def call(self, method, path, body=None, headers=None):
        """One REST request; (status, parsed body)."""
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self.url + path, data=data, method=method,
                                         headers={"Content-Type": "application/json", **(headers or {})})
        try:
            with urllib.request.urlopen(request, timeout=WAIT) as response:
                return response.status, json.loads(response.read() or b"null")
        except urllib.error.HTTPError as error:
            return error.code, json.loads(error.read() or b"null")


def start_browser():
    options = webdriver.ChromeOptions()
    options.binary_location = shutil.which("chromium") or "/usr/bin/chromium"
    for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--disable-gpu",
                     "--window-size=1280,720", "--force-device-scale-factor=1", "--lang=en"):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    driver = webdriver.Chrome(service=Service(shutil.which("chromedriver") or "/usr/bin/chromedriver"),
                              options=options)
    driver.set_page_load_timeout(WAIT * 2)
    driver.set_script_timeout(WAIT)
    return driver


class PageTest(unittest.TestCase):
    """Each test opens the page afresh; the browser's console is read after each one."""

    # Failed requests the test itself provokes show in the console as network errors, with
    # their status; any other error there fails the test.
    expected_statuses = ()

    def setUp(self):
        self.driver = DRIVER
        self.server = SERVER
        self.set_viewport(1280, 720)
        self.driver.get("about:blank")
        self.driver.get_log("browser")
        self.expected_statuses = ()

    def tearDown(self):
        errors = []
        for entry in self.driver.get_log("browser"):
            if entry["level"] != "SEVERE":
                continue
            if entry.get("source") == "network" and any(
                    f"status of {status} " in entry["message"] for status in self.expected_statuses):
                continue
            errors.append(entry["message"])
        self.assertEqual(errors, [], "errors in the browser's console")

    # Helpers ------------------------------------------------------------------------------

    def set_viewport(self, width, height):
        """Sizes the window so that the page itself gets width x height."""
        self.driver.set_window_size(width, height)
        extra_width, extra_height = self.driver.execute_script(
            "return [outerWidth - innerWidth, outerHeight - innerHeight]")
        self.driver.set_window_size(width + extra_width, height + extra_height)

    def open(self, route):
        self.driver.get(f"{self.server.url}/#{route}")
        self.wait_for(lambda d: d.find_elements(By.CSS_SELECTOR, "#nav a"), "the navigation")

    def wait_for(self, condition, what, timeout=WAIT):
        try:
            # Live updates replace rows and cells: an element found a moment ago may be gone.
            return WebDriverWait(self.driver, timeout, poll_frequency=0.05,
                                 ignored_exceptions=[StaleElementReferenceException]).until(condition)
        except Exception as error:
            raise AssertionError(f"waited {timeout} s for {what}") from error

    def css(self, selector):
        return self.driver.find_element(By.CSS_SELECTOR, selector)

    def rows(self):
        return self.driver.find_elements(By.CSS_SELECTOR, "table.elements tbody tr[data-id]")

    def cell_text(self, element_id, key):
        """The text of a cell of the table, None when the table has no such row."""
        return self.driver.execute_script(
            "const cell = document.querySelector(`table.elements tr[data-id=\"${arguments[0]}\"] td[data-key=\"${arguments[1]}\"]`);"
            "return cell ? cell.innerText.trim() : null;", element_id, key)

    def wait_table(self):
        self.wait_for(lambda d: d.find_elements(By.CSS_SELECTOR, "p.summary[data-total]"), "the table's summary")

    def field(self, key):
        return self.css(f'.detail [data-key="{key}"] :is(input, select, textarea)')

    def field_status(self, key):
        return self.css(f'.detail .field-status[data-key="{key}"]')

    def wait_detail(self, element_id):
        self.wait_for(lambda d: d.find_elements(By.CSS_SELECTOR, f'.detail[data-id="{element_id}"] .meta[data-revision]'),
                      f"the detail of {element_id}")

    def wait_live(self):
        self.wait_for(lambda d: self.css("#feed-state").get_attribute("data-state") == "live", "the live feed")

    def list_elements(self, resource, **query):
        status, body = self.server.call("GET", f"/api/Media/{resource}?" + urllib.parse.urlencode(query, doseq=True))
        self.assertEqual(status, 200, body)
        return body

    # Tests ----------------------------------------------------------------------------------

    def test_search_open_and_edit_album(self):
        self.open("/Media/Albums")
        self.wait_table()
        gates = {r["name"]: r for r in self.server.call("GET", "/api/Media")[1]["resources"]}
        self.assertEqual(bool(self.driver.find_elements(By.LINK_TEXT, "Add to Albums")), gates["Albums"]["post"],
                         "the page offers to add albums exactly when the server allows it")
        # Searches typed and sent with Enter find what the REST interface finds; the last one,
        # a wildcard in any case, leads on.
        searches = (("", "jazz", False), ("artist", "Juniper", False), ("name", "%winter", False),
                    ("name", "GOLDEN%", False), ("name", "golden%", True))
        for key, text, ci in searches:
            Select(self.css("form.search select")).select_by_value(key)
            box = self.css("form.search input[type=checkbox]")
            if box.is_selected() != ci:
                box.click()
            field = self.css("form.search input[type=search]")
            field.clear()
            field.send_keys(text, Keys.ENTER)
            query = {"count": 500, **({"where": f"{key}={text}"} if key else {"q": text}), **({"ci": 1} if ci else {})}
            expected = self.list_elements("Albums", **query)
            self.wait_for(lambda d: self.css("p.summary").get_attribute("data-total") == str(expected["total"]),
                          f"the total {expected['total']} of {query}")
            self.wait_for(lambda d: sorted(self.cell_text(row.get_attribute("data-id"), "name") for row in self.rows())
                          == sorted(e["name"] for e in expected["elements"]), f"the albums of {query}")
        self.assertGreater(expected["total"], 1, "the data should hold several albums named Golden ...")
        self.assertEqual(self.list_elements("Albums", where="name=GOLDEN%")["total"], 0)

        album = expected["elements"][0]
        self.driver.find_element(By.LINK_TEXT, album["name"]).click()
        self.wait_detail(album["id"])
        self.assertTrue(self.css(f'tr[data-id="{album["id"]}"]').get_attribute("class").count("selected"))
        self.assertEqual(bool(self.driver.find_elements(By.XPATH, "//button[starts-with(., 'Delete')]")),
                         gates["Albums"]["delete"], "the page offers to delete exactly when the server allows it")
        # Read-only keys are disabled, writable ones not; an enum lists its words in order.
        self.assertFalse(self.field("artist").is_enabled())
        self.assertTrue(self.field("genre").is_enabled())
        description = self.server.call("GET", "/api/Media/Albums/_description")[1]
        genre = Select(self.field("genre"))
        self.assertEqual([o.get_attribute("value") for o in genre.options],
                         description["properties"]["genre"]["values"])
        new_genre = next(g for g in description["properties"]["genre"]["values"] if g != album["genre"])
        genre.select_by_value(new_genre)
        self.field("tags").send_keys(Keys.END, "\nbrowser test")
        self.css(".detail button[type=submit]").click()

        self.wait_for(lambda d: self.field_status("genre").text.strip() == "ok", "ok beside genre")
        self.assertEqual(self.field_status("tags").text.strip(), "ok")
        self.assertEqual(self.field_status("artist").text.strip(), "", "an unchanged key got a status")
        self.wait_for(lambda d: self.cell_text(album["id"], "genre") == new_genre, "the new genre in the table")
        self.assertIn("browser test", self.cell_text(album["id"], "tags"))
        status, stored = self.server.call("GET", f"/api/Media/Albums/{album['id']}")
        self.assertEqual(stored["genre"], new_genre)
        self.assertEqual(stored["tags"], album["tags"] + ["browser test"])
        self.assertEqual(stored["artist"], album["artist"])
        if ARGS.screenshot:
            self.assertEqual(self.driver.execute_script("return [innerWidth, innerHeight]"), [1280, 720])
            self.driver.execute_script("document.activeElement.blur(); scrollTo(0, 0)")
            # The same picture on every run: taken once the flashes have faded.
            self.wait_for(lambda d: not d.find_elements(By.CSS_SELECTOR, ".flash"), "the flashes to end")
            self.driver.save_screenshot(ARGS.screenshot)

    def test_refused_value_keeps_the_form(self):
        self.expected_statuses = (400,)
        track = self.list_elements("Tracks", count=1, where="rating=%")["elements"][0]
        self.open(f"/Media/Tracks/{track['id']}")
        self.wait_detail(track["id"])
        rating = self.field("rating")
        self.assertEqual(rating.get_attribute("max"), "5")
        self.assertEqual(rating.get_attribute("min"), "1")
        rating.clear()
        rating.send_keys("9")
        name = self.field("name")
        name.clear()
        name.send_keys("Renamed by the refused write")
        name.send_keys(Keys.ENTER)  # Enter in a field submits the form

        self.wait_for(lambda d: "invalid_value" in self.field_status("rating").text, "the refusal beside rating")
        self.assertIn("maximum 5", self.field_status("rating").text)
        self.assertIn("invalid_value", self.css(".detail .form-status").text)
        self.assertEqual(self.field("rating").get_attribute("value"), "9", "the typed value was lost")
        self.assertEqual(self.field("name").get_attribute("value"), "Renamed by the refused write")
        self.assertEqual(self.field("rating").get_attribute("aria-invalid"), "true")
        status, stored = self.server.call("GET", f"/api/Media/Tracks/{track['id']}")
        self.assertEqual((stored["name"], stored["rating"], stored["revision"]),
                         (track["name"], track["rating"], track["revision"]), "a refused write changed the element")

        # The optional rating removed instead: both changes go through, the rating is gone.
        self.css('.detail button[aria-label="Remove rating"]').click()
        self.assertFalse(self.field("rating").is_enabled())
        self.css(".detail button[type=submit]").click()
        self.wait_for(lambda d: self.field_status("rating").text.strip() == "ok", "ok beside the removed rating")
        self.assertEqual(self.field_status("name").text.strip(), "ok")
        status, stored = self.server.call("GET", f"/api/Media/Tracks/{track['id']}")
        self.assertEqual(stored["name"], "Renamed by the refused write")
        self.assertNotIn("rating", stored)
        self.wait_for(lambda d: self.cell_text(track["id"], "rating") == "—", "no rating in the table")

    def test_outside_changes_arrive_within_a_second(self):
        page = self.list_elements("Tracks", count=10)
        track = page["elements"][3]
        self.open(f"/Media/Tracks/{track['id']}")
        self.wait_detail(track["id"])
        self.wait_live()
        rating = 2 if track.get("rating") != 2 else 3
        status, answer = self.server.call("PATCH", f"/api/Media/Tracks/{track['id']}",
                                          {"name": "Changed outside", "rating": rating})
        self.assertEqual((status, answer["result"]), (200, "ok"), answer)
        self.wait_for(lambda d: self.cell_text(track["id"], "name") == "Changed outside",
                      "the outside change in the table", timeout=1.0)
        self.assertEqual(self.cell_text(track["id"], "rating"), str(rating))
        self.assertIn("flash", self.css(f'tr[data-id="{track["id"]}"] td[data-key="name"]').get_attribute("class"),
                      "the changed cell does not flash")
        self.assertEqual(self.field("name").get_attribute("value"), "Changed outside")
        self.assertEqual(self.field("rating").get_attribute("value"), str(rating))
        self.assertEqual(self.css(".detail .meta").get_attribute("data-revision"), str(answer["revision"]))

        # A write from this page after the outside one goes through: the form follows the feed.
        self.field("rating").clear()
        self.field("rating").send_keys("5")
        self.css(".detail button[type=submit]").click()
        self.wait_for(lambda d: self.field_status("rating").text.strip() == "ok", "ok after the outside change")

        # A key being edited here and changed outside meanwhile: the typed value stays, and
        # saving it is refused rather than overwriting the change unseen.
        self.expected_statuses = (412,)
        self.field("name").clear()
        self.field("name").send_keys("Typed here")
        status, answer = self.server.call("PATCH", f"/api/Media/Tracks/{track['id']}", {"name": "Changed outside again"})
        self.assertEqual(status, 200, answer)
        self.wait_for(lambda d: self.cell_text(track["id"], "name") == "Changed outside again", "the second outside change")
        self.assertEqual(self.field("name").get_attribute("value"), "Typed here")
        self.css(".detail button[type=submit]").click()
        self.wait_for(lambda d: "invalid_operation" in self.css(".detail .form-status").text, "the conflict refused")
        self.assertEqual(self.server.call("GET", f"/api/Media/Tracks/{track['id']}")[1]["name"], "Changed outside again")

        # Elements added and removed outside appear and disappear.
        self.open("/Media/Playlists")
        self.wait_table()
        self.wait_live()
        before = int(self.css("p.summary").get_attribute("data-total"))
        status, added = self.server.call("POST", "/api/Media/Playlists", {"name": "Outside playlist"})
        self.assertEqual(status, 201, added)
        self.wait_for(lambda d: self.cell_text(added["id"], "name") == "Outside playlist",
                      "the added playlist in the table", timeout=1.0)
        self.assertEqual(self.css("p.summary").get_attribute("data-total"), str(before + 1))
        self.assertEqual(self.css('[data-total="Media/Playlists"]').text, str(before + 1))
        status, _ = self.server.call("DELETE", f"/api/Media/Playlists/{added['id']}")
        self.assertEqual(status, 200)
        self.wait_for(lambda d: self.cell_text(added["id"], "name") is None,
                      "the removed playlist gone from the table", timeout=1.0)

    def test_add_and_delete_where_allowed(self):
        self.open("/Media/Playlists")
        self.wait_table()
        self.driver.find_element(By.LINK_TEXT, "Add to Playlists").click()
        self.wait_for(lambda d: d.find_elements(By.CSS_SELECTOR, ".detail.add"), "the add form")
        self.field("name").send_keys("Made in the browser")
        self.field("description").send_keys("for the page test")
        self.css(".detail button[type=submit]").click()
        found = self.wait_for(lambda d: self.list_elements("Playlists", where="name=Made in the browser")["elements"],
                              "the new playlist on the server")
        playlist = found[0]
        self.assertEqual(playlist["description"], "for the page test")
        self.wait_detail(playlist["id"])
        self.wait_for(lambda d: self.cell_text(playlist["id"], "name") == "Made in the browser", "its row")

        # Playlists may be deleted, after a confirmation.
        self.css(".detail button.danger").click()
        dialog = self.wait_for(lambda d: d.find_elements(By.CSS_SELECTOR, "dialog[open]"), "the confirmation")[0]
        dialog.find_element(By.CSS_SELECTOR, "button[value=delete]").click()
        self.wait_for(lambda d: self.cell_text(playlist["id"], "name") is None, "the deleted row gone")
        status, _ = self.server.call("GET", f"/api/Media/Playlists/{playlist['id']}")
        self.assertEqual(status, 404)

    def test_reference_links_to_its_target(self):
        track = self.list_elements("Tracks", count=1)["elements"][0]
        # The server gives a reference as its target's URI or as the target's {id, name, uri}.
        album_uri = track["album"]["uri"] if isinstance(track["album"], dict) else track["album"]
        album_id = album_uri.rsplit("/", 1)[1]
        album = self.server.call("GET", f"/api/Media/Albums/{album_id}")[1]
        self.open(f"/Media/Tracks/{track['id']}")
        self.wait_detail(track["id"])
        link = self.wait_for(lambda d: d.find_elements(By.CSS_SELECTOR, f'.detail [data-key="album"] a[href$="{album_id}"]'),
                             "the album link in the detail")[0]
        self.wait_for(lambda d: link.text == album["name"], "the album's name on the link")
        # Every album is offered as the reference's value, labelled with its name.
        albums = self.list_elements("Albums", count=500)["elements"]
        self.wait_for(lambda d: sorted(self.driver.execute_script(
            "return [...document.querySelectorAll('.detail [data-key=album] datalist option')].map((o) => o.value + ' ' + o.textContent)"))
            == sorted(f"{a['uri']} {a['name']}" for a in albums), "the albums offered")
        self.driver.find_element(By.CSS_SELECTOR, f'table.elements tr[data-id="{track["id"]}"] td[data-key="album"] a')
        link.click()
        self.wait_detail(album_id)
        self.assertIn("/Media/Albums/", self.driver.current_url)
        self.assertEqual(self.css("#detail-heading").text, album["name"])

    def test_keyboard_reaches_search_and_elements(self):
        self.open("/Media/Albums")
        self.wait_table()
        body = self.css("body")
        body.send_keys(Keys.TAB)
        seen = []
        for _ in range(80):
            active = self.driver.switch_to.active_element
            seen.append((active.tag_name, active.get_attribute("type") or "", active.get_attribute("class") or ""))
            if active.tag_name == "a" and "open" in (active.get_attribute("class") or ""):
                break
            active.send_keys(Keys.TAB)
        self.assertIn(("input", "search", ""), seen, "Tab never reached the search text")
        active = self.driver.switch_to.active_element
        self.assertEqual(active.get_attribute("class"), "open", "Tab never reached an element's link")
        outline = self.driver.execute_script("return getComputedStyle(arguments[0]).outlineStyle", active)
        self.assertNotEqual(outline, "none", "the focused link shows no focus")
        target = active.get_attribute("href").rsplit("/", 1)[1]
        active.send_keys(Keys.ENTER)
        self.wait_detail(target)
        # Every control of the page has a label.
        unlabelled = self.driver.execute_script("""
            return [...document.querySelectorAll('input, select, textarea')]
                .filter((c) => !(c.labels && c.labels.length) && !c.getAttribute('aria-label'))
                .map((c) => c.outerHTML);""")
        self.assertEqual(unlabelled, [])

    def test_format_patterns_agree_with_the_server(self):
        # The add form's pattern for a format accepts exactly what the server accepts.
        cases = (("Playlists", "created", ("2024-02-28", "2024-01-31", "2024-13-01", "24-01-01", "2024-1-01",
                                            "2024-01-32", "2024-01-01T00:00", "")),
                 ("Tracks", "language", ("en", "en-gb", "sv", "EN", "eng", "e1", "en-", "")))
        for resource, key, samples in cases:
            self.open(f"/Media/{resource}/_new")
            self.wait_for(lambda d: d.find_elements(By.CSS_SELECTOR, ".detail.add"), "the add form")
            for sample in samples:
                field = self.field(key)
                field.clear()
                if sample:
                    field.send_keys(sample)
                page_accepts = self.driver.execute_script("return arguments[0].validity.valid", field)
                status, answer = self.server.call("POST", f"/api/Media/{resource}", {"name": "pattern probe", key: sample})
                if status == 201:
                    self.server.call("DELETE", f"/api/Media/{resource}/{answer['id']}")
                self.assertIn(status, (201, 400), answer)
                self.assertEqual(page_accepts, status == 201, f"{resource} {key} {sample!r}: {answer}")

    def test_paging(self):
        self.open("/Media/Tracks")
        self.wait_table()
        Select(self.css(".pager select")).select_by_value("10")
        for press, offset in (("Next page", 10), ("Next page", 20), ("Previous page", 10)):
            self.driver.find_element(By.XPATH, f"//button[. = '{press}']").click()
            expected = [e["id"] for e in self.list_elements("Tracks", offset=offset, count=10)["elements"]]
            self.wait_for(lambda d: [row.get_attribute("data-id") for row in self.rows()] == expected,
                          f"the tracks from {offset}")
            self.assertTrue(self.css("p.summary").text.startswith(f"{offset + 1}–{offset + 10} of 320"))
        self.driver.find_element(By.XPATH, "//button[. = 'Previous page']").click()
        self.wait_for(lambda d: not self.driver.find_element(By.XPATH, "//button[. = 'Previous page']").is_enabled(),
                      "no page before the first")

    def test_every_control_labelled(self):
        track = self.list_elements("Tracks", count=1)["elements"][0]
        for route, ready in (("/", "main h2"), ("/Media", "table.resources"),
                             (f"/Media/Tracks/{track['id']}", ".detail .meta[data-revision]"),
                             ("/Media/Playlists/_new", ".detail.add")):
            self.open(route)
            self.wait_for(lambda d: d.find_elements(By.CSS_SELECTOR, ready), route)
            unlabelled = self.driver.execute_script("""
                return [...document.querySelectorAll('input, select, textarea, button')]
                    .filter((c) => !(c.labels && c.labels.length) && !c.getAttribute('aria-label')
                                   && !c.textContent.trim())
                    .map((c) => c.outerHTML);""")
            self.assertEqual(unlabelled, [], route)

    def test_tokens_decide_what_is_offered(self):
        # A server that wants tokens: the page asks for one, and offers what it allows.
        self.expected_statuses = (401,)
        tokens = os.path.join(self.server.scratch, "tokens")
        with open(tokens, "w") as out:
            out.write("reader-token-0123456789 read Media\n"
                      "writer-token-0123456789 read Media\n"
                      "writer-token-0123456789 write Media/Playlists\n"
                      "narrow-token-0123456789 write Media/Playlists\n")
        guarded = Server(self.server.program, self.server.data, self.server.page, ["--tokens", tokens])
        try:
            guarded.start()
            # token: whether it may change playlists, whether it may read tracks
            for token, playlists_writable, tracks_readable in (("reader-token-0123456789", False, True),
                                                               ("writer-token-0123456789", True, True),
                                                               ("narrow-token-0123456789", True, False)):
                self.driver.get(f"{guarded.url}/#/Media/Playlists")
                self.driver.execute_script("sessionStorage.clear()")
                self.driver.refresh()
                field = self.wait_for(lambda d: d.find_elements(By.CSS_SELECTOR, "#token-form input"), "the token form")[0]
                field.send_keys(token, Keys.ENTER)
                self.wait_table()
                self.wait_live()
                self.assertEqual(bool(self.driver.find_elements(By.LINK_TEXT, "Add to Playlists")), playlists_writable, token)
                self.rows()[0].find_element(By.CSS_SELECTOR, "a.open").click()
                self.wait_for(lambda d: d.find_elements(By.CSS_SELECTOR, ".detail .meta[data-revision]"), "the detail")
                self.assertEqual(self.field("name").is_enabled(), playlists_writable, token)
                self.assertEqual(bool(self.driver.find_elements(By.CSS_SELECTOR, ".detail button.danger")),
                                 playlists_writable, token)
                self.assertEqual(bool(self.driver.find_elements(By.CSS_SELECTOR, ".detail button[type=submit]")),
                                 playlists_writable, token)
                tracks = self.driver.find_elements(By.CSS_SELECTOR, '#nav a[href$="/Tracks"]')
                self.assertEqual(bool(tracks), tracks_readable, token)
                if tracks_readable:
                    tracks[0].click()
                    self.wait_for(lambda d: self.css("#resource-heading").text == "Tracks", "the tracks")
                    self.assertFalse(self.driver.find_elements(By.LINK_TEXT, "Add to Tracks"), token)
        finally:
            guarded.close()
            self.driver.get("about:blank")

    def test_narrow_screen(self):
        # A phone-sized page: narrower than a desktop window may be, so emulated.
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                    {"width": 400, "height": 800, "deviceScaleFactor": 1, "mobile": False})
        try:
            track = self.list_elements("Tracks", count=1)["elements"][0]
            self.open(f"/Media/Tracks/{track['id']}")
            self.wait_detail(track["id"])
            self.assertEqual(self.driver.execute_script("return innerWidth"), 400)
            widths = self.driver.execute_script("""
                const scroller = document.querySelector('.table-scroll');
                return [document.documentElement.scrollWidth, innerWidth,
                        scroller.scrollWidth, scroller.clientWidth];""")
            page_width, window_width, table_width, scroller_width = widths
            self.assertLessEqual(page_width, window_width, "the page itself scrolls sideways")
            self.assertGreater(table_width, scroller_width, "the table should scroll inside its box")
            # The element opened shows first, above the table, and its controls fit.
            detail, table = (self.css(selector).rect for selector in (".detail", ".table-scroll"))
            self.assertLess(detail["y"], table["y"])
            self.assertLessEqual(detail["x"] + detail["width"], window_width)
        finally:
            self.driver.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})

    def test_feed_down_and_resumed(self):
        # Runs last: restarts the server with the data it was started with.
        self.open("/Media/Tracks")
        self.wait_table()
        self.wait_live()
        track = self.rows()[0].get_attribute("data-id")
        self.server.stop()
        self.wait_for(lambda d: self.css("#feed-state").get_attribute("data-state") == "down",
                      "the indicator showing the feed down")
        self.assertIn("down", self.css("#feed-state").text)
        self.server.start()
        self.wait_live()
        # The new server's feed starts again at 0: the page is told to resync and reads again;
        # changes after that arrive as before.
        status, answer = self.server.call("PATCH", f"/api/Media/Tracks/{track}", {"name": "After the restart"})
        self.assertEqual(status, 200, answer)
        self.wait_for(lambda d: self.cell_text(track, "name") == "After the restart",
                      "a change after the restart in the table", timeout=2.0)
        # The connection failures while the server was away are the browser's own reports.
        self.driver.get_log("browser")


def main():
    global ARGS, SERVER, DRIVER
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--server", required=True)
    parser.add_argument("--data", required=True)
    parser.add_argument("--page", required=True)
    parser.add_argument("--screenshot")
    ARGS, rest = parser.parse_known_args()
    try:
        DRIVER = start_browser()
    except WebDriverException as error:
        print(f"page tests SKIPPED: Chromium cannot start here: {error.msg}", file=sys.stderr)
        return SKIPPED
    SERVER = Server(ARGS.server, ARGS.data, os.path.abspath(ARGS.page))
    try:
        SERVER.start()
        loader = unittest.TestLoader()
        # Declared order: the feed test restarts the server and goes last.
        loader.sortTestMethodsUsing = lambda a, b: ORDER.index(a) - ORDER.index(b)
        if rest:
            loader.testNamePatterns = [f"*{pattern}*" for pattern in rest]
        suite = loader.loadTestsFromTestCase(PageTest)
        result = unittest.TextTestRunner(verbosity=2, stream=sys.stdout).run(suite)
        if not result.wasSuccessful():
            print("---- server log (tail)\n" + SERVER.server_log())
        return 0 if result.wasSuccessful() else 1
    finally:
        DRIVER.quit()
        SERVER.close()


ORDER = [name for name in PageTest.__dict__ if name.startswith("test_")]

if __name__ == "__main__":
    sys.exit(main())
