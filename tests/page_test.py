#!/usr/bin/env python3
"""The page of portisolate-web in a real browser: Debian's chromium, headless, by WebDriver.

usage: page_test.py FOLDER-OF-THE-PROGRAMS FOLDER-WITH-THE-BOARDS [FOLDER-FOR-PICTURES]

Daemon and server run on copies of boards in temporary roots. Exits with 77 where there is no browser. With a folder for
pictures it writes those that the documents show.
"""
import base64
import contextlib
import json
import os
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
import urllib.request

PATIENCE = 30  # seconds until something that should happen counts as not happening
ELEMENT = "element-6066-11e4-a52e-4f735466cecf"
ENTER, TAB, RIGHT, DOWN, END = "\ue007", "\ue004", "\ue014", "\ue015", "\ue010"
SHOWN = "return document.getElementById(arguments[0]).innerText"
COLOUR = """  // of a cell as it is drawn, and of the mark's sample in the legend
const [row, column, mark] = arguments, grid = document.getElementById('grid'), canvas = grid.querySelector('canvas');
const {left, top, cell} = JSON.parse(grid.dataset.drawn), scale = devicePixelRatio;
const at = [left + (column + .15) * cell - grid.scrollLeft, top + (row + .2) * cell - grid.scrollTop];
const seen = canvas.getContext('2d').getImageData(at[0] * scale, at[1] * scale, 1, 1).data.slice(0, 3).join(', ');
return `rgb(${seen})` === getComputedStyle(document.querySelector('#legend .' + mark)).backgroundColor;"""


def until(what, condition):
    end = time.monotonic() + PATIENCE
    while time.monotonic() < end:
        value = condition()
        if value:
            return value
        time.sleep(0.01)
    raise AssertionError(f"did not happen within {PATIENCE} s: {what}")


class Device:
    """A daemon on a description of a board, and the server in front of it."""

    def __init__(self, programs, description, options="", wrapper=()):
        self.programs, self.processes = programs, {}
        self.root = tempfile.mkdtemp()
        self.environment = {**os.environ, "PORTISOLATE_ROOT": self.root}
        os.makedirs(f"{self.root}/tmp")
        os.makedirs(f"{self.root}/etc/portisolate")
        for name, text in (("board.conf", description), ("portisolate.conf", options)):
            with open(f"{self.root}/etc/portisolate/{name}", "w", encoding="utf-8") as file:
                file.write(text)
        self.start("portisolate", *wrapper)
        until("the daemon answers", lambda: self.ctl("debug", check=False).returncode == 0)
        self.serve("127.0.0.1:0")

    def start(self, program, *wrapper, arguments=(), **channels):
        command = [*wrapper, f"{self.programs}/{program}", *arguments]
        with open(f"{self.root}/log", "ab") as log:
            self.processes[program] = subprocess.Popen(command, env=self.environment, stderr=log, **channels)
        return self.processes[program]

    def serve(self, address):
        web = self.start("portisolate-web", arguments=("--listen", address), stdout=subprocess.PIPE, text=True)
        self.address = re.search(r"\S+:\d+", web.stdout.readline()).group()
        self.url = f"http://{self.address}/"

    def ctl(self, *words, check=True):
        return subprocess.run([f"{self.programs}/portisolatectl", *words], env=self.environment, check=check,
                              capture_output=True, text=True)

    def stop(self, program):
        process = self.processes.pop(program)
        process.kill()
        process.communicate()

    def end(self):
        for program in list(self.processes):
            self.stop(program)
        shutil.rmtree(self.root)


