#!/usr/bin/env python3
"""Writes the seed inputs of the fuzz targets: corpus/front and corpus/feed.

A front seed is two steering bytes (cut lengths, buffer size) and a stream of
valid packages. A feed seed is one steering byte (which all-instrument
subscriptions are on) and datagrams, each behind its 16-bit little-endian
length. Run it again after a change of the wire format or a feed layout and
commit the files."""
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


# ---- feed datagrams: every message type, at the feed's own offsets ----

def at(buf, offset, fmt, *values):
    struct.pack_into("<" + fmt, buf, offset, *values)


def szse(type_, body):
    return struct.pack("<I", type_) + bytes(body)


def szse_order(channel, seq, sec, price, qty, side, time, ord_type=b"2"):
    b = bytearray(51)
    at(b, 0, "HQ", channel, seq)
    b[10:13] = b"011"
    b[13:21] = text(sec, 8)
    b[21:24] = b"102"
    at(b, 25, "QQ", price, qty)
    b[41:42] = side
    at(b, 42, "q", time)
    b[50:51] = ord_type
    return szse(300192, b)


def szse_trade(channel, seq, sec, bid, offer, price, qty, exec_type, time):
    b = bytearray(66)
    at(b, 0, "HQ", channel, seq)
    b[10:13] = b"011"
    at(b, 13, "qq", bid, offer)
    b[29:37] = text(sec, 8)
    b[37:40] = b"102"
    at(b, 41, "QQ", price, qty)
    b[57:58] = exec_type
    at(b, 58, "q", time)
    return szse(300191, b)


def szse_snapshot(sec, time, last, bid_queue=3, offer_queue=2):
    b = bytearray(380 + 4 * (bid_queue + offer_queue))
    at(b, 0, "qH", time, 2011)
    b[10:13] = b"010"
    b[13:21] = text(sec, 8)
    b[21:24] = b"102"
    b[25:33] = b"T0      "
    at(b, 33, "I", 9990000)
    at(b, 37, "qQQI", 12, 500000, 5000000000, last)
    for i in range(10):
        at(b, 121 + 4 * i, "I", last - 10000 * (i + 1))
        at(b, 161 + 8 * i, "Q", 10000 * (i + 1))
        at(b, 241 + 4 * i, "I", last + 10000 * (i + 1))
        at(b, 281 + 8 * i, "Q", 20000 + i)
    at(b, 361, "IIBB", 7, 5, bid_queue, offer_queue)
    for i in range(bid_queue + offer_queue):
        at(b, 380 + 4 * i, "I", 100 * (i + 1))
    return szse(300111, b)


def szse_index(sec, time):
    b = bytearray(105)
    at(b, 0, "q", time)
    b[13:21] = text(sec, 8)
    b[25:33] = b"T0      "
    at(b, 41, "qQQQQQQQ", 99, 1000, 20000, 3100000000, 3090000000, 3095000000, 3110000000,
       3080000000)
    return szse(309011, b)


def szse_volume_stat(sec, time):
    b = bytearray(65)
    at(b, 0, "q", time)
    b[13:21] = text(sec, 8)
    b[25:33] = b"T0      "
    at(b, 33, "QqQQ", 99900, 42, 1000000, 99900000)
    return szse(309111, b)


def sse_trade(channel, index, sec, price, qty, money, time, buy=0, sell=0, flag=b"B"):
    d = bytearray(65)
    at(d, 0, "IiI", 3201, index, channel)
    d[12:20] = text(sec, 8)
    at(d, 20, "II", time, price)
    at(d, 32, "QQQQ", qty, money, buy, sell)
    d[64:65] = flag
    return bytes(d)


def sse_snapshot(sec, time, last, bid_queue=2, offer_queue=2):
    d = bytearray(480 + 4 * (bid_queue + offer_queue))
    at(d, 0, "II", 3202, time)
    d[8:16] = text(sec, 8)
    at(d, 16, "IIIII", 9990, 10000, 10100, 9900, last)
    d[48:56] = b"T111    "
    at(d, 56, "IQQ", 15, 120000, 1200000000)
    for i in range(10):
        at(d, 228 + 4 * i, "I", last - 10 * (i + 1))
        at(d, 268 + 8 * i, "Q", 1000 * (i + 1))
        at(d, 348 + 4 * i, "I", last + 10 * (i + 1))
        at(d, 388 + 8 * i, "Q", 2000 * (i + 1))
    at(d, 468, "IIHH", 4, 3, bid_queue, offer_queue)
    for i in range(bid_queue + offer_queue):
        at(d, 480 + 4 * i, "I", 1000 * (i + 1))
    return bytes(d)


def sse_index(sec, time):
    d = bytearray(84)
    at(d, 0, "II", 3113, time)
    d[8:16] = text(sec, 8)
    at(d, 16, "QQQQQQ", 300000000, 301000000, 123456, 302000000, 299000000, 300500000)
    at(d, 68, "QQ", 5000000, 300600000)
    return bytes(d)


def feed_seed(flags, datagrams):
    return bytes([flags]) + b"".join(struct.pack("<H", len(d)) + d for d in datagrams)


T = 20240102093000000  # Shenzhen stamps: YYYYMMDDHHMMSSsss
FEED_SEEDS = {
    "szse_book_day": feed_seed(0, [
        szse_snapshot("000001", T, 10000000),
        szse_order(2011, 1, "000001", 99900, 10000, b"1", T + 1),
        szse_order(2011, 2, "000001", 100100, 5000, b"2", T + 2),
        szse_order(2011, 3, "000001", 0, 2000, b"1", T + 3, b"1"),
        szse_trade(2011, 4, "000001", 3, 2, 100100, 2000, b"F", T + 4),
        szse_order(2011, 5, "000001", 0, 1000, b"2", T + 5, b"U"),
        szse_trade(2011, 6, "000001", 1, 0, 0, 10000, b"4", T + 6),
        szse_snapshot("000001", T + 3000, 10010000),
    ]),
    "szse_all_books": feed_seed(1, [
        szse_snapshot("300446", T, 20000000, 50, 50),
        szse_order(2012, 10, "300446", 199900, 100, b"1", T + 10),
        szse_order(2012, 9, "300446", 199900, 100, b"1", T + 11),
        szse_trade(2012, 11, "300446", 10, 0, 199900, 100, b"F", T + 12),
    ]),
    "szse_other": feed_seed(2, [
        szse_index("399001", T),
        szse_volume_stat("000001", T),
        szse_order(2013, 1, "000002", 50000, 300, b"2", T),
    ]),
    "sse_all": feed_seed(4, [
        sse_snapshot("600000", 93000, 10000),
        sse_trade(6, 1, "600000", 10000, 100000, 1000000000, 93001),
        sse_trade(6, 2, "600000", 10010, 200000, 2002000000, 93002, 7, 8, b"S"),
        sse_index("000001", 93003),
        sse_snapshot("600000", 93000, 10000, 60, 60),
    ]),
    "short_then_long": feed_seed(3, [
        szse_order(2011, 1, "000001", 99900, 10000, b"1", T + 1),
        szse_trade(2011, 2, "000001", 1, 0, 0, 100, b"4", T + 2)[:20],
        szse_order(2011, 3, "000001", 99900, 10000, b"1", T + 3),
        struct.pack("<I", 3201),
        b"",
    ]),
}

out = os.path.join(HERE, "corpus", "feed")
os.makedirs(out, exist_ok=True)
for name, data in FEED_SEEDS.items():
    with open(os.path.join(out, name), "wb") as f:
        f.write(data)
