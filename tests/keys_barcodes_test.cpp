// Key bindings, barcode formats, VAT rates and totals over real archive rows.
#include "archive_fixture.h"
#include "builders/totals_query.h"
#include "qk/clsAbbinamentoTasti.h"
#include "qk/clsBarCode.h"
#include "qk/clsIva.h"
#include "qk/clsTotals.h"
#include "qk/error.h"

using namespace qk;
using namespace qk::testing;
using automation::Variant;

namespace {

struct Keys : ArchiveFixture {
  void key(int bnc, int scale, int k, int value, const char* mode, int lines, const char* flags) {
    exec(
        "insert into TASTIERA_PLU (TP_BNC, TP_SCALE, TP_KEY, TP_VALUE, TP_MODE, TP_LINES,"
        " TP_FLAGTRASM) values (?1, ?2, ?3, ?4, ?5, ?6, ?7)",
        {bnc, scale, k, value, mode, lines, flags});
  }
  std::unique_ptr<clsAbbinamentoTasti> make(int bnc, const char* k, int16_t line) {
    auto t = std::make_unique<clsAbbinamentoTasti>();
    t->p_varKey(Variant(bnc));
    t->p_strScale("1");
    t->p_strScaleKey(k);
    t->p_intLine(line);
    return t;
  }
};

}  // namespace

TEST_F(Keys, NumericBlockRecords) {
  key(1, 1, 16, 1234, "P", 255, "0");
  key(1, 1, 17, 500, "P", 2, "0");     // bound only to line 2: its slot takes the default
  key(1, 1, 18, 123456, "X", 1, "0");  // another kind, more than four digits
  key(1, 2, 19, 999, "P", 255, "0");   // another scale
  struct Row {
    const char* key;
    int16_t line;
    const char* record;
  } rows[] = {
      {"20", 1,
       "35999901012340001713456000190002000021000220002300024000250002600027000280002900030"},
      {"17", 2,
       "35999901012340050000018000190002000021000220002300024000250002600027000280002900030"},
      {"1", 1,
       "35999900000010000200003000040000500006000070000800009000100001100012000130001400015"},
  };
  for (const auto& r : rows) EXPECT_EQ(make(1, r.key, r.line)->p_strProtocol(), r.record);
  EXPECT_TRUE(spy->calls.empty());
}

TEST_F(Keys, TaggedAndTwoThousandForms) {
  key(3, 1, 5, 205, "P", 1, "0");
  key(3, 1, 6, 42, "R", 255, "0");
  key(3, 1, 8, 99, "P", 2, "0");
  struct Row {
    const char* key;
    const char* o50;
    const char* o20;
  } rows[] = {
      {"5", "<MSG OPE=NEW TYP=TAS  ID=5 TIP=0 REP=3 VAL=205 />",
       "A000\xC4"
       "0051000205000205"},
      {"6", "<MSG OPE=NEW TYP=TAS  ID=6 TIP=1 REP=3 VAL=42 />",
       "A000\xC4"
       "0062000042000042"},
      {"8", "<MSG OPE=NEW TYP=TAS  ID=8 TIP=0 REP=3 VAL=8 />",
       "A000\xC4"
       "0081000008000008"},
      {"7", "<MSG OPE=NEW TYP=TAS  ID=7 TIP=0 REP=3 VAL=7 />",
       "A000\xC4"
       "0071000007000007"},
  };
  for (const auto& r : rows) {
    auto t = make(3, r.key, 1);
    EXPECT_EQ(t->p_strProtocolO50(), r.o50);
    EXPECT_EQ(t->p_strProtocolO20(), r.o20);
    EXPECT_EQ(t->RecordCount(), 0);
  }
}

