"""An iSCSI target for tests: it tells the truth, except for what a lie changes.

Lies are keywords of Target. do_NAME stands for what the method NAME of a connection sends. say_NAME gets the connection
and an answer of that kind before it is sent, and changes it or returns what is sent instead. What is sent is a Pdu, bytes
as they are, a number of seconds to wait, CLOSE, or any iterable of these, endless ones included. In do_NAME it may also be
a function, or a list with functions, that get the connection and the request and return it."""

import asyncio
import hashlib
import io
import struct
import types

REQUESTS = {0: "nop", 1: "command", 2: "task", 3: "login", 4: "text", 5: "data_out", 6: "logout"}
ANSWERS = {0x20: "nop", 0x21: "response", 0x22: "task", 0x23: "login", 0x24: "text", 0x25: "data", 0x26: "logout",
           0x31: "r2t", 0x32: "async", 0x3F: "reject"}
NOP, RESPONSE, TASK, LOGIN, TEXT, DATA, LOGOUT, R2T, ASYNC, REJECT = ANSWERS
COMMANDS = {0x00: "ready", 0x12: "inquiry", 0x25: "capacity", 0x28: "read", 0x2A: "write", 0x88: "read", 0x8A: "write",
            0x9E: "capacity", 0xA0: "luns"}
FINAL, MORE, STATUS, OVER, UNDER = 0x80, 0x40, 1, 4, 2
CHECK_CONDITION = 2
NONE = 0xFFFFFFFF
CLOSE = object()
BLOCK = 512
# Where a number is in a header, and its size. Kinds of PDU have different names for a place.
FIELDS = {"opcode": (0, 1), "flags": (1, 1), "response": (2, 1), "version": (2, 1), "active": (3, 1), "status": (3, 1),
          "ahs": (4, 1), "length": (5, 3), "lun": (8, 8), "isid": (8, 6), "tsih": (14, 2), "itt": (16, 4), "ttt": (20, 4),
          "expected": (20, 4), "cmdsn": (24, 4), "statsn": (24, 4), "exp": (28, 4), "max": (32, 4), "sn": (36, 4),
          "refused": (36, 2), "event": (36, 1), "offset": (40, 4), "count": (44, 4)}
DECLARED = ("InitiatorName", "InitiatorAlias", "SessionType", "TargetName", "AuthMethod")
# What the target wishes for, and which of two wishes holds.
WISHES = {"InitialR2T": ("No", any), "ImmediateData": ("Yes", all), "DataPDUInOrder": ("Yes", any), "MaxConnections": (1, min),
          "DataSequenceInOrder": ("Yes", any), "DefaultTime2Wait": (2, max), "DefaultTime2Retain": (0, min),
          "MaxBurstLength": (262144, min), "FirstBurstLength": (65536, min), "MaxOutstandingR2T": (1, min),
          "ErrorRecoveryLevel": (0, min), "MaxRecvDataSegmentLength": (8192, None), "HeaderDigest": ("None", None),
          "DataDigest": ("None", None)}
UNLESS_AGREED = {"InitialR2T": "Yes", "ImmediateData": "Yes", "MaxBurstLength": 262144, "FirstBurstLength": 65536,
                 "HeaderDigest": "None", "DataDigest": "None"}


def crc_of(byte):
    for _ in range(8):
        byte = byte >> 1 ^ (0x82F63B78 if byte & 1 else 0)
    return byte


CRC = [crc_of(byte) for byte in range(256)]


def crc32c(data, spoil=0):
    crc = NONE
    for byte in data:
        crc = CRC[(crc ^ byte) & 255] ^ crc >> 8
    return (crc ^ NONE ^ spoil).to_bytes(4, "little")


def keys_of(text):
    return dict(pair.split("=", 1) for pair in text.decode(errors="surrogateescape").split("\0") if pair)


