#include "service.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <charconv>
#include <csignal>
#include <cstring>
#include <nlohmann/json.hpp>
#include <thread>

#include "backoff.h"
#include "qk/archive_changes.h"
#include "qk/error.h"
#include "qk/host.h"
#include "qk/sync.h"
#include "qk/sync/child_process.h"

namespace qk::service {

namespace {

using steady = std::chrono::steady_clock;

volatile std::sig_atomic_t g_reload = 0;
void on_reload(int) {
  g_reload = 1;
}

// The moment that many seconds from now.
steady::time_point from_now(double seconds) {
  return steady::now() +
         std::chrono::duration_cast<steady::duration>(std::chrono::duration<double>(seconds));
}

std::string where(const std::pair<int32_t, int32_t>& key) {
  return "department " + std::to_string(key.first) + ", line " + std::to_string(key.second);
}

std::string seconds_text(double s) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3g", s);
  return text;
}

std::string error_text(const std::exception& e) {
  if (auto* a = dynamic_cast<const automation::Error*>(&e)) return cp1252_to_utf8(a->description());
  return e.what();
}

}  // namespace

std::optional<ServiceSettings> ServiceSettings::read(std::string* error) {
  ServiceSettings s;
  std::string problems;
  auto number = [&](const char* key, double* out, double min, double max) {
    std::string text = host::setting("Service", key);
    if (text.empty()) return;
    double v = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
    if (ec != std::errc() || end != text.data() + text.size() || v < min || v > max)
      problems += std::string(problems.empty() ? "" : "; ") + "the setting " + key + " holds \"" +
                  text + "\", not a number from " + seconds_text(min) + " to " + seconds_text(max);
    else
      *out = v;
  };
  double jobs = s.jobs;
  number("ServiceCheckSeconds", &s.check_seconds, 0.1, 86400);
  number("ServiceRetrySeconds", &s.retry_seconds, 0.1, 86400);
  number("ServiceRetryMaxSeconds", &s.retry_max_seconds, 0.1, 86400);
  number("ServiceStopSeconds", &s.stop_seconds, 0, 3600);
  number("ServiceJobs", &jobs, 1, 8);
  s.jobs = static_cast<int>(jobs);
  s.date_at = host::setting("Service", "ServiceDateAt", s.date_at);
  if (s.date_at == "-") s.date_at.clear();
  std::string why;
  if (!DateSchedule::parse(s.date_at, &why))
    problems += std::string(problems.empty() ? "" : "; ") + "the setting ServiceDateAt: " + why;
  if (!problems.empty()) {
    if (error) *error = problems;
    return std::nullopt;
  }
  return s;
}

Service::Service(ServiceEnvironment env)
    : env_(std::move(env)), tool_(env_.program, env_.installation) {}

Service::~Service() {
  if (lock_fd_ >= 0) ::close(lock_fd_);
}

bool Service::configure(bool first) {
  std::string why;
  auto s = ServiceSettings::read(&why);
  if (!s) {
    env_.say(why + (first ? "" : "; the settings in use are kept"));
    return false;
  }
  settings_ = *s;
  schedule_ = DateSchedule::parse(settings_.date_at, nullptr);
  next_clock_ = schedule_->next_after(std::chrono::system_clock::now());
  try {
    archive_ = sync::open_archive_tools();
    if (auto* changes = dynamic_cast<ArchiveChanges*>(archive_.get()))
      changes->wait_for_change(0);  // starts watching
  } catch (const std::exception& e) {
    env_.say("the archive cannot be opened: " + error_text(e));
    archive_.reset();
    if (first) return false;
  }
  std::string store = sync::store_label(sync::installation_store());
  env_.say(std::string(first ? "serving " : "reloaded: serving ") + store + " of " +
           (archive_ ? archive_->location() : std::string("(no archive)")) + "; every " +
           seconds_text(settings_.check_seconds) + " s at least, " +
           std::to_string(settings_.jobs) + " syncs at once, clocks " +
           (settings_.date_at.empty() ? "never" : "at " + settings_.date_at));
  next_look_ = steady::now();
  return true;
}

void Service::look() {
  if (!archive_) archive_ = sync::open_archive_tools();
  std::vector<std::string> problems;
  sync::SyncScope scope;
  scope.store = sync::installation_store();
  auto lines = sync::list_pending(*archive_, scope, &problems);
  for (const auto& p : problems) env_.say(p);
  std::map<Key, Line> next;
  for (const auto& p : lines) {
    Key key{p.where.dept, p.where.line};
    Line l = lines_.count(key) ? lines_[key] : Line{};
    bool pending = p.known_family && !p.records.empty();
    bool addressed = !p.where.address.empty();
    if (pending && !addressed && (l.addressed || !l.pending))
      env_.say(where(key) + ": " + std::to_string(p.records.size()) +
               " records pending, but the line has no address; nothing is sent there (qkp lines "
               "set … --to ADDRESS)");
    l.pending = pending;
    l.addressed = addressed;
    l.family = p.where.family;
    l.address = p.where.address;
    l.scale = p.where.scale;
    l.records = p.known_family ? static_cast<long>(p.records.size()) : 0;
    next[key] = l;
  }
  // A line that left the network keeps its entry while its sync runs.
  for (auto& [key, l] : lines_)
    if (l.child > 0 && !next.count(key)) next[key] = l;
  lines_ = std::move(next);
}

