// The qkp tool end to end on the demo archive: pending-only sync, a second sync, a failing
// transport, and a sync killed midway (nothing reset that was not delivered).
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

#include "tool_fixture.h"

using namespace qk::testing;

using Sync = ToolOnBoth;
QK_ON_BOTH_BACKENDS(Sync);

TEST_F(Tool, ExitStatusAndFormats) {
  std::string out;
  EXPECT_EQ(qkp("--format hex date --at 2026-03-05T14:07:09", &out), 0);
  EXPECT_EQ(out, "32353939393930303530333236313430373039\n");  // 2599990050326140709
  EXPECT_EQ(qkp("--format raw request stop", &out), 0);
  EXPECT_EQ(out, "<STOP><END_STOP>\r\n");
  EXPECT_EQ(qkp("--format text request stop", &out), 0);
  EXPECT_EQ(out, "<STOP><END_STOP>\\x0D\\x0A\n");
  EXPECT_EQ(qkp("--format json vat", &out), 0);
  EXPECT_NE(out.find("\"text\": \"h001ALIQUOTA 1      10400\""), std::string::npos);
  EXPECT_EQ(qkp("date --at nonsense"), 2);
  EXPECT_EQ(qkp("nosuchcommand"), 2);
  EXPECT_EQ(qkp("keys --dept x --scale 1 --line 1 --key 1"), 2);  // refused before anything runs
  EXPECT_EQ(qkp("lot --dept 1 --lot 99 --family velta"), 1);
  EXPECT_EQ(qkp("init"), 1);  // refuses to overwrite
}

