#!/usr/bin/env python3
"""qzcollector: every server of a qzdata_report deployment, on loopback.

One process answers what the library asks of its servers:
  - records and self-reporting lines, GET (or POST) /c.gif?act=..., on the collector host and on
    every fallback address of the profile: the request key is checked, both escaping layers of
    `extra` are undone and each request is kept as one decoded entry;
  - the strategy, GET /zhsdkinfo.php?ver=1: a blob built from a small JSON description;
  - the device configuration, GET /api/getDeviceConfig?sys=10, over TLS with a certificate made
    at start.
It shares no code with the library on purpose: it checks what the library sends, from the wire
format alone. Python 3 and Debian's python3-cryptography only.
"""

import argparse
import base64
import datetime
import hashlib
import http.server
import json
import os
import re
import signal
import socket
import ssl
import sys
import tempfile
import threading
import time
import urllib.parse

from cryptography.hazmat.primitives.ciphers import Cipher, algorithms, modes
from cryptography.hazmat.primitives import padding

try:  # newer releases keep DES only here
    from cryptography.hazmat.decrepit.ciphers.algorithms import TripleDES
except ImportError:  # Debian 12's release
    from cryptography.hazmat.primitives.ciphers.algorithms import TripleDES

HERE = os.path.dirname(os.path.abspath(__file__))
DEFAULT_PROFILE = os.path.join(HERE, "..", "..", "deploy", "local.cmake")

# Long names that a record may use, by the short name that travels on the wire.
LONG_NAMES = {
    "act": "action", "dur": "duration", "ati": "atime", "fla": "flag", "pro": "product",
    "pip": "proxy_ip", "sti": "stime", "pas": "passport", "gam": "game", "gse": "game_server",
    "rso": "run_source", "ive": "iver", "uve": "uver", "cha": "channel", "ref": "referrer",
    "bve": "brower_version", "sre": "screen_resolution", "sco": "screen_color",
    "lla": "local_language", "jav": "java", "coo": "cookies", "nve": "net_version", "par": "param",
}
# Members of `extra` that are escaped once on their own before `extra` as a whole is escaped.
DOUBLY_ESCAPED = {"content", "rso_desc", "eid_desc", "channel_desc", "ref_desc"}
# Keys of the self-reporting lines whose values are escaped (the common prefix goes raw).
LINE_ESCAPED = {
    "log_time", "logdate", "log_seid", "guid", "log_dur", "cur", "resume_report", "succeed_report",
    "fail_report", "first_connect", "retry", "suc", "fait", "del", "buf", "appkey", "ver", "from",
    "uid", "sdkver", "fguid", "fcode", "fact", "host"}
STATS_COUNTERS = ["cur", "resume_report", "succeed_report", "fail_report", "first_connect",
                  "retry", "suc", "fait", "del", "buf"]
TRANSPORT_KEYS = {"act", "smkdata", "EC", "action", "sdkver", "key", "time", "enc", "item"}

GIF = base64.b64decode("R0lGODlhAQABAIAAAAAAAP///yH5BAEAAAAALAAAAAABAAEAAAIBRAA7")


# ---------------------------------------------------------------------------------------------
# Profile

def load_profile(path):
    """Reads the set(NAME "value" ...) lines of a deployment profile into a dict."""
    values = {}
    with open(path, encoding="utf-8") as handle:
        text = handle.read()
    for name, value in re.findall(r'set\(\s*(QZ_[A-Z0-9_]+)\s+((?:"[^"]*"\s*)+)', text):
        joined = "".join(re.findall(r'"([^"]*)"', value))
        values[name] = joined
    for name in ("QZ_FALLBACK_ADDRESSES", "QZ_POST_FALLBACK_ADDRESSES",
                 "QZ_SPARE_FALLBACK_ADDRESSES"):
        values[name] = [a for a in values.get(name, "").split(";") if a]
    for name in ("QZ_COLLECTOR_PORT", "QZ_STRATEGY_PORT", "QZ_CONFIG_PORT"):
        values[name] = int(values[name])
    return values


