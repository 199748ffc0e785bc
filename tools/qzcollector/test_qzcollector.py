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


def md5(text):
    return hashlib.md5(text.encode()).hexdigest()


def gif_target(query, act="zhwebevent", stamp="1700000000", key=None, ec=1):
    return ("/c.gif?act=%s&smkdata=0&EC=%d&action=0123456789ABCDEF0123456789ABCDEF"
            "&sdkver=vs-nat-2.2.5&key=%s&time=%s&%s"
            % (act, ec, key or md5(act + stamp + SALT), stamp, query))


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


class RecordTest(CollectorCase):
    def test_record_decoded(self):
        # extra: eid=click, eid_desc "a b" escaped twice, content "ä" escaped twice, a member
        # escaped once whose blank became "+", and a long name that stayed long.
        query = ("kelvo_mid=K&mid=ABC&pro=demo&os=Win 10&extra=eid%3Dclick%26eid_desc%3Da%2Bb"
                 "%26Content%3D%25C3%25A4%26note%3Dx+y%26z%26product%3Dpc%26sdk_ver%3Dvs-nat-2.2.5")
        status, body = self.get(gif_target(query))
        [entry] = self.collector.store.since(0)
        self.assertEqual((status, body[:3]) + tuple(entry[k] for k in ("key_ok", "act", "ec",
                         "address", "eid", "record_id")), (200, b"GIF", True, "zhwebevent", 1,
                         "127.0.0.1", "click", "0123456789ABCDEF0123456789ABCDEF"))
        self.assertEqual([(f["key"], f["long"], f["value"], f["in"]) for f in entry["fields"]], [
            ("kelvo_mid", "", "K", "query"), ("mid", "", "ABC", "query"),
            ("pro", "product", "demo", "query"), ("os", "", "Win 10", "query"),
            ("eid", "", "click", "extra"), ("eid_desc", "", "a b", "extra"),
            ("Content", "", "\u00e4", "extra"), ("note", "", "x y&z", "extra"),
            ("product", "", "pc", "extra"), ("sdk_ver", "", "vs-nat-2.2.5", "extra")])
        # What the live view polls: the entries after the Nth.
        self.assertEqual(json.loads(self.get("/entries?since=1")[1]), [])

    def test_bad_keys_rejected(self):
        good = md5("zhwebevent1700000000" + SALT)
        for target in (gif_target("mid=A", stamp="1700000001", key=good),
                       gif_target("mid=A", act="custom", key=good),
                       gif_target("mid=A", key=md5("zhwebevent1700000000WrongSalt")),
                       gif_target("mid=A").replace("&key=" + good, ""),
                       gif_target("mid=A").replace("&time=1700000000", "")):
            self.assertEqual(self.get(target)[0], 403, target)
        self.assertEqual(self.get(gif_target("mid=A"))[0], 200)
        # After 2038 the signer prints the time's low 32 bits as a signed number.
        self.assertEqual(self.get(gif_target("mid=A", stamp="-1294967296"))[0], 200)
        summary = self.collector.store.summary()
        self.assertEqual((summary["records"], summary["rejected"]), (2, 5))


class FailTest(CollectorCase):
    options = {"fail": "500", "fail_first": 2}

    def test_fails_on_host_only_and_first_n_then_close_and_stall_answer_nothing(self):
        target, fallback = gif_target("mid=A"), PROFILE["QZ_POST_FALLBACK_ADDRESSES"][-1]
        self.assertEqual([self.get(target)[0], self.get(target, fallback)[0],
                          self.get(target)[0], self.get(target)[0]], [500, 200, 500, 200])
        summary = self.collector.store.summary()
        self.assertEqual((summary["records"], summary["failed_on_purpose"]), (2, 2))
        for mode in ("close", "stall"):
            vars(self.collector).update(fail_mode=mode, failed=0, stall_seconds=0.2)
            with self.subTest(mode), self.assertRaises(ConnectionError):
                self.get(target)


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
        length, key = int(blob[:8]), md5("Tm9Qa")
        self.assertEqual(len(blob), 8 + 32 * ((length + 15) // 16))
        self.assertRegex(blob[8:].decode(), "^[0-9a-f]*$")
        return openssl(["-aes-128-cbc", "-K", key, "-iv", key, "-nopad"],
                       bytes.fromhex(blob[8:].decode()))[:length]

    def test_served_blob_round_trip_and_block_boundaries(self):
        self.collector.strategy_blob = qzcollector.encipher_strategy(
            qzcollector.strategy_plain(self.description), "Tm9Qa")
        status, blob = self.get("/zhsdkinfo.php?ver=1&EC=1")
        self.assertEqual((status, self.decipher(blob)), (200, self.plain))
        # 16 plain bytes must give one block, not two; the last field may be left out.
        for size in (16, 17, 31, len(self.plain) - 1):
            plain = self.plain[:size]
            self.assertEqual(self.decipher(qzcollector.encipher_strategy(plain, "Tm9Qa")), plain)
        shorter = dict(self.description, stop_old_sdk=None)
        self.assertEqual(qzcollector.strategy_plain(shorter), self.plain[:-1])


class DeviceConfigTest(CollectorCase):
    def test_data_deciphers_with_openssl(self):
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
        context.check_hostname, context.verify_mode = False, ssl.CERT_NONE
        [(host, port)] = self.collector.bound(tls=True)
        for is_open in (1, 0):
            self.collector.config_open = bool(is_open)
            connection = http.client.HTTPSConnection(host, port, timeout=5, context=context)
            connection.request("GET", "/api/getDeviceConfig?sys=10&uid=u1&appkey=demo&EC=1")
            response = connection.getresponse()
            reply = json.loads(response.read())
            connection.close()
            self.assertEqual((response.status, reply["code"]), (200, 1))
            key = md5("%d%s" % (reply["time"], "LarchCode"))
            plain = openssl(["-des-ecb", "-K", key[:8].encode().hex(), "-provider", "legacy",
                             "-provider", "default"], base64.b64decode(reply["data"]))
            self.assertEqual(json.loads(plain), {"tzConfig": {"open": is_open}})
        entries = self.collector.store.since(0)
        self.assertEqual([(e["kind"], e["tls"]) for e in entries], [("config", True)] * 2)


if __name__ == "__main__":
    unittest.main()
