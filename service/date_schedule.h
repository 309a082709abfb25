// When the scales' clocks are set: times of day ("05:00,13:30"), local time.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace qk::service {

class DateSchedule {
 public:
  // The times, or nullopt with the reason in *error. An empty text is no schedule.
  static std::optional<DateSchedule> parse(const std::string& text, std::string* error);
  // The first scheduled moment after `now`; none without times.
  std::optional<std::chrono::system_clock::time_point> next_after(
      std::chrono::system_clock::time_point now) const;
  bool empty() const { return minutes_.empty(); }

 private:
  std::vector<int> minutes_;  // of the day
};

}  // namespace qk::service
