// Traceability lots, advertising messages, electronic texts and the parameters file, on real
// archive rows and real files.
#include "archive_fixture.h"
#include "config/clsConfigurationPrs.h"
#include "qk/clsAdvertisingMessage.h"
#include "qk/clsEText.h"
#include "qk/clsTraceability.h"
#include "qk/host.h"

using namespace qk;
using namespace qk::testing;
using automation::Variant;

namespace {

struct Lots : ArchiveFixture {
  FakeHost host;
  void SetUp() override {
    ArchiveFixture::SetUp();
    parameters("<PARAMETERS><VELTA SEND_HEADSET=\"Y\"/><BARCODE/></PARAMETERS>");
  }
  void parameters(const std::string& xml) { dir.write("Parameters.xml", xml); }
  void lot(int id, int row, const Variant& code, const std::vector<std::string>& lines,
           int optional = 0, const Variant& charged = Variant("0"),
           const char* flags = "00000000") {
    std::string cols =
        "TRC_BNC, TRC_ID, TRC_ROW, TRC_ID_LOT, TRC_MODE, TRC_OPTIONAL, WCHARGED, TRC_FLAGTRASM";
    std::string vals = "1, ?1, ?2, ?3, 2, ?4, ?5, ?6";
    std::vector<Variant> params{id, row, code, optional, charged, flags};
    for (std::size_t i = 0; i < lines.size(); ++i) {
      cols += ", TRC_DESC" + std::to_string(i + 1);
      vals += ", ?" + std::to_string(params.size() + 1);
      params.emplace_back(lines[i]);
    }
    exec("insert into TRACEABILITY (" + cols + ") values (" + vals + ")", params);
  }
  std::unique_ptr<clsTraceability> make(const std::string& id) {
    auto t = std::make_unique<clsTraceability>();
    t->p_lngBnc(1);
    t->p_strTraceabilityId(id);
    return t;
  }
};

std::string repeat(char c, std::size_t n) {
  return std::string(n, c);
}

}  // namespace

TEST_F(Lots, VeltaBlock) {
  lot(12, 1, Variant("L12"), {"  Lotto  ", "<tbd>"});
  lot(13, 1, Variant("L13"), {"<TBD>"});
  std::string tags = "<T2 = \"Lotto\">\r\n<T3 = \"<tbd>\">\r\n";
  for (int i = 4; i <= 21; ++i) tags += "<T" + std::to_string(i) + " = \"\">\r\n";
  EXPECT_EQ(make("12")->p_strProtocol(),
            "<WRITE_ARC = TRACC,\"L12\" >\r\n<T1 = \"L12\">" + tags + "<END_WRITE_ARC>");
  EXPECT_EQ(make("13")->p_strProtocol(), "<DELETE_ARC=TRACC><DEL=\"L13\"><END_DELETE_ARC>");
  // Without "Y" the header carries the lot number; a file without VELTA reports and does the same.
  parameters("<PARAMETERS><VELTA SEND_HEADSET=\"y\"/></PARAMETERS>");
  EXPECT_EQ(make("12")->p_strProtocol().substr(0, 26), "<WRITE_ARC = TRACC,\"12\" >\r");
  parameters("<PARAMETERS/>");
  EXPECT_EQ(make("12")->p_strProtocol().substr(0, 26), "<WRITE_ARC = TRACC,\"12\" >\r");
  ASSERT_EQ(spy->calls.size(), 1u);
  EXPECT_EQ(spy->calls[0].procedure, "RetrieveVeltaGeneralParameter");
  EXPECT_EQ(spy->calls[0].module, "clsConfiguration");
  EXPECT_EQ(spy->calls[0].project, "prjConfiguration");
  // A missing lot: an information entry in the event log, no block.
  EXPECT_EQ(make("99")->p_strProtocol(), "");
  ASSERT_EQ(host.events.size(), 1u);
  EXPECT_EQ(host.events[0],
            std::make_pair(4, std::string("Il lotto: 99 \xE8 risultato inesistente")));
}