int Service::running() const {
  int n = 0;
  for (const auto& [key, l] : lines_) n += l.child > 0 ? 1 : 0;
  return n;
}

void Service::start_due() {
  auto now = steady::now();
  for (auto& [key, l] : lines_) {
    if (running() >= settings_.jobs) return;
    if (l.child > 0 || !(l.pending || l.clock) || !l.addressed || now < l.next_try) continue;
    // One sync of a line number at a time: they share the line's lock.
    bool busy = false;
    for (const auto& [other, o] : lines_)
      busy = busy || (o.child > 0 && other.second == key.second);
    if (!busy) start(key, l);
  }
}

void Service::start(const Key& key, Line& l) {
  l.child_clock = !l.pending;
  std::vector<std::string> args = {
      "sync",         "--line",   std::to_string(key.second), "--dept", std::to_string(key.first),
      "--started-by", "qkp serve"};
  if (l.child_clock) args.push_back("--date");
  std::string why;
  pid_t pid = tool_.start(args, &l.child_out, -1, &why);
  if (pid < 0) {
    env_.say(where(key) + ": " + why);
    l.next_try = from_now(settings_.retry_seconds);
    return;
  }
  ::fcntl(l.child_out, F_SETFL, O_NONBLOCK);
  l.child = pid;
  l.child_started = steady::now();
}

// What the sync reported of itself: its counts, and why it stopped.
void Service::read_report(Line& l) {
  l.last_report.clear();
  std::string text;
  char buf[4096];
  ssize_t n;
  while ((n = ::read(l.child_out, buf, sizeof buf)) > 0)
    text.append(buf, static_cast<std::size_t>(n));
  ::close(l.child_out);
  l.child_out = -1;
  auto report = nlohmann::json::parse(text, nullptr, false);
  if (!report.is_object()) return;
  l.delivered += report.value("records", 0L);
  l.bytes += report.value("bytes", 0LL);
  l.last_report = report.value("stopped", std::string());
}

void Service::reap(bool wait) {
  for (auto& [key, l] : lines_) {
    if (l.child <= 0) continue;
    int status = 0;
    pid_t r = ::waitpid(l.child, &status, wait ? 0 : WNOHANG);
    if (r != l.child) continue;
    read_report(l);
    finished(l, key, status);
  }
}

void Service::finished(Line& l, const Key& key, int status) {
  l.child = -1;
  auto now = steady::now();
  int code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  sync_seconds_ += std::chrono::duration<double>(now - l.child_started).count();
  if (code == 0 || code == 3) ++syncs_done_;
  if (code != 0 && code != 3 && code != 4) ++syncs_failed_;
  if (code == 0 || code == 3) {
    if (l.failures > 0)
      env_.say(where(key) + ": delivered again after " + std::to_string(l.failures) +
               " failed tries");
    l.failures = 0;
    l.last_error.clear();
    l.last_success = std::time(nullptr);
    // The clock went with what was pending, or on its own; a sync that found nothing sent none.
    if (code == 0 || l.child_clock) l.clock = false;
    l.pending = false;  // the next look says whether anything is left
    l.next_try = from_now(std::min(1.0, settings_.retry_seconds));
    return;
  }
  if (code == 4) {  // another sync (a person's) holds the line: it will be done soon
    l.next_try = from_now(std::min(2.0, settings_.retry_seconds));
    return;
  }
  if (stop_signal_seen_) return;
  ++l.failures;
  ++l.failed_syncs;
  double delay = Backoff(settings_.retry_seconds, settings_.retry_max_seconds).delay(l.failures);
  l.last_error = !l.last_report.empty() ? l.last_report
                 : WIFEXITED(status)    ? "exit status " + std::to_string(code)
                                        : "ended by signal " + std::to_string(WTERMSIG(status));
  l.next_try = from_now(delay);
  env_.say(where(key) + ": the sync failed (" + l.last_error + ", try " +
           std::to_string(l.failures) + "); next try in " + seconds_text(delay) + " s");
}

