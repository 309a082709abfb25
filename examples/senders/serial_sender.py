#!/usr/bin/env python3
"""Delivers every record to a serial line: `qkp sync --line L --dept D --sender
'serial_sender.py /dev/ttyUSB0 --settings 9600,8,N,1 --separator crlf'`.

Each record is written with its separator and acknowledged once the line has drained it
(tcdrain), so qkp resets a flag only for bytes that have left the port. A write error refuses the
record with the system's text. One port means one scale: give --dept, or route by the header's
department and scale in a sender of your own.
"""
import argparse
import os
import sys
import termios

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import qk_sender  # noqa: E402

SPEEDS = {n: getattr(termios, "B%d" % n) for n in
          (1200, 2400, 4800, 9600, 19200, 38400, 57600, 115200, 230400)}
BITS = {5: termios.CS5, 6: termios.CS6, 7: termios.CS7, 8: termios.CS8}


def configure(fd, settings):
    speed, bits, parity, stop = settings.split(",")
    iflag, oflag, cflag, lflag, ispeed, ospeed, cc = termios.tcgetattr(fd)
    # Raw: no translation, no echo, every byte as it is.
    iflag = 0
    oflag = 0
    lflag = 0
    cflag &= ~(termios.CSIZE | termios.PARENB | termios.PARODD | termios.CSTOPB)
    cflag |= BITS[int(bits)] | termios.CLOCAL | termios.CREAD
    if parity.upper() != "N":
        cflag |= termios.PARENB | (termios.PARODD if parity.upper() == "O" else 0)
    if stop == "2":
        cflag |= termios.CSTOPB
    ispeed = ospeed = SPEEDS[int(speed)]
    termios.tcsetattr(fd, termios.TCSANOW, [iflag, oflag, cflag, lflag, ispeed, ospeed, cc])


def main():
    p = argparse.ArgumentParser()
    p.add_argument("device")
    p.add_argument("--settings", default="9600,8,N,1")
    p.add_argument("--separator", default="crlf", choices=sorted(qk_sender.SEPARATORS))
    a = p.parse_args()
    fd = os.open(a.device, os.O_WRONLY | os.O_NOCTTY)
    if os.isatty(fd):
        configure(fd, a.settings)
    for f in qk_sender.frames():
        try:
            data = qk_sender.framed(f.data, a.separator)
            while data:
                data = data[os.write(fd, data):]
            if os.isatty(fd):
                termios.tcdrain(fd)
        except OSError as e:
            qk_sender.refuse(f, "%s: %s" % (a.device, e.strerror))
            continue
        qk_sender.ok(f)


if __name__ == "__main__":
    main()
