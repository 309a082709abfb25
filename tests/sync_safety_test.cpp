// Nothing lost when the archive changes during a sync, one sync per line at a time, and nothing
// let in that a line cannot read.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <thread>

#include "logged_sync.h"
#include "tool_fixture.h"

using namespace qk::testing;

namespace {

// What holds on both backends.
using SyncSafety = ToolOnBoth;
QK_ON_BOTH_BACKENDS(SyncSafety);
// What another program can write into a SQLite file but a PostgreSQL table's types refuse.
using SyncSafetyOnSqlite = Tool;

TEST_P(SyncSafety, RowAddedWhileItsLotIsSentStaysPending) {
  // When the transport receives lot 12 on line 2, somebody imports a second row of that lot.
  std::string edits = dir.file("edits");
  std::filesystem::create_directories(edits);
  std::ofstream(edits + "/TRACEABILITY.csv")
      << "TRC_BNC,TRC_ID,TRC_ROW,TRC_ID_LOT,TRC_DESC1,TRC_FLAGTRASM\n"
         "1,12,2,\"L12-2026\",\"Aggiunta durante l'invio\",11111111\n";
  std::string sent = dir.file("sent.txt");
  std::string transport = "'cat >> " + sent + "; echo >> " + sent +
                          "; if [ \"$QK_KIND\" = lots ] && [ \"$QK_ID\" = 12 ]; then " +
                          QKP_BINARY + " import-csv " + edits + " >/dev/null; fi'";
  ASSERT_EQ(qkp("sync --line 2 --dept 1 --exec " + transport), 0) << err;
  EXPECT_NE(err.find("department 1, line 2 (5000, scale 2), lot 12: changed in the archive while "
                     "it was sent; what changed stays pending for the next sync"),
            std::string::npos)
      << err;
  // The new row was never sent: it is still pending on line 2, and so is its lot (the row that
  // was delivered is reset).
  EXPECT_EQ(sql("select TRC_ROW, substr(TRC_FLAGTRASM, 2, 1) from TRACEABILITY where TRC_BNC = 1 "
                "and TRC_ID = 12 order by TRC_ROW"),
            "1|0\n2|1\n");
  std::string out;
  ASSERT_EQ(qkp("pending --line 2 --dept 1", &out), 0);
  EXPECT_EQ(lines_of(out).size(), 2u) << out;  // the heading and lot 12
  // The next sync sends it, with the new row, and clears the line.
  ASSERT_EQ(qkp("sync --line 2 --dept 1 --separator lf --out " + dir.file("next.txt")), 0) << err;
  EXPECT_NE(file_bytes(dir.file("next.txt")).find("Aggiunta durante l'invio"), std::string::npos);
  EXPECT_EQ(qkp("pending --line 2 --dept 1"), 3);
}

TEST_P(SyncSafety, KeyChangedWhileSentIsNotResetByTheWholeKeyStatement) {
  // The 5000 reset writes one statement over every row of the key: it must not touch a row of
  // the key that changed after the key was built.
  std::string sent = dir.file("sent.txt");
  std::string edits = dir.file("edits");
  std::filesystem::create_directories(edits);
  std::ofstream(edits + "/TASTIERA_PLU.csv") << "TP_BNC,TP_SCALE,TP_KEY,TP_VALUE\n1,1,3,999\n";
  std::string transport = "'cat >> " + sent +
                          "; if [ \"$QK_KIND\" = keys ] && [ \"$QK_ID\" = 3 ]; then " + QKP_BINARY +
                          " import-csv --replace --no-pending " + edits + " >/dev/null; fi'";
  ASSERT_EQ(qkp("sync --line 2 --dept 1 --exec " + transport), 0) << err;
  EXPECT_NE(err.find("key 3: changed in the archive while it was sent"), std::string::npos) << err;
  // The statement ran on the unchanged rows only: the replaced row keeps the flags it came in
  // with, the two others lost line 2.
  EXPECT_EQ(sql("select TP_SCALE, TP_FLAGTRASM from TASTIERA_PLU where TP_BNC = 1 and TP_KEY = 3 "
                "order by 1"),
            "1|00000000\n2|10100000\n3|10100000\n");
  EXPECT_EQ(sql("select distinct TP_FLAGTRASM from TASTIERA_PLU where TP_BNC = 1 and TP_KEY = 4"),
            "10100000\n");
}

// Imports rows during five syncs of line 1 of the large network; afterwards every row whose line-1
// flag is cleared must have been delivered with its current text.
TEST_P(SyncSafety, RandomImportsDuringSyncsMarkNothingDeliveredThatWasNot) {
  ASSERT_EQ(qkp("init --demo --size large --force --yes"), 0) << err;
  // Departments whose line 1 is a 5000 scale: their lot messages carry every row's text.
  std::vector<int> depts;
  for (const auto& l : lines_of(sql("select SL_BNC from SCALE_LINES where SL_LINE = 1 and "
                                    "SL_FAMILY = '5000' order by SL_BNC")))
    depts.push_back(std::stoi(l));
  ASSERT_FALSE(depts.empty());
  std::string sent = dir.file("sent.txt");
  for (int round = 0; round < 5; ++round) {
    Importer importer(*this, depts, 1, 100, round);
    // Exit status 3: the imports of that round came after its sync, which found nothing.
    int status = qkp("sync --line 1 --separator lf --out " + sent);
    EXPECT_TRUE(status == 0 || (round > 0 && status == 3)) << status << ": " << err;
  }
  std::string delivered = file_bytes(sent);
  auto rows =
      lines_of(sql("select TRC_DESC1, substr(TRC_FLAGTRASM, 1, 1) from TRACEABILITY "
                   "where TRC_DESC1 like 'MARK-%'"));
  ASSERT_GT(rows.size(), 5u);  // the imports did run during the syncs
  int cleared = 0, pending = 0;
  for (const auto& r : rows) {
    std::string text = r.substr(0, r.find('|'));
    if (r.back() == '0') {
      ++cleared;
      EXPECT_NE(delivered.find(text), std::string::npos)
          << text << " is marked delivered on line 1 but was never sent";
    } else {
      ++pending;
    }
  }
  EXPECT_GT(cleared, 0);
  RecordProperty("cleared", cleared);
  RecordProperty("pending", pending);
}

// The server goes away in the middle of a sync (the test's database ends its connections and
// takes no new ones): one message names the archive and the cause, the run's summary follows,
// nothing more is tried, and every record that was reset had been delivered.
TEST_P(SyncSafety, ALostServerEndsTheSyncWithOneMessageAndResetsOnlyWhatWent) {
  if (server.empty()) GTEST_SKIP() << "a file archive has no server to lose";
  std::string before, log = dir.file("log"), errors = dir.file("errors");
  ASSERT_EQ(qkp("--format json pending --line 1", &before), 0) << err;
  pid_t pid = fork();
  if (pid == 0) {
    std::string cmd = std::string(QKP_BINARY) + " --home " + home +
                      " sync --line 1 --exec 'printf \"%s %s %s\\n\" $QK_DEPT $QK_KIND $QK_ID >> " +
                      log + "; sleep 0.1' 2>" + errors;
    execl("/bin/sh", "sh", "-c", cmd.c_str(), nullptr);
    _exit(127);
  }
  for (int i = 0; i < 500 && lines_of(file_bytes(log)).size() < 4; ++i) usleep(10000);
  std::string database = server.substr(server.find("///") + 3);
  database = database.substr(0, database.find('?'));
  std::string admin = PgServer::get().uri("postgres");
  ASSERT_EQ(PgServer::exec(admin, "ALTER DATABASE " + database + " WITH ALLOW_CONNECTIONS false"),
            "");
  PgServer::rows(admin, "SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE datname = '" +
                            database + "'");
  EXPECT_EQ(exit_status_of(pid), 1);
  ASSERT_EQ(PgServer::exec(admin, "ALTER DATABASE " + database + " WITH ALLOW_CONNECTIONS true"),
            "");
  std::string said = file_bytes(errors);
  std::size_t lost = 0, other = 0;
  for (const auto& line : lines_of(said)) {
    if (line.find(" was lost: ") != std::string::npos &&
        line.find("connection to the archive") != std::string::npos)
      ++lost;
    else if (line.find("records delivered") == std::string::npos &&
             line.rfind("qkp: sync of line 1:", 0) != 0)
      ++other;
  }
  EXPECT_EQ(lost, 1u) << said;
  EXPECT_EQ(other, 0u) << said;
  EXPECT_NE(said.find("qkp: sync of line 1: "), std::string::npos) << "the summary: " << said;
  // A record no longer pending was delivered.
  std::string after;
  qkp("--format json pending --line 1", &after);
  std::set<std::string> delivered, still;
  for (const auto& l : lines_of(file_bytes(log))) delivered.insert(l);
  auto records = [](const std::string& json, std::set<std::string>* into) {
    for (const auto& line : nlohmann::json::parse(json))
      for (const auto& r : line["records"])
        into->insert(std::to_string(line["dept"].get<int>()) + " " + r["kind"].get<std::string>() +
                     " " + std::to_string(r["id"].get<int>()));
  };
  std::set<std::string> pending_before, pending_after;
  records(before, &pending_before);
  records(after, &pending_after);
  EXPECT_LT(pending_after.size(), pending_before.size()) << "some records went";
  EXPECT_FALSE(pending_after.empty()) << "the sync was stopped half-way";
  for (const auto& r : pending_before)
    EXPECT_TRUE(pending_after.count(r) || delivered.count(r)) << r << " reset, never delivered";
}

TEST_P(SyncSafety, OneSyncOfALineAtATime) {
  std::string first = dir.file("first.txt"), second = dir.file("second.txt");
  // A slow transport keeps the first sync busy.
  pid_t pid = start_logged_sync(home, "--line 2", first);
  // Wait for the first sync to hold the line.
  for (int i = 0; i < 500 && file_bytes(first).empty(); ++i) usleep(10000);
  EXPECT_EQ(qkp("sync --line 2 --out " + second), 4);
  EXPECT_NE(err.find("is being synced by another process"), std::string::npos) << err;
  // With --wait the second one waits, then finds nothing left to send (exit status 3).
  EXPECT_EQ(qkp("sync --wait --line 2 --separator lf --out " + second), 3) << err;
  EXPECT_EQ(exit_status_of(pid), 0);
  EXPECT_FALSE(std::filesystem::exists(second));
  std::set<std::string> seen;
  auto records = logged_records(first);
  EXPECT_GT(records.size(), 40u);
  for (const auto& [who, bytes] : records)
    EXPECT_TRUE(seen.insert(who + " " + bytes).second) << "sent twice: " << who;
  EXPECT_EQ(qkp("pending --line 2 --dept 1"), 3);
}

// Nine syncs at once (every line 1 to 8, line 1 twice) while another process imports lot rows
// with --replace, two rounds: no sync and no import fails (writers take turns; a reset the
// archive refuses for another writer is tried again); then every flag of the imported rows is
// checked against what the transports received, and a quiet sync of each line leaves nothing
// pending.
TEST_P(SyncSafety, ConcurrentSyncsDeliverEachRecordOnceAndResetOnlyWhatWent) {
  std::filesystem::create_directories(dir.file("lines"));
  std::ofstream(dir.file("lines/SCALE_LINES.csv"))
      << "SL_BNC,SL_LINE,SL_FAMILY,SL_SCALE\n1,4,5000,4\n1,5,VELTA,5\n1,6,2000,6\n1,7,3000,7\n"
         "1,8,5000,8\n";
  ASSERT_EQ(qkp("import-csv " + dir.file("lines")), 0) << err;
  struct Run {
    std::string args;
    int line;
  };
  std::vector<Run> runs = {{"--line 1 --wait", 1}};
  for (int line = 1; line <= 8; ++line)
    runs.push_back({"--line " + std::to_string(line) + " --wait", line});
  std::map<int, std::string> delivered;  // everything each line received
  for (int round = 0; round < 2; ++round) {
    // Lots the demo does not have: some of its own are deletions (no texts in their messages).
    Importer importer(*this, {1, 2}, 101, 20, round);
    std::vector<std::pair<pid_t, std::string>> started;
    for (const auto& r : runs) {
      std::string log =
          dir.file("r" + std::to_string(round) + "-" + std::to_string(started.size()));
      started.emplace_back(start_logged_sync(home, r.args, log), log);
    }
    for (std::size_t i = 0; i < started.size(); ++i) {
      EXPECT_EQ(exit_status_of(started[i].first), 0)
          << runs[i].args << ": " << file_bytes(started[i].second + ".err");
      std::set<std::string> seen;
      for (const auto& [who, bytes] : logged_records(started[i].second)) {
        EXPECT_TRUE(seen.insert(who + " " + bytes).second)
            << runs[i].args << " sent twice: " << who;
        delivered[runs[i].line] += who + " " + bytes + "\n";
      }
    }
    EXPECT_EQ(importer.failures(), "") << "round " << round;
  }
  // Lines whose lot messages carry every row's whole text (5000, VELTA; 2000 sends one row's,
  // 3000TOP splits it across strings): an imported row whose flag is cleared there went out with
  // the text it holds now.
  const std::pair<int, int> carrying_text[] = {{1, 2}, {1, 4}, {1, 5}, {1, 8}, {2, 2}, {2, 3}};
  int cleared = 0;
  for (auto [dept, line] : carrying_text) {
    for (const auto& text :
         lines_of(sql("select TRC_DESC1 from TRACEABILITY where TRC_BNC = " + std::to_string(dept) +
                      " and TRC_DESC1 like 'MARK-%' and substr(TRC_FLAGTRASM, " +
                      std::to_string(line) + ", 1) = '0'"))) {
      ++cleared;
      EXPECT_NE(delivered[line].find(text), std::string::npos)
          << text << " is marked delivered on department " << dept << ", line " << line
          << " but was never sent there";
    }
  }
  EXPECT_GT(cleared, 0);
  RecordProperty("cleared", cleared);
  for (int line = 1; line <= 8; ++line) {
    EXPECT_EQ(qkp("sync --line " + std::to_string(line) + " --out " + dir.file("quiet.bin")), 0)
        << err;
    EXPECT_EQ(qkp("pending --line " + std::to_string(line)), 3) << "line " << line;
  }
}

TEST_F(SyncSafetyOnSqlite, ImportRefusesWhatALineCannotRead) {
  struct Case {
    const char* file;
    const char* text;
    const char* message;
  } cases[] = {
      {"TASTIERA_PLU.csv", "TP_BNC,TP_SCALE,TP_KEY,TP_VALUE\n1,1,1,1e19\n",
       "line 2, column TP_VALUE: holds 1E+19, not a 32-bit whole number"},
      {"TASTIERA_PLU.csv", "TP_BNC,TP_SCALE,TP_KEY,TP_VALUE\n1,1,1,2.5\n",
       "column TP_VALUE: holds 2.5, not a 32-bit whole number"},
      {"TASTIERA_PLU.csv", "TP_BNC,TP_SCALE,TP_KEY,TP_VALUE\n1,1,1,2147483648\n",
       "column TP_VALUE: holds 2147483648, not a 32-bit whole number"},
      {"TASTIERA_PLU.csv", "TP_BNC,TP_SCALE,TP_KEY,TP_VALUE\n1,1,x,5\n",
       "column TP_KEY: holds \"x\", not a 32-bit whole number"},
      {"BARCODE.csv", "BC_BNC,BC_FORM,BC_FLAGTRASM\n1,8,1102\n",
       "column BC_FLAGTRASM: holds \"1102\", not 4 characters \"0\" or \"1\""},
      {"TRACEABILITY.csv", "TRC_BNC,TRC_ID,TRC_FLAGTRASM\n1,40,1111\n",
       "column TRC_FLAGTRASM: holds \"1111\", not 8 characters"},
      {"SCALE_LINES.csv", "SL_BNC,SL_LINE,SL_FAMILY,SL_SCALE\n4,1,6000,1\n",
       "column SL_FAMILY: holds \"6000\", not one of 3000, 3000TOP, 2000, 5000, VELTA, KESTRA"},
      {"SCALE_LINES.csv", "SL_BNC,SL_LINE,SL_FAMILY,SL_SCALE\n4,9,5000,1\n",
       "column SL_LINE: holds 9, not a whole number from 1 to 8"},
      {"SCALE_LINES.csv", "SL_BNC,SL_LINE,SL_FAMILY,SL_SCALE\n-1,1,5000,1\n",
       "column SL_BNC: holds -1, not a whole number from 0 to 2147483647"},
      {"BARCODE.csv", "BC_BNC,BC_FORM,ROW_VERSION\n1,8,0\n",
       "line 1: ROW_VERSION is kept by the archive itself"},
      {"BARCODE.csv", "BC_BNC,BC_FORM,COLOUR\n1,8,red\n",
       "line 1: BARCODE has no column \"COLOUR\""},
      {"BARCODE.csv", "BC_BNC,BC_FORM\n1,8,9\n", "line 2: 3 fields, the header names 2 columns"},
      {"BARCODE.csv", "BC_BNC,BC_FORM\n1,\"8\n", "malformed CSV"},
      {"NOTATABLE.csv", "A\n1\n", "the archive has no table NOTATABLE"},
      {"BARCODE.csv", "", "the file is empty"},
  };
  std::string before = file_bytes(home + "/Archivi.sqlite");
  int n = 0;
  for (const auto& c : cases) {
    std::string folder = dir.file("bad" + std::to_string(++n));
    std::filesystem::create_directories(folder);
    std::ofstream(folder + "/" + c.file) << c.text;
    EXPECT_EQ(qkp("import-csv " + folder), 1) << c.text;
    EXPECT_NE(err.find(c.message), std::string::npos) << err;
    EXPECT_NE(err.find(folder + "/" + c.file), std::string::npos) << err;
  }
  // A file that cannot be read says so.
  std::filesystem::create_directories(dir.file("unreadable/BARCODE.csv"));
  EXPECT_EQ(qkp("import-csv " + dir.file("unreadable")), 1);
  EXPECT_NE(err.find("cannot be read"), std::string::npos) << err;
  EXPECT_EQ(file_bytes(home + "/Archivi.sqlite"), before);
  // Families are accepted in any letter case and stored one way.
  std::filesystem::create_directories(dir.file("good"));
  std::ofstream(dir.file("good/SCALE_LINES.csv"))
      << "SL_BNC,SL_LINE,SL_FAMILY,SL_SCALE\n4,1,kestra,1\n";
  EXPECT_EQ(qkp("import-csv " + dir.file("good")), 0) << err;
  EXPECT_EQ(sql("select SL_FAMILY from SCALE_LINES where SL_BNC = 4"), "KESTRA\n");
}

TEST_F(SyncSafetyOnSqlite, SyncNamesABadRowSkipsItsRecordAndGoesOn) {
  // Another program wrote values the component cannot read.
  ASSERT_EQ(sql_exec(home + "/Archivi.sqlite",
                     "UPDATE TASTIERA_PLU SET TP_VALUE = 1e19 WHERE TP_BNC = 1 AND TP_KEY = 3;"
                     "INSERT INTO TASTIERA_PLU (TP_BNC, TP_SCALE, TP_KEY, TP_FLAGTRASM) VALUES "
                     "(1, 2, 1e19, '11111111')"),
            "");
  std::string sent = dir.file("sent.txt");
  EXPECT_EQ(qkp("sync --line 2 --dept 1 --separator lf --out " + sent), 1);
  EXPECT_NE(err.find("TASTIERA_PLU: a row of department 1 has TP_KEY = 1E+19, not a 32-bit whole "
                     "number; its record is left out"),
            std::string::npos)
      << err;
  EXPECT_NE(err.find("key 3: not sent because of the values above; left pending"),
            std::string::npos)
      << err;
  EXPECT_NE(err.find("TASTIERA_PLU (TP_BNC 1, TP_SCALE 2, TP_KEY 3): TP_VALUE holds 1E+19, not "
                     "a 32-bit whole number"),
            std::string::npos)
      << err;
  // Everything else went.
  std::string out = file_bytes(sent);
  EXPECT_NE(out.find("ID=4 TIP=0 REP=1 VAL=104"), std::string::npos);
  EXPECT_NE(out.find("TYP=LOT REP=1 ID=12"), std::string::npos);
  EXPECT_EQ(sql("select distinct substr(TP_FLAGTRASM, 2, 1) from TASTIERA_PLU where TP_BNC = 1 "
                "and TP_KEY = 3"),
            "1\n");
}

TEST_F(SyncSafetyOnSqlite, CheckReportsValuesThatWouldNotLookUpSafely) {
  // A quote in a value pasted into a query: "1' or '1'='1" would match the first mapping.
  ASSERT_EQ(sql_exec(home + "/Archivi.sqlite",
                     "UPDATE TICKET_PROPERTY SET value = '1'' or ''1''=''1' WHERE TD_BNC = 1 AND "
                     "TD_ID = 1 AND TD_OBJ = 2 AND Id = 4"),
            "");
  std::string out;
  EXPECT_EQ(qkp("layout --dept 1 --layout 1 --family 5000 --check", &out), 1);
  EXPECT_NE(out.find("data type 1' or '1'='1 holds a quote"), std::string::npos) << out;
}

}  // namespace
