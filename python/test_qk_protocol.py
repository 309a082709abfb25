"""The Python module on a demo installation, byte for byte against what qkp prints for the same
archive. Run by ctest with QKP (the qkp program) and PYTHONPATH (the built module) set."""

import os
import shutil
import subprocess
import tempfile
import unittest

import qk_protocol as qk

QKP = os.environ["QKP"]
HOME = tempfile.mkdtemp(prefix="qk-python-")
ERRORS = []


def qkp(*args):
    """The records qkp prints for a command, as bytes (one per hex line)."""
    out = subprocess.run([QKP, "--home", HOME, "--format", "hex", *args], check=False,
                         capture_output=True, text=True).stdout
    return [bytes.fromhex(line) for line in out.splitlines() if line]


def setUpModule():
    subprocess.run([QKP, "--home", HOME, "init", "--demo"], check=True, capture_output=True)
    qk.start(installation_folder=HOME,
             on_error=lambda *report: ERRORS.append(report),
             on_message_box=lambda text, title, style: 4)  # Retry: go on


def tearDownModule():
    shutil.rmtree(HOME, ignore_errors=True)


class SameBytesAsTheTool(unittest.TestCase):
    def setUp(self):
        ERRORS.clear()

    def test_date_message(self):
        qk.set_clock((2026, 3, 5, 14, 7, 9))
        try:
            simple = qk.clsSimple()
            self.assertEqual(simple.DataOra, b"2599990050326140709")
            self.assertEqual(simple.DataOraO5000,
                             b"<MSG OPE=FUN NPM=1 NCM=1 TYP=DATA YYY=126 MMM=3 DAY=5 HHH=14 "
                             b"MIN=7 SSS=9 />")
            self.assertEqual([simple.DataOra], qkp("date", "--at", "2026-03-05T14:07:09"))
        finally:
            qk.set_clock(None)

    def test_key_binding_block(self):
        keys = qk.clsAbbinamentoTasti()
        keys.p_varKey = 1
        keys.p_strScale = "1"
        keys.p_strScaleKey = "5"
        keys.p_intLine = 1
        self.assertEqual([keys.p_strProtocol],
                         qkp("keys", "--dept", "1", "--scale", "1", "--line", "1", "--key", "5"))
        self.assertTrue(keys.p_strProtocol.startswith(b"3599990"))
        self.assertEqual(keys.p_strFlagTrasm, "11100000")

    def test_lot_in_two_families(self):
        lots = qk.clsTraceability()
        lots.p_lngBnc = 1
        lots.p_strTraceabilityId = "12"
        self.assertEqual([lots.p_5000_strProtocol],
                         qkp("lot", "--dept", "1", "--lot", "12", "--family", "5000"))
        self.assertEqual(lots.p_3000_strProtocol,
                         qkp("lot", "--dept", "1", "--lot", "12", "--family", "3000"))
        # The 8-bit text stays 8-bit on the wire: "Modèna" has the byte 0xE8.
        self.assertIn(b"Mod\xe8na", lots.p_5000_strProtocol)

    def test_layout(self):
        layout = qk.clsLayout()
        layout.p_lngBnc = 1
        layout.p_lngTicketId = 1
        self.assertTrue(layout.p_booRetrieveData())
        self.assertEqual(layout.p_strProtocol(2),
                         qkp("layout", "--dept", "1", "--layout", "1", "--family", "3000"))
        self.assertEqual(layout.p_strProtocol(intDevice=1),
                         qkp("layout", "--dept", "1", "--layout", "1", "--family", "5000"))

    def test_scale_image(self):
        image = qk.clsImage()
        image.p_varKey = 4
        image.p_strFullPath = os.path.join(HOME, "images", "LOGO.BMP")
        image.p_strDescription = "Logo negozio"
        records = image.p_strProtocol
        self.assertGreater(len(records), 2)
        self.assertEqual(records, qkp("image", "--key", "4", "--file", image.p_strFullPath,
                                      "--description", "Logo negozio"))