class Browser:
    session = None

    def __init__(self):
        self.home = tempfile.mkdtemp()
        self.driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                                       text=True, env={**os.environ, "HOME": self.home, "TMPDIR": self.home})

    def begin(self):
        started = next(line for line in self.driver.stdout if "successfully" in line)
        port = re.search(r"on port (\d+)", started).group(1)
        self.base = f"http://127.0.0.1:{port}/session"
        arguments = ["--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--disable-gpu", "--hide-scrollbars",
                     "--disable-background-networking", "--window-size=1200,900"]
        options = {"browserName": "chrome", "goog:chromeOptions": {"args": arguments},
                   "goog:loggingPrefs": {"browser": "ALL", "performance": "ALL"}}
        self.session = self.post("", capabilities={"alwaysMatch": options})["sessionId"]
        self.base += f"/{self.session}"

    def call(self, method, path, body=None):
        request = urllib.request.Request(self.base + path, body and json.dumps(body).encode(), method=method)
        with urllib.request.urlopen(request, timeout=120) as answer:
            return json.load(answer)["value"]

    def post(self, path, **body):
        return self.call("POST", path, body)

    def open(self, url):
        self.post("/url", url=url)
        until("the matrix is drawn", lambda: self.run("return document.getElementById('grid').dataset.drawn"))

    def run(self, script, *arguments):
        return self.post("/execute/sync", script=script, args=arguments)

    def text(self, name):
        return self.run(SHOWN, name)

    def see(self, name, *words):
        until(f"{name} shows {words}", lambda: all(word in self.text(name) for word in words))

    def type(self, keys):
        self.post("/actions", actions=[{"type": "key", "id": "keys", "actions": [
            {"type": kind, "value": key} for key in keys for kind in ("keyDown", "keyUp")]}])

    def choose(self, name, value):
        self.run("const [n, v] = arguments, e = document.getElementById(n); e.value = v;"
                 "e.dispatchEvent(new Event('input', {bubbles: true}))", name, value)

    def press(self, name):
        found = self.post("/element", using="css selector", value=f"#{name}")[ELEMENT]
        self.post(f"/element/{found}/click", none=None)

    def click_cell(self, row, column):
        x, y = self.run("const box = grid.getBoundingClientRect(), {left, top, cell} = JSON.parse(grid.dataset.drawn);"
                        "return [box.x + left + (arguments[1] + .5) * cell, box.y + top + (arguments[0] + .5) * cell]",
                        row, column)
        self.post("/actions", actions=[{"type": "pointer", "id": "mouse", "actions": [
            {"type": "pointerMove", "x": round(x), "y": round(y)}, {"type": "pointerDown", "button": 0},
            {"type": "pointerUp", "button": 0}]}])

    def picture(self, path):
        with open(path, "wb") as file:
            file.write(base64.b64decode(self.call("GET", "/screenshot")))

    def log(self, kind):
        return self.post("/se/log", type=kind)

    def end(self):
        try:
            if self.session:
                self.call("DELETE", "")
        finally:
            self.driver.kill()
            self.driver.communicate()
            shutil.rmtree(self.home, ignore_errors=True)


def check_clean(browser, device):
    """Nothing was asked of anybody else, and nothing was complained about."""
    messages = [json.loads(entry["message"])["message"] for entry in browser.log("performance")]
    sent = [message["params"] for message in messages if message["method"] == "Network.requestWillBeSent"]
    asked = [parameters["request"]["url"] for parameters in sent]
    assert asked and all(url.startswith(device.url) for url in asked if url != "data:,"), asked
    complaints = [entry for entry in browser.log("browser") if entry["level"] == "SEVERE"]
    assert not complaints, complaints


def test_live(browser, device, source="ge1/2", target="ge1/1", limit=1):
    """Of the second interface and the first."""
    browser.run("window.opened = 1")
    assert browser.run(COLOUR, 1, 0, "open")
    seconds = []
    for verb, mark in [("add", "oneway"), ("del", "open")] * 3:
        begun = time.monotonic()
        device.ctl("pair", verb, source, target)
        until(f"the cell is {mark}", lambda mark=mark: browser.run(COLOUR, 1, 0, mark))
        seconds.append(time.monotonic() - begun)
    print("a change is seen after", " ".join(f"{value:.2f}" for value in seconds), "s")
    assert statistics.median(seconds) < limit, seconds
    assert browser.run(COLOUR, 0, 1, "open") and browser.run("return window.opened") == 1
    browser.see("happenings", f"pair {source} to {target}: activate", "portisolatectl")


