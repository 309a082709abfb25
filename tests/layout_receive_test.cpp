// Layouts sent back by scales: each attribute's inverse, the round trip over generated layouts,
// and what bad input gives.
#include "layout/layout_receive.h"

#include <random>

#include "archive_fixture.h"
#include "automation/conversions.h"
#include "layout/clsConvertion.h"
#include "qk/clsLayout.h"

using namespace qk;
using namespace qk::testing;

namespace {

// Fonts whose last three digits are 1, 3 (twice: the first wins) and 30; magnifications 1 to 3;
// data types 10, 20, 30 (snapped to the one below); 5000 data types mapped one to one.
const char* kConfig = R"(<PROPERTIES>
  <TEXT>
    <PROPERTY><ID>4</ID><POSSIBLE_VALUES><VALUE><ID>10</ID></VALUE><VALUE><ID>20</ID></VALUE><VALUE><ID>30</ID></VALUE></POSSIBLE_VALUES></PROPERTY>
    <PROPERTY><ID>5</ID><POSSIBLE_VALUES><VALUE><ID>1001</ID></VALUE><VALUE><ID>1003</ID></VALUE><VALUE><ID>2003</ID></VALUE><VALUE><ID>1030</ID></VALUE></POSSIBLE_VALUES></PROPERTY>
    <PROPERTY><ID>13</ID><POSSIBLE_VALUES><VALUE><ID>2000</ID></VALUE><VALUE><ID>2001</ID></VALUE><VALUE><ID>2002</ID></VALUE></POSSIBLE_VALUES></PROPERTY>
    <PROPERTY><ID>14</ID><POSSIBLE_VALUES><VALUE><ID>2000</ID></VALUE><VALUE><ID>2001</ID></VALUE><VALUE><ID>2002</ID></VALUE></POSSIBLE_VALUES></PROPERTY>
  </TEXT>
  <BARCODE>
    <PROPERTY><ID>11</ID><POSSIBLE_VALUES><VALUE><ID>3000</ID></VALUE><VALUE><ID>3001</ID></VALUE></POSSIBLE_VALUES></PROPERTY>
    <PROPERTY><ID>12</ID><POSSIBLE_VALUES><VALUE><ID>3000</ID></VALUE><VALUE><ID>3001</ID></VALUE></POSSIBLE_VALUES></PROPERTY>
  </BARCODE>
  <LOGO>
    <PROPERTY><ID>10</ID><POSSIBLE_VALUES><VALUE><ID>4000</ID></VALUE><VALUE><ID>4001</ID></VALUE></POSSIBLE_VALUES></PROPERTY>
    <PROPERTY><ID>11</ID><POSSIBLE_VALUES><VALUE><ID>4000</ID></VALUE><VALUE><ID>4001</ID></VALUE></POSSIBLE_VALUES></PROPERTY>
  </LOGO>
  <MAPPING><MAP O3="10" O5="12"/><MAP O3="20" O5="13"/><MAP O3="30" O5="14"/></MAPPING>
</PROPERTIES>)";

using Props = std::map<int, std::string>;
Props P(const std::string& written) {
  auto p = props(written);
  return Props(p.begin(), p.end());
}

struct Receive : ArchiveFixture {
  FakeHost host;
  void SetUp() override {
    ArchiveFixture::SetUp();
    dir.write("Configurazione.xml", kConfig);
    exec("insert into IMMAGINI (IM_BNC, IM_ID, IM_FILE_NAME) values (1, 4, 'LOGO.BMP')");
  }
  // The objects one received text gives, as property maps.
  std::vector<std::pair<int, Props>> read(const std::string& text, bool series5000,
                                          std::vector<std::string>* notes = nullptr) {
    pugi::xml_document doc;
    doc.load_string(kConfig);
    clsConvertion mapping;
    layout::Lookups l{doc, mapping, [](const std::string& n) { return n == "LOGO.BMP" ? 4 : 0; }};
    auto got = series5000 ? layout::read_5000(text, 1, l) : layout::read_3000(text, 1, l);
    if (notes) *notes = got.notes;
    std::vector<std::pair<int, Props>> out;
    for (const auto& o : got.objects)
      out.push_back({o.kind, Props(o.properties.begin(), o.properties.end())});
    return out;
  }
  std::string error_of(const std::string& text, bool series5000) {
    try {
      read(text, series5000);
    } catch (const automation::Error& e) {
      return e.description();
    }
    return "";
  }
  std::vector<std::string> send(int layout_id, bool series5000) {
    clsLayout l;
    l.p_lngBnc(1);
    l.p_lngTicketId(layout_id);
    if (!l.p_booRetrieveData()) return {};
    return l.p_strProtocol(series5000 ? 1 : 2).items();
  }
  void receive(const std::vector<std::string>& sent, int from, int into, bool series5000) {
    clsLayout l;
    l.p_lngBnc(1);
    l.p_lngTicketId(from);
    l.p_lngLayoutToImport(into);
    std::string text;
    for (const auto& s : sent) text += s + "\n";
    if (series5000)
      l.p_ParseReceivedMessageO50(text);
    else
      l.p_ParseReceivedMessage(text);
  }
  std::string count(const char* table) {
    return scalar(std::string("select count(*) from ") + table);
  }
};

