// `qkp sync --sender`: the loopback sender of examples/senders against the real tool and archive.
#include <signal.h>
#include <unistd.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <thread>

#include "tool_fixture.h"

namespace qk::testing {
namespace {

using Records = std::set<std::string>;  // "dept kind id"

const std::string kLoopback = std::string(QK_PYTHON) + " " + std::string(QK_SOURCE_DIR) +
                              "/examples/senders/loopback_sender.py";

struct Sender : Tool {
  std::string sent = dir.file("sent.bin");

  void SetUp() override {
    if (std::string(QK_PYTHON).empty()) GTEST_SKIP() << "no Python 3 interpreter for the senders";
    Tool::SetUp();
  }

  std::string sender(const std::string& options = "") {
    return "--sender '" + kLoopback + " " + sent + (options.empty() ? "" : " " + options) + "'";
  }

  Records pending(int line) {
    std::string out;
    qkp("--format json pending --line " + std::to_string(line), &out);
    Records r;
    for (const auto& l : nlohmann::json::parse(out.empty() ? "[]" : out))
      for (const auto& rec : l["records"])
        r.insert(std::to_string(l["dept"].get<int>()) + " " + rec["kind"].get<std::string>() + " " +
                 std::to_string(rec["id"].get<int>()));
    return r;
  }

  // The records of which the sender wrote at least one string (from its header log).
  Records written(const std::string& log = "") {
    Records r;
    std::ifstream in((log.empty() ? sent : log) + ".headers");
    std::string number, dept, line, scale, family, kind, id, length;
    while (in >> number >> dept >> line >> scale >> family >> kind >> id >> length)
      r.insert(dept + " " + kind + " " + id);
    return r;
  }

  static Records minus(const Records& a, const Records& b) {
    Records r;
    for (const auto& x : a)
      if (!b.count(x)) r.insert(x);
    return r;
  }

  // Running or stopped, not a zombie waiting for a parent that will never reap it.
  static bool alive(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    if (!std::getline(stat, line)) return false;
    auto close = line.rfind(')');
    return close != std::string::npos && close + 2 < line.size() && line[close + 2] != 'Z';
  }

