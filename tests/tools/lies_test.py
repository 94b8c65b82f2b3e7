"""Programs on the simulated host against a target that lies: lies_test.py BIN_DIR [NAME...]

A row is a lie, and what comes of it. A NAME stands for all rows that have it in their names."""

import asyncio
import itertools
import json
import os
import pathlib
import re
import socket
import subprocess
import sys
import tempfile
import types

from lying_target import (ASYNC, CHECK_CONDITION, CLOSE, FINAL, LOGIN, MORE, NONE, NOP, OVER, R2T, REJECT, RESPONSE, STATUS, TEXT,
                          UNDER, Connection, Pdu, Target)

BIN = pathlib.Path(sys.argv[1]).resolve()
AT_ONCE = 6  # of eight that can use the library
LONGEST, MOST_MEMORY = 15, 32 << 20
SCSI, PLACE, WRITTEN = "scsi -p 0 -t 0 -l 0 --json", slice(1024, 2048), bytes(range(256)) * 4
TREE, SESSIONS, READY = "tree --json", "sessions --json", SCSI + " tur"
READ, WRITE = SCSI + " --in 1024 -- 28 00 00 00 00 02 00 00 02 00", SCSI + " --out FILE --yes -- 2a 00 00 00 00 02 00 00 02 00"
LATE, BREAKS, CLOSED = "timed out", "breaks the protocol", "clos|reset"
SAID = re.compile(r"varnok-host: port 0(, portal \S+|, target \d+)?: .+|varnokctl: .+")
NEGOTIATED = ("address", "initiator_address", "initial_r2t", "immediate_data", "max_outstanding_r2t", "first_burst_length")
ASK = {"ImmediateData": "No", "InitialR2T": "Yes"}  # every byte of a write is asked for
SMALL = {**ASK, "MaxBurstLength": 512, "FirstBurstLength": 512, "MaxRecvDataSegmentLength": 512}
DIGESTS = {"HeaderDigest": "CRC32C", "DataDigest": "CRC32C"}
SECRET, OTHER_SECRET = ("somebody", "a secret of some length"), ("somebody", "another one, really")
NAME, ALL, HALF = "iqn.2026-01.com.example:liar", bytes(1024), bytes(512)


def row(name, command, status, said="", see=None, portal=None, secret=None, **lie):
    """status None: the lie may be found out or not. What holds for every row holds then, too."""
    return types.SimpleNamespace(**locals())


def later(method):
    return lambda *given, **named: lambda c, what: method(c, what, *given, **named)


response, data, check, give, reply, log_in, put = map(later, (
    Connection.response, Connection.data, Connection.check, Connection.give, lambda _, r, *given, **named: r.reply(*given, **named),
    lambda _, r, *given, **named: r.log_in(*given, **named), lambda _, p, **fields: p.put(**fields)))


half_wanted = reply(R2T, ttt=1, count=512)


def endless(make):
    """One answer, over and over, faster than it can be read."""
    return lambda c, r: itertools.repeat(c.wire(c.number(make(c, r))) * 100)


def cut(make, bytes_sent, then):
    return lambda c, r: [c.wire(make(c, r))[:bytes_sent], then]


def drip(c, p):
    return itertools.chain.from_iterable((bytes([byte]), 0.9) for byte in c.wire(p))


def event(number, **fields):
    return Pdu(ASYNC, itt=NONE, event=number, **fields)


def reject(_, r):
    return Pdu(REJECT, itt=NONE, response=4, data=bytes(r.head))


def window_opens_later(c, p):
    ping = Pdu(NOP, itt=NONE, ttt=NONE, statsn=c.statsn, exp=c.cmdsn, max=c.cmdsn)
    return [p.put(max=c.cmdsn - 1), 0.3, ping] if c.up else None


def names(text):
    return lambda t: b"TargetName=" + text.replace("FOREIGN", f"127.0.0.1:{t.foreign}").encode() + b"\0"


