"""Checks qzcollector against requests and documents built by hand from the wire rules, and its
ciphers against openssl. Loopback only; the listeners take ports that the system picks."""

import base64
import hashlib
import http.client
import json
import os
import socket
import ssl
import subprocess
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import qzcollector  # noqa: E402

PROFILE = qzcollector.load_profile(qzcollector.DEFAULT_PROFILE)
SALT = PROFILE["QZ_REQUEST_SALT"]


def openssl(args, data):
    return subprocess.run(["openssl", "enc", "-d"] + args, input=data, capture_output=True,
                          check=True).stdout


class CollectorCase(unittest.TestCase):
    options = {}

    def setUp(self):
        self.collector = qzcollector.Collector(PROFILE, port=0, tls_port=0, **self.options).start()
        self.addCleanup(self.collector.stop)
        self.ports = dict(self.collector.bound())

    def get(self, target, host="127.0.0.1"):
        """One request as the library writes it (the target may hold raw blanks)."""
        with socket.create_connection((host, self.ports[host]), timeout=5) as connection:
            connection.sendall(b"GET %s HTTP/1.1\r\nConnection: Close\r\nHost: %s\r\n"
                               b"Content-Length: 0\r\n\r\n" % (target.encode(), host.encode()))
            reply = b"".join(iter(lambda: connection.recv(4096), b""))
        if not reply:
            raise ConnectionError("closed without an answer")
        head, _, body = reply.partition(b"\r\n\r\n")
        return int(head.split()[1]), body


def gif_target(query, act="zhwebevent", stamp="1700000000", key=None, ec=1):
    key = key or hashlib.md5((act + stamp + SALT).encode()).hexdigest()
    return ("/c.gif?act=%s&smkdata=0&EC=%d&action=0123456789ABCDEF0123456789ABCDEF"
            "&sdkver=vs-nat-2.2.5&key=%s&time=%s&%s" % (act, ec, key, stamp, query))


class RecordTest(CollectorCase):
    def test_record_decoded(self):
        # extra: eid=click, eid_desc "a b" escaped twice, content "ä" escaped twice, a member
        # escaped once whose blank became "+", and a long name that stayed long.
        query = ("kelvo_mid=K&mid=ABC&pro=demo&os=Win 10&extra=eid%3Dclick%26eid_desc%3Da%2Bb"
                 "%26Content%3D%25C3%25A4%26note%3Dx+y%26z%26product%3Dpc%26sdk_ver%3Dvs-nat-2.2.5")
        status, body = self.get(gif_target(query))
        self.assertEqual((status, body[:3]), (200, b"GIF"))
        [entry] = self.collector.store.since(0)
        self.assertTrue(entry["key_ok"])
        self.assertEqual((entry["act"], entry["ec"], entry["address"]),
                         ("zhwebevent", 1, "127.0.0.1"))
        self.assertEqual(entry["record_id"], "0123456789ABCDEF0123456789ABCDEF")
        fields = [(f["key"], f["long"], f["value"], f["in"]) for f in entry["fields"]]
        self.assertEqual(fields, [
            ("kelvo_mid", "", "K", "query"), ("mid", "", "ABC", "query"),
            ("pro", "product", "demo", "query"), ("os", "", "Win 10", "query"),
            ("eid", "", "click", "extra"), ("eid_desc", "", "a b", "extra"),
            ("Content", "", "\u00e4", "extra"), ("note", "", "x y&z", "extra"),
            ("product", "", "pc", "extra"), ("sdk_ver", "", "vs-nat-2.2.5", "extra")])
        self.assertEqual(entry["eid"], "click")
        # What the live view polls: the entries after the Nth.
        self.assertEqual(json.loads(self.get("/entries?since=0")[1])[0]["eid"], "click")
        self.assertEqual(json.loads(self.get("/entries?since=1")[1]), [])
        self.assertIn(b"<script>", self.get("/")[1])

    def test_bad_keys_rejected(self):
        good = hashlib.md5(("zhwebevent1700000000" + SALT).encode()).hexdigest()
        cases = {
            "other time": gif_target("mid=A", stamp="1700000001", key=good),
            "other action": gif_target("mid=A", act="custom", key=good),
            "other salt": gif_target("mid=A", key=hashlib.md5(
                b"zhwebevent1700000000WrongSalt").hexdigest()),
            "no key": gif_target("mid=A").replace("&key=" + good, ""),
            "no time": gif_target("mid=A").replace("&time=1700000000", ""),
        }
        for name, target in cases.items():
            with self.subTest(name):
                self.assertEqual(self.get(target)[0], 403)
        self.assertEqual(self.get(gif_target("mid=A"))[0], 200)
        # After 2038 the signer prints the time's low 32 bits as a signed number.
        self.assertEqual(self.get(gif_target("mid=A", stamp="-1294967296"))[0], 200)
        summary = self.collector.store.summary()
        self.assertEqual((summary["records"], summary["rejected"]), (2, len(cases)))

    def test_statistics_line_and_fallback_address(self):
        query = ("session_id=S&kelvo_mid=K&sys=10&mbos=os&imei=M&log_time=1700000000"
                 "&cur=3&fait=1&appkey=demo&host=127.0.1.2&uid=a%20b&sdkver=vs-nat-2.2.5")
        fallback = PROFILE["QZ_FALLBACK_ADDRESSES"][0]
        self.assertEqual(self.get(gif_target(query, act="zhlogtotal", ec=3), fallback)[0], 200)
        [entry] = self.collector.store.since(0)
        values = {f["key"]: f["value"] for f in entry["fields"]}
        self.assertEqual((entry["kind"], entry["address"], entry["ec"]), ("total", fallback, 3))
        self.assertEqual((values["cur"], values["uid"], values["session_id"]), ("3", "a b", "S"))
        self.assertEqual(values["sdkver"], "vs-nat-2.2.5")
        self.assertNotIn("key", values)