# ---------------------------------------------------------------------------------------------
# Record requests

def int32_text(text):
    """The decimal time as the signer prints it: the low 32 bits, signed."""
    value = int(text, 10) & 0xFFFFFFFF
    return str(value - (1 << 32) if value & 0x80000000 else value)


def request_key(act, time_text, salt):
    """Lower-case MD5 of action, time and salt; act is raw bytes or latin-1 text."""
    if isinstance(act, str):
        act = act.encode("latin-1")
    return hashlib.md5(act + int32_text(time_text).encode() + salt.encode()).hexdigest()


def show(raw):
    """Bytes as text for people: UTF-8 where it is, replacement marks where not."""
    return raw.decode("utf-8", errors="replace")


def split_pairs(text):
    """Splits a&b=c into (key, value) pairs. A piece without "=" belongs to the value before it:
    members of `extra` other than the escaped ones go raw and may hold "&"."""
    pairs = []
    for piece in text.split(b"&"):
        if not piece:
            continue
        if b"=" in piece:
            key, value = piece.split(b"=", 1)
            pairs.append([key, value])
        elif pairs:
            pairs[-1][1] += b"&" + piece
        else:
            pairs.append([piece, b""])
    return pairs


def unescape_form(raw):
    """Undoes the record escape: "+" is a blank, %XX a byte."""
    return urllib.parse.unquote_to_bytes(raw.replace(b"+", b" "))


def decode_extra(raw):
    """The members of `extra`, both escaping layers undone, in wire order."""
    members = []
    for key, value in split_pairs(unescape_form(raw)):
        if key.decode("latin-1").lower() in DOUBLY_ESCAPED:
            value = unescape_form(value)
        members.append((show(key), show(value)))
    return members


def decode_gif_request(target, body, salt):
    """Decodes one /c.gif request (target as latin-1 text, body as bytes) into an entry."""
    path, _, query = target.partition("?")
    raw = query.encode("latin-1")
    if body:
        raw += b"&" + body
    pairs = split_pairs(raw)
    first = {}
    for key, value in pairs:
        first.setdefault(key.decode("latin-1"), value)
    act = first.get("act", b"")
    entry = {"path": path, "act": show(act), "ec": None, "record_id": show(first.get("action", b"")),
             "sdkver": show(first.get("sdkver", b"")), "time_sent": show(first.get("time", b"")),
             "fields": []}
    try:
        entry["ec"] = int(first.get("EC", b""))
    except ValueError:
        pass
    key = first.get("key", b"").decode("latin-1")
    try:
        expected = request_key(act, first.get("time", b"").decode("latin-1"), salt)
    except ValueError:
        expected = None
    entry["key_ok"] = bool(act) and expected is not None and key.lower() == expected
    line = act in (b"zhlogtotal", b"zhlogfail")
    # A line carries its own sdkver, and the transport then adds none.
    transport = TRANSPORT_KEYS - {"sdkver"} if line else TRANSPORT_KEYS
    for raw_key, value in pairs:
        name = raw_key.decode("latin-1")
        if name in transport:
            continue
        if name == "extra" and not line:
            for member, text in decode_extra(value):
                entry["fields"].append({"key": member, "long": LONG_NAMES.get(member, ""),
                                        "value": text, "in": "extra"})
            continue
        if line and name in LINE_ESCAPED:
            value = urllib.parse.unquote_to_bytes(value)
        entry["fields"].append({"key": show(raw_key), "long": LONG_NAMES.get(show(raw_key), ""),
                                "value": show(value), "in": "query"})
    entry["kind"] = {"zhlogtotal": "total", "zhlogfail": "fail"}.get(entry["act"], "record")
    for field in entry["fields"]:
        if field["key"] in ("session_id", "eid") and field["key"] not in entry:
            entry[field["key"]] = field["value"]
    return entry


# ---------------------------------------------------------------------------------------------
# Strategy blob