def sessions_of(document):
    return document["sessions"] if "sessions" in document else [t["session"] for t in document["ports"][0]["targets"]]


def is_there(document, target):
    there, = document["ports"][0]["targets"]
    lun, = there["luns"]
    ends = there["session"]["address"], there["session"]["initiator_address"]
    return there["address"] == ends[0] == {"ip": "127.0.0.1", "tcp_port": target.port} != ends[1] and lun["bytes"] == "524288"


def count_is(count, with_addresses=True):
    return lambda document, _: len(sessions_of(document)) == count and (with_addresses or not any(
        session.get(key) for session in sessions_of(document) for key in NEGOTIATED))


def data_is(data):
    return lambda document, _: bytes.fromhex(document["data"]) == data.ljust(1024, b"\0")


def sense_is(key):
    return lambda document, _: (document["sense"] and document["sense"]["key"]["code"]) == key


TRUTH = {TREE: is_there, READ: lambda document, target: data_is(target.disk[PLACE])(document, target),
         WRITE: lambda _, target: target.disk[PLACE] == WRITTEN}
LOGIN_LIES = [  # each is told to the discovery, and to a session
    ("no answer", LATE, dict(do_login=[])), ("closed", CLOSED, dict(do_login=CLOSE)),
    *((f"status {code:04x}h", f"refused.*{text}.*{code:04x}h", dict(do_login=log_in(refused=code))) for code, text in [
        (0x201, "authentication"), (0x202, "authori[sz]"), (0x203, "not found"), (0x300, "target error"), (0x301, "unavailable"),
        *((code, "") for code in (0x205, 0x206, 0x20B, 0x2FF, 0x302, 0x4FF))]),
    *((f"moved, {code:04x}h", "refused|moved|redirect", dict(do_login=lambda c, r, code=code: r.log_in(
        refused=code, data=b"TargetAddress=127.0.0.1:%d,1\0" % c.target.foreign))) for code in (0x101, 0x102, 0x1FF)),
    ("without end", f"{LATE}|{BREAKS}", dict(do_login=log_in())),
    ("text without end", f"{LATE}|{BREAKS}", dict(do_login=log_in(MORE, data=b"x" * 8192))),
    ("pushed without end", f"{LATE}|{BREAKS}", dict(do_login=endless(log_in(MORE, data=b"x" * 8192)))),
    ("rejected", f"{BREAKS}|reject", dict(do_login=reject)), ("a ping", BREAKS, dict(do_login=reply(NOP, ttt=NONE))),
    *((name, BREAKS, dict(say_login=lie)) for name, lie in [
        ("ISID", lambda c, p: p.put(isid=p.isid ^ 1)), ("ITT", lambda c, p: p.put(itt=p.itt ^ 1)),
        ("stage", lambda c, p: p.put(flags=p.flags ^ 8)), ("next stage", lambda c, p: p.put(flags=p.flags & ~3 | 2)),
        ("version", put(version=5, active=5)), ("TSIH 0", put(tsih=0)), ("16 MB", put(length=0xFFFFFF)),
        ("a key of 1 MB", put(data=b"X" * (1 << 20) + b"=1\0")),
        ("a key without a value", lambda c, p: p.put(data=p.data + b"MaxBurstLength\0")),
        ("a method that was not offered", put(data=b"AuthMethod=KRB5\0"))]),
    *((f"{key}={value}", BREAKS, dict(keys={key: value})) for key, value in [
        *(("MaxRecvDataSegmentLength", n) for n in (0, 511, 1 << 24, 99999999999, 2**64 + 512, -1, "banana", "", "512 ")),
        ("HeaderDigest", "MD5"), ("DataDigest", "CRC32C,None"), ("HeaderDigest", ["None", "CRC32C"])]),
]
COMMAND_LIES = [  # each is told for a read, for a write and for a command without data
    ("no answer", LATE, []), ("the end", CLOSED, CLOSE), ("rejected", f"{BREAKS}|reject", reject),
    ("ITT", BREAKS, lambda c, r: r.reply(RESPONSE, itt=r.itt ^ 1)),
    ("data of 16 MB", BREAKS, data(0, b"", length=0xFFFFFF)), ("response of 16 MB", BREAKS, response(length=0xFFFFFF)),
    *((f"opcode {opcode:02x}h", BREAKS, reply(opcode, ttt=NONE)) for opcode in (0x01, 0x3E, LOGIN, TEXT)),
    *((f"{name} without end", f"{BREAKS}|{LATE}", endless(reply(opcode, itt=NONE, **fields))) for name, opcode, fields in [
        ("pings", NOP, dict(ttt=NONE)), ("asking pings", NOP, dict(ttt=5)), ("events", ASYNC, dict(event=255))]),
    ("half a header", CLOSED, cut(response(), 24, CLOSE)), ("a byte a second", LATE, lambda c, r: drip(c, c.response(r))),
    ("wish to log out", ".", event(1)), ("dropped session", ".", [event(3), CLOSE]),
    *((f"response {code:02x}h", ".", response(response=code)) for code in (0x01, 0x02, 0x80, 0xFF)),
    *((f"status {code:02x}h", ".", response(0, status=code)) for code in (0x08, 0x18, 0x28, 0x30, 0x40, 0xFF)),
]
ROWS = [
    row("truth", TREE, 0), row("truth, no LUN 9", READY.replace("-l 0", "-l 9"), 1, see=sense_is(5)),
    *(row(f"truth, {name}, {what}", command, 0, wishes=wishes) for what, command in (("read", READ), ("write", WRITE))
      for name, wishes in [
          ("plain", {}), ("small bursts", SMALL), ("InitialR2T", {"InitialR2T": "Yes"}), ("not immediate", {"ImmediateData": "No"}),
          *((key, {key: value}) for key, value in DIGESTS.items()), ("both digests", DIGESTS)]),
    row("truth, CHAP", TREE, 0, chap=SECRET, secret=SECRET), row("truth, CHAP that nobody wants", TREE, 0, secret=SECRET),
    row("truth, CHAP in base64", TREE, 0, chap=SECRET, secret=SECRET, chap_keys={"CHAP_C": "0bZGVmZ2hpamtsbW5vcHFycw=="}),
    row("truth, status in the last data", READ, 0, collapse=True), row("truth, one unit attention", READ, 0, attentions=1),
    row("truth, a number in hexadecimal", TREE, 0, keys={"MaxRecvDataSegmentLength": "0x2000"}),
    row("truth, StatSN that wraps", READ, 0, statsn=0xFFFFFFFD),
    row("truth, a window that opens later", READ, 0, say_login=window_opens_later, at=True),
    row("truth, an answer to a ping first", READ, 0, do_read=lambda c, r: c.held.extend(c.read(r)) or Pdu(NOP, itt=NONE, ttt=7)),
    *(row(f"truth, {name}", READ, 0, see=data_is(sent[:1024]), do_read=give(sent), **how) for name, sent, how in [
        ("half", b"x" * 512, {}), ("half, status in it", b"x" * 512, {"collapse": True}), ("more than asked", b"x" * 4096, {})]),
    row("truth, CONDITION MET", READY, 0, do_ready=response(status=4)),
    *(row(f"truth, a short allocation length, {cdb}", f"{SCSI} --in 1024 -- {cdb}", 0)
      for cdb in ("12 00 00 00 05 00", "a0" + " 00" * 8 + " 08 00 00", "9e 10" + " 00" * 11 + " 08 00 00")),
    row("truth, INQUIRY for no bytes", SCSI + " --in 1024 -- 12 00 00 00 00 00", 0),
    row("read, CONDITION MET", READ, 1, "done", do_read=response(status=4)),
    row("LUNs, a list that is cut", "luns --json", 1, "too little data", do_luns=give(b"\0\0\0\x20" + bytes(9))),
    row("LUNs, a size that is cut", "luns --json", 1, "too little data", do_capacity=give(b"\0\0\0\x10")),
    row("LUNs, names that are cut", "luns --json", 1, "too little data", do_inquiry=give(b"\0")),

    *(row(f"connect, {name}", TREE, 1, f"portal .*{said}", portal=portal) for name, said, portal in [
        ("refused", "refused", "127.0.0.1:1"), ("no such name", "not known", "a..b:3260"), ("never accepted", LATE, "FULL")]),
    *(row(f"connect, {name}", TREE, 1, f"portal .*({said})", greet=greet) for name, said, greet in [
        ("not a word", LATE, [1000]), ("closed", CLOSED, CLOSE), ("garbage", f"{BREAKS}|{CLOSED}", b"\xA5\x5A\xFF" * 1000),
        ("HTTP", f"{BREAKS}|{CLOSED}", [b"HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\nConnection: close\r\n\r\n", CLOSE])]),
    row("connect, half a header", TREE, 1, f"portal .*({CLOSED})", do_login=cut(log_in(), 20, CLOSE)),
    row("connect, a byte a second", TREE, 1, f"portal .*{LATE}", say_login=drip),

    *(row(f"login, {name}, discovery", TREE, 1, f"portal .*({said})", at=False, **lie) for name, said, lie in LOGIN_LIES),
    *(row(f"login, {name}, session", TREE, 3, f"target 0: .*({said})", count_is(1, False), at=True, **lie)
      for name, said, lie in [*LOGIN_LIES, *((f"{key}={value}", BREAKS, dict(keys={key: value})) for key, values in [
          ("MaxBurstLength", [0, 511, "banana", [262144, 512]]), ("FirstBurstLength", [(1 << 24) - 1]), ("InitialR2T", ["Maybe"]),
          ("ImmediateData", ["yes"]), ("MaxOutstandingR2T", [0])] for value in values)]),
    *(row(f"login, {key!a}", TREE, None, keys={key: value}) for key, value in [
        ("X-com.example.key", "1"), ("Unknown\x1b[2J", "\x1b[2J"), ("TargetAlias", "\x1b]0;title\x07" + "x" * 300)]),
    row("login, keys without the last NUL", TREE, None, say_login=lambda c, p: p.put(data=p.data[:-1])),
    *(row(f"login, CHAP with {name}", TREE, 1, "portal .*refused.*0201h", chap=SECRET, secret=secret)
      for name, secret in (("no secret", None), ("another secret", OTHER_SECRET))),
    row("login, CHAP unasked", TREE, 1, f"portal .*({BREAKS}|refused)", say_login=put(data=b"AuthMethod=CHAP\0")),
    *(row(f"login, {key}={value:.9}", TREE, 1, f"portal .*({BREAKS}|refused)", chap=SECRET, secret=SECRET, chap_keys={key: value})
      for key, values in [("CHAP_A", ["7"]), ("CHAP_I", ["256", "-1", "x"]),
                          ("CHAP_C", ["0x" + "ab" * 2048, "0xzz", "0x", "ab" * 16, "0b!!!!"])] for value in values),

    row("discovery, no targets", TREE, 0, see=count_is(0), names=()),
    row("discovery, 100,000 targets", SESSIONS, 0, "256", count_is(256), names=[f"iqn.a:t{n:06}" for n in range(100000)]),
    row("discovery, many without a login", SESSIONS, 0, LATE, count_is(50, False), names=[f"iqn.a:t{n}" for n in range(50)],
        at=True, do_login=[]),
    row("discovery, a name twice", TREE, 0, listing=names(f"{NAME}\0TargetName={NAME}")),
    *(row(f"discovery, address {where[:12]!a}", TREE, 0, listing=names(f"{NAME}\0TargetAddress={where},1"))
      for where in ("FOREIGN", "banana", "[::1", "127.0.0.1:99999", "\x1b[2J", "x" * 3000)),
    *(row(f"discovery, name {name[:12]!a}", TREE, None, names=(name,)) for name in (
        "iqn." + "x" * 5000, "iqn.\nport 7", "\x1b[2J\x1b]0;x\x07", "iqn.\udcff\udcc0\udc80", "", "%s%n", "../a", "iqn.\u202eexe")),
    row("discovery, a NUL in a name", TREE, None, listing=names("iqn.a\0b")),
    row("discovery, an address first", TREE, None, listing=lambda t: b"TargetAddress=127.0.0.1:%d,1\0" % t.foreign),
    *(row(f"discovery, {name}", TREE, 1, f"portal .*({said})", do_text=text) for name, said, text in [
        ("no answer", LATE, []), ("closed", CLOSED, CLOSE), ("rejected", f"{BREAKS}|reject", reject)]),
    *(row(f"discovery, {name}", TREE, 1, f"portal .*{BREAKS}", say_text=lie) for name, lie in [
        ("ITT", lambda c, p: p.put(itt=p.itt ^ 1)), ("more, no tag", put(flags=MORE, ttt=NONE)), ("16 MB", put(length=0xFFFFFF))]),
    *(row(f"discovery, {name} without end", TREE, status, f"portal .*({BREAKS}|{LATE}|too)", do_text=lambda c, r, text=text: r.reply(
        TEXT, MORE, (text * c.most_in)[:c.most_in], ttt=1)) for name, text, status in [
            ("nothing", b"", 1), ("a key", b"x", 1), ("names", b"TargetName=iqn.a\0", None)]),

    *(row(f"command, {name}, {what}", command, 1, said, **{"do_" + what: answer})
      for what, command in (("read", READ), ("write", WRITE), ("ready", READY)) for name, said, answer in COMMAND_LIES),
    row("command, data for no data", READY, 1, BREAKS, do_ready=[data(0, bytes(4), FINAL), response()]),
    row("write, data", WRITE, 1, BREAKS, do_write=[data(0, ALL, FINAL), response()]),
    *(row(f"write, R2T {name}", WRITE, 1, BREAKS, wishes=ASK, do_write=reply(R2T, **{"ttt": 1, "count": 512, **fields}))
      for name, fields in [("of nothing", dict(count=0)), ("of 4 GB", dict(count=NONE)), ("too long", dict(count=1025)),
                           ("beyond", dict(offset=1024)), ("far beyond", dict(offset=NONE, count=1)), ("gap", dict(offset=512)),
                           ("R2TSN", dict(sn=7)), ("no tag", dict(ttt=NONE))]),
    row("write, R2T of two bursts", WRITE, 1, BREAKS, wishes=SMALL, do_write=reply(R2T, ttt=1, count=1024)),
    *(row(f"write, R2T {name} without end", WRITE, 1, f"{BREAKS}|{LATE}", wishes=ASK, do_write=make(half_wanted),
          do_data_out=half_wanted) for name, make in (("asked", lambda one: one), ("pushed", endless))),
    *(row(f"write, {name}", WRITE, 1, ".", wishes=wishes, do_write=answer, do_data_out=reply(RESPONSE)) for name, wishes, answer in [
        ("never taken", ASK, response()), ("never taken, and said so", ASK, response(0)), ("half taken", ASK, half_wanted),
        ("taken and not", {}, response(0)), ("taken but for a byte", {}, response(1023))]),
    *(row(f"read, {name}", READ, 1, said, do_read=answer) for name, said, answer in [
        ("R2T", BREAKS, half_wanted), ("beyond", BREAKS, data(1024, HALF, FINAL)),
        ("far beyond", BREAKS, data(NONE, HALF, FINAL)), ("gap", BREAKS, [data(512, HALF, FINAL), response()]),
        ("twice", BREAKS, [data(0, HALF), data(0, HALF, FINAL, sn=1), response()]),
        ("overlap", BREAKS, [data(0, HALF), data(256, bytes(768), FINAL, sn=1), response()]),
        ("too much", BREAKS, [data(0, bytes(1028), FINAL), response()]), ("without end", BREAKS, endless(data(0, HALF))),
        ("empty without end", f"{BREAKS}|{LATE}", endless(data(0, b""))), ("DataSN", BREAKS, [data(0, ALL, FINAL, sn=3), response()]),
        ("ITT of data", BREAKS, lambda c, r: c.data(r, 0, ALL, FINAL, itt=r.itt ^ 1)),
        ("closed in data", CLOSED, cut(data(0, ALL, FINAL), 300, CLOSE)),
        ("stuck in data", LATE, cut(data(0, ALL, FINAL), 300, 1000)), ("nothing", ".", response()),
        ("nothing, said", ".", response(0)),
        *((name, ".", [data(0, sent, FINAL), end]) for name, sent, end in [
            ("half", HALF, response()), ("half, another residual", HALF, response(1000)), ("half of more", HALF, response(2048)),
            ("all, and a residual", ALL, response(512)), ("residual too large", HALF, response(512, count=4096)),
            ("all, response 01h", ALL, response(response=1)), ("over and under", HALF, response(512, flags=FINAL | OVER | UNDER))]),
        *((f"status in data, {name}", ".", data(0, sent, FINAL | STATUS | flags, **fields)) for name, sent, flags, fields in [
            ("residual", ALL, UNDER, dict(count=512)), ("half", HALF, 0, {}), ("busy", ALL, 0, dict(status=8)),
            ("check", ALL, 0, dict(status=CHECK_CONDITION))])]),
    *(row(f"sense, {name}", READ, 1, "." if key is None else "", sense_is(key), do_read=check(bytes.fromhex(sense), *length))
      for name, key, sense, *length in [
          ("none", None, ""), ("1 byte", None, "70"), ("2 bytes", None, "7000"), ("3 bytes", 5, "700005"),
          ("length 0", None, "700005", 0), ("code 00h", None, "00" * 18), ("code 7Fh", None, "7f0005" + "00" * 15),
          ("descriptors", 5, "72052100" + "00" * 4), ("deferred", 3, "710003" + "00" * 15),
          ("long", 5, "700005000000f4" + "00" * 245)]),
    row("sense, less than its length", READ, 1, do_read=check(bytes.fromhex("700005" + "00" * 15), 65535)),
    row("sense, not even a length", READ, 1, ".", sense_is(None), do_read=response(0, status=CHECK_CONDITION)),
    row("sense, unit attention without end", READ, 1, "", sense_is(6), attentions=1 << 30),
    *(row(f"any, event {number} and the truth", READ, None, do_read=[event(number), Connection.read]) for number in (0, 1, 255)),
    row("any, event of 16 MB", READ, 1, BREAKS, do_read=event(0, length=0xFFFFFF)),
    *(row(f"any, {name}", READ, status, said, say_response=lie) for name, status, said, lie in [
        ("longer header", None, "", lambda c, p: c.wire(p.put(ahs=1)) + bytes(4)),
        ("longest header", 1, f"{BREAKS}|{LATE}", put(ahs=255)), ("StatSN", 1, BREAKS, lambda c, p: p.put(statsn=p.statsn + 1000)),
        ("ExpCmdSN", None, "", lambda c, p: p.put(exp=p.exp + 1000))]),
    row("any, a window that stays closed", READ, 1, LATE, window=-1, at=True),
    row("any, closed after each login", READ, 1, CLOSED, at=True, say_login=lambda c, p: [c.wire(p), CLOSE] if c.up else None),
    *(row(f"any, wrong {key}", READ, 1, f"digest|{BREAKS}", spoil=spoil, at=True, wishes=DIGESTS)
      for key, spoil in zip(DIGESTS, ((1, 0), (0, 1)))),
    *(row(f"LUNs, {name}", TREE, None, do_luns=give(sent)) for name, sent in [
        ("4 GB", b"\xff\xff\xff\xf8" + bytes(12)), ("none", bytes(8)), ("a piece", bytes(3)), ("odd", b"\0\0\0\x0b" + bytes(16))]),
    row("LUNs, names", TREE, 0, do_inquiry=give(b"\0\0\6\2\x1f\0\0\2\x1b[2J\r\n\xff\xfe\x07\0\x1b]0;" + b"\n" * 16)),
    row("LUNs, size", TREE, None, do_capacity=give(b"\xff" * 32)),
]


