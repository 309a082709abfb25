#include "date_schedule.h"

#include <algorithm>
#include <ctime>
#include <sstream>

namespace qk::service {

std::optional<DateSchedule> DateSchedule::parse(const std::string& text, std::string* error) {
  DateSchedule s;
  std::stringstream in(text);
  for (std::string t; std::getline(in, t, ',');) {
    t.erase(0, t.find_first_not_of(' '));
    t.erase(t.find_last_not_of(' ') + 1);
    int h = -1, m = -1;
    char colon = 0, extra = 0;
    std::istringstream part(t);
    bool ok = t.size() >= 4 && t.size() <= 5 && (part >> h >> colon >> m) && colon == ':' &&
              !(part >> extra) && h >= 0 && h < 24 && m >= 0 && m < 60;
    if (!ok) {
      if (error) *error = "\"" + t + "\" is not a time of day HH:MM (such as 05:00)";
      return std::nullopt;
    }
    s.minutes_.push_back(h * 60 + m);
  }
  std::sort(s.minutes_.begin(), s.minutes_.end());
  return s;
}

std::optional<std::chrono::system_clock::time_point> DateSchedule::next_after(
    std::chrono::system_clock::time_point now) const {
  if (minutes_.empty()) return std::nullopt;
  std::time_t t = std::chrono::system_clock::to_time_t(now);
  std::optional<std::chrono::system_clock::time_point> best;
  // Today's and tomorrow's times, each through the local calendar (a day may be 23 or 25 hours).
  for (int day = 0; day <= 1 && !best; ++day)
    for (int minute : minutes_) {
      std::tm local{};
      ::localtime_r(&t, &local);
      local.tm_mday += day;
      local.tm_hour = minute / 60;
      local.tm_min = minute % 60;
      local.tm_sec = 0;
      local.tm_isdst = -1;
      auto at = std::chrono::system_clock::from_time_t(std::mktime(&local));
      if (at > now) {
        best = at;
        break;
      }
    }
  return best;
}

}  // namespace qk::service
