// qkp serve against fake scales on 127.0.0.1: it delivers what becomes pending without being
// asked, retries a scale that is down while the others are served, and a stop loses nothing.
// Bounds on time are generous (a loaded machine); the speed itself is measured elsewhere.
#include <httplib.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <regex>
#include <thread>

#include "date_schedule.h"
#include "fake_scale.h"
#include "tool_fixture.h"

namespace qk::testing {
namespace {

using namespace std::chrono_literals;

bool eventually(const std::function<bool()>& ok, std::chrono::seconds bound = 30s) {
  for (auto until = std::chrono::steady_clock::now() + bound;
       std::chrono::steady_clock::now() < until; std::this_thread::sleep_for(100ms))
    if (ok()) return true;
  return ok();
}

struct Serve : Tool {
  pid_t pid = -1;
  std::string log = dir.file("serve.log");

  void TearDown() override {
    if (pid > 0) {
      ::kill(pid, SIGKILL);
      ::waitpid(pid, nullptr, 0);
    }
  }
  void start(const std::string& options = "--listen off") {
    std::ofstream(log, std::ios::trunc)
        .close();  // no word of an earlier start is read as this one's
    pid = ::fork();
    if (pid == 0) {
      std::string cmd =
          std::string("exec ") + QKP_BINARY + " --home " + home + " serve " + options + " 2>" + log;
      ::execl("/bin/sh", "sh", "-c", cmd.c_str(), static_cast<char*>(nullptr));
      ::_exit(127);
    }
  }
  // SIGTERM, and the exit status once it ended (-1: not within the bound).
  int stop(std::chrono::seconds bound = 40s) {
    ::kill(pid, SIGTERM);
    int status = 0;
    bool ended = eventually([&] { return ::waitpid(pid, &status, WNOHANG) == pid; }, bound);
    pid = -1;
    return ended && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  void set(int dept, const std::string& family, const std::string& address) {
    ASSERT_EQ(qkp("lines set --dept " + std::to_string(dept) + " --line 1 --family " + family +
                  " --scale 1 --to '" + address + "'"),
              0)
        << err;
  }
  bool nothing_pending(int dept) {
    return qkp("pending --line 1 --dept " + std::to_string(dept)) == 3;
  }
  // The qkp processes still running on this installation, the service's syncs included.
  int processes_of_home() {
    int n = 0;
    for (const auto& e : std::filesystem::directory_iterator("/proc")) {
      std::ifstream in(e.path() / "cmdline");
      std::string cmdline((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      std::replace(cmdline.begin(), cmdline.end(), '\0', ' ');
      if (cmdline.find(QKP_BINARY) == 0 && cmdline.find(" " + home + " ") != std::string::npos) ++n;
    }
    return n;
  }
  void settings(const std::vector<std::pair<std::string, std::string>>& values) {
    for (const auto& [k, v] : values)
      ASSERT_EQ(qkp("settings set Service " + k + " " + v), 0) << err;
  }
};

// The archive tells the service of a change: SQLite's counter, the server's notifications.
struct ServeOnBoth : Serve, ::testing::WithParamInterface<Backend> {
  void SetUp() override { set_up_on(GetParam()); }
};
QK_ON_BOTH_BACKENDS(ServeOnBoth);

TEST_P(ServeOnBoth, DeliversWhatBecomesPendingAndReloadsItsSettings) {
  FakeScale one, two, three;
  set(1, "3000", one.address());
  set(2, "3000TOP", two.address());
  set(3, "KESTRA", three.address());
  // The floor is far away: only the archive's change can wake the service in time.
  settings({{"ServiceCheckSeconds", "3600"}});
  start();
  ASSERT_TRUE(eventually([&] {
    return nothing_pending(1) && nothing_pending(2) && nothing_pending(3);
  })) << dir.read("serve.log");
  std::size_t before = one.received().size();
  ASSERT_EQ(qkp("mark --line 1 --dept 1 --kind lots --id 12"), 0) << err;
  EXPECT_TRUE(eventually([&] { return nothing_pending(1) && one.received().size() > before; }))
      << dir.read("serve.log");
  EXPECT_EQ(two.connections(), 1);
  // SIGHUP reads the settings again; a bad one is named and the ones in use are kept.
  settings({{"ServiceJobs", "1"}});
  ::kill(pid, SIGHUP);
  EXPECT_TRUE(eventually(
      [&] { return dir.read("serve.log").find("1 syncs at once") != std::string::npos; }));
  settings({{"ServiceDateAt", "25:00"}});
  ::kill(pid, SIGHUP);
  EXPECT_TRUE(eventually([&] {
    return dir.read("serve.log")
               .find(
                   "\"25:00\" is not a time of day HH:MM (such as 05:00); the "
                   "settings in use are kept") != std::string::npos;
  }));
  EXPECT_EQ(stop(), 0);
  // Every run is in the journal, started by the service.
  auto runs = json_of("runs");
  EXPECT_GE(runs.size(), 4u);
  EXPECT_NE(runs.dump().find("qkp serve: qkp sync --line 1 --dept 1"), std::string::npos) << runs;
}

TEST_F(Serve, RetriesAScaleThatIsDownWhileTheOthersAreServed) {
  int down = FakeScale::closed_port();
  FakeScale two, three;
  set(1, "3000", "tcp://127.0.0.1:" + std::to_string(down) + "?timeout=2");
  set(2, "3000TOP", two.address());
  set(3, "KESTRA", three.address());
  settings({{"ServiceRetrySeconds", "0.5"}, {"ServiceRetryMaxSeconds", "2"}});
  start();
  EXPECT_TRUE(eventually([&] { return nothing_pending(2) && nothing_pending(3); }))
      << dir.read("serve.log");
  EXPECT_FALSE(nothing_pending(1));
  EXPECT_TRUE(eventually([&] {
    return dir.read("serve.log")
               .find("department 1, line 1: the sync failed (tcp://127.0.0.1:" +
                     std::to_string(down) + ": cannot connect (Connection refused), try 2)") !=
           std::string::npos;
  })) << dir.read("serve.log");
  FakeScale back(FakeScale::Behaviour{FakeScale::Mode::Read, 0}, down);
  EXPECT_TRUE(eventually([&] { return nothing_pending(1); })) << dir.read("serve.log");
  EXPECT_GT(back.received().size(), 14000u);
  EXPECT_TRUE(eventually([&] {
    return dir.read("serve.log").find("department 1, line 1: delivered again after") !=
           std::string::npos;
  }));
  EXPECT_EQ(stop(), 0);
}

TEST_F(Serve, AStopMidDeliveryLosesNothingAndLeavesNoChild) {
  // The scale stops reading within the pictures: the sync waits for it when the stop comes.
  FakeScale one(FakeScale::Behaviour{FakeScale::Mode::StallAt, 6000});
  set(1, "3000", one.address("?timeout=3&separator=none"));
  start();
  ASSERT_TRUE(eventually([&] { return one.received().size() >= 6000; })) << dir.read("serve.log");
  auto asked = std::chrono::steady_clock::now();
  EXPECT_EQ(stop(), 0) << dir.read("serve.log");
  EXPECT_LT(std::chrono::steady_clock::now() - asked, 25s);
  EXPECT_EQ(processes_of_home(), 0);
  // What was reset was received whole; the rest goes with the next sync.
  auto rows = json_of("journal --line 1 --dept 1");
  confirmed_within(rows, one.received());
  EXPECT_LT(rows.size(), 13u);
  FakeScale back;
  set(1, "3000", back.address());
  EXPECT_EQ(qkp("sync --line 1 --dept 1"), 0) << err;
  EXPECT_TRUE(nothing_pending(1));
}

TEST_F(Serve, OneServicePerInstallationAndAClockOnItsOwn) {
  FakeScale one;
  set(1, "3000", one.address("?separator=none"));
  start();
  ASSERT_TRUE(eventually([&] { return nothing_pending(1); })) << dir.read("serve.log");
  std::string second_log;
  EXPECT_EQ(qkp("serve"), 1);
  EXPECT_NE(err.find("another qkp serve serves"), std::string::npos) << err;
  EXPECT_EQ(stop(), 0);
  std::size_t before = one.received().size();
  EXPECT_EQ(qkp("sync --line 1 --dept 1 --date"), 0) << err;
  EXPECT_EQ(one.received().size() - before, 19u) << "the 3000's date and time only";
}

// The HTTP API of a running service, with a real client.
struct Api : Serve {
  int port = 0;
  void start_api(const std::string& listen = "127.0.0.1:0") {
    start("--listen " + listen);
    ASSERT_TRUE(eventually([&] {
      std::smatch m;
      std::string l = dir.read("serve.log");
      if (std::regex_search(l, m, std::regex("the API and page: http://[^ ]+:([0-9]+)/")))
        port = std::stoi(m[1]);
      return port > 0;
    })) << dir.read("serve.log");
  }
  httplib::Result call(const std::string& method, const std::string& path,
                       const std::string& token = "") {
    httplib::Client c("127.0.0.1", port);
    httplib::Headers h;
    if (!token.empty()) h.emplace("Authorization", "Bearer " + token);
    return method == "GET" ? c.Get(path.c_str(), h) : c.Post(path.c_str(), h, "", "text/plain");
  }
  int status(const std::string& method, const std::string& path, const std::string& token = "") {
    auto r = call(method, path, token);
    return r ? r->status : -1;
  }
};

TEST_F(Api, EveryEndpointAnswersInJsonAndSendNowRunsASync) {
  set(1, "3000", "file:line1.txt");
  start_api();
  ASSERT_TRUE(eventually([&] { return nothing_pending(1); })) << dir.read("serve.log");
  struct Case {
    const char *method, *path;
    int status;
    const char* says;
  } cases[] = {
      {"GET", "/api/status", 200, "\"state\": \"running\""},
      {"GET", "/api/lines", 200, "\"address\": \"file:line1.txt\""},
      {"GET", "/api/lines/2/3", 200, "\"pending\": 26"},
      {"GET", "/api/lines/2/9", 400, "line: \\\"9\\\" is not a whole number from 1 to 8"},
      {"GET", "/api/lines/x/1", 400, "dept: \\\"x\\\" is not a whole number"},
      {"GET", "/api/lines/7/1", 404, "department 7 has no line 1"},
      {"POST", "/api/lines/7/1/sync", 404, "department 7 has no line 1"},
      {"POST", "/api/lines/1/1/sync", 202, "\"queued\": true"},
      {"GET", "/nothing", 404, "no such endpoint: /nothing"},
      {"GET", "/metrics", 200, "qk_line_pending{dept=\"2\",line=\"3\"} 26"},
      // What the archive holds, through the tool.
      {"GET", "/api/lines/2/3/pending", 200, "\"label\": \"key 1\""},
      {"GET", "/api/lines/7/1/pending", 404, "no department configures line 1 in department 7"},
      {"GET", "/api/lines/2/3/pending?x=1", 400, "x: no such parameter here"},
      {"GET", "/api/journal?line=1&limit=1", 200, "\"more\": true"},
      {"GET", "/api/journal?line=1&kind=date&dept=1", 200, "\"J_KIND\": \"date\""},
      {"GET", "/api/journal?since=2999-01-01", 200, "\"rows\": []"},
      {"GET", "/api/journal?line=9", 400, "line: \\\"9\\\" is not a whole number from 1 to 8"},
      {"GET", "/api/journal?kind=bogus", 400, "kind: \\\"bogus\\\" is not one of date, vat,"},
      {"GET", "/api/journal?id=1", 400, "id: needs kind"},
      {"GET", "/api/journal?since=yesterday", 400, "since: \\\"yesterday\\\" is not a UTC time"},
      {"GET", "/api/journal?limit=0", 400, "limit: \\\"0\\\" is not a whole number from 1 to 1000"},
      {"GET", "/api/journal?colour=red", 400, "colour: no such parameter here (it takes line,"},
      {"GET", "/api/runs?line=1&limit=1", 200, "\"RUN_BY\": \"qkp serve: qkp sync --line 1"},
      {"GET", "/api/runs?dept=1", 400, "dept: no such parameter here"},
      {"GET", "/api/layouts?dept=1", 200, "\"TK_DESCRIPTION\": \"Etichetta standard\""},
      {"GET", "/api/layouts", 400, "dept: the department to list"},
      {"GET", "/api/images?dept=1", 200, "\"IM_FILE_NAME\": \"LOGO.BMP\""},
      {"GET", "/api/layouts/1/1.svg", 200, "<svg"},
      {"GET", "/api/layouts/1/2.png?family=5000", 200, "PNG"},
      {"GET", "/api/layouts/1/77.svg", 404, "does not exist"},
      {"GET", "/api/layouts/1/1.svg?family=2000", 400,
       "family: \\\"2000\\\" is not one of 3000, 5000"},
      {"GET", "/api/images/1/4.png?kind=kestra", 200, "PNG"},
      {"GET", "/api/images/1/9.png", 404, "image 9 of department 1 does not exist"},
      {"POST", "/api/mark?line=1&dept=1&kind=keys&id=1", 200, "\"rows\": 1"},
      {"POST", "/api/mark?line=4&dept=1", 404, "department 1 has no line 4: not marked"},
      {"POST", "/api/mark?dept=1", 400, "line: the line to mark records pending on"},
      {"POST", "/api/mark?line=1&kind=date", 400, "kind: \\\"date\\\" is not one of vat,"},
      // The page and its files, from the program itself.
      {"GET", "/", 200, "<script src=\"app.js\"></script>"},
      {"GET", "/app.js", 200, "/api/lines"},
  };
  for (const auto& c : cases) {
    auto r = call(c.method, c.path);
    ASSERT_TRUE(r) << c.path;
    EXPECT_EQ(r->status, c.status) << c.path;
    EXPECT_NE(r->body.find(c.says), std::string::npos) << c.path << ": " << r->body;
  }
  // What the metrics count is what the journal holds.
  // (The record marked above is delivered again meanwhile: the two agree once it is.)
  EXPECT_TRUE(eventually([&] {
    auto journal =
        nlohmann::json::parse(call("GET", "/api/journal?line=1&dept=1&limit=1000")->body);
    return call("GET", "/metrics")
               ->body.find("qk_line_records_delivered_total{dept=\"1\",line=\"1\"} " +
                           std::to_string(journal["rows"].size()) + "\n") != std::string::npos;
  }));
  // "Send now" and the record marked above run a sync, and many readers of the service and of
  // the archive meanwhile are all answered.
  std::vector<std::thread> readers;
  std::atomic<int> answered{0};
  for (int i = 0; i < 8; ++i)
    readers.emplace_back([&, i] {
      for (int k = 0; k < 10; ++k)
        if (auto r = call("GET", i % 2 ? "/api/lines" : "/api/journal?limit=5");
            r && r->status == 200)
          ++answered;
    });
  for (auto& t : readers) t.join();
  EXPECT_EQ(answered, 80);
  EXPECT_TRUE(eventually([&] {
    return dir.read("serve.log").find("department 1, line 1: a sync was asked for") !=
           std::string::npos;
  }));
  EXPECT_EQ(stop(), 0);
}

TEST_F(Api, TheTokenGuardsWritesAndEveryOtherAddress) {
  std::string token;
  ASSERT_EQ(qkp("serve --init-token", &token), 0) << err;
  token = token.substr(0, token.find('\n'));
  EXPECT_EQ(token.size(), 64u);
  struct stat st {};
  ASSERT_EQ(::stat((home + "/service.token").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  start_api();
  EXPECT_EQ(status("GET", "/api/lines"), 200) << "reading here needs no token";
  EXPECT_EQ(status("POST", "/api/lines/1/1/sync"), 401);
  EXPECT_EQ(status("POST", "/api/lines/1/1/sync", "wrong"), 401);
  EXPECT_EQ(status("POST", "/api/lines/1/1/sync", token), 202);
  EXPECT_EQ(status("POST", "/api/mark?line=1", "wrong"), 401);
  EXPECT_EQ(stop(), 0);
  // On every address, reading needs it too.
  port = 0;
  start_api("0.0.0.0:0");
  EXPECT_EQ(status("GET", "/api/lines"), 401);
  EXPECT_EQ(status("GET", "/api/journal"), 401);
  EXPECT_EQ(status("GET", "/api/lines", token), 200);
  EXPECT_EQ(stop(), 0);
  // Without a token no other address is served; a token others may read is refused.
  std::filesystem::remove(home + "/service.token");
  EXPECT_EQ(qkp("serve --listen 0.0.0.0:0"), 1);
  EXPECT_NE(err.find("listening on 0.0.0.0 needs a token"), std::string::npos) << err;
  std::ofstream(home + "/service.token") << std::string(64, 'a') << "\n";
  ::chmod((home + "/service.token").c_str(), 0644);
  EXPECT_EQ(qkp("serve --listen 127.0.0.1:0"), 1);
  EXPECT_NE(err.find("may be read by others"), std::string::npos) << err;
  EXPECT_EQ(qkp("serve --listen 127.0.0.1"), 2);
}

TEST(DateSchedule, TimesOfDay) {
  using qk::service::DateSchedule;
  std::string why;
  for (const char* bad : {"25:00", "5", "05:60", "05:00,x", "05-00"}) {
    EXPECT_FALSE(DateSchedule::parse(bad, &why)) << bad;
    EXPECT_NE(why.find("is not a time of day HH:MM"), std::string::npos) << why;
  }
  auto s = DateSchedule::parse("13:30, 05:00", &why);
  ASSERT_TRUE(s);
  std::tm noon{};
  noon.tm_year = 126, noon.tm_mon = 10, noon.tm_mday = 24, noon.tm_hour = 12, noon.tm_isdst = -1;
  auto at = std::chrono::system_clock::from_time_t(std::mktime(&noon));
  std::time_t next = std::chrono::system_clock::to_time_t(*s->next_after(at));
  std::tm n{};
  ::localtime_r(&next, &n);
  EXPECT_EQ(n.tm_hour * 100 + n.tm_min, 1330);
  noon.tm_hour = 14;
  next = std::chrono::system_clock::to_time_t(
      *s->next_after(std::chrono::system_clock::from_time_t(std::mktime(&noon))));
  ::localtime_r(&next, &n);
  EXPECT_EQ(n.tm_mday * 10000 + n.tm_hour * 100 + n.tm_min, 250500);
  EXPECT_FALSE(DateSchedule::parse("", &why)->next_after(at));
}

}  // namespace
}  // namespace qk::testing