def faults(row, target, status, out, said):
    causes = [line for line in said.splitlines() if line.startswith("varnok-host:")]
    document = json.loads(out)
    see = row.see or (TRUTH.get(row.command) if row.status == status == 0 else None)
    looked_at = row.said and (status != 0 or row.status is not None)
    calls = [failure["call"] for failure in document["failures"]]
    return [fault for bad, fault in (
        (status != row.status and (row.status is not None or status not in (0, 1, 3)), f"status {status} instead of {row.status}"),
        (looked_at and not re.search(row.said, "\n".join(causes), re.I), f"not said: {row.said}"),
        (len(set(causes)) < len(causes), "a cause said twice"),
        (not all(map(SAID.fullmatch, said.splitlines())), "a line of another form"),
        (re.search("[^ -~\n\xa0-\u2000]", out + said), "not a printable text"),
        (document["complete"] != (status == 0) or bool(calls) == (status == 0), "complete, or the failures"),
        ("scsi" in row.command and status != 0 and "VARNOK_SendScsiCommand" not in calls, "no failure of the command"),
        (see and not see(document, target), "not what is there"),
        (target.visits, "another place was called"),
        (target.logins[True] > target.logins[False] * len(target.names) + ("scsi" in row.command), f"logins: {target.logins}"),
        (target.complaints, target.complaints)) if bad]