DEFAULT_STRATEGY = {
    "special_acts": ["protoaudiolistener", "protoaudiospeaker", "protoaudiouserloss"],
    "set2": [], "map1": {}, "map2": {},
    "keepalive_seconds": 60, "number2": 0, "number3": 200, "number4": 0, "number5": 2,
    "number6": 3072, "set3": [], "set4": [], "set5": [], "set6": [],
    "stop_old_sdk": 0,
}


def strategy_description(profile, overrides=None):
    """The default description: the profile's lists, the library's defaults, legacy on."""
    description = dict(DEFAULT_STRATEGY)
    description["fallback"] = list(profile["QZ_FALLBACK_ADDRESSES"])
    description["post_fallback"] = list(profile["QZ_POST_FALLBACK_ADDRESSES"])
    description["spare_fallback"] = list(profile["QZ_SPARE_FALLBACK_ADDRESSES"])
    description.update(overrides or {})
    return description


def _count(values, width):
    if len(values) >= 10 ** width:
        raise ValueError("%d entries do not fit a count of %d digits" % (len(values), width))
    return "%0*d" % (width, len(values))


def _string(text, limit=99):
    data = text.encode("utf-8")
    if len(data) > limit:
        raise ValueError("entry %r is longer than %d bytes" % (text, limit))
    return b"%02d" % len(data) + data


def _number(value):
    if not 0 <= int(value) <= 99999:
        raise ValueError("number %r does not fit 5 digits" % value)
    return b"%05d" % int(value)


def _signed3(value):
    value = int(value)
    if not -99 <= value <= 999:
        raise ValueError("map value %r does not fit 3 characters" % value)
    return (b"-%02d" % -value) if value < 0 else (b"%03d" % value)


def strategy_plain(description):
    """The inner layer: fixed-width numbers and length-prefixed strings, no separators."""
    out = []
    for name in ("fallback", "post_fallback", "spare_fallback"):
        entries = description[name]
        out.append(_count(entries, 2).encode())
        out.extend(_string(a, 15) for a in entries)
    for name in ("special_acts", "set2"):
        out.append(_count(description[name], 2).encode())
        out.extend(_string(s) for s in description[name])
    for name in ("map1", "map2"):
        items = sorted(description[name].items())
        out.append(_count(items, 2).encode())
        out.extend(_string(k) + _signed3(v) for k, v in items)
    for name in ("keepalive_seconds", "number2", "number3", "number4", "number5", "number6"):
        out.append(_number(description[name]))
    for name in ("set3", "set4", "set5", "set6"):
        out.append(_count(description[name], 4).encode())
        out.extend(_string(s) for s in description[name])
    if description.get("stop_old_sdk") is not None:  # None leaves the last field out
        out.append(b"1" if description["stop_old_sdk"] else b"0")
    return b"".join(out)


def strategy_key(passphrase):
    """Key and initialisation vector at once: the 16 bytes of MD5 of the pass string."""
    return hashlib.md5(passphrase.encode()).digest()


def encipher_strategy(plain, passphrase):
    """Outer layer: 8 digits of plain length, then AES-128-CBC of the zero-padded plain text in
    lower-case hex. Zero padding keeps the cipher text at exactly ceil(n/16) blocks."""
    key = strategy_key(passphrase)
    padded = plain + b"\0" * (-len(plain) % 16)
    encryptor = Cipher(algorithms.AES(key), modes.CBC(key)).encryptor()
    cipher = encryptor.update(padded) + encryptor.finalize()
    return b"%08d" % len(plain) + cipher.hex().encode()


# ---------------------------------------------------------------------------------------------
# Device configuration

def config_key(time_value, passphrase):
    """The DES key: the first 8 characters of the lower-case MD5 of time and pass string."""
    return hashlib.md5((str(time_value) + passphrase).encode()).hexdigest()[:8].encode()