TEST_F(Keys, GlobalWalk) {
  key(3, 1, 5, 205, "P", 1, "0");
  key(3, 1, 7, 77, "P", 2, "0");  // key 7 has no row for line 1: the default message
  auto t = make(3, "", 1);
  t->InitializeGlobal();
  ASSERT_EQ(t->RecordCount(), 2);
  t->GlobalMode("True");
  std::vector<std::string> got;
  for (int16_t pos = 1; pos <= t->RecordCount(); ++pos) {
    t->CursorPosition(pos);
    got.push_back(t->p_strProtocolO50());
  }
  EXPECT_EQ(got, (std::vector<std::string>{"<MSG OPE=NEW TYP=TAS  ID=5 TIP=0 REP=3 VAL=205 />",
                                           "<MSG OPE=NEW TYP=TAS  ID=7 TIP=0 REP=3 VAL=7 />"}));
  EXPECT_EQ(t->p_strScaleKey(), "5");  // written by the walk when a row was found
  t->CursorPosition(3);
  EXPECT_EQ(t->p_strProtocolO50(), "");
  EXPECT_EQ(reported(), std::vector<long>{3021});
}

TEST_F(Keys, FlagsBeforeAndAfterResets) {
  key(1, 1, 1, 1, "P", 255, "10000000");
  key(1, 1, 2, 2, "P", 255, "01110000");
  key(1, 1, 2, 2, "P", 255, "00000001");
  auto t = make(1, "2", 1);
  EXPECT_EQ(t->p_strFlagTrasm(), "11110001");
  EXPECT_EQ(t->p_strFlagTrasm50(), "01110001");
  t->p_varConfiguredLines(configured(1, {1, 1, 0, 0, 0, 0, 0, 0}));
  int32_t line = 1;
  t->p_ResetFlagTrasm(line);  // unconfigured lines masked, the served line cleared by the archive
  EXPECT_EQ(scalar("select group_concat(distinct TP_FLAGTRASM) from TASTIERA_PLU"), "01000000");

  exec("update TASTIERA_PLU set TP_FLAGTRASM = '11100000' where TP_KEY = 2");
  line = 3;
  t->p_ResetFlagTrasm50(line);  // only the served line, configured lines not consulted
  EXPECT_EQ(scalar("select group_concat(TP_FLAGTRASM) from TASTIERA_PLU where TP_KEY = 2"),
            "11000000,11000000");
  line = 9;
  t->p_ResetFlagTrasm20(line);
  EXPECT_EQ(reported(), std::vector<long>{5});
  EXPECT_EQ(scalar("select group_concat(TP_FLAGTRASM) from TASTIERA_PLU where TP_KEY = 2"),
            "11000000,11000000");
}

TEST_F(Keys, BadInputIsReportedNotSent) {
  auto t = make(1, "20", 1);
  t->p_varKey(Variant("x"));
  EXPECT_EQ(t->p_strProtocol(), "");
  EXPECT_EQ(t->p_strProtocolO50(), "");
  auto u = make(1, "20", 1);
  u->p_varConfiguredLines(configured(0, {1}));  // does not cover department 1
  int32_t line = 1;
  key(1, 1, 20, 1, "P", 255, "1");
  u->p_ResetFlagTrasm(line);
  EXPECT_EQ(reported(), (std::vector<long>{13, 13, 9}));
  EXPECT_EQ(scalar("select TP_FLAGTRASM from TASTIERA_PLU"), "1");
}

namespace {
struct Barcodes : ArchiveFixture {
  std::unique_ptr<clsBarCode> make(int key) {
    auto b = std::make_unique<clsBarCode>();
    b->p_varKey(Variant(key));
    return b;
  }
};
}  // namespace

TEST_F(Barcodes, CursorAndRecords) {
  exec(
      "insert into BARCODE (BC_BNC, BC_FORM, BC_VALUE, BC_FLAGTRASM) values (1, 3, 'A#6@B#13', "
      "'1000'), (1, 4, 'X#123', ''), (1, 5, 'A#6@B', '0'), (1, 6, '', '0')");
  auto b = make(1);
  EXPECT_FALSE(b->p_booEOF());
  b->p_MoveFirst();
  std::vector<std::string> records, forms, flags;
  while (!b->p_booEOF()) {
    forms.push_back(b->p_strForm());
    records.push_back(b->p_strProtocol());
    flags.push_back(b->p_strFlagTrasm());
    b->p_MoveNext();
  }
  EXPECT_EQ(forms, (std::vector<std::string>{"3", "4", "5", "6"}));
  EXPECT_EQ(records, (std::vector<std::string>{"189999003A06B13", "189999004X23", "", ""}));
  EXPECT_EQ(flags, (std::vector<std::string>{"1000", "0000", "0", "0"}));
  EXPECT_EQ(reported(), (std::vector<long>{9, 9}));  // the item without "#", the empty value
  EXPECT_EQ(b->p_strForm(), "6");                    // unchanged at the end
}

