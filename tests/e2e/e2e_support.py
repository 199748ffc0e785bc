"""Runs the demo host against the bundled collector on the profile's loopback ports. CTest names
the demo (QZ_DEMO_HOST), the collector (QZ_COLLECTOR) and where artefacts go (QZ_E2E_OUTPUT)."""

import json
import os
import re
import signal
import subprocess
import sys
import time

DEMO, COLLECTOR = os.environ.get("QZ_DEMO_HOST", ""), os.environ.get("QZ_COLLECTOR", "")
OUTPUT = os.environ.get("QZ_E2E_OUTPUT", ".")
# The demo's own reports by the documented path rules, between the library's "startup" and, for a
# 6 s run with a 5 s heartbeat, one periodic heartbeat, the one of Exit and "endup".
SESSION_EVENTS = [
    "startup", "settings", "export", "error/io/save", "load", "settings/toolbar", "level/3",
    "menu/file/open", "lobby", "error", "click", "fail", "timer",
    "OpenUrl/com.example.www/.2fdocs.2fstart", "Help/org.example.help/.2ffaq",
    "page/shop.example.net/.2fcart/done", "play/lobby/GameID=chess/ServerID=s1/From=menu_quick",
    "showup", "heartbeat", "heartbeat", "endup"]
HEX32 = r"^[0-9a-f]{32}$"


class Collector:
    """qzcollector --json as a child process; stop() returns (entries, summary)."""

    def __init__(self, workdir, *options):
        self.out = os.path.join(workdir, "collector.out")
        err = os.path.join(workdir, "collector.err")
        deadline = time.monotonic() + 30
        while True:  # the ports may still be held for a moment by a run that just ended
            with open(self.out, "wb") as out, open(err, "wb") as errors:
                self.process = subprocess.Popen([sys.executable, COLLECTOR, "--json", *options],
                                                stdout=out, stderr=errors)
            while self.process.poll() is None and "listeners" not in read(err):
                time.sleep(0.05)
            if self.process.poll() is None:
                return
            if time.monotonic() > deadline:
                raise RuntimeError("collector did not start: " + read(err))
            time.sleep(0.5)

    def stop(self):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGINT)
            try:
                self.process.wait(timeout=15)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        values = [json.loads(line) for line in read(self.out).splitlines() if line.strip()]
        return ([v for v in values if "summary" not in v],
                next((v["summary"] for v in values if "summary" in v), None))


def read(path):
    with open(path, encoding="utf-8") as handle:
        return handle.read()


def user_environment(home):
    """A per-user store of the demo's own (machine id, log files)."""
    return dict(os.environ, HOME=home, XDG_CONFIG_HOME=os.path.join(home, ".config"),
                XDG_DATA_HOME=os.path.join(home, ".local", "share"))


def session_of(stdout):
    return re.search(r"^session (\S+)$", stdout, re.M).group(1)


def fields(entry):
    return {f["key"]: f["value"] for f in entry.get("fields", [])}