class FailTest(CollectorCase):
    options = {"fail": "500", "fail_first": 2}

    def test_fails_on_host_only_and_first_n(self):
        target = gif_target("mid=A")
        fallback = PROFILE["QZ_POST_FALLBACK_ADDRESSES"][-1]
        statuses = [self.get(target)[0], self.get(target, fallback)[0], self.get(target)[0],
                    self.get(target)[0]]
        self.assertEqual(statuses, [500, 200, 500, 200])
        summary = self.collector.store.summary()
        self.assertEqual((summary["records"], summary["failed_on_purpose"]), (2, 2))

    def test_close_and_stall_answer_nothing(self):
        for mode in ("close", "stall"):
            with self.subTest(mode):
                self.collector.fail_mode, self.collector.failed = mode, 0
                self.collector.stall_seconds = 0.2
                with self.assertRaises(ConnectionError):
                    self.get(gif_target("mid=A"))


class StrategyTest(CollectorCase):
    description = {"fallback": ["127.0.1.1"], "post_fallback": [], "spare_fallback": [],
                   "special_acts": ["a"], "set2": [], "map1": {"k": -12}, "map2": {"m": 7},
                   "keepalive_seconds": 30, "number2": 0, "number3": 200, "number4": 0,
                   "number5": 2, "number6": 3072, "set3": ["x"], "set4": [], "set5": [],
                   "set6": [], "stop_old_sdk": 1}
    plain = (b"01" b"09127.0.1.1" b"00" b"00" b"01" b"01a" b"00" b"01" b"01k-12" b"01" b"01m007"
             b"00030" b"00000" b"00200" b"00000" b"00002" b"03072" b"0001" b"01x" b"0000"
             b"0000" b"0000" b"1")

    def decipher(self, blob):
        """Checks the outer layer and deciphers it with openssl; returns the plain text."""
        length = int(blob[:8])
        self.assertEqual(len(blob), 8 + 32 * ((length + 15) // 16))
        self.assertRegex(blob[8:].decode(), "^[0-9a-f]*$")
        key = hashlib.md5(b"Tm9Qa").hexdigest()
        out = openssl(["-aes-128-cbc", "-K", key, "-iv", key, "-nopad"],
                      bytes.fromhex(blob[8:].decode()))
        return out[:length]

    def test_served_blob_round_trip(self):
        self.collector.strategy_blob = qzcollector.encipher_strategy(
            qzcollector.strategy_plain(self.description), "Tm9Qa")
        status, blob = self.get("/zhsdkinfo.php?ver=1&EC=1")
        self.assertEqual(status, 200)
        self.assertEqual(self.decipher(blob), self.plain)

    def test_block_boundaries_and_optional_last_field(self):
        # 16 plain bytes must give one block, not two; the last field may be left out.
        for size in (16, 17, 31, len(self.plain) - 1):
            with self.subTest(size):
                plain = self.plain[:size]
                blob = qzcollector.encipher_strategy(plain, "Tm9Qa")
                self.assertEqual(self.decipher(blob), plain)
        shorter = dict(self.description, stop_old_sdk=None)
        self.assertEqual(qzcollector.strategy_plain(shorter), self.plain[:-1])

    def test_default_lists_and_limits(self):
        plain = qzcollector.strategy_plain(qzcollector.strategy_description(PROFILE))
        self.assertTrue(plain.startswith(b"06" b"09127.0.1.1" b"09127.0.1.2"))
        for bad in ({"fallback": ["127.0.100.100.11"]}, {"map1": {"k": -100}},
                    {"keepalive_seconds": 100000}, {"set3": ["y" * 100]},
                    {"special_acts": ["a"] * 100}):
            with self.subTest(bad), self.assertRaises(ValueError):
                qzcollector.strategy_plain(dict(self.description, **bad))


class DeviceConfigTest(CollectorCase):
    def fetch(self):
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
        context.check_hostname, context.verify_mode = False, ssl.CERT_NONE
        [(host, port)] = self.collector.bound(tls=True)
        connection = http.client.HTTPSConnection(host, port, timeout=5, context=context)
        connection.request("GET", "/api/getDeviceConfig?sys=10&uid=u1&appkey=demo&EC=1")
        response = connection.getresponse()
        self.assertEqual(response.status, 200)
        reply = json.loads(response.read())
        connection.close()
        return reply

    def test_data_deciphers_with_openssl(self):
        for is_open in (1, 0):
            with self.subTest(open=is_open):
                self.collector.config_open = bool(is_open)
                reply = self.fetch()
                self.assertEqual(reply["code"], 1)
                key = hashlib.md5(("%d%s" % (reply["time"], "LarchCode")).encode()).hexdigest()
                plain = openssl(["-des-ecb", "-K", key[:8].encode().hex(), "-provider", "legacy",
                                 "-provider", "default"], base64.b64decode(reply["data"]))
                self.assertEqual(json.loads(plain), {"tzConfig": {"open": is_open}})
        entries = self.collector.store.since(0)
        self.assertEqual([e["kind"] for e in entries], ["config", "config"])
        self.assertTrue(entries[0]["tls"])


if __name__ == "__main__":
    unittest.main()
