#include <cstdio>
#include <ctime>

#include "commands.h"
#include "qk/host.h"
#include "qk/sync/record_sources.h"
#include "session.h"

namespace qkp {

void add_date_command(CLI::App& app, Options& o) {
  auto* cmd = app.add_subcommand("date", "The message that sets a scale's clock");
  auto family = std::make_shared<std::string>("NUMERIC");
  auto at = std::make_shared<std::string>();
  cmd->add_option("--family", *family, "numeric (3000/2000 series) or 5000 (any case)")
      ->transform(CLI::IsMember(form_choices<qk::Kind::Date>(), CLI::ignore_case));
  cmd->add_option("--at", *at, "a fixed instant, YYYY-MM-DDTHH:MM:SS (default: now)");
  cmd->callback([&o, family, at] {
    if (!at->empty()) {
      qk::LocalTime t{};
      char tail = 0;
      if (std::sscanf(at->c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%c", &t.year, &t.month, &t.day, &t.hour,
                      &t.minute, &t.second, &tail) != 6 ||
          t.month < 1 || t.month > 12 || t.day < 1 || t.day > 31 || t.hour > 23 || t.minute > 59 ||
          t.second > 59 || t.year < 0)
        throw CLI::ValidationError("--at", "expected YYYY-MM-DDTHH:MM:SS, got \"" + *at + "\"");
      qk::set_clock([t] { return t; });
    }
    // The date needs no line: the source of any department's line builds it.
    qk::sync::LineContext none;
    print(o, qk::sync::source_of(qk::Kind::Date)
                 .open(none, qk::parse_form<qk::Kind::Date>(*family))
                 ->build(0));
  });
}

}  // namespace qkp