def test_why(browser, device):
    device.ctl("group", "add", "5", "ge1/1", "pon2/1", "lag1")
    until("the cell is blocked", lambda: browser.run(COLOUR, 0, 2, "both"))
    browser.click_cell(0, 2)
    browser.see("answer", "ge1/1 → pon2/1 is blocked", "pon2/1 → ge1/1 is blocked", "group 5 holds", "not counted")
    # By keyboard alone, from wherever the focus is.
    browser.run("document.activeElement.blur()")
    browser.type("/pon*")
    browser.see("shown", "4 × 4")
    for _ in range(20):
        if browser.run("return document.activeElement.id") == "grid":
            break
        browser.type(TAB)
    browser.type(END + DOWN)
    browser.see("readout", "pon2/2 → pon2/4: blocked within VLAN 10, 20")
    browser.type(ENTER)
    browser.see("answer", "pon2/2 → pon2/4 passes")
    browser.choose("vlan", "20")
    browser.see("answer", "pon2/2 → pon2/4 in VLAN 20 is blocked", "PON isolation is on in VLAN 20")
    until("the cell is blocked in this VLAN", lambda: browser.run(COLOUR, 1, 3, "both"))


def test_filters(browser, device):
    browser.choose("vlan", "")
    for names, shown in {"ge* !ge1/2": "1 × 1", "ge > lag1": "2 × 1", "nothing": "0 × 0", "": "8 interfaces"}.items():
        browser.choose("names", names)
        browser.see("shown", shown)
    browser.choose("group", "group 5")
    browser.see("shown", "3 × 3")
    browser.press("as-table")
    browser.see("table", "ge1/1\tpon2/1, lag1")
    browser.press("as-table")
    browser.choose("group", "")
    assert "isolate ge1/1" not in browser.text("happenings")
    browser.run("document.querySelectorAll('#kinds [type=checkbox]')[2].click()")
    browser.see("happenings", "isolate ge1/1 and pon2/1, group 5")
    browser.choose("words", "lag1: create")
    until("one line is left", lambda: browser.text("happenings").count("\n") < 4)


def test_bad(browser, device):
    """The plane holds less than the tables ask for: red, and named where one asks."""
    device.ctl("vlan-group", "add", "7", "ge1/2", "pon2/4", "--vlan", "10")
    device.ctl("group", "add", "8", "ge1/2", "pon2/4")
    until("red", lambda: browser.run("return document.body.dataset.level") == "bad")
    browser.see("problems", "isolated in fewer VLANs than asked for")
    browser.choose("from", "ge1/2")
    browser.choose("to", "pon2/4")
    browser.run("document.getElementById('ask').requestSubmit()")
    browser.see("answer", "They disagree")
    device.ctl("group", "del", "8")
    until("good again", lambda: browser.run("return document.body.dataset.level") == "good")


def test_theme(browser, device):
    light = "return getComputedStyle(document.getElementById('state')).backgroundColor === 'rgb(255, 255, 255)'"
    assert browser.run(light)
    browser.press("theme")
    browser.press("theme")
    until("the cells are dark", lambda: browser.run(COLOUR, 0, 2, "both"))
    browser.open(device.url)
    assert not browser.run(light), "what was chosen is not kept"


def test_lost(browser, device):
    """Whoever is gone, server or daemon: old data are called old, and new ones are fetched once there are any."""
    for program, back in (("portisolate-web", lambda: device.serve(device.address)),
                          ("portisolate", lambda: device.start("portisolate"))):
        device.stop(program)
        browser.see("headline", "Connection lost", "below is what held at")
        assert "live" not in browser.text("live")
        back()
        browser.see("headline", "holds all")
        browser.see("live", "live")
    until("the matrix of a daemon that has begun anew", lambda: browser.run(COLOUR, 0, 2, "open"))
    browser.see("happenings", "connection lost")