const std::string kTicket3000 = "969999000064004803\n";
const std::string kTicket5000 = "<MSG OPE=NEW TYP=LAY ID=1000 DIX=640 DIY=480 />\n";

TEST_F(Receive, EachFieldOfA3000RecordMapsBack) {
  auto objects =
      read(kTicket3000 + "969999000702603211600800302012001\n" +
               "969999000800215505602400501321000\n" + "969999000900021141600409900011000\n",
           false);
  ASSERT_EQ(objects.size(), 4u);
  // The ticket: dots back to millimetres; the origin is the scale's edge.
  EXPECT_EQ(objects[0].second, (Props{{1, "60"}, {2, "3"}, {5, "80"}, {6, "0"}, {7, "0"}}));
  // A text: flags 26 back to hexadecimal, element 32 = data type 30 (listed) + field value 3 - 1,
  // font 3 to its first identifier (1003, not 2003), magnifications 1 and 2 to 2000 and 2001.
  EXPECT_EQ(objects[1].first, 3);
  EXPECT_EQ(objects[1].second,
            (P("0=7 1=0 2=20 3=1A 4=30 5=1003 7=14.5 8=1 9=0 10=3 11=10 13=2001 14=2000")));
  // A barcode: element 155 = 153 + field value 2; type 5.
  EXPECT_EQ(objects[2].first, 2);
  EXPECT_EQ(objects[2].second.at(15), "2");
  EXPECT_EQ(objects[2].second.at(2), "5");
  EXPECT_EQ(objects[2].second.at(11), "3000");
  EXPECT_EQ(objects[2].second.at(12), "3001");
  // A logo: element 211 = image 4 + 207.
  EXPECT_EQ(objects[3].first, 1);
  EXPECT_EQ(objects[3].second.at(5), "4");
  EXPECT_EQ(objects[3].second.at(4), "52");
}

