"""The demo host's whole session as the collector receives it on the profile's ports."""

import collections
import glob
import json
import os
import subprocess
import tempfile
import time
import unittest

from e2e_support import (DEMO, HEX32, SESSION_EVENTS, Collector, fields, read, session_of,
                         user_environment)

# The demo's session information as every record carries it ("OTHER" arrives as "null").
COMMON = {"cha": "demo-null", "rso": "desktop", "ive": "2.4.1", "uve": "2.4.1.100",
          "pas": "demo-user", "lla": "en-US", "sre": "1920x1080", "net_type": "wired",
          "pro": "demo-host", "dty": "pc", "sdk_ver": "vs-nat-2.2.5"}
PRIMARY, STRATEGY_FALLBACK = "127.0.0.1", ["127.0.12.1", "127.0.12.2"]  # not in the profile
PROFILE_FALLBACK = ["127.0.1.1", "127.0.1.2", "127.0.2.1", "127.0.2.2", "127.0.3.1", "127.0.3.2"]


class DemoSessionTest(unittest.TestCase):
    def run_session(self, *collector_options):
        """One demo run: (entries of its session and of its time, machine id, home)."""
        work = tempfile.TemporaryDirectory(prefix="qz-e2e-")
        self.addCleanup(work.cleanup)
        home, started = os.path.join(work.name, "home"), time.time()
        collector = Collector(work.name, *collector_options)
        try:
            demo = subprocess.run([DEMO, "--seconds", "6"], env=user_environment(home),
                                  capture_output=True, text=True, timeout=60)
        finally:
            entries, summary = collector.stop()
        self.assertEqual(demo.returncode, 0, demo.stdout + demo.stderr)
        self.assertIn("reports queued: 17 of 17", demo.stdout)
        self.assertIsNotNone(summary)
        machine_id = demo.stdout.split("machine id: ", 1)[1].split()[0]
        self.assertRegex(machine_id, HEX32)
        # Other programs on this machine may reach the same ports: keep this session's requests
        # and the strategy and configuration requests made while it ran.
        session = session_of(demo.stdout)
        return ([e for e in entries if e.get("session_id") == session or
                 (e["kind"] in ("strategy", "config") and e["received"] >= started)],
                machine_id, home)

    def test_every_record_arrives_once_with_the_session_facts(self):
        entries, machine_id, _ = self.run_session()
        records = [e for e in entries if e["kind"] == "record"]
        self.assertEqual(collections.Counter(e["eid"] for e in records),
                         collections.Counter(SESSION_EVENTS))
        self.assertEqual((records[0]["eid"], records[-1]["eid"]), ("startup", "endup"))
        for entry in records:
            with self.subTest(eid=entry["eid"]):
                values = fields(entry)
                # Nothing failed: one attempt on the collector host, with a valid key.
                self.assertEqual((entry["status"], entry["ec"], entry["address"], entry["key_ok"],
                                  values["mid"]), ("200", 1, PRIMARY, True, machine_id))
                self.assertEqual({k: values.get(k) for k in COMMON}, COMMON)
                self.assertRegex(values["kelvo_mid"], HEX32)
        self.assertEqual(len({fields(e)["kelvo_mid"] for e in records}), 1)
        self.assertEqual([e for e in entries if e.get("key_ok") is False], [])
        self.assertIn("strategy", [e["kind"] for e in entries])
        [config] = [e for e in entries if e["kind"] == "config"]
        self.assertEqual((config["tls"], fields(config)["appkey"], fields(config)["deviceid"]),
                         (True, "demo-host", machine_id))
        # The configuration said open: one statistics line at Exit, after the last record, that
        # counts every record of the session as delivered at the first attempt.
        [total] = [e for e in entries if e["kind"] == "total"]
        self.assertGreater(total["id"], max(config["id"], records[-1]["id"]))
        line, n = fields(total), str(len(SESSION_EVENTS))
        self.assertEqual((total["status"], line["imei"], line["log_seid"]),
                         ("200", machine_id, records[0]["session_id"]))
        self.assertEqual([line[k] for k in ("cur", "succeed_report", "first_connect", "suc",
                                            "fail_report", "retry", "fait", "del")],
                         [n, n, n, n, "0", "0", "0", "0"])

    def test_strategy_fallback_serves_records_while_the_collector_host_fails(self):
        with tempfile.NamedTemporaryFile("w", suffix=".json", delete=False) as strategy:
            json.dump({"fallback": STRATEGY_FALLBACK}, strategy)
        self.addCleanup(os.unlink, strategy.name)
        entries, _, home = self.run_session("--strategy", strategy.name, "--fail", "500")
        histories = collections.OrderedDict()
        for entry in (e for e in entries if e["kind"] == "record"):
            histories.setdefault(entry["record_id"], []).append(entry)
        self.assertEqual(collections.Counter(h[0]["eid"] for h in histories.values()),
                         collections.Counter(SESSION_EVENTS))
        fetched = min(e["received"] for e in entries if e["kind"] == "strategy")
        on_strategy_list = []
        for history in histories.values():
            with self.subTest(eid=history[0]["eid"]):
                shape = [(e["address"] == PRIMARY, e["ec"], e["status"]) for e in history]
                if history[0]["eid"] == "endup":  # at Exit a record gets one attempt only
                    self.assertEqual(shape, [(True, 1, "500")])
                    continue
                # Two attempts on the failing host, then the first fallback attempt succeeds.
                self.assertEqual(shape, [(True, 1, "500"), (True, 2, "500"), (False, 3, "200")])
                address = history[-1]["address"]
                self.assertIn(address, STRATEGY_FALLBACK if history[0]["received"] > fetched + 1
                              else STRATEGY_FALLBACK + PROFILE_FALLBACK)
                on_strategy_list.append(address in STRATEGY_FALLBACK)
        # Once the served list is in use, no record goes back to the profile's list.
        self.assertEqual(on_strategy_list, sorted(on_strategy_list))
        # Failed attempts after the configuration said open are told by failure lines, which
        # themselves go out on the fallback.
        failures = [fields(e) for e in entries if e["kind"] == "fail" and e["status"] == "200"]
        self.assertEqual({(f["fact"], f["host"]) for f in failures}, {("zhwebevent", PRIMARY)})
        self.assertEqual([(e["status"], e["ec"]) for e in entries if e["kind"] == "total"],
                         [("500", 1)])
        # The per-user data folder: the home's, unless the platform's lies elsewhere (Windows).
        data = os.environ.get("QZ_E2E_DATA_HOME") or os.path.join(home, ".local", "share")
        logs = os.path.join(data, "norvik", "tzgame", "log", "reportsdk")
        for pattern in ("report*.log", "err/report_err*.log"):
            kept = "".join(read(path) for path in glob.glob(os.path.join(logs, pattern)))
            self.assertIn(histories[next(iter(histories))][0]["session_id"], kept, pattern)


if __name__ == "__main__":
    unittest.main()