def text_of(keys):
    lists = {key: values if isinstance(values, list) else [values] for key, values in keys.items()}
    return "".join(f"{key}={value}\0" for key in lists for value in lists[key]).encode(errors="surrogateescape")


class Pdu:
    """The fields are attributes to be read, and put() changes them. The length follows the data, until it is put."""

    def __init__(self, opcode, flags=FINAL, data=b"", **fields):
        self.head = bytearray(48)
        self.put(opcode=opcode, flags=flags, data=data, **fields)

    def __getattr__(self, name):
        at, size = FIELDS[name]
        return int.from_bytes(self.head[at:at + size], "big")

    def put(self, **fields):
        if "data" in fields:
            self.data = fields.pop("data")
            fields = {"length": len(self.data), **fields}
        for name, value in fields.items():
            at, size = FIELDS[name]
            self.head[at:at + size] = (value % (1 << 8 * size)).to_bytes(size, "big")
        return self

    def reply(self, opcode, flags=FINAL, data=b"", **fields):
        return Pdu(opcode, flags, data, **{"itt": self.itt, **fields})

    def log_in(self, flags=0, **fields):
        return self.reply(LOGIN, self.flags & 0x0C | flags, isid=self.isid, **fields)


class Connection:
    def __init__(self, target, reader, writer):
        self.target, self.reader, self.writer, self.lie = target, reader, writer, target.lie
        self.normal = None  # until the first request says which kind of session this is
        self.up, self.trusted = False, target.chap is None
        self.statsn, self.cmdsn, self.most_in = self.lie.get("statsn", 1), None, 8192
        self.agreed, self.digests = dict(UNLESS_AGREED), [False, False]
        self.collected, self.listing, self.writing, self.held = b"", None, None, []
        self.attentions = self.lie.get("attentions", 0)

    async def run(self):
        try:
            await self.send(self.lie.get("greet", []))
            while True:
                await self.send(self.answer(await self.receive()))
        except (ConnectionError, asyncio.IncompleteReadError, asyncio.CancelledError):
            pass
        except Exception as fault:
            self.target.complaints.append(f"the initiator's fault: {fault!r}")
        finally:
            self.writer.close()

    async def receive(self):
        head = await self.reader.readexactly(48)
        request = Pdu(0)
        request.head[:] = head
        most = self.target.wishes["MaxRecvDataSegmentLength"] if self.up else 8192
        assert request.ahs == 0 and request.length <= most, head
        assert not self.digests[0] or await self.reader.readexactly(4) == crc32c(head), "digest of a header"
        data = await self.reader.readexactly(request.length + -request.length % 4)
        assert not self.digests[1] or not data or await self.reader.readexactly(4) == crc32c(data), "digest of data"
        request.data = data[:request.length]
        return request

    def wire(self, pdu):
        text = b""
        for part, digest, spoil in zip((bytes(pdu.head), pdu.data + bytes(-len(pdu.data) % 4)), self.digests,
                                       self.lie.get("spoil", (0, 0))):
            text += part + (crc32c(part, spoil) if digest and part else b"")
        if pdu.opcode == LOGIN and self.up:
            self.digests = [self.agreed[key] == "CRC32C" for key in ("HeaderDigest", "DataDigest")]
        return text

    async def send(self, what, true=True):
        if what is CLOSE:
            raise ConnectionResetError
        if isinstance(what, (int, float)):
            await asyncio.sleep(what)
        elif isinstance(what, bytes):
            self.writer.write(what)
            await self.writer.drain()
            await asyncio.sleep(0)
        elif isinstance(what, Pdu):
            if true:
                self.number(what)
            lie = self.lie.get("say_" + ANSWERS.get(what.opcode, "")) if true else None
            instead = lie(self, what) if lie else None
            await self.send(self.wire(what) if instead is None else instead, False)
        else:
            for one in what:
                await self.send(one, true)

    def number(self, pdu):
        counts = pdu.flags & STATUS if pdu.opcode == DATA else pdu.opcode != R2T and (pdu.opcode, pdu.itt) != (NOP, NONE)
        next_command = self.cmdsn or 0
        pdu.put(statsn=0 if pdu.opcode == DATA and not counts else self.statsn, exp=next_command,
                max=next_command + (self.lie.get("window", 31) if self.up else 31))
        self.statsn = (self.statsn + bool(counts)) & NONE
        return pdu

    def act(self, name, *arguments):
        lie = self.lie.get("do_" + name)
        if lie is None:
            return getattr(self, name)(*arguments)
        return [one(self, *arguments) if callable(one) else one for one in (lie if isinstance(lie, list) else [lie])]

    def answer(self, request):
        name = REQUESTS[request.opcode & 0x3F]
        if self.normal is None:
            self.normal = b"SessionType=Discovery\0" not in request.data
            self.target.logins[self.normal] += 1
            if self.lie.get("at", self.normal) != self.normal:
                self.lie = {}
        assert self.up == (name != "login"), f"{name} at a wrong time"
        if name != "data_out":
            assert self.cmdsn in (None, request.cmdsn), f"CmdSN {request.cmdsn} instead of {self.cmdsn}"
            self.cmdsn = (request.cmdsn + (request.opcode & 0x40 == 0)) & NONE
        return self.act(name, request)

    # The login

    def login(self, request):
        reply = request.log_in()
        self.collected += request.data
        if request.flags & MORE:
            return reply
        keys, self.collected = keys_of(self.collected), b""
        declared = {}
        if "InitiatorName" in keys and self.normal:
            if keys["TargetName"] not in self.target.names:
                return reply.put(refused=0x203)
            declared = {"TargetPortalGroupTag": 1}
        security = request.flags & 0x0C == 0
        answers = self.security(keys) if security else self.operational(keys) if self.trusted else None
        if answers is None:
            return reply.put(refused=0x201)
        if request.flags & FINAL and self.trusted:
            reply.put(flags=reply.flags | request.flags & 0x83)
            self.up = request.flags & 3 == 3
        return reply.put(data=text_of(declared | answers), tsih=self.up)

    def security(self, keys):
        challenge = bytes(range(100, 116))
        if "CHAP_R" in keys:
            user, secret = self.target.chap
            right = "0x" + hashlib.md5(b"\x07" + secret.encode() + challenge).hexdigest()
            self.trusted = (keys["CHAP_N"], keys["CHAP_R"].lower()) == (user, right)
            return {} if self.trusted else None
        if "CHAP_A" in keys:
            return {"CHAP_A": 5, "CHAP_I": 7, "CHAP_C": "0x" + challenge.hex(), **self.lie.get("chap_keys", {})}
        method = "CHAP" if self.target.chap else "None"
        offered = keys.get("AuthMethod", method).split(",")
        return None if method not in offered else {"AuthMethod": method} if "AuthMethod" in keys else {}

    def operational(self, keys):
        answers = {}
        for key, offer in keys.items():
            wish, rule = self.target.wishes.get(key), WISHES.get(key, (0, 0))[1]
            if key == "MaxRecvDataSegmentLength":
                self.most_in, answers[key] = int(offer), wish
            elif key.endswith("Digest"):
                answers[key] = wish if wish in offer.split(",") else "Reject"
            elif rule in (any, all):
                answers[key] = "Yes" if rule((offer == "Yes", wish == "Yes")) else "No"
            elif rule:
                answers[key] = rule(int(offer), wish)
            elif key not in DECLARED:
                answers[key] = "NotUnderstood"
        self.agreed.update(answers)
        return {**answers, **(self.lie.get("keys", {}) if answers else {})}

    # Everything after it

    def text(self, request):
        if request.ttt == NONE:
            assert "SendTargets" in keys_of(request.data), request.data
            self.listing = io.BytesIO(self.target.listing())
        data = self.listing.read(self.most_in)
        more = self.listing.tell() < len(self.listing.getbuffer())
        return request.reply(TEXT, MORE if more else FINAL, data, ttt=1 if more else NONE)

    def nop(self, request):
        """An answer to a NOP-In lets go what was held."""
        return self.held if request.itt == NONE else request.reply(NOP, data=request.data, ttt=NONE)

    def task(self, request):
        return request.reply(TASK)

    def logout(self, request):
        return [request.reply(LOGOUT), CLOSE]

    def command(self, request):
        request.cdb = bytes(request.head[32:])
        assert request.exp == self.statsn, f"ExpStatSN {request.exp} instead of {self.statsn}"
        if self.attentions > 0:
            self.attentions -= 1
            return self.sense(request, 0x62900)
        if request.lun != 0 and request.cdb[0] not in (0x12, 0xA0):
            return self.sense(request, 0x52500)
        name = COMMANDS.get(request.cdb[0])
        return self.act(name, request) if name else self.sense(request, 0x52000)

    def ready(self, request):
        return self.response(request)

    def response(self, request, had=None, **fields):
        """The answer to a command that moves had bytes, or all that were expected."""
        rest = 0 if had is None else request.expected - had
        flags = FINAL | (UNDER if rest > 0 else OVER if rest < 0 else 0)
        return request.reply(RESPONSE, **{"flags": flags, "count": abs(rest), **fields})

    def check(self, request, sense, length=None):
        """CHECK CONDITION with these bytes. The length says how many they are."""
        data = (len(sense) if length is None else length).to_bytes(2, "big") + sense
        return self.response(request, 0, status=CHECK_CONDITION, data=data)

    def sense(self, request, key_and_code):
        return self.check(request, struct.pack(">BxB4xB4xH4x", 0x70, key_and_code >> 16, 10, key_and_code & 0xFFFF))

    def data(self, request, at, data, flags=0, **fields):
        return request.reply(DATA, flags, data, ttt=NONE, offset=at, **fields)

    def give(self, request, data):
        """Data-In, and the status: in the last of them if "collapse" is set."""
        assert request.flags & 0x40, "a command that reads without saying so"
        asked, burst = data[:request.expected], self.agreed["MaxBurstLength"]
        step = min(self.most_in, burst)
        pieces = [self.data(request, at, asked[at:at + step], 0 if (at + step) % burst and at + step < len(asked) else FINAL,
                            sn=at // step) for at in range(0, len(asked), step)]
        response = self.response(request, len(data), sn=len(pieces))
        if not pieces or "collapse" not in self.lie:
            return [*pieces, response]
        pieces[-1].put(flags=response.flags | STATUS, count=response.count)
        return pieces

    def inquiry(self, request):
        name = b"LIAR    LYING TARGET    1.00"
        pages = {0x00: b"\x00\x80\x83", 0x80: b"SERIAL 1", 0x83: b"\x02\x01\0" + bytes([len(name)]) + name}
        page = request.cdb[2]
        if not request.cdb[1] & 1:
            data = bytes([0x7F if request.lun else 0, 0, 6, 2, len(name) + 3, 0, 0, 2]) + name
        elif page in pages:
            data = bytes([0, page, 0, len(pages[page])]) + pages[page]
        else:
            return self.sense(request, 0x52400)
        return self.give(request, data[:int.from_bytes(request.cdb[3:5], "big")])

    def luns(self, request):
        return self.give(request, b"\0\0\0\x08".ljust(16, b"\0")[:int.from_bytes(request.cdb[6:10], "big")])

    def capacity(self, request):
        last = len(self.target.disk) // BLOCK - 1
        if request.cdb[0] == 0x25:
            return self.give(request, struct.pack(">II", last, BLOCK))
        return self.give(request, struct.pack(">QI20x", last, BLOCK)[:int.from_bytes(request.cdb[10:14], "big")])

    def blocks(self, request):
        """The part of the disk that a command means, or None."""
        lba, count = struct.unpack_from(">2xQI" if request.cdb[0] >= 0x80 else ">2xIxH", request.cdb)
        return slice(lba * BLOCK, (lba + count) * BLOCK) if (lba + count) * BLOCK <= len(self.target.disk) else None

    def read(self, request):
        blocks = self.blocks(request)
        return self.give(request, bytes(self.target.disk[blocks])) if blocks else self.sense(request, 0x52100)

    def write(self, request):
        blocks = self.blocks(request)
        if blocks is None:
            return self.sense(request, 0x52100)
        first = min(self.agreed["FirstBurstLength"], request.expected)
        self.writing = types.SimpleNamespace(request=request, start=blocks.start, size=blocks.stop - blocks.start, taken=b"",
                                             end=first, ttt=NONE, sn=0, asked=0)
        assert request.flags & 0x20, "a command that writes without saying so"
        assert not request.data or self.agreed["ImmediateData"] == "Yes", "immediate data"
        assert request.flags & FINAL or self.agreed["InitialR2T"] == "No", "data that was not asked for"
        return self.take(request)

    def data_out(self, request):
        task = self.writing
        seen = request.itt, request.ttt, request.sn, request.offset
        wanted = task and (task.request.itt, task.ttt, task.sn, len(task.taken))
        assert seen == wanted, f"Data-Out with ITT, TTT, DataSN and offset {seen} instead of {wanted}"
        task.sn += 1
        return self.take(request)

    def take(self, request):
        task = self.writing
        task.taken += request.data
        assert len(task.taken) <= task.end, "more data than asked for"
        if not request.flags & FINAL:
            return []
        assert task.ttt == NONE or len(task.taken) == task.end, "less data than asked for"
        at, wanted = len(task.taken), min(task.size, task.request.expected)
        if at == wanted:
            self.target.disk[task.start:task.start + wanted] = task.taken
            self.writing = None
            return self.response(task.request, task.size)
        task.end, task.ttt, task.sn = min(wanted, at + self.agreed["MaxBurstLength"]), at + 1, 0
        task.asked += 1
        return task.request.reply(R2T, ttt=task.ttt, sn=task.asked - 1, offset=at, count=task.end - at)


class Target:
    """Serves a loopback port. foreign is another's port, and visits is how often that one was called."""

    def __init__(self, names=("iqn.2026-01.com.example:liar",), wishes=(), chap=None, listing=None, **lie):
        self.names, self.chap, self.listed, self.lie = set(names), chap, listing, lie
        self.wishes = {**{key: wish for key, (wish, _) in WISHES.items()}, **dict(wishes)}
        self.disk = bytearray(b"".join(number.to_bytes(4, "big") * (BLOCK // 4) for number in range(1, 1025)))
        self.complaints, self.visits, self.logins = [], 0, [0, 0]  # to the discovery and to the targets
        self.servers, self.connections = [], set()

    def listing(self):
        if self.listed is not None:
            return self.listed(self)
        address = f"127.0.0.1:{self.port},1"
        return b"".join(text_of({"TargetName": name, "TargetAddress": address}) for name in sorted(self.names))

    async def start(self):
        self.port, self.foreign = [await self.listen(serve) for serve in (self.serve, self.visit)]

    async def listen(self, serve):
        self.servers.append(await asyncio.start_server(serve, "127.0.0.1", 0, backlog=2048))
        return self.servers[-1].sockets[0].getsockname()[1]

    async def serve(self, reader, writer):
        self.connections.add(asyncio.current_task())
        await Connection(self, reader, writer).run()
        self.connections.discard(asyncio.current_task())

    async def visit(self, _, writer):
        self.visits += 1
        writer.close()

    async def close(self):
        for end in (*(server.close for server in self.servers), *(connection.cancel for connection in self.connections)):
            end()
        await asyncio.gather(*self.connections)