TEST_F(Lots, TopBodiesAround309) {
  // Code (15) + four lines of 69 + "#" = 295; the fifth line makes 306 to 309 (and one more).
  std::string code = "ABCDEFGHIJKLMNOPQ";  // cut to 15
  std::vector<std::string> base(4, repeat('x', 69));
  for (std::size_t len : {10u, 11u, 12u, 13u}) {
    SCOPED_TRACE(len);
    exec("delete from TRACEABILITY");
    auto lines = base;
    lines.push_back(repeat('y', len - 1) + "z");
    lot(20, 1, Variant(code), lines);
    std::string body = code.substr(0, 15);
    for (const auto& l : lines) body += l + "#";
    ASSERT_EQ(body.size(), 296 + len);
    auto r = make("20")->p_3000TOP_strProtocol();
    ASSERT_EQ(r.size(), 6u);
    std::string p = "2099990020";
    for (int k = 0; k < 5; ++k) EXPECT_EQ(r[k], p + std::to_string(k) + body.substr(51 * k, 51));
    std::string piece5 = body.substr(255, 51);
    if (body.size() > 306) piece5 += body.substr(body.size() - (309 - body.size()));
    EXPECT_EQ(r[5], p + "5" + piece5);
  }
  // 307: the 306th character is repeated; 309: the last three are lost.
  exec("delete from TRACEABILITY");
  auto lines = base;
  lines.push_back(repeat('y', 10) + "z");
  lot(20, 1, Variant(code), lines);
  EXPECT_EQ(make("20")->p_3000TOP_strProtocol()[5].substr(11),
            repeat('x', 39) + "#" + repeat('y', 10) + "z" + "z#");
}

TEST_F(Lots, TopOptionalMarksAndBlankCode) {
  lot(30, 1, Variant("C30"), {"a", "", "c"}, 0b1010);  // bits 1 and 3: lines 1 and 3 optional
  EXPECT_EQ(make("30")->p_3000TOP_strProtocol()[0], "20999900300C30            %a#%c#");
  lot(7, 1, Variant("7,0"), {});
  lot(8, 1, Variant("A8"), {});
  lot(1234, 1, Variant("L"), {"x"});
  EXPECT_EQ(make("7")->p_3000TOP_strProtocol()[0], "20999900070" + repeat(' ', 15));
  EXPECT_EQ(make("8")->p_3000TOP_strProtocol()[0], "20999900080A8" + repeat(' ', 13));
  EXPECT_EQ(make("1234")->p_3000TOP_strProtocol()[1],
            "209999012341");  // four digits kept
  // A body whose 309th character is "%" loses it: 308 characters remain, and piece 5 gets the
  // last one again.
  exec("delete from TRACEABILITY");
  lot(31, 1, Variant("C"),
      {repeat('x', 69), repeat('x', 69), repeat('x', 69), repeat('x', 69), repeat('x', 12), "tail"},
      1 << 6);
  std::string body = "C" + repeat(' ', 14);
  for (int i = 0; i < 4; ++i) body += repeat('x', 69) + "#";
  body += repeat('x', 12) + "#";
  ASSERT_EQ(body.size(), 308u);
  EXPECT_EQ(make("31")->p_3000TOP_strProtocol()[5].substr(11), body.substr(255, 51) + "#");
}

TEST_F(Lots, TwoThousandAndThreeThousandRecords) {
  lot(5, 1, Variant(" L5 "), {"first", "second"});
  lot(5, 2, Variant("ignored"), {"  later  "});
  auto r = make("5")->p_2000_strProtocol();
  ASSERT_EQ(r.size(), 13u);
  EXPECT_EQ(r[0], "=0G0500L5" + repeat(' ', 28));
  EXPECT_EQ(r[1], "=0G0501later" + repeat(' ', 25));  // the last row wins
  EXPECT_EQ(r[2], "=0G0502" + repeat(' ', 30));
  auto t = make("5")->p_3000_strProtocol();
  ASSERT_EQ(t.size(), 6u);
  EXPECT_EQ(t[0], "20999900050 L5 " + repeat(' ', 11));
  EXPECT_EQ(t[1], "20999900051first" + repeat(' ', 15));
  EXPECT_EQ(t[2], "20999900052second" + repeat(' ', 28));  // the wider second line
  EXPECT_EQ(t[3].size(), 11u + 20u);
}

TEST_F(Lots, FiveThousandMessages) {
  lot(12, 1, Variant("L12"), {"a \xE8", "b"}, 0, Variant("12.7"));
  lot(7, 1, Variant("7"), {}, 0, Variant::null());
  std::string tail;
  for (int i = 4; i <= 20; ++i)
    tail += " T" + std::string(i < 10 ? "0" : "") + std::to_string(i) + "=\"\"";
  EXPECT_EQ(make("12")->p_5000_strProtocol(),
            "<MSG OPE=NEW TYP=LOT REP=1 ID=12 MOD=2 T01=\"L12\" T02=\"a \xE8\" T03=\"b\"" + tail +
                " DTC=0 CAR=13 />");
  EXPECT_EQ(make("7")->p_5000_strProtocol(), "<MSG OPE=DEL TYP=LOT ID=7 CAR=0 />");
  EXPECT_EQ(make("abc")->p_5000_strProtocol(), "");
  EXPECT_EQ(make("99")->p_5000_strProtocol(), "");
  EXPECT_EQ(reported(), (std::vector<long>{13, 3021}));
}