TEST_F(Receive, EachAttributeOfA5000MessageMapsBack) {
  struct Row {
    const char* message;
    int kind, property;
    const char* value;
  } rows[] = {
      // TCA 4 is font 3 sent as 3 + 1; TCA 30 (25 and above) is font 30 unchanged.
      {"ID=1007 TCA=4 TDA=12 NRG=5 COX=116 COY=80 ESX=1 ESY=2 DIR=0 ALL=1 NRC=20 FL1=0 FL2=1 FL3=1 "
       "FL4=1",
       3, 5, "1003"},
      {"ID=1007 TCA=30 TDA=12 NRG=5 COX=116 COY=80 ESX=1 ESY=2 DIR=0 ALL=1 NRC=20 FL1=0 FL2=1 "
       "FL3=1 FL4=1",
       3, 5, "1030"},
      // TDA 12 maps back to data type 10; NRG is the field value.
      {"ID=1007 TCA=4 TDA=12 NRG=5 COX=116 COY=80 ESX=1 ESY=2 DIR=0 ALL=1 NRC=20 FL1=0 FL2=1 FL3=1 "
       "FL4=1",
       3, 4, "10"},
      {"ID=1007 TCA=4 TDA=12 NRG=5 COX=116 COY=80 ESX=1 ESY=2 DIR=0 ALL=1 NRC=20 FL1=0 FL2=1 FL3=1 "
       "FL4=1",
       3, 10, "5"},
      // An unmapped TDA stands as it is, then snaps to the listed value below (25 -> 20).
      {"ID=1007 TCA=4 TDA=25 NRG=5 COX=116 COY=80 ESX=1 ESY=2 DIR=0 ALL=1 NRC=20 FL1=0 FL2=1 FL3=1 "
       "FL4=1",
       3, 4, "20"},
      // FL1 = 0 sets bit 1, FL3 = 0 sets bit 6: 0x42.
      {"ID=1007 TCA=4 TDA=12 NRG=5 COX=116 COY=80 ESX=1 ESY=2 DIR=0 ALL=1 NRC=20 FL1=0 FL2=1 FL3=0 "
       "FL4=1",
       3, 3, "42"},
      // ESX is the width magnification (14), ESY the height (13); attributes in any order.
      {"COY=80 ID=1007 ESY=2 TCA=4 TDA=12 NRG=5 COX=116 ESX=1 DIR=0 ALL=1 NRC=20 FL1=0 FL2=1 FL3=1 "
       "FL4=1",
       3, 13, "2001"},
      {"ID=1007 TCA=4 TDA=12 NRG=5 COX=116 COY=80 ESX=1 ESY=2 DIR=0 ALL=1 NRC=20 FL1=0 FL2=1 FL3=1 "
       "FL4=1",
       3, 7, "14.5"},
      // TDA 30 is a barcode: TCA its type, NRG its field value.
      {"ID=1008 TCA=5 TDA=30 COX=56 COY=240 NRG=2 ESX=2 ESY=1 DIR=0 ALL=0 NRC=13 FL1=0 FL2=1 FL3=1 "
       "FL4=1",
       2, 2, "5"},
      {"ID=1008 TCA=5 TDA=30 COX=56 COY=240 NRG=2 ESX=2 ESY=1 DIR=0 ALL=0 NRC=13 FL1=0 FL2=1 FL3=1 "
       "FL4=1",
       2, 15, "2"},
      // A logo: the file name back to its image number; TCA 98 is a styled logo.
      {"ID=1009 NRG=7 IMG=\"LOGO.BMP\" TCA=98 TDA= COX=416 COY=40 ESX=1 ESY=1 DIR=0 NRC= FL1=1 "
       "FL2=1 FL3=1 FL4=1",
       1, 5, "4"},
      {"ID=1009 NRG=7 IMG=\"LOGO.BMP\" TCA=98 TDA= COX=416 COY=40 ESX=1 ESY=1 DIR=0 NRC= FL1=1 "
       "FL2=1 FL3=1 FL4=1",
       1, 14, "1"},
      {"ID=1009 NRG=7 IMG=\"NONE.BMP\" TCA=99 TDA= COX=416 COY=40 ESX=1 ESY=1 DIR=0 NRC= FL1=1 "
       "FL2=1 FL3=1 FL4=1",
       1, 5, "7"},
      {"ID=1009 NRG=7 IMG=\"LOGO.BMP\" TCA=99 TDA= COX=416 COY=40 ESX=1 ESY=1 DIR=0 NRC= FL1=1 "
       "FL2=1 FL3=1 FL4=1",
       1, 0, "9"},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.message);
    auto objects = read(kTicket5000 + "<MSG OPE=NEW TYP=LAY " + r.message + " />", true);
    ASSERT_EQ(objects.size(), 2u);
    EXPECT_EQ(objects[1].first, r.kind);
    EXPECT_EQ(objects[1].second.at(r.property), r.value);
  }
  // Data type 45 carries its field value as 90000 + n.
  pugi::xml_document unused;
  EXPECT_EQ(read(kTicket5000 + "<MSG OPE=NEW TYP=LAY ID=1001 TCA=4 TDA=45 NRG=90007 COX=0 COY=0 "
                               "ESX=1 ESY=1 DIR=0 ALL=0 NRC=1 FL1=1 FL2=1 FL3=1 FL4=1 />",
                 true)[1]
                .second.at(10),
            "90007")
      << "45 is not listed here, so it snaps to 30 and NRG stands";
}

TEST_F(Receive, ValuesNotListedAreStoredAsZeroAndSaid) {
  std::vector<std::string> notes;
  auto objects = read(kTicket5000 +
                          "<MSG OPE=NEW TYP=LAY ID=1007 TCA=8 TDA=12 NRG=5 COX=0 COY=0 "
                          "ESX=9 ESY=1 DIR=0 ALL=0 NRC=1 FL1=1 FL2=1 FL3=1 FL4=1 />",
                      true, &notes);
  EXPECT_EQ(objects[1].second.at(5), "0");
  EXPECT_EQ(objects[1].second.at(14), "0");
  ASSERT_EQ(notes.size(), 2u);
  EXPECT_EQ(notes[0], "message 2: font 7 is not in Configurazione.xml; stored as 0");
  EXPECT_EQ(notes[1], "message 2: magnification 9 is not in Configurazione.xml; stored as 0");
}

