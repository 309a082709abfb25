#!/usr/bin/env python3
"""The example senders against the real tool: a TCP server on this machine and a pseudo-terminal
stand in for the scale. Run by ctest with QKP set to the tool."""
import os
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
QKP = os.environ.get("QKP", "qkp")


def qkp(home, *args):
    return subprocess.run([QKP, "--home", home] + list(args), capture_output=True)


def without_clock(data):
    # The clock records are built a moment apart; everything else must match byte for byte.
    return b"".join(l for l in data.splitlines(True) if not l.startswith(b"2599990"))


class Senders(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.mkdtemp()
        self.home = os.path.join(self.dir, "demo")
        self.assertEqual(qkp(self.home, "init", "--demo").returncode, 0)
        self.assertEqual(qkp(self.home, "mark", "--line", "1").returncode, 0)
        copy = os.path.join(self.dir, "copy")
        shutil.copytree(self.home, copy)
        out = os.path.join(self.dir, "expected.bin")
        self.assertEqual(qkp(copy, "sync", "--line", "1", "--dept", "1", "--out", out).returncode, 0)
        with open(out, "rb") as f:
            self.expected = f.read()

    def tearDown(self):
        shutil.rmtree(self.dir)

    def sync(self, sender):
        r = qkp(self.home, "sync", "--line", "1", "--dept", "1", "--sender", sender)
        self.assertEqual(r.returncode, 0, r.stderr.decode())
        p = qkp(self.home, "pending", "--line", "1", "--dept", "1")
        self.assertNotIn(b"  lots ", p.stdout)

    def test_tcp(self):
        server = socket.socket()
        server.bind(("127.0.0.1", 0))
        server.listen(1)
        received = []

        def serve():
            conn, _ = server.accept()
            with conn:
                while True:
                    b = conn.recv(65536)
                    if not b:
                        return
                    received.append(b)

        t = threading.Thread(target=serve)
        t.start()
        self.sync("%s %s/tcp_sender.py 127.0.0.1 %d" % (sys.executable, HERE, server.getsockname()[1]))
        t.join(10)
        server.close()
        self.assertEqual(without_clock(b"".join(received)), without_clock(self.expected))

    def test_tcp_refused(self):
        s = socket.socket()
        s.bind(("127.0.0.1", 0))
        port = s.getsockname()[1]
        s.close()  # nothing listens there
        r = qkp(self.home, "sync", "--line", "1", "--dept", "1", "--sender",
                "%s %s/tcp_sender.py 127.0.0.1 %d" % (sys.executable, HERE, port))
        self.assertEqual(r.returncode, 1)
        self.assertIn(b"Connection refused", r.stderr)
        self.assertIn(b"  lots ", qkp(self.home, "pending", "--line", "1", "--dept", "1").stdout)

    def test_serial(self):
        master, slave = os.openpty()
        received = []

        def read():
            while True:
                try:
                    b = os.read(master, 65536)
                except OSError:
                    return
                if not b:
                    return
                received.append(b)

        t = threading.Thread(target=read, daemon=True)
        t.start()
        self.sync("%s %s/serial_sender.py %s --settings 19200,8,E,1" %
                  (sys.executable, HERE, os.ttyname(slave)))
        # Everything was drained before it was acknowledged: it is all there already.
        deadline = 50
        while len(b"".join(received)) < len(self.expected) and deadline:
            threading.Event().wait(0.1)
            deadline -= 1
        os.close(slave)
        self.assertEqual(without_clock(b"".join(received)), without_clock(self.expected))


if __name__ == "__main__":
    unittest.main()
