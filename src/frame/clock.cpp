#include <ctime>
#include <mutex>

#include "qk/host.h"

namespace qk {

namespace {
std::mutex g_mutex;
ClockFn g_clock;
}  // namespace

LocalTime clock_now() {
  {
    std::lock_guard lock(g_mutex);
    if (g_clock) return g_clock();
  }
  std::time_t t = std::time(nullptr);
  std::tm tm{};
  localtime_r(&t, &tm);
  return {tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec};
}

void set_clock(ClockFn fn) {
  std::lock_guard lock(g_mutex);
  g_clock = std::move(fn);
}

}  // namespace qk
