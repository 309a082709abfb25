#!/usr/bin/env python3
"""Delivers every record over one TCP connection: `qkp sync --line L --sender
'tcp_sender.py HOST PORT --separator crlf'`.

The connection is opened once, at the first record, and kept for the whole sync. A record is
acknowledged once the system has taken all its bytes (sendall); a connection error refuses it
with the system's text, and qkp leaves the rest pending. HOST may contain
{dept}, {scale} and {line} (for example "scale-{dept}-{scale}.shop.lan"): one connection per scale.
"""
import argparse
import os
import socket
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import qk_sender  # noqa: E402


def main():
    p = argparse.ArgumentParser()
    p.add_argument("host")
    p.add_argument("port", type=int)
    p.add_argument("--separator", default="crlf", choices=sorted(qk_sender.SEPARATORS))
    p.add_argument("--timeout", type=float, default=10.0)
    a = p.parse_args()
    connections = {}
    for f in qk_sender.frames():
        host = a.host.format(dept=f.dept, scale=f.scale, line=f.line)
        try:
            s = connections.get(host)
            if s is None:
                s = socket.create_connection((host, a.port), timeout=a.timeout)
                connections[host] = s
            s.sendall(qk_sender.framed(f.data, a.separator))
        except OSError as e:
            connections.pop(host, None)
            qk_sender.refuse(f, "%s:%d: %s" % (host, a.port, e.strerror or e))
            continue
        qk_sender.ok(f)
    for s in connections.values():
        s.close()


if __name__ == "__main__":
    main()