namespace {

// A database that loses its server a given number of times before answering.
class FlakyDb : public companions::clsDbAccess {
 public:
  static inline int failures = 0;
  automation::RecordsetPtr p_TRACEABILITY_objRetrieveRows(
      const Variant& bnc, const std::optional<Variant>& lot) override {
    if (failures > 0) {
      --failures;
      automation::raise(automation::kRemoteServerUnavailable);
    }
    return clsDbAccess::p_TRACEABILITY_objRetrieveRows(bnc, lot);
  }
};

}  // namespace

TEST_F(Lots, LotListRecoversFromALostServer) {
  lot(3, 1, Variant("a"), {}, 0, Variant("0"), "00000000");
  lot(4, 1, Variant("b"), {}, 0, Variant("0"), "00100000");
  automation::register_component(kDbAccessId, [] { return std::make_shared<FlakyDb>(); });
  auto t = make("0");
  EXPECT_EQ(t->p_objNumberOfRecord(), nullptr);
  FlakyDb::failures = 2;
  bool variated = false;
  t->p_RetrieveTraceabilityId(variated);
  ASSERT_EQ(t->p_objNumberOfRecord()->Count(), 2);
  EXPECT_EQ(t->p_objNumberOfRecord()->Item("1").to_int32(), 4);
  EXPECT_TRUE(spy->calls.empty());
  FlakyDb::failures = 10;  // three more recoveries are left, then the error is reported
  t->p_RetrieveTraceabilityId(variated);
  EXPECT_EQ(reported(), std::vector<long>{462});
  EXPECT_EQ(t->p_objNumberOfRecord()->Count(), 0);
  variated = true;
  FlakyDb::failures = 0;
  t->p_RetrieveTraceabilityId(variated);
  EXPECT_EQ(t->p_objNumberOfRecord()->Count(), 1);
  companions::register_db_access();
}

TEST_F(Lots, FlagsAndReset) {
  lot(9, 1, Variant("x"), {}, 0, Variant("0"), "10010000");
  lot(9, 2, Variant("x"), {}, 0, Variant("0"), "01000001");
  auto t = make("9");
  EXPECT_EQ(t->p_strFlagTrasm(), "11010001");
  t->p_varConfiguredLines(configured(1, {1, 1, 1, 1, 0, 0, 0, 0}));
  int32_t line = 2;
  t->p_ResetFlagTrasm(line);
  EXPECT_EQ(scalar("select group_concat(TRC_FLAGTRASM) from TRACEABILITY"), "10010000,10010000");
}

namespace {
struct Ads : ArchiveFixture {
  std::unique_ptr<clsAdvertisingMessage> make(int32_t id) {
    auto m = std::make_unique<clsAdvertisingMessage>();
    int32_t counter = 1;
    m->Counter(counter);
    m->Id(id);
    return m;
  }
};
}  // namespace

TEST_F(Ads, MessagesAndTheCharacterGap) {
  std::string text;
  for (int i = 0; i < 300; ++i) text += static_cast<char>('A' + i % 26);
  exec(
      "insert into ADVERTISING (ADV_BNC, Id, Mode, IM_FILE_NAME, PERSISTENCE, REPEAT, Rate, "
      "MSG_LNK_ID, FLAGTRASM) values (1, 5, 2, 'F.BMP', 4, 3, 2, 50, '11000000')");
  exec(
      "insert into ADVERTISING (ADV_BNC, Id, Mode, IM_FILE_NAME, PERSISTENCE, REPEAT, Rate, "
      "MSG_LNK_ID, FLAGTRASM) values (1, 6, 1, NULL, 0, 0, 0, 51, '')");
  exec("insert into MESSAGES values (1, 50, 1, ?1), (1, 50, 2, ?2)",
       {Variant(text), Variant("Due \x80")});
  exec("insert into MESSAGES values (1, 51, 1, 'a'), (1, 51, 2, 'b'), (1, 51, 3, 'c')");
  EXPECT_EQ(make(5)->Protocol().to_string(),
            "<MSG OPE=NEW TYP=MSG ID=\"5\" SOR=\"2\" TIP=\"2\" NOM=\"F.BMP\" SEC=\"4\" RIP=\"3\" "
            "VEL=\"2\" MP1=\"" +
                text.substr(0, 70) + "\" M1A=\"" + text.substr(70, 70) + "\" M1B=\"" +
                text.substr(141, 70) + "\" M1C=\"" + text.substr(211, 40) +
                "\" MP2=\"Due \x80\" M2A=\"\" M2B=\"\" M2C=\"\"/>");
  EXPECT_EQ(make(17)->Protocol().to_string(),
            "<MSG OPE=NEW TYP=MSG ID=\"17\" SOR=\"2\" TIP=0 NOM=\"\" SEC=\"\" RIP=\"\" VEL=\"\" "
            "MP1=\"\" M1A=\"\" M1B=\"\" M1C=\"\" MP2=\"\" M2A=\"\" M2B=\"\" M2C=\"\"/>");
  EXPECT_EQ(make(6)->Protocol().to_string(), "");  // a third text overflows the store
  EXPECT_EQ(reported(), std::vector<long>{9});
  EXPECT_EQ(make(6)->p_strFlagTrasm(), "00000000");
  EXPECT_EQ(make(5)->p_strFlagTrasm(), "11000000");
}