def config_reply(is_open, time_value, passphrase):
    """The reply document: code 1, and `data` = base64 of DES-ECB (PKCS#7) of the plain text."""
    plain = json.dumps({"tzConfig": {"open": 1 if is_open else 0}}, separators=(",", ":"))
    padder = padding.PKCS7(64).padder()
    padded = padder.update(plain.encode()) + padder.finalize()
    key = config_key(time_value, passphrase)
    encryptor = Cipher(TripleDES(key * 3), modes.ECB()).encryptor()  # K1=K2=K3 is single DES
    data = encryptor.update(padded) + encryptor.finalize()
    return {"code": 1, "data": base64.b64encode(data).decode(), "time": time_value}


def make_certificate(directory):
    """A self-signed certificate for 127.0.0.1 and localhost; returns (cert path, key path)."""
    from cryptography import x509
    from cryptography.hazmat.primitives import hashes, serialization
    from cryptography.hazmat.primitives.asymmetric import ec
    import ipaddress
    key = ec.generate_private_key(ec.SECP256R1())
    name = x509.Name([x509.NameAttribute(x509.oid.NameOID.COMMON_NAME, "qzcollector")])
    now = datetime.datetime.utcnow()
    cert = (x509.CertificateBuilder().subject_name(name).issuer_name(name)
            .public_key(key.public_key()).serial_number(x509.random_serial_number())
            .not_valid_before(now - datetime.timedelta(days=1))
            .not_valid_after(now + datetime.timedelta(days=30))
            .add_extension(x509.SubjectAlternativeName(
                [x509.DNSName("localhost"), x509.IPAddress(ipaddress.ip_address("127.0.0.1"))]),
                critical=False)
            .sign(key, hashes.SHA256()))
    cert_path = os.path.join(directory, "cert.pem")
    key_path = os.path.join(directory, "key.pem")
    with open(cert_path, "wb") as handle:
        handle.write(cert.public_bytes(serialization.Encoding.PEM))
    with open(key_path, "wb") as handle:
        handle.write(key.private_bytes(serialization.Encoding.PEM,
                                       serialization.PrivateFormat.PKCS8,
                                       serialization.NoEncryption()))
    return cert_path, key_path


# ---------------------------------------------------------------------------------------------
# Store of what arrived

class Store:
    """Every request as one entry, in arrival order, with the counts of the summary."""

    def __init__(self):
        self.lock = threading.Lock()
        self.changed = threading.Condition(self.lock)
        self.entries = []

    def add(self, entry):
        with self.lock:
            entry["id"] = len(self.entries) + 1
            self.entries.append(entry)
            self.changed.notify_all()
        return entry

    def since(self, last_id):
        with self.lock:
            return self.entries[last_id:]

    def summary(self):
        with self.lock:
            entries = list(self.entries)
        by_action = {}
        for entry in entries:
            if entry["kind"] in ("record", "total", "fail") and entry["status"] == "200":
                by_action[entry["act"]] = by_action.get(entry["act"], 0) + 1
        count = lambda test: sum(1 for e in entries if test(e))
        return {
            "requests": len(entries),
            "records": count(lambda e: e["kind"] == "record" and e["status"] == "200"),
            "rejected": count(lambda e: e.get("key_ok") is False),
            "statistics_lines": count(lambda e: e["kind"] == "total" and e["status"] == "200"),
            "failure_lines": count(lambda e: e["kind"] == "fail" and e["status"] == "200"),
            "failed_on_purpose": count(lambda e: e["status"] in ("500", "close", "stall")),
            "strategy": count(lambda e: e["kind"] == "strategy"),
            "config": count(lambda e: e["kind"] == "config"),
            "by_action": dict(sorted(by_action.items())),
        }


def format_line(entry):
    """One terminal line per request."""
    stamp = time.strftime("%H:%M:%S", time.localtime(entry["received"]))
    head = "%s %-15s %-6s %-8s" % (stamp, entry["address"], entry["status"], entry["kind"])
    if entry["kind"] in ("record", "total", "fail"):
        # The event id leads: it tells records apart at a glance; the other keys follow.
        eid = " eid=%s" % entry["eid"] if entry.get("eid") else ""
        fields = " ".join("%s=%s" % (f["key"], f["value"][:40]) for f in entry["fields"]
                          if f["key"] != "eid")
        return "%s act=%s%s EC=%s key=%s %s" % (head, entry["act"], eid, entry["ec"],
                                                "ok" if entry["key_ok"] else "BAD", fields)
    return "%s %s" % (head, entry["target"][:160])


