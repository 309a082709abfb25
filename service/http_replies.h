// How the API answers: JSON bodies, JSON errors with their status, and the checks of what a
// request names (a number in its path or a parameter), each answering 400 naming it.
#pragma once

#include <httplib.h>

#include <cstdint>
#include <ctime>
#include <nlohmann/json.hpp>
#include <string>

namespace qk::service {

std::string iso_time(std::time_t t);

void reply(httplib::Response& res, int status, const nlohmann::json& body);
void error(httplib::Response& res, int status, const std::string& message);

// The text of a whole number from `min` to `max`, or false after answering 400 naming `name`.
bool whole_number(httplib::Response& res, const std::string& text, const char* name, int64_t min,
                  int64_t max, int64_t* out);

// The department and line a path names (/api/lines/DEPT/LINE…, matches 1 and 2); false after
// answering 400.
bool line_in_path(const httplib::Request& req, httplib::Response& res, int32_t* dept,
                  int32_t* line);

}  // namespace qk::service
