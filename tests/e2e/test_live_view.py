"""The collector's live view in headless Chromium while the demo host runs, read from the page's
DOM over the DevTools protocol."""

import base64
import collections
import json
import os
import socket
import struct
import subprocess
import tempfile
import time
import unittest
import urllib.request

from e2e_support import (DEMO, HEX32, OUTPUT, SESSION_EVENTS, Collector, read, session_of,
                         user_environment)

CHROMIUM, PAGE = "/usr/bin/chromium", "http://127.0.0.1:18080/"
# Each session group of the page: its id, heading and records with their decoded tables.
READ_PAGE = """JSON.stringify([...document.querySelectorAll("section.session")].map(s => ({
  session: s.dataset.session, heading: s.querySelector("h2").textContent,
  records: [...s.querySelectorAll(".record")].map(r => ({
    eid: r.dataset.eid, head: r.querySelector(".head").textContent,
    fields: Object.fromEntries([...r.querySelectorAll("tr")].slice(1).map(
      row => [row.cells[0].textContent, row.cells[2].textContent]))}))})))"""


class DevTools:
    """A websocket to one DevTools target: masked text frames out, unmasked frames in."""

    def __init__(self, url):
        address, path = url[len("ws://"):].split("/", 1)
        host, port = address.split(":")
        self.sock, self.last_id = socket.create_connection((host, int(port)), timeout=30), 0
        key = base64.b64encode(os.urandom(16)).decode()
        self.sock.sendall(("GET /%s HTTP/1.1\r\nHost: %s\r\nUpgrade: websocket\r\nConnection: "
                           "Upgrade\r\nSec-WebSocket-Key: %s\r\nSec-WebSocket-Version: 13\r\n\r\n"
                           % (path, address, key)).encode())
        head = b""
        while not head.endswith(b"\r\n\r\n"):
            head += self.read(1)
        if b" 101 " not in head.split(b"\r\n")[0]:
            raise ConnectionError(head.decode(errors="replace"))

    def read(self, count):
        data = b""
        while len(data) < count:
            piece = self.sock.recv(count - len(data))
            if not piece:
                raise ConnectionError("DevTools closed the connection")
            data += piece
        return data

    def call(self, method, **params):
        self.last_id += 1
        payload, mask = json.dumps({"id": self.last_id, "method": method,
                                    "params": params}).encode(), os.urandom(4)
        size = len(payload)
        head = (struct.pack("!BB", 0x81, 0x80 | size) if size < 126 else
                struct.pack("!BBH", 0x81, 0x80 | 126, size))
        self.sock.sendall(head + mask + bytes(b ^ mask[i % 4] for i, b in enumerate(payload)))
        message = b""
        while True:  # frames until the answer to this call; events are passed over
            first, second = self.read(2)
            size = second & 0x7F
            if size >= 126:
                size = int.from_bytes(self.read(2 if size == 126 else 8), "big")
            payload = self.read(size)
            if first & 0x0F == 0x8:
                raise ConnectionError("DevTools closed the websocket")
            if first & 0x0F in (0x0, 0x1):
                message += payload
                if first & 0x80:
                    reply, message = json.loads(message), b""
                    if reply.get("id") == self.last_id:
                        if "error" in reply:
                            raise RuntimeError("%s: %s" % (method, reply["error"]))
                        return reply["result"]

    def groups(self):
        value = self.call("Runtime.evaluate", expression=READ_PAGE, returnByValue=True)
        return json.loads(value["result"]["value"])


def wait_for(condition, what, seconds=30):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        value = condition()
        if value:
            return value
        time.sleep(0.2)
    raise AssertionError("timed out waiting for " + what)


@unittest.skipUnless(os.access(CHROMIUM, os.X_OK), "no " + CHROMIUM)
class LiveViewTest(unittest.TestCase):
    def test_demo_records_show_decoded_under_their_session(self):
        work = tempfile.TemporaryDirectory(prefix="qz-e2e-live-")
        self.addCleanup(work.cleanup)
        profile = os.path.join(work.name, "chromium")
        collector, browser, demo, devtools = Collector(work.name), None, None, None
        try:
            browser = subprocess.Popen(
                [CHROMIUM, "--headless=new", "--no-sandbox", "--disable-gpu",
                 "--user-data-dir=" + profile, "--remote-debugging-port=0", "--no-proxy-server",
                 "--window-size=1400,1800", PAGE],
                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            active = os.path.join(profile, "DevToolsActivePort")
            wait_for(lambda: os.path.exists(active) and "\n" in read(active), "DevToolsActivePort")
            targets = "http://127.0.0.1:%s/json/list" % read(active).split()[0]

            def page():
                with urllib.request.urlopen(targets) as reply:
                    return next((t["webSocketDebuggerUrl"] for t in json.load(reply)
                                 if t["type"] == "page" and t["url"] == PAGE), None)
            devtools = DevTools(wait_for(page, "the page"))
            wait_for(lambda: devtools.call("Runtime.evaluate", returnByValue=True, expression=
                     "document.readyState == 'complete'")["result"]["value"], "the page's load")
            demo = subprocess.Popen([DEMO, "--seconds", "6"], stdout=subprocess.PIPE, text=True,
                                    env=user_environment(os.path.join(work.name, "home")))
            # The page shows the demo's records while the demo still runs.
            wait_for(lambda: any(r["eid"] == "showup" for g in devtools.groups()
                                 for r in g["records"]), "the demo's first records")
            self.assertIsNone(demo.poll(), "the demo ended before the page showed its records")
            out = demo.communicate(timeout=60)[0]
            self.assertEqual(demo.returncode, 0, out)
            session = session_of(out)
            groups = wait_for(lambda: [g for g in devtools.groups() if g["session"] == session
                                       and "endup" in [r["eid"] for r in g["records"]]],
                              "the session's last record")
            shot = devtools.call("Page.captureScreenshot", format="png")["data"]
            path = os.path.join(OUTPUT, "live_view.png")
            with open(path, "wb") as handle:
                handle.write(base64.b64decode(shot))
            print("screenshot: " + path)
        finally:
            if devtools:
                devtools.sock.close()
            for process in (demo, browser):
                if process and process.poll() is None:
                    process.kill()
                    process.wait()
            collector.stop()

        [group] = groups
        self.assertEqual(group["heading"], "session %s (%d records)" % (session,
                                                                       len(SESSION_EVENTS)))
        self.assertEqual(collections.Counter(r["eid"] for r in group["records"]),
                         collections.Counter(SESSION_EVENTS))
        for record in group["records"]:
            with self.subTest(eid=record["eid"]):
                self.assertEqual(record["head"], "zhwebevent " + record["eid"])
                shown = record["fields"]
                self.assertEqual((shown["session_id"], shown["eid"], shown["cha"]),
                                 (session, record["eid"], "demo-null"))
                self.assertRegex(shown["mid"], HEX32)
        # Values escaped twice on the wire are shown as the host gave them.
        shown = {r["eid"]: r["fields"] for r in group["records"]}
        self.assertEqual((shown["error/io/save"]["content"], shown["export"]["eid_desc"]),
                         ("disk full", "Export as CSV"))


if __name__ == "__main__":
    unittest.main()