async def run(row, folder, limit):
    async with limit:
        target = Target(**row.lie)
        await target.start()
        portal = row.portal or f"127.0.0.1:{target.port}"
        environment = {**os.environ, "LC_ALL": "C.UTF-8", "VARNOK_HOST_TIMEOUT": "1"}
        environment.update(zip(("VARNOK_CHAP_USER", "VARNOK_CHAP_SECRET"), row.secret or ()))
        command = row.command.replace("FILE", folder + "/out").split()
        child = await asyncio.create_subprocess_exec(
            "prlimit", f"--data={MOST_MEMORY}", BIN / "varnok-host", "run", "--portal", portal, "--", BIN / "varnokctl", *command,
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=environment)
        talk = asyncio.create_task(child.communicate())
        ended, _ = await asyncio.wait([talk], timeout=LONGEST)
        if not ended:
            child.kill()
        out, said = (text.decode(errors="backslashreplace") for text in await talk)
        await target.close()
        try:
            seen = faults(row, target, child.returncode, out, said) if ended else ["it does not end"]
        except (LookupError, TypeError, ValueError) as fault:
            seen = [f"status {child.returncode}", f"not what is there: {fault!r}", *target.complaints]
        if seen:
            seen += [*said.splitlines()[:9], " ".join(out.split())[:3000]]
        print("\n    ".join([f"{'FAILED' if seen else 'ok'} {row.name}", *map(str, seen)]), flush=True)
        return not seen


async def main(words):
    full = socket.create_server(("127.0.0.1", 0), backlog=0)
    crowd = [socket.socket() for _ in range(3)]
    for one in crowd:
        one.setblocking(False)
        one.connect_ex(full.getsockname())
    rows = [row for row in ROWS if not words or any(word in row.name for word in words)]
    for row in rows:
        if row.portal == "FULL":
            row.portal = "127.0.0.1:%d" % full.getsockname()[1]
    with tempfile.TemporaryDirectory(prefix="varnok-lies-") as folder:
        pathlib.Path(folder, "out").write_bytes(WRITTEN)
        limit = asyncio.Semaphore(AT_ONCE)
        results = await asyncio.gather(*(run(row, folder, limit) for row in rows))
    print(f"{results.count(True)} of {len(results)} as they must be")
    return 0 if results and all(results) else 1


if __name__ == "__main__":
    sys.exit(asyncio.run(main(sys.argv[2:])))