TEST_F(Ads, GlobalWalkAndReset) {
  exec(
      "insert into ADVERTISING (ADV_BNC, Id, Mode, IM_FILE_NAME, PERSISTENCE, REPEAT, Rate, "
      "MSG_LNK_ID, FLAGTRASM) values (1, 1, 0, '', 0, 0, 0, NULL, '11100000'),"
      " (1, 2, 0, '', 0, 0, 0, NULL, '00000000')");
  auto m = make(0);
  m->InitializeGlobal();
  ASSERT_EQ(m->RecordCount(), 2);
  m->GlobalMode("1");
  m->CursorPosition(2);
  EXPECT_EQ(m->Protocol().to_string().substr(0, 27), "<MSG OPE=NEW TYP=MSG ID=\"2\"");
  EXPECT_EQ(m->Id(), 2);
  m->CursorPosition(1);
  m->Protocol();
  m->configuredLines(configured(1, {1, 1, 0, 0, 0, 0, 0, 0}));
  int32_t line = 1;
  m->p_ResetFlagTrasm(line);  // unconfigured line 3 masked, served line 1 cleared
  EXPECT_EQ(scalar("select FLAGTRASM from ADVERTISING where Id = 1"), "01000000");
  // InitializeGlobal reports under the key-binding class's name.
  globals().objDbAccess.reset();
  m->InitializeGlobal();
  EXPECT_EQ(spy->calls.at(0).module, "clsAbbinamentoTasti");
}

TEST_F(ArchiveFixture, ElectronicTexts) {
  exec(
      "insert into ETEXT (ET_BNC, Id, Row, Descr) values (1, 12, 7, 'sette'), (1, 12, 123, "
      "'cento'), (1, 3, 1, 'x'),"
      " (2, 40, 1, 'other counter')");
  clsEText before;
  EXPECT_EQ(before.Protocol().to_string(), "");  // before InitializeGlobal: reported
  EXPECT_EQ(reported(), std::vector<long>{91});
  clsAdvertisingMessage opener;  // a class that creates the database object
  clsEText e;
  int32_t counter = 1;
  e.Counter(counter);
  e.InitializeGlobal();
  ASSERT_EQ(e.RecordCount(), 2);
  e.CursorPosition(1);
  EXPECT_EQ(e.Protocol().to_string(), "<MSG TYP=TXT2 OPE=NEW ID=3 REP=1 T01=\"x\" />");
  e.CursorPosition(2);
  EXPECT_EQ(e.Protocol().to_string(),
            "<MSG TYP=TXT2 OPE=NEW ID=12 REP=1 T07=\"sette\" T123=\"cento\" />");
}

namespace {
struct Params : ::testing::Test {
  TempDir dir;
  ScopedEnv home{"QK_HOME", dir.path()};
  ScopedEnv cfg{"XDG_CONFIG_HOME", dir.file("cfg")};
  std::shared_ptr<LoggerSpy> spy = reset_globals();
  std::vector<long> reported() const {
    std::vector<long> n;
    for (const auto& c : spy->calls) n.push_back(c.number);
    return n;
  }
};
}  // namespace

