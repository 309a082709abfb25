// Layouts built from real archive rows and a small Configurazione.xml.
#include "archive_fixture.h"
#include "config/xml_file.h"
#include "layout/clsConvertion.h"
#include "layout/layout_values.h"
#include "qk/clsLayout.h"

using namespace qk;
using namespace qk::testing;
using automation::StringArray;
using automation::Variant;

namespace {

const char* kConfig = R"(<PROPERTIES>
  <TEXT>
    <PROPERTY><ID>4</ID><POSSIBLE_VALUES><VALUE><ID>10</ID></VALUE><VALUE><ID>20</ID></VALUE><VALUE><ID>30</ID></VALUE></POSSIBLE_VALUES></PROPERTY>
    <PROPERTY><ID>5</ID><POSSIBLE_VALUES><VALUE><ID>1001</ID></VALUE><VALUE><ID>1003</ID></VALUE><VALUE><ID>2003</ID></VALUE></POSSIBLE_VALUES></PROPERTY>
    <PROPERTY><ID>13</ID><POSSIBLE_VALUES><VALUE><ID>1001</ID></VALUE><VALUE><ID>2000</ID></VALUE><VALUE><ID>3000</ID></VALUE></POSSIBLE_VALUES></PROPERTY>
  </TEXT>
  <MAPPING>
    <MAP O3="1" O5="11"/><MAP O3="1" O5="99"/><MAP O3="5" O5="-1"/><MAP O3="6"/>
  </MAPPING>
</PROPERTIES>)";

struct Layouts : ArchiveFixture {
  FakeHost host;
  int next_object = 1;
  void SetUp() override {
    ArchiveFixture::SetUp();
    dir.write("Configurazione.xml", kConfig);
  }
  void layout(int id) {
    exec("insert into TICKET (TK_BNC, TK_ID, TK_DESCRIPTION) values (1, ?1, 'L')", {id});
  }
  void object(int layout_id, int type, std::vector<std::pair<int, std::string>> props) {
    int obj = next_object++;
    exec("insert into TICKET_DETAIL values (1, ?1, ?2, ?3)", {layout_id, obj, type});
    for (auto& [id, v] : props)
      exec("insert into TICKET_PROPERTY values (1, ?1, ?2, ?3, ?4)", {layout_id, obj, id, v});
  }
  void ticket(int layout_id, const char* width = "80", const char* height = "60",
              const char* x = "0", const char* y = "0") {
    object(layout_id, 4, {{1, height}, {2, "3"}, {5, width}, {6, x}, {7, y}});
  }
  std::unique_ptr<clsLayout> build(int id) {
    auto l = std::make_unique<clsLayout>();
    l->p_lngBnc(1);
    l->p_lngTicketId(id);
    EXPECT_TRUE(l->p_booRetrieveData());
    return l;
  }
};

}  // namespace

TEST_F(Layouts, TicketOnly) {
  layout(5);
  ticket(5);
  auto l = build(5);
  // The header is "96" "99" "99" "0" followed by the layout number less one.
  EXPECT_EQ(l->p_strProtocol().items(), (std::vector<std::string>{"96999904"
                                                                  "0064004803",
                                                                  ""}));
  EXPECT_EQ(l->p_lngMaxItem(), 1);
  EXPECT_EQ(l->p_strProtocol(1).items(),
            (std::vector<std::string>{"<MSG OPE=DEL TYP=LAY ID=5000/>",
                                      "<MSG OPE=NEW TYP=LAY ID=5000 DIX=640 DIY=480 />", ""}));
  EXPECT_EQ(l->p_lngMaxItemO50(), 2);
  EXPECT_EQ(l->p_strProtocol(0).items(), l->p_strProtocol(3).items());
}

TEST_F(Layouts, TextRecordsAndMessages) {
  layout(2);
  ticket(2, "80", "60", "2", "0");  // origin X 16 dots
  object(2, 3, props("0=7 1=0 2=20 3=1A 4=1 5=1003 7=12,5 8=1 9=0 10=20 11=1250 13=2001 14=2000"));
  object(2, 3, {{0, "51"}, {3, "C3"}, {4, "37"}, {5, "25"}, {10, "5"}});  // carries the rest
  object(2, 3, {{0, "50"}, {3, "2"}, {4, "45"}, {5, "1024"}, {10, "5"}});
  auto l = build(2);
  auto a = l->p_strProtocol().items();
  ASSERT_EQ(a.size(), 3u);  // the text with field 51 is left out of the 3000 series
  EXPECT_EQ(a[1], "9699990107026020116100000302012001");
  EXPECT_EQ(a[2], "9699990150002049116100002402012001");
  auto m = l->p_strProtocol(1).items();
  ASSERT_EQ(m.size(), 5u);  // every text is sent to the 5000 series
  EXPECT_EQ(m[2],
            "<MSG OPE=NEW TYP=LAY ID=2007 TCA=4 TDA=11 NRG=20 COX=116 COY=10000 ESX=1 "
            "ESY=2 DIR=0 ALL=0 NRC=20 FL1=0 FL2=1 FL3=1 FL4=1 />");
  // Data type 37 is sent as stored; font 25 unchanged; flag byte 195 gives all zeros.
  EXPECT_EQ(m[3],
            "<MSG OPE=NEW TYP=LAY ID=2051 TCA=25 TDA=37 NRG=5 COX=116 COY=10000 ESX=1 "
            "ESY=2 DIR=0 ALL=0 NRC=20 FL1=0 FL2=0 FL3=0 FL4=0 />");
  // Data type 45: NRG = property 10 + 90000; flag byte 2: FL1 0, FL2 1.
  EXPECT_EQ(m[4],
            "<MSG OPE=NEW TYP=LAY ID=2050 TCA=25 TDA=45 NRG=90005 COX=116 COY=10000 ESX=1 "
            "ESY=2 DIR=0 ALL=0 NRC=20 FL1=0 FL2=1 FL3=1 FL4=1 />");
  EXPECT_TRUE(host.boxes.empty());
  EXPECT_TRUE(spy->calls.empty());
}