void Service::stop_children() {
  for (auto& [key, l] : lines_)
    if (l.child > 0) ::kill(-l.child, SIGTERM);
  auto until = from_now(settings_.stop_seconds);
  while (running() > 0 && steady::now() < until) {
    reap(false);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  for (auto& [key, l] : lines_)
    if (l.child > 0) {
      env_.say(where(key) + ": the sync did not stop within " +
               seconds_text(settings_.stop_seconds) +
               " s; killed (what it had not reset is "
               "sent again)");
      ::kill(-l.child, SIGKILL);
    }
  reap(true);
}

void Service::publish(const std::string& state) {
  ServiceView v;
  v.installation = env_.installation;
  v.archive = archive_ ? archive_->location() : "";
  v.store = sync::store_label(sync::installation_store());
  v.state = state;
  v.started = started_;
  v.syncs_done = syncs_done_;
  v.syncs_failed = syncs_failed_;
  v.sync_seconds = sync_seconds_;
  auto now = steady::now();
  for (const auto& [key, l] : lines_)
    v.lines.push_back({key.first, key.second, l.scale, l.family, l.address, l.records, l.child > 0,
                       l.failures, l.last_error,
                       l.failures > 0 && l.next_try > now
                           ? std::chrono::duration<double>(l.next_try - now).count()
                           : 0,
                       l.last_success, l.delivered, l.bytes, l.failed_syncs});
  board_.publish(std::move(v));
}

// A person asked for a line now: it goes at once, whatever its delay after failures.
void Service::take_requests() {
  for (const Key& key : board_.take_requests()) {
    auto it = lines_.find(key);
    if (it == lines_.end()) continue;
    it->second.pending = true;
    it->second.next_try = steady::now();
    env_.say(where(key) + ": a sync was asked for");
  }
}

void Service::notify(const std::string& state) {
  ::sd_notify(0, state.c_str());
}

int Service::run() {
  // One service per installation: a second one would only contend for the same locks.
  std::string lock = path_in(env_.installation, ".qkp-serve.lock");
  lock_fd_ = ::open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (lock_fd_ < 0 || ::flock(lock_fd_, LOCK_EX | LOCK_NB) != 0) {
    env_.say("another qkp serve serves " + env_.installation + " (" + lock + " is locked)");
    return 1;
  }
  sync::install_stop_handlers();
  struct sigaction sa {};
  sa.sa_handler = on_reload;
  sigemptyset(&sa.sa_mask);
  ::sigaction(SIGHUP, &sa, nullptr);
  if (!configure(true)) return 1;
  // The API answers from the first look on, never from an empty picture of the store.
  bool changed = true;
  try {
    look();
    next_look_ = from_now(settings_.check_seconds);
    changed = false;
  } catch (const std::exception&) {
    // said and tried again by the loop
  }
  publish("starting");
  if (env_.start_api) {
    std::string why;
    if (!env_.start_api(board_, &why)) {
      env_.say(why);
      return 1;
    }
  }
  uint64_t usec = 0;
  watchdog_ = ::sd_watchdog_enabled(0, &usec) > 0;
  bool ready = false;
  while (sync::stop_signal() == 0) {
    try {
      if (g_reload) {
        g_reload = 0;
        notify("RELOADING=1");
        configure(false);
        changed = true;
      }
      reap(false);
      auto now = steady::now();
      if (changed || now >= next_look_) {
        look();
        next_look_ = from_now(settings_.check_seconds);
        changed = false;
      }
      if (next_clock_ && std::chrono::system_clock::now() >= *next_clock_) {
        for (auto& [key, l] : lines_) l.clock = true;
        next_clock_ = schedule_->next_after(std::chrono::system_clock::now());
        env_.say("setting the clocks of " + std::to_string(lines_.size()) + " lines");
      }
      take_requests();
      start_due();
      publish("running");
      if (!ready) {
        notify("READY=1");
        ready = true;
      }
      notify("STATUS=" + std::to_string(lines_.size()) + " lines, " + std::to_string(running()) +
             " syncing");
      if (watchdog_) notify("WATCHDOG=1");
      // Short turns: the API's requests are taken at the next one.
      double slice = running() > 0 ? 0.2 : 0.5;
      auto* changes = dynamic_cast<ArchiveChanges*>(archive_.get());
      if (changes)
        changed = changes->wait_for_change(slice);
      else
        std::this_thread::sleep_for(std::chrono::duration<double>(slice));
    } catch (const std::exception& e) {
      // The archive went away: said, and tried again after the first retry delay.
      env_.say("the archive: " + error_text(e) + "; trying again in " +
               seconds_text(settings_.retry_seconds) + " s");
      archive_.reset();
      std::this_thread::sleep_for(std::chrono::duration<double>(settings_.retry_seconds));
      changed = true;
      if (watchdog_) notify("WATCHDOG=1");
    }
  }
  stop_signal_seen_ = true;
  notify("STOPPING=1");
  env_.say("stopping (signal " + std::to_string(sync::stop_signal()) +
           "): " + std::to_string(running()) + " syncs finish the record in flight");
  publish("stopping");
  stop_children();
  publish("stopped");
  env_.say("stopped");
  return 0;
}

}  // namespace qk::service
