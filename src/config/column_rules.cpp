#include "qk/column_rules.h"

#include <cctype>
#include <cmath>

#include "qk/line_address.h"

namespace qk::archive {

using automation::Variant;

namespace {

std::string shown(const Variant& v) {
  return v.is_string() ? "\"" + v.to_string() + "\"" : v.to_text();
}

// DDMMYYYY of a calendar date.
bool is_date(const std::string& t) {
  if (t.size() != 8 || t.find_first_not_of("0123456789") != std::string::npos) return false;
  int day = std::stoi(t.substr(0, 2)), month = std::stoi(t.substr(2, 2)),
      year = std::stoi(t.substr(4));
  static const int kDays[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return month >= 1 && month <= 12 && day >= 1 &&
         day <= (month == 2 && !leap ? 28 : kDays[month - 1]);
}

bool is_store_name(const std::string& t) {
  if (t.size() > kStoreNameMax) return false;
  for (unsigned char ch : t)
    if (!std::isalnum(ch) && ch != '-' && ch != '_' && ch != '.') return false;
  return true;
}

bool is_base64(const std::string& t) {
  if (t.size() % 4 != 0) return false;
  std::size_t end = t.find_last_not_of('=');
  if (end != std::string::npos && t.size() - end - 1 > 2) return false;
  for (std::size_t i = 0; i <= end && end != std::string::npos; ++i) {
    unsigned char ch = static_cast<unsigned char>(t[i]);
    if (!std::isalnum(ch) && ch != '+' && ch != '/') return false;
  }
  return true;
}

}  // namespace

std::string value_problem(const Column& c, const Variant& v) {
  if (v.is_null() || v.is_empty())
    return c.not_null && c.default_value.none() ? "is empty, and the column needs a value" : "";
  if (c.type == ColumnType::Integer) {
    bool number = v.is_numeric_type();
    double d = number ? v.to_double() : 0;
    if (!number || d != std::floor(d) || d < static_cast<double>(c.min) ||
        d > static_cast<double>(c.max)) {
      if (c.min != kIntegerMin || c.max != kIntegerMax)
        return "holds " + shown(v) + ", not a whole number from " + std::to_string(c.min) + " to " +
               std::to_string(c.max);
      return "holds " + shown(v) + ", not a 32-bit whole number";
    }
    return "";
  }
  if (c.type == ColumnType::Real)
    return v.is_numeric_type() ? "" : "holds " + shown(v) + ", not a number";
  std::string text = v.to_text();
  if (c.flag_width > 0) {
    bool ok = static_cast<int>(text.size()) == c.flag_width &&
              text.find_first_not_of("01") == std::string::npos;
    if (!ok)
      return "holds " + shown(v) + ", not " + std::to_string(c.flag_width) +
             " characters \"0\" or \"1\" (one per line)";
  }
  if (c.form == TextForm::Date && !text.empty() && !is_date(text))
    return "holds " + shown(v) + ", not a date DDMMYYYY (eight digits, such as 31122026)";
  if (c.form == TextForm::Store && !is_store_name(text))
    return "holds " + shown(v) + ", not a store's name (up to " + std::to_string(kStoreNameMax) +
           " letters, digits, \"-\", \"_\" or \".\")";
  if (c.form == TextForm::Address) {
    std::string why = line_address_problem(text);
    if (!why.empty()) return "holds " + shown(v) + ", not a line's address: " + why;
  }
  // Not shown: it may be hundreds of kilobytes.
  if (c.form == TextForm::FileBytes && !is_base64(text))
    return "does not hold a file's bytes in base64";
  if (!c.allowed.empty()) {
    for (auto a : c.allowed)
      if (text == a) return "";
    std::string list;
    for (auto a : c.allowed) list += (list.empty() ? "" : ", ") + std::string(a);
    return "holds " + shown(v) + ", not one of " + list;
  }
  return "";
}

}  // namespace qk::archive