TEST_F(Layouts, DataTypeMapping) {
  layout(3);
  ticket(3);
  object(3, 3,
         props("0=1 3=0 4=1 5=3 7=0 10=1 11=0 13=0 14=0"));  // two MAP entries: the first wins
  object(3, 3, {{0, "2"}, {4, "8"}});                        // no MAP entry: sent as it is
  object(3, 3, {{0, "3"}, {4, "5"}, {10, "4"}});             // mapped to a negative value: unknown
  object(3, 3, {{0, "4"}, {4, "6"}});                        // a MAP without O5: an empty value
  auto m = build(3)->p_strProtocol(1).items();
  ASSERT_EQ(m.size(), 6u);
  EXPECT_NE(m[2].find(" TDA=11 "), std::string::npos);
  // An unmapped type passes through the value mapping unchanged, so it is sent as it is and no
  // notice is shown; only a type that maps to a negative value counts as unknown.
  EXPECT_NE(m[3].find(" TDA=8 "), std::string::npos);
  EXPECT_NE(m[4].find(" TDA=27 NRG=999 "), std::string::npos);
  EXPECT_NE(m[5].find(" TDA= NRG=4 "), std::string::npos);
  ASSERT_EQ(host.boxes.size(), 1u);
  EXPECT_EQ(host.boxes[0].text, "Valore del campo#3 sconosciuto!");
  EXPECT_EQ(host.boxes[0].title, "QK_Protocol");
  EXPECT_EQ(host.boxes[0].style, 16);
}

TEST_F(Layouts, BarcodesAndLogos) {
  layout(3);
  ticket(3);
  object(3, 2, props("0=12 1=0 2=5 3=13 4=0 6=1 7=2 8=0 9=2 11=3000 12=3001 15=2"));
  object(3, 2, {{0, "13"}, {2, "26"}, {15, "9"}});
  object(3, 1, props("0=9 2=0 4=50 5=3 6=0 7=0 8=5 10=4000 11=4001 14=1"));
  exec("insert into IMMAGINI (IM_BNC, IM_ID, IM_FILE_NAME) values (1, 4, 'LOGO.BMP')");
  object(3, 1, {{0, "10"}, {5, "4"}, {14, "0"}});
  auto l = build(3);
  auto a = l->p_strProtocol().items();
  ASSERT_EQ(a.size(), 5u);
  EXPECT_EQ(a[1], "969999021200015500800160501321002");
  EXPECT_EQ(a[2], "969999021300013300800162601321002");
  EXPECT_EQ(a[3], "969999020900021040000409900021000");
  EXPECT_EQ(a[4], "969999021000021140000409900021000");
  auto m = l->p_strProtocol(1).items();
  ASSERT_EQ(m.size(), 6u);
  EXPECT_EQ(m[2],
            "<MSG OPE=NEW TYP=LAY ID=3012 TCA=5 TDA=30 COX=8 COY=16 NRG=2 ESX=2 ESY=1 "
            "DIR=0 ALL=0 NRC=13 FL1=1 FL2=1 FL3=1 FL4=1 />");
  EXPECT_EQ(m[4],
            "<MSG OPE=NEW TYP=LAY ID=3009 NRG=3 IMG=\"3\" TCA=98 TDA= COX=400 COY=40 "
            "ESX=2 ESY=1 DIR=0 NRC= FL1=1 FL2=1 FL3=1 FL4=1 />");
  EXPECT_EQ(m[5],
            "<MSG OPE=NEW TYP=LAY ID=3010 NRG=4 IMG=\"LOGO.BMP\" TCA=99 TDA= COX=400 "
            "COY=40 ESX=2 ESY=1 DIR=0 NRC= FL1=1 FL2=1 FL3=1 FL4=1 />");
}

