#include "http_replies.h"

#include <charconv>

namespace qk::service {

std::string iso_time(std::time_t t) {
  std::tm utc{};
  ::gmtime_r(&t, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text;
}

void reply(httplib::Response& res, int status, const nlohmann::json& body) {
  res.status = status;
  res.set_content(body.dump(1) + "\n", "application/json");
}

void error(httplib::Response& res, int status, const std::string& message) {
  reply(res, status, {{"error", message}});
}

bool whole_number(httplib::Response& res, const std::string& text, const char* name, int64_t min,
                  int64_t max, int64_t* out) {
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), *out);
  if (ec == std::errc() && end == text.data() + text.size() && *out >= min && *out <= max)
    return true;
  error(res, 400,
        std::string(name) + ": \"" + text + "\" is not a whole number from " + std::to_string(min) +
            " to " + std::to_string(max));
  return false;
}

bool line_in_path(const httplib::Request& req, httplib::Response& res, int32_t* dept,
                  int32_t* line) {
  int64_t d = 0, l = 0;
  if (!whole_number(res, req.matches[1], "dept", 0, INT32_MAX, &d) ||
      !whole_number(res, req.matches[2], "line", 1, 8, &l))
    return false;
  *dept = static_cast<int32_t>(d);
  *line = static_cast<int32_t>(l);
  return true;
}

}  // namespace qk::service
