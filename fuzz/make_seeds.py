#!/usr/bin/env python3
"""Writes the seed corpora of the engine's fuzz targets (run from the fuzz folder)."""
import os
import struct
import zlib

GUID = bytes(range(16))


def msg(kind, payload, ttl=1, hops=0, guid=GUID):
    return guid + bytes([kind, ttl, hops]) + struct.pack("<I", len(payload)) + payload


def ggep(*exts):
    out = b"\xc3"
    for i, (ident, data) in enumerate(exts):
        flags = len(ident) | (0x80 if i == len(exts) - 1 else 0)
        out += bytes([flags]) + ident + bytes([0x40 | len(data)]) + data
    return out


sha1 = b"urn:sha1:AAAABBBBCCCCDDDDEEEEFFFFGGGGHHHH"
ping = msg(0x00, b"", ttl=2)
pong = msg(0x01, struct.pack("<H", 6346) + bytes([127, 0, 0, 1]) + struct.pack("<II", 3, 1000)
           + ggep((b"UP", b"\x01\x02\x03"), (b"DU", b"\x10")))
query = msg(0x80, b"\x88\x00alpha beta\x00" + sha1 + b"\x1c" + ggep((b"H", b"\x01abc")), ttl=3)
result = struct.pack("<II", 1, 1000) + b"alpha beta.mp3\x00" + sha1 + b"\x00"
hit = msg(0x81, bytes([1]) + struct.pack("<H", 6346) + bytes([127, 0, 0, 1]) + struct.pack("<I", 100)
          + result + b"CRVD" + bytes([4, 0x3d, 0x3d]) + struct.pack("<H", 0) + ggep((b"BH", b""))
          + bytes(16), ttl=3)
push = msg(0x40, bytes(16) + struct.pack("<I", 1) + bytes([127, 0, 0, 1]) + struct.pack("<H", 6346), ttl=3)
bye = msg(0x02, struct.pack("<H", 200) + b"bye\x00")
vendor = msg(0x31, b"CRVD" + struct.pack("<HH", 1, 1) + b"data")
unknown = msg(0x41, b"whatever")
reset = msg(0x30, b"\x00" + struct.pack("<I", 8) + b"\x07")
patch = msg(0x30, b"\x01\x01\x01\x01\x04" + zlib.compress(b"\x00\xa0\x00\x00"))

binary = [ping, pong, query, hit, push, bye, vendor, unknown, reset, patch]


def write(name, seeds):
    os.makedirs(f"corpus/{name}", exist_ok=True)
    for i, seed in enumerate(seeds):
        with open(f"corpus/{name}/seed{i:02d}", "wb") as f:
            f.write(seed)


write("descriptor", [bytes([7]) + m for m in binary] + [bytes([1]) + b"".join(binary)])
write("ggep", [ggep((b"UP", b"\x01\x02\x03")), ggep((b"DU", b"\x10"), (b"LF", b"\x01\x02\x03\x04\x05")),
               b"\xc3\xe2LF\x42\x02\x01", b"\xc3\xa2BH\x40",
               b"\xc3\xa2DU" + bytes([0x40 | 12]) + zlib.compress(b"hello")[:12]])

leaf_connect = (b"GNUTELLA CONNECT/0.6\r\nUser-Agent: Seed/1.0\r\nX-Ultrapeer: False\r\n"
                b"X-Query-Routing: 0.1\r\nAccept-Encoding: deflate\r\n\r\nGNUTELLA/0.6 200 OK\r\n\r\n")
up_connect = (b"GNUTELLA CONNECT/0.6\r\nuser-agent: Seed/1.0\nx-ultrapeer: true\n"
              b"X-Try-Ultrapeers: 1.2.3.4:6346 2006-01-01T00:00Z,5.6.7.8\n\nGNUTELLA/0.7 200 OK\n\n")
response = (b"GNUTELLA/0.6 200 OK\r\nUser-Agent: Seed/1.0\r\nX-Ultrapeer: True\r\n"
            b"X-Ultrapeer-Needed: false\r\nX-Query-Routing: 0.1\r\n\r\n")
refusal = b"GNUTELLA/0.6 503 Full\r\nX-Try-Ultrapeers: 1.2.3.4:6346,5.6.7.8:1234\r\n\r\n"
stream = b"".join(binary)
compressed = zlib.compressobj()
deflated = compressed.compress(stream) + compressed.flush(zlib.Z_SYNC_FLUSH)
deflate_response = response[:-2] + b"Content-Encoding: deflate\r\n\r\n"
# byte 0: read size; byte 1: bit 0 outgoing, bit 1 ultrapeer
write("handshake", [bytes([16, 2]) + leaf_connect + stream,
                    bytes([7, 2]) + up_connect + stream,
                    bytes([31, 1]) + response + stream,
                    bytes([31, 3]) + response + stream,
                    bytes([5, 1]) + refusal,
                    bytes([64, 1]) + deflate_response + deflated])

# Hit payloads whose results name their files in the forms deployed servents use.
sha1_raw = bytes(range(20))
tiger_raw = bytes(range(100, 124))


def cobs_ggep(ident, data):
    encoded, block = b"", b""
    for byte in data + b"\x00":
        if byte == 0 or len(block) == 254:
            encoded += bytes([len(block) + 1]) + block
            block = b""
            if byte != 0:
                block = bytes([byte])
        else:
            block += bytes([byte])
    encoded = encoded if data else b"\x01"
    return b"\xc3" + bytes([0x80 | 0x40 | len(ident)]) + ident + bytes([0x40 | len(encoded)]) + encoded


def hit_payload(extensions, trailer=b""):
    return (bytes([1]) + struct.pack("<H", 6346) + bytes([10, 0, 0, 1]) + struct.pack("<I", 100)
            + struct.pack("<II", 1, 0xFFFFFFFF) + b"a.iso\x00" + extensions + b"\x00"
            + b"LIME" + bytes([4, 0x3d, 0x21 if trailer else 0x01]) + struct.pack("<H", 0) + trailer
            + bytes(16))


write("hit_hash", [
    hit_payload(cobs_ggep(b"H", b"\x01" + sha1_raw)),
    hit_payload(cobs_ggep(b"H", b"\x02" + sha1_raw + tiger_raw)),
    hit_payload(b"urn:bitprint:AAAABBBBCCCCDDDDEEEEFFFFGGGGHHHH.AAAABBBBCCCCDDDDEEEEFFFFGGGGHHHHIIIIIII"),
    hit_payload(sha1 + b"\x1c" + cobs_ggep(b"LF", struct.pack("<Q", 5 << 30)[:5])),
    hit_payload(cobs_ggep(b"ALT", bytes([10, 0, 0, 2, 0xca, 0x18]) * 3),
                ggep((b"PUSH", bytes([10, 0, 0, 9, 0xca, 0x18])))),
])
