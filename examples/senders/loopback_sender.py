#!/usr/bin/env python3
"""A sender that delivers to a file: each record as `sync --out FILE` would write it (CR LF after
each), acknowledged once written. It can misbehave on purpose, to try qkp's handling:

    loopback_sender.py FILE [--err-at N] [--die-at N] [--hang-at N] [--garbage-at N]
                            [--wrong-ack-at N] [--bare] [--delay-ms MS] [--exit-status S]

N counts the records this process received, from 1. --bare answers "OK" without the number.
Its environment (QK_HOME, QK_DEPT, QK_LINE, QK_SCALE, QK_FAMILY) is appended to FILE.env, each
acknowledged record's header to FILE.headers, a refused one's to FILE.refused, and its process id
to FILE.pids. --delay-ms waits before each acknowledgement (a slow line).
"""
import argparse
import os
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import qk_sender  # noqa: E402


def main():
    p = argparse.ArgumentParser()
    p.add_argument("file")
    for name in ("err-at", "die-at", "hang-at", "garbage-at", "wrong-ack-at"):
        p.add_argument("--" + name, type=int, default=0)
    p.add_argument("--bare", action="store_true")
    p.add_argument("--delay-ms", type=int, default=0)
    p.add_argument("--exit-status", type=int, default=0)
    a = p.parse_args()
    with open(a.file + ".pids", "a") as pids:
        pids.write("%d\n" % os.getpid())
    with open(a.file + ".env", "a") as env:
        env.write(" ".join("%s=%s" % (k, os.environ.get(k, ""))
                           for k in ("QK_HOME", "QK_DEPT", "QK_LINE", "QK_SCALE", "QK_FAMILY")) + "\n")
    with open(a.file, "ab") as out, open(a.file + ".headers", "a") as headers:
        for n, f in enumerate(qk_sender.frames(), 1):
            if n == a.die_at:
                out.flush()
                os._exit(3)
            if n == a.hang_at:
                time.sleep(3600)
            if n == a.err_at:
                with open(a.file + ".refused", "a") as refused:
                    refused.write("%d %d %s %d\n" % (f.number, f.dept, f.kind, f.id))
                qk_sender.refuse(f, "scale %d did not answer" % f.scale)
                continue
            if a.delay_ms:
                time.sleep(a.delay_ms / 1000.0)
            out.write(qk_sender.framed(f.data, "crlf"))
            out.flush()
            headers.write("%d %d %d %d %s %s %d %d\n" % (f.number, f.dept, f.line, f.scale,
                                                         f.family, f.kind, f.id, len(f.data)))
            headers.flush()
            if n == a.garbage_at:
                sys.stdout.write("HELLO\n")
                sys.stdout.flush()
            elif n == a.wrong_ack_at:
                sys.stdout.write("OK %d\n" % (f.number + 5))
                sys.stdout.flush()
            elif a.bare:
                sys.stdout.write("OK\n")
                sys.stdout.flush()
            else:
                qk_sender.ok(f)
    sys.exit(a.exit_status)


if __name__ == "__main__":
    main()
