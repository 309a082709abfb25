#!/usr/bin/env python3
"""Delivers every record over one TCP connection per scale: `qkp sync --line L --sender
'tcp_sender.py HOST PORT --separator crlf'`.

The connection is opened at the first record and kept for the whole sync. A record is
acknowledged ("OK") only once the scale's TCP has acknowledged every byte of it: the socket's
queue of unsent and unacknowledged bytes (SIOCOUTQ) is empty while the connection still stands.
Bytes the local system merely took are not delivered. A refused, lost or stalled connection
refuses the record ("ERR") and the sender stops: nothing more is written, and qkp leaves that
record and every later one pending. HOST may contain {dept}, {scale} and {line} (for example
"scale-{dept}-{scale}.shop.lan"): one connection per scale.
"""
import argparse
import fcntl
import os
import select
import socket
import struct
import sys
import termios
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import qk_sender  # noqa: E402

TCP_ESTABLISHED = 1


class Lost(Exception):
    pass


def standing(s):
    """Raises Lost when the scale closed or reset the connection; drops what it sends us."""
    try:
        while select.select([s], [], [], 0)[0]:
            if not s.recv(4096):
                raise Lost("the scale closed the connection")
    except OSError as e:
        raise Lost(e.strerror or str(e))
    state = s.getsockopt(socket.IPPROTO_TCP, socket.TCP_INFO, 8)[0]
    if state != TCP_ESTABLISHED:
        raise Lost("the connection was reset")


def acknowledged(s, timeout):
    """Waits until the peer's TCP acknowledged everything written, while it makes progress."""
    deadline, before = time.monotonic() + timeout, None
    while True:
        queued = struct.unpack("i", fcntl.ioctl(s, termios.TIOCOUTQ, b"\0" * 4))[0]
        standing(s)  # the queue is believed only while the connection stands
        if queued == 0:
            return
        if queued != before:
            deadline, before = time.monotonic() + timeout, queued
        if time.monotonic() > deadline:
            raise Lost("the scale acknowledged nothing for %g s (%d bytes)" % (timeout, queued))
        time.sleep(0.002)


def main():
    p = argparse.ArgumentParser()
    p.add_argument("host")
    p.add_argument("port", type=int)
    p.add_argument("--separator", default="crlf", choices=sorted(qk_sender.SEPARATORS))
    p.add_argument("--timeout", type=float, default=30.0)
    a = p.parse_args()
    connections = {}
    for f in qk_sender.frames():
        host = a.host.format(dept=f.dept, scale=f.scale, line=f.line)
        try:
            s = connections.get(host)
            if s is None:
                s = socket.create_connection((host, a.port), timeout=a.timeout)
                connections[host] = s
            standing(s)
            s.sendall(qk_sender.framed(f.data, a.separator))
            acknowledged(s, a.timeout)
        except (OSError, Lost) as e:
            text = e.strerror if isinstance(e, OSError) and e.strerror else str(e)
            qk_sender.refuse(f, "%s:%d: %s" % (host, a.port, text))
            # Stop at the first refusal: no byte of a later record may follow a lost one.
            for c in connections.values():
                c.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
                c.close()
            sys.exit(1)
        qk_sender.ok(f)
    for s in connections.values():
        s.close()


if __name__ == "__main__":
    try:
        main()
    except BrokenPipeError:
        sys.exit(1)  # qkp went away: it has left what was not acknowledged pending