  std::vector<pid_t> sender_pids() {
    std::vector<pid_t> pids;
    std::ifstream in(sent + ".pids");
    for (pid_t p; in >> p;) pids.push_back(p);
    return pids;
  }
};

TEST_F(Sender, DeliversTheSameBytesAsAFileAndResetsEveryRecord) {
  std::string copy = dir.file("copy");
  ASSERT_EQ(std::system(("cp -r " + home + " " + copy).c_str()), 0);
  ASSERT_EQ(qkp("mark --line 1"), 0) << err;
  ASSERT_EQ(qkp_in(copy, "mark --line 1"), 0) << err;
  Records before = pending(1);
  ASSERT_FALSE(before.empty());

  qkp("sync --line 1 " + sender());
  EXPECT_NE(err.find("records,"), std::string::npos) << err;
  std::string file = dir.file("out.bin");
  qkp_in(copy, "sync --line 1 --out " + file);
  // Byte for byte, but for the clock records, built a moment apart.
  auto without_clock = [](const std::string& bytes) {
    std::string kept;
    for (const auto& l : lines_of(bytes))
      if (l.rfind("2599990", 0) != 0) kept += l + "\n";
    return kept;
  };
  EXPECT_EQ(without_clock(dir.read("sent.bin")), without_clock(dir.read("out.bin")));
  EXPECT_TRUE(pending(1).empty());
  Records extra = minus(written(), before);
  EXPECT_TRUE(minus(before, written()).empty()) << "every pending record went through the sender";
  EXPECT_EQ(extra, (Records{"1 date 0", "2 date 0", "3 date 0"})) << "and the clock of each scale";

  // One sender for the line; each record says which department's scale it is for.
  EXPECT_EQ(dir.read("sent.bin.env"),
            "QK_HOME=" + home + " QK_DEPT= QK_LINE=1 QK_SCALE= QK_FAMILY=\n");
  EXPECT_EQ(lines_of(dir.read("sent.bin.headers"))[0], "1 1 1 1 3000 date 0 19");
}

TEST_F(Sender, ServingOneDepartmentTheSenderIsToldItsScale) {
  ASSERT_EQ(qkp("mark --line 1"), 0) << err;
  EXPECT_EQ(qkp("sync --line 1 --dept 2 " + sender()), 0) << err;
  EXPECT_EQ(dir.read("sent.bin.env"),
            "QK_HOME=" + home + " QK_DEPT=2 QK_LINE=1 QK_SCALE=1 QK_FAMILY=3000TOP\n");
}

TEST_F(Sender, BareAcknowledgementsAreTakenInOrder) {
  ASSERT_EQ(qkp("mark --line 2"), 0) << err;
  EXPECT_EQ(qkp("sync --line 2 " + sender("--bare")), 0) << err;
  EXPECT_TRUE(pending(2).empty());
}

// A sender that stops half-way: what it acknowledged is reset, the rest stays pending.
TEST_F(Sender, StoppingHalfWayResetsExactlyTheAcknowledgedRecords) {
  struct Case {
    const char* options;
    const char* message;
  } cases[] = {
      {"--err-at 9", "refused record 9: scale 1 did not answer"},
      {"--die-at 9", "exited with status 3 before acknowledging record 9"},
      {"--garbage-at 9", "answered \"HELLO\", not \"OK <n>\""},
      {"--wrong-ack-at 9", "acknowledged record 14, which was not the one waiting (9)"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.options);
    std::remove(sent.c_str());
    std::remove((sent + ".headers").c_str());
    ASSERT_EQ(qkp("mark --line 1 --dept 1"), 0) << err;
    Records before = pending(1);
    EXPECT_EQ(qkp("sync --line 1 --dept 1 " + sender(c.options)), 1);
    EXPECT_NE(err.find(c.message), std::string::npos) << err;
    EXPECT_NE(err.find("stay pending"), std::string::npos) << err;
    Records after = pending(1);
    Records reset = minus(before, after);
    EXPECT_FALSE(reset.empty());
    for (const auto& r : reset) EXPECT_TRUE(written().count(r)) << r << " reset unacknowledged";
    // The ninth string's record and everything after it stay pending.
    EXPECT_GT(after.size(), 0u);
  }
}

TEST_F(Sender, ASenderThatEndsBadlyAfterwardsIsReported) {
  ASSERT_EQ(qkp("mark --line 1 --dept 1"), 0) << err;
  EXPECT_EQ(qkp("sync --line 1 --dept 1 " + sender("--exit-status 4")), 1);
  EXPECT_NE(err.find("exited with status 4 after acknowledging every record"), std::string::npos)
      << err;
  for (const auto& r : pending(1))
    EXPECT_NE(r.rfind("1 ", 0), 0u) << r << ": everything was acknowledged, so everything is reset";
}

TEST_F(Sender, ASilentSenderTimesOutAndIsEnded) {
  ASSERT_EQ(qkp("mark --line 1 --dept 1"), 0) << err;
  Records before = pending(1);
  EXPECT_EQ(qkp("sync --line 1 --dept 1 --sender-timeout 1 " + sender("--hang-at 3")), 1);
  EXPECT_NE(err.find("did not acknowledge record 3 within 1 s"), std::string::npos) << err;
  for (pid_t p : sender_pids()) EXPECT_FALSE(alive(p)) << "sender " << p << " survived";
  EXPECT_EQ(minus(before, pending(1)).size(), 1u) << "only the record of strings 1 and 2";
}

TEST_F(Sender, BadCommandLinesAreUsageErrors) {
  EXPECT_EQ(qkp("sync --line 1 --sender cat --out x"), 2);
  EXPECT_EQ(qkp("sync --line 1 --sender cat --sender-timeout 0"), 2);
  EXPECT_EQ(qkp("sync --line 1 --sender-timeout 5 --out x"), 2);
  EXPECT_EQ(qkp("sync --line 1 --sender '/nonexistent/sender'"), 1);
  EXPECT_NE(err.find("/nonexistent/sender"), std::string::npos) << err;
}

// SIGTERM mid-sync: qkp ends its sender, resets only what was acknowledged, and goes.
TEST_F(Sender, ATermSignalStopsTheSyncAndLeavesNoChild) {
  ASSERT_EQ(qkp("mark --line 1"), 0) << err;
  Records before = pending(1);
  std::string cmd = std::string(QKP_BINARY) + " --home " + home + " sync --line 1 " +
                    sender("--delay-ms 20") + " 2>" + dir.file("stderr.txt");
  pid_t pid = ::fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    ::execl("/bin/sh", "sh", "-c", ("exec " + cmd).c_str(), static_cast<char*>(nullptr));
    ::_exit(127);
  }
  // Wait until a few records went through, then stop it.
  for (int i = 0; i < 500 && written().size() < 3; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  ASSERT_GE(written().size(), 3u) << dir.read("stderr.txt");
  ::kill(pid, SIGTERM);
  int status = 0;
  ASSERT_EQ(::waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
  EXPECT_NE(dir.read("stderr.txt").find("interrupted by signal 15"), std::string::npos)
      << dir.read("stderr.txt");
  for (pid_t p : sender_pids()) EXPECT_FALSE(alive(p)) << "sender " << p << " survived";
  Records after = pending(1);
  EXPECT_FALSE(after.empty());
  for (const auto& r : minus(before, after))
    EXPECT_TRUE(written().count(r)) << r << " reset unacknowledged";
}

TEST_F(Sender, ExecCommandsAreToldWhereEachStringGoes) {
  ASSERT_EQ(qkp("mark --line 2 --dept 2"), 0) << err;
  std::string log = dir.file("exec.log");
  ASSERT_EQ(qkp("sync --line 2 --dept 2 --exec 'echo $QK_DEPT $QK_LINE $QK_SCALE $QK_FAMILY "
                "$QK_KIND $QK_ID >> " +
                log + "; cat > /dev/null'"),
            0)
      << err;
  EXPECT_EQ(lines_of(dir.read("exec.log")).front(), "2 2 2 VELTA lots 7");
}

}  // namespace
}  // namespace qk::testing