TEST_P(Sync, PendingOnlySyncThenNothing) {
  std::string out = dir.file("out.txt");
  ASSERT_EQ(qkp("sync --line 2 --dept 1 --separator none --out " + out), 0);
  std::ifstream in(out, std::ios::binary);
  std::string sent((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  // Department 1, line 2 is a 5000 scale: the date, then the pending keys, lots and messages.
  EXPECT_EQ(sent.rfind("<MSG OPE=FUN NPM=1 NCM=1 TYP=DATA", 0), 0u);
  EXPECT_NE(sent.find("<MSG OPE=NEW TYP=TAS  ID=1 TIP=0 REP=1 VAL=101 />"), std::string::npos);
  EXPECT_NE(sent.find("<MSG OPE=DEL TYP=LOT ID=7 CAR=0 />"), std::string::npos);
  EXPECT_NE(sent.find("<MSG OPE=NEW TYP=MSG ID=\"2\""), std::string::npos);
  EXPECT_EQ(sent.find("ID=21 "), std::string::npos);  // key 21 was not pending
  // Exactly the served line was cleared, on department 1 only.
  EXPECT_EQ(sql("select distinct TP_FLAGTRASM from TASTIERA_PLU where TP_BNC = 1 and TP_KEY <= 20"),
            "10100000\n");
  EXPECT_EQ(sql("select distinct TP_FLAGTRASM from TASTIERA_PLU where TP_BNC = 2 and TP_KEY <= 20"),
            "11100000\n");
  std::string listing;
  EXPECT_EQ(qkp("pending --line 2 --dept 1", &listing), 3);  // nothing pending
  EXPECT_EQ(listing, "department 1, line 2 (5000, scale 2)\n  nothing pending\n");
  ASSERT_EQ(qkp("sync --line 2 --dept 1 --separator none --out " + out), 3) << "nothing pending";
  std::ifstream again(out, std::ios::binary);
  std::string after((std::istreambuf_iterator<char>(again)), std::istreambuf_iterator<char>());
  EXPECT_EQ(after, sent);  // the second sync sent nothing
}

// A sync reads a batch's rows, and writes its bookkeeping, a batch at a time. With every record
// read and written by a statement of its own (QK_ARCHIVE_BATCHES=off) a twin installation must
// come to the same: the same bytes on every line (the clock's records aside), the same flags
// after each step, the same journal and the same deliveries kept.
TEST_P(Sync, BatchedAndOneByOneAgree) {
  std::string twin = dir.file("twin"), twin_server;
  if (!server.empty()) QK_NEW_PG_DATABASE_OR_SKIP(twin_server);
  ASSERT_EQ(
      qkp_in(twin, "init --demo" + (server.empty() ? "" : " --archive '" + twin_server + "'")), 0)
      << err;
  auto twin_sql = [&](const std::string& q) {
    return twin_server.empty() ? sql_rows(twin + "/Archivi.sqlite", q)
                               : PgServer::rows(twin_server, q);
  };
  const std::string flags =
      "select 'k', TP_BNC, TP_SCALE, TP_KEY, TP_FLAGTRASM from TASTIERA_PLU union all "
      "select 'b', BC_BNC, BC_FORM, 0, BC_FLAGTRASM from BARCODE union all "
      "select 'l', TRC_BNC, TRC_ID, TRC_ROW, TRC_FLAGTRASM from TRACEABILITY union all "
      "select 'a', ADV_BNC, Id, 0, ADV_FLAGTRASM from ADVERTISING order by 1, 2, 3, 4";
  const std::string journal =
      "select J_BNC, J_LINE, J_SCALE, J_FAMILY, J_KIND, J_ID, J_LENGTH, case when J_KIND = 'date' "
      "then '' else J_HASH end as H from QK_JOURNAL order by 1, 2, 5, 6, 7, 8";
  const std::string delivered =
      "select D_BNC, D_LINE, D_KIND, D_ID, D_SCALE, D_FAMILY, D_ROWS, D_HASH from QK_DELIVERED "
      "order by 1, 2, 3, 4";
  std::regex clock("(^|\r\n)(2599990[0-9]{12}|<MSG OPE=FUN NPM=1 NCM=1 TYP=DATA [^\r]*)");
  auto sync_every_line = [&](const std::string& installation, const std::string& how) {
    std::string sent;
    for (int line = 1; line <= 3; ++line) {
      std::string out = dir.file("sent.txt");
      std::remove(out.c_str());
      EXPECT_LE(qkp_in(installation, "sync --line " + std::to_string(line) + how + " --out " + out),
                3)
          << err;
      sent += std::regex_replace(dir.read("sent.txt"), clock, "$1<clock>");
    }
    return sent;
  };
  for (const char* how : {"", " --full"}) {
    std::string batched = sync_every_line(home, how), one_by_one;
    {
      ScopedEnv off("QK_ARCHIVE_BATCHES", "off");
      one_by_one = sync_every_line(twin, how);
    }
    EXPECT_GT(batched.size(), 1000u) << how;
    EXPECT_EQ(batched, one_by_one) << how;
    EXPECT_EQ(sql(flags), twin_sql(flags)) << how;
  }
  EXPECT_NE(sql(journal).find("|keys|"), std::string::npos);
  EXPECT_EQ(sql(journal), twin_sql(journal));
  EXPECT_NE(sql(delivered), "");
  EXPECT_EQ(sql(delivered), twin_sql(delivered));
}

TEST_P(Sync, FailingTransportLeavesTheRestPending) {
  std::string got = dir.file("got.txt");
  // Accepts two strings, then fails.
  std::string cmd = "'n=$(cat " + dir.file("n") +
                    " 2>/dev/null || echo 0); n=$((n+1)); echo $n > " + dir.file("n") +
                    "; [ $n -le 2 ] && cat >> " + got + "'";
  EXPECT_EQ(qkp("sync --line 1 --dept 1 --exec " + cmd), 1);
  // Date and the first barcode form went; the first key block (and the rest) did not.
  EXPECT_EQ(sql("select BC_FORM, BC_FLAGTRASM from BARCODE where BC_BNC = 1 order by BC_FORM"),
            "1|0000\n2|1100\n3|0000\n");
  EXPECT_EQ(sql("select distinct TP_FLAGTRASM from TASTIERA_PLU where TP_BNC = 1 and TP_KEY <= 20"),
            "11100000\n");
}

TEST_P(Sync, KilledSyncNeverResetsWhatWasNotDelivered) {
  std::string got = dir.file("got.txt");
  std::string cmd = std::string(QKP_BINARY) + " --home " + home +
                    " sync --line 2 --dept 1 --exec 'cat >> " + got + "; echo >> " + got +
                    "; sleep 0.05'";
  pid_t pid = fork();
  if (pid == 0) {
    execl("/bin/sh", "sh", "-c", ("exec " + cmd + " 2>/dev/null").c_str(), nullptr);
    _exit(127);
  }
  // Kill it once a few strings have been delivered (or after 20 s, whatever comes first).
  for (int i = 0; i < 2000; ++i) {
    std::ifstream probe(got);
    std::string so_far((std::istreambuf_iterator<char>(probe)), std::istreambuf_iterator<char>());
    if (std::count(so_far.begin(), so_far.end(), '\n') >= 8) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  kill(pid, SIGKILL);
  int status;
  waitpid(pid, &status, 0);
  std::ifstream in(got);
  std::string delivered((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  auto cleared =
      lines_of(sql("select distinct TP_KEY from TASTIERA_PLU where TP_BNC = 1 and "
                   "substr(TP_FLAGTRASM, 2, 1) = '0' and TP_KEY <= 20"));
  auto pending =
      lines_of(sql("select distinct TP_KEY from TASTIERA_PLU where TP_BNC = 1 and "
                   "substr(TP_FLAGTRASM, 2, 1) = '1'"));
  EXPECT_FALSE(cleared.empty());  // the kill came midway
  EXPECT_FALSE(pending.empty());
  for (const auto& key : cleared)
    EXPECT_NE(delivered.find(" ID=" + key + " "), std::string::npos) << "key " << key;
}