TEST_F(Params, ScannerAndApplicationIdentifiers) {
  dir.write("Parameters.xml", "<PARAMETERS><BARCODE><EAN128/></BARCODE></PARAMETERS>");
  clsConfigurationPrs c;
  EXPECT_EQ(c.RetrieveBarcodeCommSettings(), automation::StringArray({"-1", "-1"}));
  c.SaveBarcodeCommSettings(2, "9600,n,8,1");
  c.SaveBarcodeCommSettings(3, "19200,n,8,1");
  EXPECT_EQ(c.RetrieveBarcodeCommSettings(), automation::StringArray({"3", "19200,n,8,1"}));
  std::string xml = dir.read("Parameters.xml");
  EXPECT_EQ(xml.find("<SCANNER"), xml.rfind("<SCANNER"));  // created once
  EXPECT_NE(xml.find("DESCRIPTION=\"Impostazioni dello scanner per la lettura del barcode\" "
                     "COMMPORT=\"3\""),
            std::string::npos);

  c.SaveApplicationIdentifier("10", "Lotto", "an..20", "", true);
  c.SaveApplicationIdentifier("10", "", "n6", "01", false);  // empty contents keep the old one
  EXPECT_EQ(c.RetrieveApplicationIdentifier("10"),
            automation::StringArray({"10", "Lotto", "n6", "01", "False"}));
  xml = dir.read("Parameters.xml");
  EXPECT_NE(xml.find("<EAN128 />"), std::string::npos);  // the old EAN128 stays; a new one holds
  EXPECT_NE(xml.find("Impostazioni personalizzate per il codice EAN128"), std::string::npos);
  c.SaveApplicationIdentifier("17", "Scadenza", "n6", "", false);
  c.DeleteApplicationIdentifier("10");
  EXPECT_EQ(c.RetrieveApplicationIdentifier("10"), automation::StringArray({"", "", "", "", ""}));
  EXPECT_EQ(c.RetrieveApplicationIdentifier("17")[1], "Scadenza");
  std::string before = dir.read("Parameters.xml");
  c.DeleteApplicationIdentifier("99");  // nothing to remove: not written
  EXPECT_EQ(dir.read("Parameters.xml"), before);
  EXPECT_TRUE(spy->calls.empty());
}

TEST_F(Params, ReadsAndFailureRules) {
  dir.write("Parameters.xml",
            "<PARAMETERS><TIMEOUT A=\"30\" B=\"300\" C=\"\" D=\"x\"/>"
            "<ALLDEVICES TRIM_VALUES=\"y\"/><ARCHIVES><X K=\"PLU\" V=\"ARTICOLI\"/></ARCHIVES>"
            "<ASCII_CROSS><VALUE LANGCODE=\"ITA\" a=\"b\"/><VALUE LANGCODE=\"ENG\" c=\"d\"/>"
            "</ASCII_CROSS></PARAMETERS>");
  clsConfigurationPrs c;
  struct Row {
    const char* name;
    int value;
    long error;
  } rows[] = {{"A", 30, 0}, {"Z", 150, 0}, {"C", 150, 0}, {"B", 0, 6}, {"D", 0, 13}};
  for (const auto& r : rows) {
    spy->calls.clear();
    EXPECT_EQ(c.RetrieveTimeout(r.name), r.value) << r.name;
    EXPECT_EQ(reported(), r.error ? std::vector<long>{r.error} : std::vector<long>{});
  }
  EXPECT_EQ(spy->calls[0].module, "clsConfigurationPrs");
  EXPECT_EQ(spy->calls[0].project, "QKConfig");
  EXPECT_TRUE(c.TrimValues());     // lower-case y
  EXPECT_FALSE(c.ShowOrva2000());  // a missing attribute
  EXPECT_EQ(c.RetrieveArchiveInUse("PLU"), "ARTICOLI");
  EXPECT_EQ(c.RetrieveArchiveInUse("X"), "");
  EXPECT_EQ(c.RetrieveConvertionTable(), automation::StringArray({"a=b"}));  // ITA fallback
  spy->calls.clear();
  std::string name = "SEND_HEADSET";
  EXPECT_EQ(c.RetrieveOrvaTopGeneralParameter(name), "");
  EXPECT_EQ(spy->calls.at(0).procedure, "RetrieveVeltaGeneralParameter");
  EXPECT_EQ(c.RetrieveCommonGeneralParameter(name), "");

  dir.write("Parameters.xml", "<PARAMETERS><broken");
  clsConfigurationPrs d;
  EXPECT_TRUE(d.TrimValues());  // no element: true
  spy->calls.clear();
  d.SaveBarcodeCommSettings(1, "x");  // no BARCODE element: reported, file unchanged
  EXPECT_EQ(reported(), std::vector<long>{91});
  EXPECT_EQ(dir.read("Parameters.xml"), "<PARAMETERS><broken");
}
