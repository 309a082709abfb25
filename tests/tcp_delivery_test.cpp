// Delivery to a line's TCP address, against fake scales on 127.0.0.1 that fail the ways real ones
// do. Whatever happens, a record is reset only when the scale's side received all of it, the
// bytes arrive in order with nothing after the failure, and the next sync delivers the rest.
#include <nlohmann/json.hpp>

#include "fake_scale.h"
#include "tool_fixture.h"

namespace qk::testing {
namespace {

using Mode = FakeScale::Mode;

struct TcpDelivery : Tool {
  // Department 1, line 1: 13 records, 14 kB with pictures, so that a small window fills.
  int set_address(const std::string& address) {
    return qkp("lines set --dept 1 --line 1 --family 3000 --scale 1 --to '" + address + "'");
  }
  nlohmann::json journal() { return json_of("journal --line 1 --dept 1"); }
  std::string reference() {
    std::string copy = dir.file("copy"), file = dir.file("reference.bin");
    std::system(("rm -rf " + copy + " " + file + " && cp -r " + home + " " + copy).c_str());
    EXPECT_EQ(qkp_in(copy, "sync --line 1 --dept 1 --separator none --out " + file), 0) << err;
    return dir.read("reference.bin");
  }
};

TEST_F(TcpDelivery, ResetsOnlyWhatTheScaleReceivedAndStopsAtTheFirstFailure) {
  struct Case {
    const char* name;
    FakeScale::Behaviour scale;
    int status;
    const char* message;
    bool there = true;
  } cases[] = {
      {"reads everything", {Mode::Read, 0}, 0, "13 records"},
      {"reads slowly", {Mode::Slow, 0}, 0, "13 records"},
      {"drops within the first records", {Mode::DropAt, 700}, 1, "tcp://127.0.0.1:"},
      {"drops within a picture", {Mode::DropAt, 7000}, 1, "tcp://127.0.0.1:"},
      {"stalls", {Mode::StallAt, 3000}, 1, "acknowledged nothing for 1 s"},
      {"is not there", {Mode::Read, 0}, 1, "cannot connect (Connection refused)", false},
  };
  const std::string sender =
      std::string(QK_PYTHON) + " " + QK_SOURCE_DIR + "/examples/senders/tcp_sender.py 127.0.0.1 ";
  for (bool via_sender : {false, true})
    for (const auto& c : cases) {
      if (via_sender && std::string(QK_PYTHON).empty()) continue;
      SCOPED_TRACE(std::string(c.name) + (via_sender ? ", through the example sender" : ""));
      std::system(("rm -rf " + home).c_str());
      ASSERT_EQ(qkp("init --demo"), 0) << err;
      std::string expected = reference();
      std::optional<FakeScale> scale;
      int port = FakeScale::closed_port();
      if (c.there) {
        scale.emplace(c.scale);
        port = scale->port();
      }
      ASSERT_EQ(
          set_address("tcp://127.0.0.1:" + std::to_string(port) + "?timeout=1&separator=none"), 0)
          << err;
      EXPECT_EQ(qkp("sync --line 1 --dept 1" +
                    (via_sender ? " --sender '" + sender + std::to_string(port) +
                                      " --separator none --timeout 1'"
                                : std::string())),
                c.status)
          << err;
      // The sender says what failed in its own words, with the scale's address.
      std::string said =
          !via_sender || c.status == 0 ? c.message : "127.0.0.1:" + std::to_string(port);
      EXPECT_NE(err.find(said), std::string::npos) << err;
      std::string got = scale ? scale->received() : "";
      if (scale) {
        EXPECT_LE(scale->connections(), 1) << "no second connection after a failure";
      }
      // In order, with nothing after the failure: the start of what the line was to get (the
      // date excepted: it carries the time of sending).
      auto rows = journal();
      std::size_t date = 19;
      ASSERT_LE(got.size(), expected.size());
      EXPECT_TRUE(got.size() <= date ||
                  got.substr(date) == expected.substr(date, got.size() - date));
      // Every reset record lies whole in what the scale received, one after the other.
      std::size_t at = confirmed_within(rows, got);
      EXPECT_TRUE(c.status == 0 ? at == expected.size() : rows.size() < 13u) << at;
      // The scale comes back: the next sync delivers exactly what was not confirmed.
      FakeScale back;
      ASSERT_EQ(set_address(back.address("?separator=none")), 0) << err;
      EXPECT_EQ(qkp("sync --line 1 --dept 1"), c.status == 0 ? 3 : 0) << err;
      EXPECT_EQ(qkp("pending --line 1 --dept 1"), 3) << err;
      std::size_t second = c.status == 0 ? 0 : journal().size() - rows.size();
      // The clock goes again with the rest.
      EXPECT_EQ(rows.size() + second, c.status == 0 ? 13u : 14u - (rows.empty() ? 1 : 0));
    }
}

TEST_F(TcpDelivery, AddressesAreCheckedWhereTheyAreGiven) {
  struct Case {
    const char* address;
    const char* message;
  } cases[] = {
      {"tcp://127.0.0.1:99999", "port \"99999\" is not a number from 1 to 65535"},
      {"tcp://127.0.0.1:91{scle}", "is not a number from 1 to 65535"},
      {"tcp://scale-{dep}.lan:9100", "only {dept}, {scale} and {line} are replaced"},
      {"tcp://127.0.0.1:9100?timeout=0", "timeout \"0\" is not a number of seconds"},
      {"tcp://127.0.0.1:9100?speed=9600", "\"speed=9600\" is not timeout=SECONDS or separator"},
      {"serial:ttyUSB0", "names the device's full path"},
      {"serial:/dev/ttyUSB0?9600,9,N,1", "data bits 9 are not 5, 6, 7 or 8"},
      {"file:out.txt?separator=cr", "separator \"cr\" is not crlf, lf, none or stx-etx"},
      {"sender: ", "names the command"},
      {"http://scale", "an address starts with tcp://, serial:, file: or sender:"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(set_address(c.address), 2) << c.address;
    EXPECT_NE(err.find(c.message), std::string::npos) << c.address << ": " << err;
  }
  // An import is held to the same rule, naming the row.
  std::string csv = dir.file("lines");
  std::filesystem::create_directories(csv);
  std::ofstream(csv + "/SCALE_LINES.csv")
      << "SL_BNC,SL_LINE,SL_FAMILY,SL_SCALE,SL_ADDRESS\n1,1,3000,1,tcp://x:0\n";
  EXPECT_EQ(qkp("import-csv --replace " + csv), 1);
  EXPECT_NE(err.find("column SL_ADDRESS: holds \"tcp://x:0\", not a line's address"),
            std::string::npos)
      << err;
  // Lines without an address are named before anything is sent.
  EXPECT_EQ(qkp("sync --line 2"), 2);
  EXPECT_NE(err.find("line 2 of departments 1, 2, 3 has no address"), std::string::npos) << err;
  EXPECT_EQ(qkp("pending --line 2 --dept 1"), 0);
}

TEST_F(TcpDelivery, PlaceholdersGiveEachDepartmentItsOwnFile) {
  ASSERT_EQ(qkp("lines set --dept 1 --line 1 --family 3000 --scale 1 --to "
                "'file:out/{dept}-{scale}-{line}.txt'"),
            0)
      << err;
  std::filesystem::create_directories(home + "/out");
  EXPECT_EQ(qkp("sync --line 1 --dept 1"), 0) << err;
  EXPECT_GT(dir.read("demo/out/1-1-1.txt").size(), 14000u);
  EXPECT_EQ(qkp("sync --line 1 --dept 1"), 3) << "nothing was pending";
  EXPECT_EQ(json_of("lines")[0]["address"], "file:out/{dept}-{scale}-{line}.txt");
}

}  // namespace
}  // namespace qk::testing