TEST_F(Receive, BadInputNamesThePlaceAndTheReason) {
  struct Case {
    std::string text;
    bool series5000;
    const char* says;
  } cases[] = {
      {"969999000064004803\n9699990007026032116008003020120\n", false,
       "record 2: 23 characters after the header where 25 are expected"},
      {"969999000064004803\n9699991007026032116008003020120011\n", false,
       "record 2: does not start with 96999900, the header of layout 1"},
      {"96999900\n", false, "record 1: the first record must be the ticket"},
      {"969999000064004803\n96999900070260321160080030x012001\n", false,
       "record 2: the characters \"0x0\" is not a whole number"},
      {kTicket5000 + "<MSG OPE=NEW TYP=LAY ID=2007 TCA=4 />", true,
       "message 2: object 2007 belongs to layout 2, not 1"},
      {kTicket5000 + "<MSG OPE=NEW TYP=LAY ID=1007 TCA=4 TDA=12 NRG=5 COX=0 COY=0 ESX=1 ESY=1 "
                     "DIR=0 ALL=0 NRC=1 FL1=1 FL2=1 FL3=1 FL4=1 ZZZ=1 />",
       true, "message 2: unknown attribute ZZZ"},
      {kTicket5000 + "<MSG OPE=NEW TYP=LAY ID=1007 TCA=4", true, "message 2: cut short"},
      {kTicket5000 + "<MSG OPE=NEW TYP=LAY ID=1007 TCA=4 TDA=12 NRG=5 COX=99999999999 COY=0 "
                     "ESX=1 ESY=1 DIR=0 ALL=0 NRC=1 FL1=1 FL2=1 FL3=1 FL4=1 />",
       true, "message 2: COX \"99999999999\" does not fit 32 bits"},
      {"<MSG OPE=NEW TYP=LAY ID=1007 TCA=4 TDA=12 NRG=5 COX=0 COY=0 ESX=1 ESY=1 DIR=0 ALL=0 "
       "NRC=1 FL1=1 FL2=1 FL3=1 FL4=1 />",
       true, "the layout: no ticket message"},
      {kTicket5000 + "<MSG OPE=NEW TYP=LAY ID=1007 TCA=4 TDA=12 NRG=5 COX=0 COY=0 ESX=1 ESY=1 "
                     "DIR=0 ALL=0 NRC=1 FL1=2 FL2=1 FL3=1 FL4=1 />",
       true, "message 2: FL1 must be 0 or 1"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(error_of(c.text, c.series5000).find(c.says), 0u)
        << c.text << " -> " << error_of(c.text, c.series5000);
}

TEST_F(Receive, AnUnreadableLayoutChangesNothing) {
  exec("insert into TICKET (TK_BNC, TK_ID, TK_DESCRIPTION) values (1, 9, 'kept')");
  std::string before = count("TICKET_PROPERTY") + count("TICKET_DETAIL") + count("TICKET");
  receive({"969999000064004803", "96999900070260"}, 1, 9, false);
  EXPECT_EQ(reported(), (std::vector<long>{automation::kInvalidProcedureCall}));
  EXPECT_EQ(count("TICKET_PROPERTY") + count("TICKET_DETAIL") + count("TICKET"), before);
  EXPECT_EQ(scalar("select TK_DESCRIPTION from TICKET where TK_ID = 9"), "kept");
}

// Generated layouts whose values lie in the representable set go out, come back into another
// layout and go out again as the same bytes (but for the layout number).
TEST_F(Receive, RoundTripOverGeneratedLayouts) {
  std::mt19937 rng(20261123);
  auto pick = [&](std::initializer_list<const char*> v) {
    return std::string(
        *(v.begin() + std::uniform_int_distribution<std::size_t>(0, v.size() - 1)(rng)));
  };
  auto between = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
  auto mm = [&](int max_dots) { return automation::double_to_text(between(0, max_dots) / 8.0); };
  for (bool series5000 : {false, true}) {
    for (int n = 0; n < 2000; ++n) {
      SCOPED_TRACE(std::string(series5000 ? "5000" : "3000") + " layout " + std::to_string(n));
      exec("delete from TICKET_PROPERTY");
      exec("delete from TICKET_DETAIL");
      exec("delete from TICKET");
      exec("insert into TICKET (TK_BNC, TK_ID, TK_DESCRIPTION) values (1, 1, 'generated')");
      int obj = 0;
      auto object = [&](int type, std::vector<std::pair<int, std::string>> props) {
        ++obj;
        exec("insert into TICKET_DETAIL values (1, 1, ?1, ?2)", {obj, type});
        for (auto& [id, v] : props)
          exec("insert into TICKET_PROPERTY values (1, 1, ?1, ?2, ?3)", {obj, id, v});
      };
      object(4, {{1, mm(9999)},
                 {2, series5000 ? "0" : std::to_string(between(0, 9))},
                 {5, mm(999)},
                 {6, "0"},
                 {7, "0"}});
      // Flag bits the 5000 series carries (1, 0, 6, 7); the 3000 series carries any byte.
      auto flags = [&] {
        int b = series5000
                    ? (between(0, 1) * 2 + between(0, 1) + between(0, 1) * 64 + between(0, 1) * 128)
                    : between(0, 255);
        char s[8];
        std::snprintf(s, sizeof s, "%X", b);
        return std::string(s);
      };
      int field = 1;
      for (int t = between(0, 3); t > 0; --t)
        object(3, {{0, std::to_string(field++)},
                   {1, pick({"0", "1", "2"})},
                   {2, std::to_string(between(1, 40))},
                   {3, flags()},
                   {4, pick({"10", "20", "30"})},
                   {5, pick({"1001", "1003", "1030"})},
                   {7, mm(999)},
                   {8, series5000 ? "0" : std::to_string(between(0, 9))},
                   {9, pick({"0", "1"})},
                   {10, std::to_string(between(1, 9))},
                   {11, mm(9999)},
                   {13, pick({"2000", "2001", "2002"})},
                   {14, pick({"2000", "2001", "2002"})}});
      for (int b = between(0, 2); b > 0; --b) {
        bool type26 = between(0, 4) == 0;
        object(2, {{0, std::to_string(field++)},
                   {1, "0"},
                   {2, type26 ? "26" : std::to_string(between(1, 25))},
                   {3, std::to_string(between(1, 20))},
                   {4, flags()},
                   {6, mm(999)},
                   {7, series5000 ? "0" : std::to_string(between(0, 9))},
                   {8, pick({"0", "1"})},
                   {9, mm(9999)},
                   {11, pick({"3000", "3001"})},
                   {12, pick({"3000", "3001"})},
                   {15, type26 ? "0" : std::to_string(between(1, 50))}});
      }
      for (int g = between(0, 1); g > 0; --g)
        object(1, {{0, std::to_string(field++)},
                   {2, flags()},
                   {4, mm(999)},
                   {5, series5000 ? "4" : std::to_string(between(1, 40))},
                   {6, series5000 ? "0" : std::to_string(between(0, 9))},
                   {7, pick({"0", "1"})},
                   {8, mm(9999)},
                   {10, pick({"4000", "4001"})},
                   {11, pick({"4000", "4001"})},
                   {14, series5000 ? pick({"0", "1"}) : "0"}});
      auto first = send(1, series5000);
      ASSERT_FALSE(first.empty());
      spy->calls.clear();
      receive(first, 1, 2, series5000);
      ASSERT_TRUE(spy->calls.empty()) << spy->calls[0].description;
      auto second = send(2, series5000);
      // The same bytes but for the layout number: header 9699991 for 9699990, IDs 2xxx for 1xxx.
      ASSERT_EQ(second.size(), first.size());
      for (std::size_t i = 0; i < first.size(); ++i) {
        std::string expected = first[i];
        if (series5000) {
          for (std::size_t at; (at = expected.find(" ID=1")) != std::string::npos;)
            expected.replace(at, 5, " ID#2");
          for (std::size_t at; (at = expected.find(" ID#")) != std::string::npos;)
            expected.replace(at, 4, " ID=");
        } else if (!expected.empty()) {
          expected.replace(0, 8, "96999901");
        }
        EXPECT_EQ(second[i], expected);
      }
    }
  }
}

}  // namespace
