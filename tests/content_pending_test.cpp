// VAT rates, electronic texts, layouts and images carry no flags: each is pending on a line while
// its rows differ from what was last confirmed there, and a sync without --full sends exactly
// those (with the clock).
#include <filesystem>
#include <nlohmann/json.hpp>

#include "tool_fixture.h"

using namespace qk::testing;

namespace {

struct ContentPending : ToolOnBoth {
  // "DEPT KIND ID" of each record pending on the line without flags, with the start of its reason.
  std::set<std::string> by_content(int line) {
    std::set<std::string> s;
    for (const auto& l : json_of("pending --line " + std::to_string(line)))
      for (const auto& r : l["records"])
        if (!r["reason"].get<std::string>().empty())
          s.insert(std::to_string(l["dept"].get<int>()) + " " + r["kind"].get<std::string>() + " " +
                   std::to_string(r["id"].get<int>()) + " " +
                   r["reason"].get<std::string>().substr(0, 13));
    return s;
  }
  // "DEPT KIND ID" of the records the line's last run delivered.
  std::set<std::string> last_run(int line) {
    std::string run = json_of("runs --last 1").back()["RUN_ID"];
    std::set<std::string> s;
    for (const auto& r : json_of("journal --line " + std::to_string(line)))
      if (r["J_RUN"] == run)
        s.insert(std::to_string(r["J_BNC"].get<int>()) + " " + r["J_KIND"].get<std::string>() +
                 " " + std::to_string(r["J_ID"].get<int>()));
    return s;
  }
  void import(const std::string& file, const std::string& csv) {
    std::filesystem::remove_all(dir.file("edit"));
    std::filesystem::create_directories(dir.file("edit"));
    dir.write("edit/" + file, csv);
    ASSERT_EQ(qkp("import-csv --replace " + dir.file("edit")), 0) << err;
  }
};
QK_ON_BOTH_BACKENDS(ContentPending);

TEST_P(ContentPending, ChangedRowsMakeTheirRecordsPendingAndASyncSendsOnlyThose) {
  // Nothing was ever delivered: every such record of a line's family is "never sent" there.
  EXPECT_EQ(
      by_content(3),
      (std::set<std::string>{"1 images 4 never sent", "1 images 5 never sent", "1 vat 1 never sent",
                             "1 vat 2 never sent", "1 vat 3 never sent", "1 vat 4 never sent",
                             "2 etexts 1 never sent", "2 etexts 2 never sent",
                             "2 layouts 1 never sent", "2 layouts 2 never sent"}));
  for (int line : {1, 2, 3}) {
    ASSERT_EQ(qkp("sync --line " + std::to_string(line) + " --out " + dir.file("first.bin")), 0)
        << err;
    EXPECT_EQ(qkp("pending --line " + std::to_string(line)), 3) << "line " << line;
  }

  using Set = std::set<std::string>;
  struct Edit {
    const char* what;
    std::function<void()> make;
    int line;
    Set pending;
  };
  const Edit edits[] = {
      {"a VAT rate: every rate, on the 2000 line only",
       [&] { import("ALIQUOTE.csv", "Id,percentage\n4,5\n"); }, 3,
       Set{"1 vat 1 changed since", "1 vat 2 changed since", "1 vat 3 changed since",
           "1 vat 4 changed since"}},
      {"a row of electronic text 12 (the second of department 1)",
       [&] { import("ETEXT.csv", "ET_BNC,Id,Row,Descr\n1,12,2,Conservare in frigo\n"); }, 2,
       Set{"1 etexts 2 changed since"}},
      {"a property of layout 1: through its object, the layout",
       [&] { import("TICKET_PROPERTY.csv", "TD_BNC,TD_ID,TD_OBJ,Id,value\n1,1,1,1,61\n"); }, 1,
       Set{"1 layouts 1 changed since"}},
      {"a picture: the image, and the layouts that may name it",
       [&] {
         ASSERT_EQ(qkp("images add --dept 1 --id 4 " + home + "/images/SMALL.BMP"), 0) << err;
       },
       1,
       Set{"1 images 4 changed since", "1 layouts 1 changed since", "1 layouts 2 changed since"}},
      {"another scale on the line: everything, never sent to it",
       [&] { ASSERT_EQ(qkp("lines set --dept 3 --line 1 --family KESTRA --scale 9"), 0) << err; },
       1, Set{"3 images 4 never sent", "3 images 5 never sent"}},
  };
  for (const auto& e : edits) {
    SCOPED_TRACE(e.what);
    e.make();
    EXPECT_EQ(by_content(e.line), e.pending);
    ASSERT_EQ(qkp("sync --line " + std::to_string(e.line) + " --out " + dir.file("s.bin")), 0)
        << err;
    Set sent;
    for (const auto& p : e.pending) sent.insert(p.substr(0, p.find(' ', p.find(' ', 2) + 1)));
    for (const auto& p : e.pending) sent.insert(p.substr(0, 2) + "date 0");
    EXPECT_EQ(last_run(e.line), sent);
    EXPECT_EQ(qkp("pending --line " + std::to_string(e.line)), 3) << err;
  }

  // A full sync still sends everything, and leaves it as delivered.
  ASSERT_EQ(qkp("sync --full --line 2 --out " + dir.file("full.bin")), 0) << err;
  EXPECT_GT(last_run(2).size(), 20u);
  EXPECT_EQ(qkp("pending --line 2"), 3) << err;
  // "Send again" of a record without flags forgets its last delivery there.
  std::string out;
  ASSERT_EQ(qkp("mark --line 2 --dept 1 --kind layouts --id 2", &out), 0) << err;
  EXPECT_NE(out.find("1 record without flags marked pending"), std::string::npos) << out;
  EXPECT_EQ(by_content(2), std::set<std::string>{"1 layouts 2 never sent"});
  // A removed line's deliveries are forgotten with it.
  ASSERT_EQ(qkp("lines remove --dept 1 --line 3"), 0) << err;
  ASSERT_EQ(qkp("lines set --dept 1 --line 3 --family 2000 --scale 3"), 0) << err;
  EXPECT_EQ(by_content(3).count("1 vat 1 never sent"), 1u);
}

}  // namespace
