"""The records of a report page, packed and unpacked as tools/report/page/main.js describes them.

A row is [time, mark, source, thread, level, name, text, words, process, boot], with indices from 0 and -1 for none.
"""

import base64
import json
import re
import struct
import zlib

WITHOUT_TIME = 8
SECOND = 1_000_000_000


def number(value):
    out = bytearray()
    while value > 127:
        out.append(value & 127 | 128)
        value >>= 7
    out.append(value)
    return bytes(out)


def signed(value):
    return number(2 * value if value >= 0 else -2 * value - 1)


def element(name, data):
    packer = zlib.compressobj(wbits=-15)
    packed = struct.pack("<I", len(data)) + packer.compress(data) + packer.flush()
    return f'<script type="text/plain" class="{name}">{base64.b64encode(packed).decode()}</script>\n'


def pack_block(rows):
    rows = [row + [0] * (10 - len(row)) for row in rows]
    last = next((row[0] for row in rows if row[0] is not None), 0)
    columns = number(len(rows)) + signed(last // SECOND) + number(last % SECOND)
    for time, *_ in rows:
        columns += signed((last if time is None else time) - last)
        last = last if time is None else time
    columns += bytes(row[1] | (WITHOUT_TIME if row[0] is None else 0) for row in rows)
    for column, least in ((2, 0), (3, 1), (4, 1), (5, 1), (8, 0), (9, 0)):
        columns += b"".join(number(row[column] + least) for row in rows)
    words = [[int(word, 16) for word in row[7]] for row in rows]
    texts = b"".join(number(len(row[6].encode("utf-16-le")) // 2) for row in rows)
    texts += bytes(len(each) for each in words) + b"".join(number(word) for each in words for word in each)
    texts += "".join(row[6] + "\n" for row in rows).encode()
    return element("columns", columns) + element("texts", texts)


def pack(rows, size=8192):
    return "".join(pack_block(rows[at:at + size]) for at in range(0, len(rows), size))


class Reader:
    def __init__(self, data):
        self.data, self.at = data, 0

    def number(self):
        value = shift = 0
        while True:
            byte = self.data[self.at]
            self.at += 1
            value |= (byte & 127) << shift
            shift += 7
            if byte < 128:
                return value

    def signed(self):
        value = self.number()
        return -(value + 1) // 2 if value & 1 else value // 2

    def take(self, count):
        self.at += count
        return self.data[self.at - count:self.at]


def elements(page, name):
    for packed in re.findall(f'<script type="text/plain" class="{name}">(.*?)</script>', page, re.S):
        data = base64.b64decode(packed)
        plain = zlib.decompress(data[4:], wbits=-15)
        assert len(plain) == struct.unpack("<I", data[:4])[0]
        yield Reader(plain)


def unpack_block(columns, texts):
    count = columns.number()
    time = columns.signed() * SECOND + columns.number()
    times = []
    for _ in range(count):
        time += columns.signed()
        times.append(time)
    marks = columns.take(count)
    source, thread, level, name, process, boot = ([columns.number() for _ in range(count)] for _ in range(6))
    assert columns.at == len(columns.data)
    lengths = [texts.number() for _ in range(count)]
    words = [[hex(texts.number()) for _ in range(many)] for many in list(texts.take(count))]
    units = Reader(texts.data[texts.at:].decode().encode("utf-16-le", "surrogatepass"))
    for index, length in enumerate(lengths):
        text = units.take(2 * length).decode("utf-16-le")
        assert units.take(2) == b"\n\0"
        yield [None if marks[index] & WITHOUT_TIME else times[index], marks[index] & ~WITHOUT_TIME, source[index],
               thread[index] - 1, level[index] - 1, name[index] - 1, text, words[index], process[index], boot[index]]


def unpack(page):
    return [row for columns, texts in zip(elements(page, "columns"), elements(page, "texts"))
            for row in unpack_block(columns, texts)]


def data_of(path):
    """What a page holds, with its rows."""
    page = path.read_text(encoding="utf-8")
    data = json.loads(re.search(r'<script type="application/json" id="data">(.*?)</script>', page, re.S)[1])
    rows = unpack(page)
    assert len(rows) == data["rows"]
    return {**data, "rows": rows}