class Values(unittest.TestCase):
    def test_configured_lines_round_trip(self):
        barcodes = qk.clsBarCode()
        lines = [[0] * 8, [1, 1, 0, 0, 0, 0, 0, 0]]
        barcodes.p_varConfiguredLines = lines
        self.assertEqual(barcodes.p_varConfiguredLines, lines)
        barcodes.p_varKey = "1"
        self.assertEqual(barcodes.p_varKey, "1")
        barcodes.p_varKey = None
        self.assertIsNone(barcodes.p_varKey)

    def test_barcode_walk_and_reset(self):
        barcodes = qk.clsBarCode()
        barcodes.p_varKey = 2
        barcodes.p_varConfiguredLines = [[0] * 8, [0] * 8, [1, 1, 0, 0, 0, 0, 0, 0]]
        seen = []
        barcodes.p_MoveFirst()
        while not barcodes.p_booEOF:
            seen.append((barcodes.p_strForm, barcodes.p_strProtocol, barcodes.p_strFlagTrasm))
            barcodes.p_MoveNext()
        self.assertEqual(seen[0], ("1", b"189999001A06B13", "1000"))
        barcodes.p_strForm = "1"
        self.assertEqual(barcodes.p_ResetFlagTrasm(1), 1)  # the by-reference line comes back
        self.assertEqual(barcodes.p_strFlagTrasm, "0000")

    def test_every_class_and_member_has_its_description(self):
        classes = [c for name, c in vars(qk).items() if name.startswith("cls")]
        self.assertEqual(len(classes), 13)
        for cls in classes:
            members = [(name, m) for name, m in vars(cls).items() if not name.startswith("_")]
            for name, doc in [("", cls.__doc__)] + [(n, m.__doc__) for n, m in members]:
                # the header's sentence, not pybind11's signature
                self.assertRegex(doc or "", r"^[A-Z\"<0-9].*[.)]$", f"{cls.__name__}.{name}")
        self.assertEqual(qk.clsBarCode.p_MoveFirst.__doc__, "Puts the cursor on the key's first form.")
        self.assertEqual(qk.clsTraceability.p_lngBnc.__doc__, "The department whose lot is read.")

    def test_requests_are_bytes(self):
        self.assertEqual(qk.clsKplMakeRequest().p_RX_strStopLavorazioniInCorso(),
                         b"<STOP><END_STOP>\r\n")
        self.assertEqual(qk.clsKplMakeRequest().p_RX_strRichiediCancellazioneTotali("all"),
                         b"<RESET_TOT=ALL><END_RESET_TOT>\r\n")


class Failures(unittest.TestCase):
    def setUp(self):
        ERRORS.clear()

    def test_reported_errors_reach_the_callback(self):
        lots = qk.clsTraceability()
        lots.p_lngBnc = 1
        lots.p_strTraceabilityId = "abc"
        self.assertFalse(any(lots.p_3000_strProtocol))  # only the empty elements it had sized
        self.assertTrue(ERRORS)
        number, project, module, procedure, description = ERRORS[0]
        self.assertEqual(module, "clsTraceability")

    def test_wrong_types_name_the_member(self):
        keys = qk.clsAbbinamentoTasti()
        with self.assertRaisesRegex(TypeError, "p_varKey"):
            keys.p_varKey = {"not": "a value"}
        with self.assertRaisesRegex(TypeError, "p_strScale"):
            keys.p_strScale = 12
        lots = qk.clsTraceability()
        for wrong, named in ((lambda: setattr(keys, "p_intLine", "one"),
                              "clsAbbinamentoTasti.p_intLine: expected int, got str"),
                             (lambda: setattr(lots, "p_lngBnc", "1"),
                              "clsTraceability.p_lngBnc: expected int, got str"),
                             (lambda: lots.p_ResetFlagTrasm("x"),
                              "clsTraceability.p_ResetFlagTrasm: expected int, got str")):
            with self.assertRaises(TypeError) as caught:
                wrong()
            self.assertEqual(str(caught.exception), named)
        with self.assertRaisesRegex(ValueError, "p_strScale"):
            keys.p_strScale = "\u4e00"

    def test_errors_without_a_trap_are_exceptions(self):
        vat = qk.clsIva()
        vat.Initialize()
        self.assertGreater(vat.RecordCount, 0)
        with self.assertRaises(qk.Error) as raised:
            vat.CursorPosition = 99
            vat.Protocol2000
        self.assertEqual(raised.exception.args[0], 3021)


