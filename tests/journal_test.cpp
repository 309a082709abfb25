// The delivery journal: a row for each record a line confirmed, exactly, with the hash of the bytes
// the transport got; a row for each run, and how it ended.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "logged_sync.h"
#include "tool_fixture.h"

using namespace qk::testing;

namespace {

struct Journal : ToolOnBoth {
  // "DEPT KIND ID sha256" of each record a logged sync delivered: its strings, one after the
  // other, hashed together.
  static std::vector<std::string> delivered(const std::string& log) {
    std::vector<std::string> v;
    for (const auto& [who, bytes] : logged_records(log)) v.push_back(who + " " + sha256(bytes));
    return v;
  }
  static std::vector<std::string> journaled(const nlohmann::json& rows) {
    std::vector<std::string> v;
    for (const auto& r : rows)
      v.push_back(std::to_string(r["J_BNC"].get<int>()) + " " + r["J_KIND"].get<std::string>() +
                  " " + std::to_string(r["J_ID"].get<int>()) + " " +
                  r["J_HASH"].get<std::string>());
    return v;
  }
};
QK_ON_BOTH_BACKENDS(Journal);

TEST_P(Journal, RowsAreWhatTheTransportConfirmedAndRunsSayHowTheyEnded) {
  // Line 1 of the demo: 3000, 3000TOP and KESTRA lines.
  std::string log = dir.file("line1.log");
  ASSERT_EQ(exit_status_of(start_logged_sync(home, "--line 1", log)), 0)
      << file_bytes(log + ".err");
  auto rows = json_of("journal --line 1");
  ASSERT_GT(rows.size(), 10u);
  EXPECT_EQ(journaled(rows), delivered(log));
  std::size_t bytes = 0;
  for (const auto& r : rows) bytes += r["J_LENGTH"].get<std::size_t>();
  auto runs = json_of("runs");
  ASSERT_EQ(runs.size(), 1u);
  EXPECT_EQ(runs[0]["RUN_OUTCOME"], "done");
  EXPECT_EQ(runs[0]["RUN_RECORDS"].get<std::size_t>(), rows.size());
  EXPECT_EQ(runs[0]["RUN_BYTES"].get<std::size_t>(), bytes);
  EXPECT_EQ(runs[0]["RUN_ID"], rows[0]["J_RUN"]);
  // One record's history; a line with nothing sent answers with exit status 3.
  EXPECT_EQ(json_of("journal --kind lots --id 12 --dept 1").size(), 1u);
  EXPECT_EQ(qkp("journal --line 5"), 3);

  // A sync killed while it delivers: journal rows only for records confirmed and reset (each of
  // them delivered), and the run is listed as interrupted.
  ASSERT_EQ(qkp("mark --all-lines"), 0) << err;
  std::string killed = dir.file("killed.log");
  pid_t pid = start_logged_sync(home, "--line 2", killed);
  for (int i = 0; i < 500 && logged_strings(killed).size() < 12; ++i) usleep(10000);
  // This test's own qkp (its folder is in the command line), whether or not the shell exec'd it.
  std::system(("pkill -KILL -f -- '--home " + home + " sync --line 2'").c_str());
  exit_status_of(pid);
  auto sent = delivered(killed);
  auto kept = journaled(json_of("journal --line 2"));
  EXPECT_LE(kept.size(), sent.size());
  EXPECT_EQ(qkp("pending --line 2"), 0) << "the sync was killed before it was done";
  for (const auto& k : kept)
    EXPECT_NE(std::find(sent.begin(), sent.end(), k), sent.end()) << k << " was never delivered";
  runs = json_of("runs");
  ASSERT_EQ(runs.size(), 2u);
  EXPECT_EQ(runs[1]["RUN_OUTCOME"], "interrupted");
  EXPECT_TRUE(runs[1]["RUN_END"].is_null());

  // Pruning drops the old runs with their rows and keeps the newest.
  ASSERT_EQ(qkp("sync --line 3 --out " + dir.file("line3.txt")), 0) << err;
  std::string first = runs[0]["RUN_ID"].get<std::string>();
  std::string old =
      "UPDATE QK_RUNS SET RUN_START = '2020-01-01T00:00:00Z' WHERE RUN_ID = '" + first + "'";
  ASSERT_EQ(server.empty() ? sql_exec(home + "/Archivi.sqlite", old) : PgServer::exec(server, old),
            "");
  std::string out;
  EXPECT_EQ(qkp("journal prune --older-than 90d", &out), 0) << err;
  EXPECT_NE(out.find("removed 1 run and " + std::to_string(rows.size()) + " journal rows"),
            std::string::npos)
      << out;
  EXPECT_EQ(json_of("runs").size(), 2u);
  EXPECT_EQ(qkp("journal --line 1"), 3);
  EXPECT_FALSE(json_of("journal --line 3").empty());
  EXPECT_EQ(qkp("journal prune --older-than 90x"), 2);

  // The journal is the syncs' own: not exported, not imported.
  ASSERT_EQ(qkp("export-csv " + dir.file("export")), 0) << err;
  EXPECT_FALSE(std::filesystem::exists(dir.file("export/QK_JOURNAL.csv")));
  std::filesystem::create_directories(dir.file("forged"));
  std::ofstream(dir.file("forged/QK_JOURNAL.csv")) << "J_TIME\n2026\n";
  EXPECT_EQ(qkp("import-csv " + dir.file("forged")), 1);
  EXPECT_NE(err.find("is the delivery journal, written by the syncs themselves"), std::string::npos)
      << err;
}

}  // namespace