def test_missing(browser, programs):
    """The real plane, of which somebody takes an element away that nothing puts back; and its counters."""
    trial = ["unshare", "-n", "nft", "add", "table", "bridge", "t"]
    if subprocess.run(trial, capture_output=True, check=False).returncode != 0:
        print("left out: no network namespaces with a packet filter here")
        return
    make = "ip link add br0 type bridge; for i in 1 2; do ip link add eth$i master br0 type veth; done; exec \"$@\""
    device = Device(programs, "plane linux\nbridge br0\nheal off\n", wrapper=("unshare", "-n", "sh", "-c", make, "sh"))
    try:
        device.ctl("group", "add", "5", "eth1", "eth2")
        browser.open(device.url)
        browser.click_cell(0, 1)
        browser.see("answer", "eth1 → eth2 is blocked", "0 packets, 0 bytes")
        assert browser.run("return document.body.dataset.level") == "good"
        inside = ["nsenter", "-n", "-t", str(device.processes["portisolate"].pid), "nft"]
        subprocess.run([*inside, "flush", "ruleset"], check=True)
        until("red", lambda: browser.run("return document.body.dataset.level") == "bad")
        browser.see("headline", "The plane is gone")
    finally:
        device.end()


def test_large(browser, programs):
    """As many interfaces as the daemon serves at most with all it offers, one of them with a name for trouble."""
    names = [f"port{number}" for number in range(1, 374)] + ["<b>last</b>"]
    rows = [f"interface {number} {name} slot 1\n" for number, name in enumerate(names, 1)]
    device = Device(programs, "plane sim\n" + "".join(rows), "portisolate.maxifnum = 374\nportisolate.maxifnumpergrp = 0\n")
    try:
        for group in range(1, 11):
            device.ctl("group", "add", str(group), f"port{group * 30 - 26}-{group * 30 + 3}")
        browser.open(device.url)
        browser.see("legend", "blocked both ways\n8,700")
        test_live(browser, device, "port2", "port1", limit=2)
        took = browser.run("""const grid = document.getElementById('grid'), times = [];
            const frame = () => new Promise(requestAnimationFrame);
            for (let i = 0; i < 20; ++i) {
                await frame(); grid.scrollBy(97, 61); const begun = performance.now();
                await frame(); await frame(); times.push(performance.now() - begun);
            }
            return times.sort((a, b) => a - b)[10]""")
        print(f"two frames of {374 * 374} cells take {took:.0f} ms")
        assert took < 250, took
        browser.run("document.getElementById('grid').focus()")
        browser.type(END)
        browser.see("readout", "port1 → <b>last</b>: forwards")
        browser.press("fold")
        until("what is alike is one", lambda: json.loads(browser.run("return grid.dataset.drawn"))["rows"] == 11)
        check_clean(browser, device)
    finally:
        device.end()


def make_pictures(browser, device, folder):
    for words in ("pair add ge1/2 ge1/1", "vlan-group add 7 ge1/2 pon2/4 --vlan 10", "group add 5 ge1/1 pon2/1 lag1"):
        device.ctl(*words.split())
    browser.see("happenings", "group 5, lag1: activate")
    for theme in ("light", "dark"):
        while browser.run("return document.documentElement.dataset.theme") != theme:
            browser.press("theme")
        until("the cells look so", lambda: browser.run(COLOUR, 0, 2, "both"))
        browser.click_cell(0, 2)
        browser.see("answer", "group 5 holds")
        until("no ring is left", lambda: json.loads(browser.run("return grid.dataset.drawn"))["fresh"] == 0)
        browser.picture(f"{folder}/page-{theme}.png")
        if shutil.which("pngquant"):
            subprocess.run(["pngquant", "--force", "--ext", ".png", "64", f"{folder}/page-{theme}.png"], check=True)


def main():
    programs, boards, *pictures = sys.argv[1:]
    for needed in ("chromium", "chromedriver"):
        if shutil.which(needed) is None:
            print(f"skipped: no {needed}")
            return 77
    with contextlib.ExitStack() as stack, open(f"{boards}/demo/board.conf", encoding="utf-8") as file:
        device = Device(programs, file.read())
        stack.callback(device.end)
        browser = Browser()
        stack.callback(browser.end)
        browser.begin()
        browser.open(device.url)
        if pictures:
            make_pictures(browser, device, pictures[0])
            return 0
        for test in (test_live, test_why, test_filters, test_bad, test_theme):
            test(browser, device)
        check_clean(browser, device)
        test_large(browser, programs)
        test_missing(browser, programs)
        browser.open(device.url)
        test_lost(browser, device)
    return 0


if __name__ == "__main__":
    sys.exit(main())