class DailyJob(unittest.TestCase):
    """sync, pending and mark on department 1's line 3 (the other tests read other rows)."""
    WHERE = dict(line=3, dept=1)

    def test_what_was_not_delivered_stays_pending(self):
        qk.mark(lines=3, dept=1)
        self.addCleanup(qk.mark, lines=3, dept=1)  # as the demo came
        before = qk.pending(**self.WHERE)
        self.assertGreater(len(before), 3)
        self.assertEqual({r["dept"] for r in before}, {1})
        # A line that fails after two strings, then one interrupted after three: the records
        # confirmed before each stop are reset, the rest stays pending.
        for failure, expected in ((OSError("the line is down"), None),
                                  (KeyboardInterrupt(), KeyboardInterrupt)):
            taken = []

            def deliver(data, dept, line, scale, family, kind, id):
                if len(taken) == 2:
                    raise failure
                taken.append((kind, id))

            left = len(qk.pending(**self.WHERE))
            if expected:
                with self.assertRaises(expected):
                    qk.sync(deliver=deliver, **self.WHERE)
            else:
                report = qk.sync(deliver=deliver, **self.WHERE)
                self.assertEqual(report["status"], "failed")
                self.assertIn("OSError: the line is down", report["stopped"])
                self.assertIn("stays pending", report["messages"][-1])
            now = len(qk.pending(**self.WHERE))
            self.assertLess(now, left)
            self.assertGreater(now, 0)
        got = []
        report = qk.sync(deliver=lambda data, **where: got.append((data, where)), **self.WHERE)
        self.assertEqual(report["status"], "done")
        self.assertGreaterEqual(len(got), report["records"])  # a record may have many strings
        self.assertEqual({where["kind"] for _, where in got}, set(report["kinds"]))
        self.assertTrue(all(isinstance(data, bytes) and where["line"] == 3 for data, where in got))
        self.assertEqual(qk.pending(**self.WHERE), [])
        # A record marked again is pending again, with only its kind.
        self.assertGreater(qk.mark(lines=[3], dept=1, kinds=["lots"])["rows"], 0)
        self.assertEqual({r["kind"] for r in qk.pending(**self.WHERE)}, {"lots"})

    def test_bad_arguments_name_what_is_wrong(self):
        def deliver(data, **where):
            pass

        for call, error, named in (
                (lambda: qk.sync(line=9, deliver=deliver), ValueError, "line: 1 to 8, got 9"),
                (lambda: qk.pending(line=0), ValueError, "line: 1 to 8, got 0"),
                (lambda: qk.pending(line=1, dept=-2), ValueError, "dept: a department"),
                (lambda: qk.mark(lines=[1, 12]), ValueError, "line: 1 to 8, got 12"),
                (lambda: qk.mark(lines=1, kinds=["date"]), ValueError,
                 'kinds: "date" is none of vat, barcodes, keys, lots, ads, etexts, layouts, images'),
                (lambda: qk.mark(lines=1, id=3), ValueError, "id: an id names"),
                (lambda: qk.pending(line=1, store="A", all_stores=True), ValueError,
                 "store: give a store or all_stores"),
                (lambda: qk.sync(line=1), TypeError, "deliver")):
            with self.assertRaisesRegex(error, named):
                call()


if __name__ == "__main__":
    unittest.main()
