"""Windows: the machine ids kept in the registry of the Wine prefix, across two runs."""

import os
import re
import subprocess
import tempfile
import unittest

from e2e_support import DEMO, HEX32, Collector

WINE = dict(os.environ, WINEPREFIX=os.environ.get("QZ_E2E_WINE_PREFIX", ""), WINEDEBUG="-all")


def reg(*arguments):
    return subprocess.run(["wine", "reg", *arguments], env=WINE, capture_output=True,
                          text=True, timeout=60).stdout


class RegistryIdsTest(unittest.TestCase):
    def test_two_runs_report_the_ids_kept_with_their_sizes(self):
        reg("delete", r"HKCU\SOFTWARE\norvik", "/f")
        reg("delete", r"HKCU\Software\norvik", "/f")
        ids = []
        for _ in range(2):
            with tempfile.TemporaryDirectory(prefix="qz-e2e-") as work:
                collector = Collector(work)
                try:
                    demo = subprocess.run([DEMO, "--seconds", "0"], capture_output=True,
                                          text=True, timeout=60)
                finally:
                    collector.stop()
            self.assertEqual(demo.returncode, 0, demo.stdout + demo.stderr)
            self.assertIn("machine id: ", demo.stdout, demo.stderr)
            ids.append(demo.stdout.split("machine id: ", 1)[1].split()[0])
        self.assertRegex(ids[0], HEX32)
        self.assertEqual(ids[0], ids[1])
        # Texts of 32 digits (33 bytes with the terminating zero); the hardware id may carry
        # the fallback mark as a 33rd character.
        kept = {}
        for key, name in ((r"HKCU\SOFTWARE\norvik\qzdata_report", "mid"),
                          (r"HKCU\SOFTWARE\norvik\qzdata_report_kelvo", "mid"),
                          (r"HKCU\Software\norvik\datareportsdk", "mid_2")):
            found = re.search(r"^\s+%s\s+REG_SZ\s+(\S+)\s*$" % name, reg("query", key, "/v", name),
                              re.M)
            self.assertIsNotNone(found, key)
            kept[key.rsplit("\\", 1)[1]] = found.group(1)
        self.assertEqual(kept["qzdata_report"], ids[0])
        self.assertEqual(kept["qzdata_report_kelvo"], ids[0])
        self.assertRegex(kept["datareportsdk"], r"^[0-9a-f]{32}-?$")


if __name__ == "__main__":
    unittest.main()
