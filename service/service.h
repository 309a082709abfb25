// The unattended service: keeps every line of its store up to date. It syncs a line, one
// department at a time, as soon as something is pending there (told by the archive, looked for
// on a period as a floor), sets the scales' clocks on a schedule, and tries a failed line again
// later with a growing delay while the others go on. Each sync is a `qkp sync` of its own: it
// takes the line's lock, writes the journal and resets only what the scale's side confirmed.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "date_schedule.h"
#include "service_board.h"
#include "tool_runner.h"

namespace qk {
class ArchiveTools;
}

namespace qk::service {

// What the settings store says (section Service), read at start and on SIGHUP.
struct ServiceSettings {
  double check_seconds = 60;       // ServiceCheckSeconds: the floor of looking for pending records
  double retry_seconds = 5;        // ServiceRetrySeconds: the first delay after a failure
  double retry_max_seconds = 300;  // ServiceRetryMaxSeconds: the longest delay
  int jobs = 2;                    // ServiceJobs: syncs at once (of different lines)
  double stop_seconds = 20;        // ServiceStopSeconds: how long a stop waits for the syncs
  std::string date_at = "05:00";   // ServiceDateAt: when the clocks are set ("" never)
  // The settings, or nullopt with every problem in *error.
  static std::optional<ServiceSettings> read(std::string* error);
};

struct ServiceEnvironment {
  std::string program;                          // the qkp to run for each sync
  std::string installation;                     // its --home
  std::function<void(const std::string&)> say;  // one line for the log
  // Started once the service is configured, with the board it publishes to (the HTTP API); may
  // refuse to start with a reason, which stops the service.
  std::function<bool(ServiceBoard&, std::string* why)> start_api;
};

class Service {
 public:
  explicit Service(ServiceEnvironment env);
  ~Service();
  // Runs until SIGTERM or SIGINT; the exit status (0 after a clean stop).
  int run();

 private:
  struct Line {
    bool pending = false, clock = false;  // what it is owed
    bool addressed = true;
    int failures = 0;
    std::chrono::steady_clock::time_point next_try{};
    pid_t child = -1;
    int child_out = -1;  // its report (sync --format json) comes there
    bool child_clock = false;
    std::string last_error;
    std::string last_report;  // why the last sync stopped, in its own words
    // What the board shows.
    std::string family, address;
    int32_t scale = 0;
    long records = 0;
    std::optional<std::time_t> last_success;
    std::chrono::steady_clock::time_point child_started{};
    long delivered = 0, failed_syncs = 0;  // since the service started
    long long bytes = 0;
  };
  using Key = std::pair<int32_t, int32_t>;  // department, line

  bool configure(bool first);
  void look();
  void start_due();
  void start(const Key& key, Line& l);
  void reap(bool wait);
  void read_report(Line& l);
  void finished(Line& l, const Key& key, int status);
  int running() const;
  void stop_children();
  void notify(const std::string& state);
  void publish(const std::string& state);
  void take_requests();

  ServiceEnvironment env_;
  ToolRunner tool_;
  ServiceSettings settings_;
  std::optional<DateSchedule> schedule_;
  std::optional<std::chrono::system_clock::time_point> next_clock_;
  std::shared_ptr<ArchiveTools> archive_;
  std::map<Key, Line> lines_;
  std::chrono::steady_clock::time_point next_look_{};
  bool watchdog_ = false, stop_signal_seen_ = false;
  int lock_fd_ = -1;
  ServiceBoard board_;
  long syncs_done_ = 0, syncs_failed_ = 0;
  double sync_seconds_ = 0;
  std::time_t started_ = std::time(nullptr);
};

}  // namespace qk::service