# ---------------------------------------------------------------------------------------------
# HTTP

class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    server_version = "qzcollector"
    sys_version = ""

    def setup(self):
        context = getattr(self.server, "tls_context", None)
        if context is not None:
            self.request.settimeout(5)
            self.request = context.wrap_socket(self.request, server_side=True)
        super().setup()

    def log_message(self, *args):
        pass

    def parse_request(self):
        # A record's known values travel unescaped and may hold blanks; keep the target whole.
        line = self.raw_requestline.decode("latin-1").rstrip("\r\n")
        match = re.match(r"^([A-Z]+) (.*) (HTTP/\d\.\d)$", line)
        self.raw_target = match.group(2) if match else None
        if match and " " in self.raw_target:
            fixed = "%s %s %s\r\n" % (match.group(1), self.raw_target.replace(" ", "%20"),
                                      match.group(3))
            self.raw_requestline = fixed.encode("latin-1")
        return super().parse_request()

    def do_GET(self):
        self.route(b"")

    def do_POST(self):
        length = int(self.headers.get("Content-Length") or 0)
        self.route(self.rfile.read(length) if length else b"")

    def reply(self, status, body, content_type="text/plain"):
        self.send_response(status)
        self.send_header("Content-Type", content_type)
        self.send_header("Content-Length", str(len(body)))
        keep = self.headers.get("Connection", "").lower() == "keep-alive"
        self.send_header("Connection", "Keep-Alive" if keep else "Close")
        self.close_connection = not keep
        self.end_headers()
        self.wfile.write(body)

    def route(self, body):
        collector = self.server.collector
        target = self.raw_target or self.path
        path = target.split("?", 1)[0]
        if path in ("/", "/index.html"):
            return self.reply(200, collector.page(), "text/html; charset=utf-8")
        if path == "/favicon.ico":
            return self.reply(404, b"")
        if path == "/entries":
            query = urllib.parse.parse_qs(target.partition("?")[2])
            since = int(query.get("since", ["0"])[0] or 0)
            data = json.dumps(collector.store.since(since)).encode()
            return self.reply(200, data, "application/json")
        local = self.connection.getsockname()
        entry = {"received": time.time(), "address": local[0], "port": local[1],
                 "tls": collector.is_tls(self.server), "method": self.command, "target": target,
                 "kind": "other", "status": "404"}
        if path == "/c.gif":
            entry.update(decode_gif_request(target, body, collector.profile["QZ_REQUEST_SALT"]))
            failure = collector.failure_for(entry)
            if not entry["key_ok"]:
                entry["status"] = "403"
                self.finish_entry(entry)
                return self.reply(403, b"bad key\n")
            if failure:
                entry["status"] = failure
                self.finish_entry(entry)
                return self.fail(failure)
            entry["status"] = "200"
            self.finish_entry(entry)
            return self.reply(200, GIF, "image/gif")
        if path == "/zhsdkinfo.php":
            entry.update(kind="strategy", status="200", ec=ec_of(target))
            self.finish_entry(entry)
            return self.reply(200, collector.strategy_blob)
        if path == "/api/getDeviceConfig":
            document = config_reply(collector.config_open, int(time.time()),
                                    collector.profile["QZ_CONFIG_PASS"])
            query = urllib.parse.parse_qs(target.partition("?")[2])
            entry.update(kind="config", status="200", ec=ec_of(target),
                         fields=[{"key": k, "long": "", "value": v[0], "in": "query"}
                                 for k, v in query.items()],
                         open=collector.config_open)
            self.finish_entry(entry)
            return self.reply(200, json.dumps(document).encode(), "application/json")
        self.finish_entry(entry)
        return self.reply(404, b"not here\n")

    def finish_entry(self, entry):
        self.server.collector.record(entry)

    def fail(self, mode):
        if mode == "500":
            return self.reply(500, b"failing on purpose\n")
        if mode == "stall":
            time.sleep(self.server.collector.stall_seconds)
        self.close_connection = True
        try:
            self.connection.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass


