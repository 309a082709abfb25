#include "numbers.h"

#include <cstdint>

namespace qkp {

std::optional<std::string> decimal_number(const std::string& typed) {
  std::size_t first = typed.find_first_not_of(" \t"), last = typed.find_last_not_of(" \t");
  if (first == std::string::npos) return std::nullopt;
  std::string_view s(typed.data() + first, last - first + 1);
  bool negative = s.front() == '-';
  if (s.front() == '-' || s.front() == '+') s.remove_prefix(1);
  if (s.empty() || s.find_first_not_of("0123456789") != std::string_view::npos) return std::nullopt;
  s.remove_prefix(std::min(s.find_first_not_of('0'), s.size() - 1));
  // Ten digits at most keep the comparison below exact.
  if (s.size() > 10) return std::nullopt;
  int64_t value = std::stoll(std::string(s));
  if (value > (negative ? int64_t{1} << 31 : INT32_MAX)) return std::nullopt;
  return (negative && value != 0 ? "-" : "") + std::string(s);
}

namespace {

bool takes_whole_number(const CLI::Option& o) {
  std::string type = o.get_type_name();
  return type.rfind("INT", 0) == 0 || type.rfind("UINT", 0) == 0;
}

}  // namespace

void read_numbers_as_decimal(CLI::App& app) {
  for (CLI::Option* o :
       app.get_options([](const CLI::Option* o) { return takes_whole_number(*o); }))
    o->transform(CLI::Validator(
        [](std::string& value) -> std::string {
          auto decimal = decimal_number(value);
          if (!decimal)
            return "\"" + value + "\" is not a decimal whole number of 32 bits (such as 74 or 074)";
          value = *decimal;
          return "";
        },
        "", "decimal"));
  for (CLI::App* sub : app.get_subcommands([](CLI::App*) { return true; }))
    read_numbers_as_decimal(*sub);
}

}  // namespace qkp