TEST_F(Barcodes, KeyWithoutFormsAndReset) {
  auto none = make(9);
  EXPECT_TRUE(none->p_booEOF());
  none->p_MoveFirst();
  EXPECT_EQ(none->p_strForm(), "");
  EXPECT_EQ(none->p_strFlagTrasm(), "0000");

  exec(
      "insert into BARCODE (BC_BNC, BC_FORM, BC_VALUE, BC_FLAGTRASM) values (1, 1, 'A#6', '1111')");
  auto b = make(1);
  b->p_MoveFirst();
  b->p_varConfiguredLines(configured(1, {1, 1, 1, 0}));
  int32_t line = 2;
  b->p_ResetFlagTrasm(line);
  EXPECT_EQ(scalar("select BC_FLAGTRASM from BARCODE"), "1010");
}

TEST_F(ArchiveFixture, VatRatesAndTotals) {
  exec("insert into ALIQUOTE (Id, percentage) values (4, 4), (7, 22.5), (12, 22)");
  clsIva iva;
  iva.Initialize();
  ASSERT_EQ(iva.RecordCount(), 3);
  std::vector<std::string> got;
  for (int16_t p = 1; p <= 3; ++p) {
    iva.CursorPosition(p);
    got.push_back(iva.Protocol2000());
  }
  EXPECT_EQ(got, (std::vector<std::string>{"h004ALIQUOTA 4      10400", "h007ALIQUOTA 7      12250",
                                           "h012ALIQUOTA 12     12200"}));
  EXPECT_EQ(got[0].size(), 25u);

  clsTotals t;
  struct Row {
    int16_t counter;
    const char* mode;
    const char* query;
  } rows[] = {
      {255, "V", "select * from ARTICOLI  where  instr(FLAGTRASM, '1') > 0"},
      {3, "V", "select * from ARTICOLI where BNC = 3 and  instr(FLAGTRASM, '1') > 0"},
      {3, "C", "select * from ARTICOLI where BNC = 3"},
      {255, "G", "select * from ARTICOLI "},
  };
  for (const auto& r : rows) {
    EXPECT_EQ(totals_query(r.mode, r.counter), r.query);
  }
  exec("insert into ARTICOLI values (3, 101, 'a', '00100000'), (3, 102, 'b', '00000000')");
  std::string mode = "V";
  int16_t counter = 3;
  t.Mode(mode);
  t.Counter(counter);
  t.Initialize();
  ASSERT_EQ(t.RecordCount(), 1);
  int16_t pos = 1;
  t.CursorPosition(pos);
  EXPECT_EQ(t.Protocol2000(), "c0000101");
  pos = 2;
  EXPECT_THROW(t.CursorPosition(pos), automation::Error);  // no trap: the caller sees it
}

// The configured lines are taken as they are when written: changing the caller's array later
// does not change what the next reset masks.
TEST_F(Keys, ConfiguredLinesAreCopiedWhenWritten) {
  exec(
      "insert into BARCODE (BC_BNC, BC_FORM, BC_VALUE, BC_FLAGTRASM) values (1, 1, 'A#6', '1111')");
  Variant lines = configured(1, {1, 1, 1, 1});
  clsBarCode bc;
  bc.p_varKey(Variant(1));
  bc.p_strForm("1");
  bc.p_varConfiguredLines(lines);
  for (long i = 1; i < 4; ++i) lines.to_array()->at(1, i) = 0;  // the caller's own array changes
  int32_t line = 1;
  bc.p_ResetFlagTrasm(line);
  EXPECT_EQ(scalar("select BC_FLAGTRASM from BARCODE"), "0111");
  EXPECT_EQ(bc.p_varConfiguredLines().to_array()->at(1, 3).to_int32(), 1);
}