def ec_of(target):
    match = re.search(r"[?&]EC=(\d+)", target)
    return int(match.group(1)) if match else None


class Server(http.server.ThreadingHTTPServer):
    daemon_threads = True
    allow_reuse_address = True

    def handle_error(self, request, client_address):
        pass  # a client that drops a connection is no news here


class Collector:
    """All listeners, the store, and what the servers answer."""

    def __init__(self, profile, strategy=None, config_open=True, fail=None,
                 fail_scope="primary", fail_first=0, stall_seconds=3.0, port=None,
                 tls_port=None, output=None):
        self.profile = profile
        self.strategy = strategy_description(profile, strategy)
        self.strategy_blob = encipher_strategy(strategy_plain(self.strategy),
                                               profile["QZ_STRATEGY_PASS"])
        self.config_open = config_open
        self.fail_mode, self.fail_scope, self.fail_first = fail, fail_scope, fail_first
        self.failed = 0
        self.stall_seconds = stall_seconds
        self.port = profile["QZ_COLLECTOR_PORT"] if port is None else port
        self.tls_port = profile["QZ_CONFIG_PORT"] if tls_port is None else tls_port
        self.output = output
        self.store = Store()
        self.servers = []
        self.tls_servers = set()
        self.lock = threading.Lock()
        self.tempdir = tempfile.TemporaryDirectory(prefix="qzcollector-")

    def addresses(self):
        """The collector host, then every fallback address of the profile and the strategy."""
        hosts = [self.profile["QZ_COLLECTOR_HOST"]]
        for name in ("fallback", "post_fallback", "spare_fallback"):
            hosts += self.strategy[name]
        for name in ("QZ_FALLBACK_ADDRESSES", "QZ_POST_FALLBACK_ADDRESSES",
                     "QZ_SPARE_FALLBACK_ADDRESSES"):
            hosts += self.profile[name]
        return list(dict.fromkeys(hosts))

    def start(self):
        listen = [(host, self.port) for host in self.addresses()]
        strategy = (self.profile["QZ_STRATEGY_HOST"], self.profile["QZ_STRATEGY_PORT"])
        if self.port == self.profile["QZ_COLLECTOR_PORT"] and strategy not in listen:
            listen.append(strategy)
        for address in listen:
            self._serve(address, None)
        cert, key = make_certificate(self.tempdir.name)
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(cert, key)
        self.tls_servers.add(self._serve((self.profile["QZ_CONFIG_HOST"], self.tls_port), context))
        return self

    def _serve(self, address, tls_context):
        server = Server(address, Handler)
        server.collector = self
        server.tls_context = tls_context
        threading.Thread(target=server.serve_forever, kwargs={"poll_interval": 0.1},
                         daemon=True).start()
        self.servers.append(server)
        return server

    def is_tls(self, server):
        return server in self.tls_servers

    def bound(self, tls=False):
        """(host, port) of each listener, as bound (port 0 asks the system for one)."""
        return [s.server_address for s in self.servers if (s in self.tls_servers) == tls]

    def stop(self):
        # Each shutdown waits for one poll of its loop; in parallel that is one poll for all.
        stoppers = [threading.Thread(target=s.shutdown) for s in self.servers]
        for stopper in stoppers:
            stopper.start()
        for stopper in stoppers:
            stopper.join()
        for server in self.servers:
            server.server_close()
        self.tempdir.cleanup()

    def failure_for(self, entry):
        """The way this record request is to fail on purpose, or None."""
        if not self.fail_mode:
            return None
        if self.fail_scope == "primary" and entry["address"] != self.profile["QZ_COLLECTOR_HOST"]:
            return None
        with self.lock:
            if self.fail_first and self.failed >= self.fail_first:
                return None
            self.failed += 1
        return self.fail_mode

    def record(self, entry):
        self.store.add(entry)
        if self.output:
            self.output(entry)

    def page(self):
        with open(os.path.join(HERE, "live_view.html"), "rb") as handle:
            return handle.read()


