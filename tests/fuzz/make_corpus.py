#!/usr/bin/env python3
"""Writes the seed inputs of the front stream target into corpus/front.

Each seed is two steering bytes (cut lengths, buffer size) and a stream of
valid packages. Run it again after a change of the wire format and commit
the files."""
import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))


def package(fields, chain=0x53, request_id=0, ftd_type=1):
    content = b"".join(struct.pack("<HHI", len(v), 0, fid) + v for fid, v in fields)
    tid = fields[0][0] if fields else 0
    ftdc = struct.pack("<BBHHHIII", 0x48, chain, len(fields), len(content), 0, tid, 0,
                       request_id) + content
    return struct.pack("<BBH", ftd_type, 2, len(ftdc)) + b"\x00\x00" + ftdc


KEEP_ALIVE = bytes([0, 2, 0, 0, 4, 0])


def text(s, n):
    return s.encode().ljust(n, b"\x00")[:n]


login = text("20240102", 9) + text("trader01", 16) + b"\x00" * 3 + struct.pack("<i", 7) + \
    text("09:15:00", 16)
rsp_info = struct.pack("<ii", 22, -120) + text("Field check error", 81) + b"\x00" * 3
ids = text("000001", 16) + text("600000", 16) + text("IF2406", 16)

SEEDS = {
    "keepalive": b"\x01\x80" + KEEP_ALIVE * 3,
    "login": b"\x03\x80" + package([(22, login)], request_id=1),
    "error_then_ids": b"\x00\x00" + package([(32, rsp_info)], 0, 2) + package([(30, ids)], 0x53, 3),
    "suball": b"\x02\x80" + package([(26, struct.pack("<ii", 0, 3))], 0x53, 4, ftd_type=2),
    "ticks": b"\x10\x00" + package([(34, bytes(range(112)))] * 3, 0, 5) + KEEP_ALIVE,
    "logout_then_more": b"\x05\x80" + package([(23, text("trader01", 16))]) + package([(35, ids)]),
    "market_data": b"\x40\x80" + package([(33, bytes(1160))], 0x53, 6),
    "unknown_id": b"\x00\x80" + package([(21, b"abc"), (36, ids)]) + KEEP_ALIVE,
}

out = os.path.join(HERE, "corpus", "front")
os.makedirs(out, exist_ok=True)
for name, data in SEEDS.items():
    with open(os.path.join(out, name), "wb") as f:
        f.write(data)
