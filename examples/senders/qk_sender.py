"""The sender side of `qkp sync --sender CMD`, shared by the example senders.

qkp writes, for every string of a record:
    REC <n> <dept> <line> <scale> <family> <kind> <id> <length>\\n
    <length bytes>\\n
and waits for one answer line per string, in order:
    OK <n>\\n            delivered: qkp may reset the record's flag
    ERR <n> <text>\\n    not delivered: qkp stops the line's sync and shows <text>
When qkp closes the pipe, the sender finishes and exits 0.
"""
import sys


class Frame:
    def __init__(self, header, data):
        fields = header.split(" ")
        if len(fields) != 9 or fields[0] != "REC":
            raise ValueError("not a record header: %r" % header)
        self.number = int(fields[1])
        self.dept, self.line, self.scale = int(fields[2]), int(fields[3]), int(fields[4])
        self.family, self.kind, self.id = fields[5], fields[6], int(fields[7])
        self.data = data


def frames(stream=None):
    """Yields every record qkp sends, until it closes the pipe."""
    stream = stream or sys.stdin.buffer
    while True:
        header = stream.readline()
        if not header:
            return
        header = header.rstrip(b"\n").decode("ascii")
        length = int(header.rsplit(" ", 1)[1])
        data = stream.read(length)
        if len(data) != length or stream.read(1) != b"\n":
            raise ValueError("record cut short: %r" % header)
        yield Frame(header, data)


def ok(frame, out=None):
    out = out or sys.stdout
    out.write("OK %d\n" % frame.number)
    out.flush()


def refuse(frame, text, out=None):
    out = out or sys.stdout
    out.write("ERR %d %s\n" % (frame.number, text.replace("\n", " ")))
    out.flush()


SEPARATORS = {"crlf": b"\r\n", "lf": b"\n", "none": b"", "stx-etx": None}


def framed(data, separator):
    """The record as a file or a line takes it (the same separators as `sync --out`)."""
    if separator == "stx-etx":
        return b"\x02" + data + b"\x03"
    return data + SEPARATORS[separator]