TEST_F(Layouts, MissingLayoutKeepsThePreviousArraysAndOriginsCarryOver) {
  layout(1);
  ticket(1, "80", "60", "1", "1");
  layout(4);
  object(
      4, 3,
      props(
          "0=1 3=0 4=1 5=1003 7=0 10=1 11=0 13=2000 14=2000"));  // no ticket: the last origins stay
  auto l = build(1);
  auto before = l->p_strProtocol();
  l->p_lngTicketId(9);
  EXPECT_FALSE(l->p_booRetrieveData());
  EXPECT_EQ(l->p_strProtocol(), before);
  l->p_lngTicketId(4);
  ASSERT_TRUE(l->p_booRetrieveData());
  EXPECT_EQ(l->p_strProtocol()[0], "");  // the ticket builder found no ticket values
  // Field 1, flags 0, element 1, then X and Y from the previous layout's ticket origin (8, 8).
  EXPECT_EQ(l->p_strProtocol()[1].substr(8, 15), "010000010080008");
}

TEST_F(Layouts, BadValuesAreReported) {
  layout(6);
  ticket(6);
  object(6, 3, {{0, "1"}, {3, "ZZ"}});                             // not hexadecimal
  object(6, 2, {{0, "2"}, {2, "5"}, {4, "0"}, {6, "999999999"}});  // x 8 overflows
  auto l = build(6);
  EXPECT_EQ(l->p_lngMaxItem(), 1);  // text and barcode builders failed: their rows are absent
  EXPECT_EQ(reported(), (std::vector<long>{13, 13, 6, 6}));
  exec("insert into TICKET (TK_BNC, TK_ID, TK_DESCRIPTION) values (1, 3000000, 'too far')");
  auto far = std::make_unique<clsLayout>();
  far->p_lngBnc(1);
  far->p_lngTicketId(3000000);  // x 1000 overflows: the assembly fails
  EXPECT_FALSE(far->p_booRetrieveData());
  EXPECT_EQ(spy->calls.back().procedure, "p_booRetrieveData");
}

TEST_F(Layouts, PropertyConversions) {
  EXPECT_EQ(layout::m_RetrieveFontId("1003"), "3");
  EXPECT_EQ(layout::m_RetrieveFontId("5001003"), "3");
  EXPECT_EQ(layout::m_RetrieveZoomId("2000"), "1");
  EXPECT_EQ(layout::m_RetrieveZoomId("x"), "");
  EXPECT_EQ(reported(), std::vector<long>{13});

  clsLayout l;  // opens this thread's database
  auto configuration = config::shared_document(component_folder() + "/Configurazione.xml");
  const auto& doc = *configuration;
  auto find = [&](const char* kind, const char* number) {
    return layout::m_varFindValue(doc, kind, "ID", number);
  };
  pugi::xml_node n = find("TEXT", "5");
  EXPECT_EQ(layout::m_lngConvertFontId(n, 3), 1003);  // the first match
  EXPECT_STREQ(n.child("ID").text().get(), "1003");   // the caller's node moved to the match
  n = find("TEXT", "13");
  EXPECT_EQ(layout::m_lngConvertZoomId(n, 1), 2000);
  n = find("TEXT", "5");
  EXPECT_EQ(layout::m_lngConvertFontId(n, 7), 0);
  EXPECT_FALSE(n);  // walked past the last VALUE
  struct Row {
    int32_t in, out;
  } rows[] = {{25, 20}, {30, 30}, {5, 0}, {100, 30}};
  for (auto r : rows) {
    n = find("TEXT", "4");
    EXPECT_EQ(layout::m_lngRetrieveNearestFieldValue(n, r.in), r.out) << r.in;
  }
  n = find("LOGO", "10");  // no such kind: nothing found, 0
  EXPECT_EQ(layout::m_lngConvertFontId(n, 3), 0);

  std::string o3 = "O3", o5 = "O5", v = "1", none = "8";
  clsConvertion c;
  EXPECT_EQ(c.ConvertValue(o3, o5, v), "11");
  EXPECT_EQ(c.ConvertValue(o3, o5, none), "8");
  std::string back = "11";
  EXPECT_EQ(c.ConvertValue(o5, o3, back), "1");
  std::string unlisted = "99";
  EXPECT_EQ(c.ConvertValue(o5, o3, unlisted), "1");  // not one-to-one: 99 comes back as 1

  EXPECT_EQ(layout::image_file_name(1, 8), "8");
}

TEST_F(Layouts, MissingConfigurationFindsNothing) {
  std::filesystem::remove(dir.file("Configurazione.xml"));
  clsLayout l;  // what a layout object reads at creation
  auto configuration = config::shared_document(component_folder() + "/Configurazione.xml");
  pugi::xml_node n = layout::m_varFindValue(*configuration, "TEXT", "ID", "5");
  EXPECT_FALSE(n);
  EXPECT_EQ(layout::m_lngConvertFontId(n, 3), 0);
  EXPECT_TRUE(spy->calls.empty());
}
