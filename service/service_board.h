// What the service shows of itself, and what it is asked, between its loop and the HTTP API's
// threads: the loop publishes a picture of the lines after each turn, the API reads it and leaves
// requests the loop takes at its next turn. Nothing here touches the archive.
#pragma once

#include <cstdint>
#include <ctime>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace qk::service {

struct LineView {
  int32_t dept = 0, line = 0, scale = 0;
  std::string family, address;
  long pending = 0;  // records pending there at the last look
  bool syncing = false;
  int failures = 0;        // in a row
  std::string last_error;  // of the last failed sync
  double next_try_in = 0;  // seconds until it may be tried again (after a failure)
  std::optional<std::time_t> last_success;
  long delivered = 0;  // records, since the service started
  long long bytes = 0;
  long failed_syncs = 0;
};

struct ServiceView {
  std::string installation, archive, store, state = "starting";
  std::time_t started = 0;
  std::vector<LineView> lines;
  long syncs_done = 0, syncs_failed = 0;
  double sync_seconds = 0;  // the sum over every finished sync
};

class ServiceBoard {
 public:
  void publish(ServiceView v) {
    std::lock_guard<std::mutex> g(m_);
    view_ = std::move(v);
  }
  ServiceView snapshot() const {
    std::lock_guard<std::mutex> g(m_);
    return view_;
  }
  // Asks for a sync of the line now; false when the service knows no such line.
  bool request_sync(int32_t dept, int32_t line) {
    std::lock_guard<std::mutex> g(m_);
    for (const auto& l : view_.lines)
      if (l.dept == dept && l.line == line) {
        requests_.emplace_back(dept, line);
        return true;
      }
    return false;
  }
  std::vector<std::pair<int32_t, int32_t>> take_requests() {
    std::lock_guard<std::mutex> g(m_);
    return std::exchange(requests_, {});
  }

 private:
  mutable std::mutex m_;
  ServiceView view_;
  std::vector<std::pair<int32_t, int32_t>> requests_;
};

}  // namespace qk::service