# ---------------------------------------------------------------------------------------------
# Command line

def parse_exit_after(text):
    """"10" or "10s": seconds; "25r": requests."""
    match = re.fullmatch(r"(\d+(?:\.\d+)?)([sr]?)", text)
    if not match:
        raise argparse.ArgumentTypeError("expected N, Ns (seconds) or Nr (requests)")
    return (float(match.group(1)), match.group(2) or "s")


def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--profile", default=DEFAULT_PROFILE, help="deployment profile (cmake)")
    parser.add_argument("--json", action="store_true", help="one JSON object per request")
    parser.add_argument("--fail", choices=["500", "close", "stall"],
                        help="fail /c.gif requests on purpose")
    parser.add_argument("--fail-scope", choices=["primary", "all"], default="primary",
                        help="primary: only on the collector host, so fallbacks succeed")
    parser.add_argument("--fail-first", type=int, default=0,
                        help="fail only the first N of them (0: all)")
    parser.add_argument("--stall-seconds", type=float, default=3.0)
    parser.add_argument("--config-open", type=int, choices=[0, 1], default=1,
                        help="the device configuration's tzConfig.open")
    parser.add_argument("--strategy", help="JSON file whose keys replace the default strategy")
    parser.add_argument("--port", type=int, help="port of the plain listeners (profile's)")
    parser.add_argument("--tls-port", type=int, help="port of the TLS listener (profile's)")
    parser.add_argument("--exit-after", type=parse_exit_after,
                        help="N or Ns: seconds; Nr: requests")
    args = parser.parse_args(argv)

    profile = load_profile(args.profile)
    overrides = None
    if args.strategy:
        with open(args.strategy, encoding="utf-8") as handle:
            overrides = json.load(handle)
    done = threading.Event()
    limit = args.exit_after

    printing = threading.Lock()  # handler threads print: one whole line at a time

    def output(entry):
        line = json.dumps(entry) if args.json else format_line(entry)
        with printing:
            print(line, flush=True)
        if limit and limit[1] == "r" and entry["id"] >= limit[0]:
            done.set()

    collector = Collector(profile, overrides, bool(args.config_open), args.fail, args.fail_scope,
                          args.fail_first, args.stall_seconds, args.port, args.tls_port, output)
    try:
        collector.start()
    except OSError as error:
        print("qzcollector: cannot listen: %s" % error, file=sys.stderr)
        return 2
    for signum in (signal.SIGINT, signal.SIGTERM):
        signal.signal(signum, lambda *_: done.set())
    plain = collector.bound()
    print("qzcollector: %d plain listeners on port %d (%s ...), TLS on %s:%d; live view "
          "http://%s:%d/" % (len(plain), plain[0][1], plain[0][0], *collector.bound(True)[0],
                             *plain[0]), file=sys.stderr, flush=True)
    deadline = time.monotonic() + limit[0] if limit and limit[1] == "s" else None
    while not done.wait(0.2):
        if deadline is not None and time.monotonic() >= deadline:
            break
    summary = collector.store.summary()
    collector.stop()
    if args.json:
        print(json.dumps({"summary": summary}), flush=True)
    else:
        print("summary: %d requests, %d records, %d rejected, %d statistics lines, %d failure "
              "lines, %d failed on purpose, strategy %d, config %d" % (
                  summary["requests"], summary["records"], summary["rejected"],
                  summary["statistics_lines"], summary["failure_lines"],
                  summary["failed_on_purpose"], summary["strategy"], summary["config"]))
        for act, count in summary["by_action"].items():
            print("  %-24s %d" % (act, count))
    return 0


if __name__ == "__main__":
    sys.exit(main())
