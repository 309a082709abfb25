// lot, lots, ads, etexts, params, and the flags/reset commands of lots and advertising messages.
#include <nlohmann/json.hpp>

#include "commands.h"
#include "listing.h"
#include "qk/sync/network.h"
#include "qk/clsAdvertisingMessage.h"
#include "qk/clsEText.h"
#include "qk/clsTraceability.h"
#include "qk/error.h"
#include "qk/host.h"
#include "qk/parameters.h"
#include "qk/sync/record_sources.h"
#include "session.h"
#include "qk/sync.h"

namespace qkp {

namespace {

struct LotOptions {
  int32_t dept = 1, lot = 0;
  std::string family = "5000";
  bool variated = false;
  int32_t line = 0;
};

struct AdOptions {
  int32_t counter = 1, id = 0, line = 0;
  bool all = false, list = false;
};

}  // namespace

void add_lot_commands(CLI::App& app, Options& g) {
  auto lo = std::make_shared<LotOptions>();
  auto* lot = app.add_subcommand("lot", "A traceability lot in one family's protocol");
  lot->add_option("--dept", lo->dept, "department")->required()->check(CLI::NonNegativeNumber);
  lot->add_option("--lot", lo->lot, "lot number")->required();
  lot->add_option("--family", lo->family, "3000, 3000TOP, 2000, 5000 or VELTA (any case)")
      ->transform(CLI::IsMember(form_choices<qk::Kind::Lots>(), CLI::ignore_case));
  lot->callback([&g, lo] {
    qk::sync::ContextScope context("lot " + std::to_string(lo->lot) + " of department " +
                                   std::to_string(lo->dept) + " (" + lo->family + ")");
    std::vector<std::string> problems;
    auto a = qk::sync::open_archive_tools();
    auto line = qk::sync::single_line(*a, lo->dept, 0, 0, &problems);
    for (const auto& p : problems) fail(p);
    auto out = qk::sync::source_of(qk::Kind::Lots)
                   .open(line, qk::parse_form<qk::Kind::Lots>(lo->family))
                   ->build(lo->lot);
    std::erase(out, std::string());
    if (out.empty()) fail("gave no records");
    print(g, out);
  });

  auto* lots = app.add_subcommand("lots", "The lot numbers of a department");
  lots->add_option("--dept", lo->dept, "department")->required();
  lots->add_flag("--variated", lo->variated, "only lots still pending on some line");
  lots->callback([&g, lo] {
    qk::clsTraceability t;
    t.p_lngBnc(lo->dept);
    t.p_RetrieveTraceabilityId(lo->variated);
    auto list = t.p_objNumberOfRecord();
    nlohmann::json numbers = nlohmann::json::array();
    for (long i = 1; list && i <= list->Count(); ++i) {
      if (g.format == Format::Json)
        numbers.push_back(list->Item(i).to_int32());
      else
        std::printf("%s\n", list->Item(i).to_string().c_str());
    }
    if (g.format == Format::Json) std::printf("%s\n", numbers.dump().c_str());
  });

  auto ao = std::make_shared<AdOptions>();
  auto* ads = app.add_subcommand("ads", "Advertising messages (5000 series)");
  add_dept_option(ads, ao->counter);
  auto* id = ads->add_option("--id", ao->id, "message number");
  auto* all = ads->add_flag("--all", ao->all, "every message of the counter");
  auto* list = ads->add_flag("--list", ao->list, "the department's messages as rows (the default)");
  id->excludes(all, list);
  all->excludes(id, list);
  ads->callback([&g, ao] {
    if (!ao->all && ao->id == 0) return list_rows(g, "ADVERTISING", ao->counter);
    qk::sync::ContextScope context((ao->all ? std::string("advertising messages")
                                            : "advertising message " + std::to_string(ao->id)) +
                                   " of department " + std::to_string(ao->counter));
    qk::clsAdvertisingMessage m;
    m.Counter(ao->counter);
    std::vector<std::string> out;
    if (ao->all) {
      m.InitializeGlobal();
      m.GlobalMode("Y");
      for (int16_t p = 1; p <= m.RecordCount(); ++p) {
        m.CursorPosition(p);
        out.push_back(m.Protocol().to_string());
      }
    } else {
      m.Id(ao->id);
      out.push_back(m.Protocol().to_string());
    }
    std::erase(out, std::string());
    print(g, out);
  });

  auto ec = std::make_shared<int32_t>(1);
  auto el = std::make_shared<bool>(false);
  auto* etexts = app.add_subcommand("etexts", "Electronic texts (5000 series)");
  add_dept_option(etexts, *ec);
  etexts->add_flag("--list", *el, "the department's texts as rows, not their messages");
  etexts->callback([&g, ec, el] {
    if (*el) return list_rows(g, "ETEXT", *ec);
    qk::sync::ContextScope context("electronic texts of department " + std::to_string(*ec));
    qk::clsAdvertisingMessage opener;  // creates this thread's database object
    qk::clsEText e;
    e.Counter(*ec);
    e.InitializeGlobal();
    e.GlobalMode(true);
    std::vector<std::string> out;
    for (int16_t p = 1; p <= e.RecordCount(); ++p) {
      e.CursorPosition(p);
      out.push_back(e.Protocol().to_string());
    }
    std::erase(out, std::string());
    print(g, out);
  });
}

void add_params_command(CLI::App& app, Options&) {
  auto* params = app.add_subcommand("params", "Read and write Parameters.xml");
  params->require_subcommand(1);
  struct P {
    std::string what, arg, settings, contents, format, coupling;
    int16_t port = 0;
    bool only_values = false;
  };
  auto p = std::make_shared<P>();
  auto* get = params->add_subcommand("get",
                                     "velta|orvatop|common NAME, archive KEY, scanner, "
                                     "ai AI, timeout NAME, trim, show2000, natures, "
                                     "conversion");
  get->add_option("WHAT", p->what)
      ->required()
      ->check(CLI::IsMember({"velta", "orvatop", "common", "archive", "scanner", "ai", "timeout",
                             "trim", "show2000", "natures", "conversion"}));
  get->add_option("ARG", p->arg, "parameter name, archive key, AI or time-out name");
  get->callback([p] {
    qk::ParametersFile c;
    std::string arg = to_8bit(p->arg, "ARG");
    auto line = [](const std::string& s) { std::printf("%s\n", qk::cp1252_to_utf8(s).c_str()); };
    auto lines = [&](const std::vector<std::string>& a) {
      for (const auto& s : a) line(s);
    };
    const std::string& w = p->what;
    if (w == "velta")
      line(c.velta(arg));
    else if (w == "orvatop")
      line(c.orvatop(arg));
    else if (w == "common")
      line(c.common(arg));
    else if (w == "archive")
      line(c.archive(arg));
    else if (w == "scanner")
      lines(c.scanner());
    else if (w == "ai")
      lines(c.application_identifier(arg));
    else if (w == "timeout")
      line(std::to_string(c.timeout(arg)));
    else if (w == "trim")
      line(c.trim_values() ? "True" : "False");
    else if (w == "show2000")
      line(c.show_2000() ? "True" : "False");
    else if (w == "natures")
      lines(c.barcode_natures());
    else
      lines(c.conversion_table());
  });
  auto* scanner = params->add_subcommand("set-scanner", "Barcode scanner port and settings");
  scanner->add_option("PORT", p->port)->required();
  scanner->add_option("SETTINGS", p->settings, "for example 9600,n,8,1")->required();
  scanner->callback(
      [p] { qk::ParametersFile().set_scanner(p->port, to_8bit(p->settings, "SETTINGS")); });
  auto* ai = params->add_subcommand("set-ai", "Create or change an EAN128 application identifier");
  ai->add_option("AI", p->arg)->required();
  ai->add_option("--contents", p->contents);
  ai->add_option("--format", p->format);
  ai->add_option("--coupling", p->coupling);
  ai->add_flag("--only-values", p->only_values);
  ai->callback([p] {
    qk::ParametersFile().set_application_identifier(
        to_8bit(p->arg, "AI"), to_8bit(p->contents, "--contents"), to_8bit(p->format, "--format"),
        to_8bit(p->coupling, "--coupling"), p->only_values);
  });
  auto* del = params->add_subcommand("delete-ai", "Remove an EAN128 application identifier");
  del->add_option("AI", p->arg)->required();
  del->callback([p] { qk::ParametersFile().delete_application_identifier(to_8bit(p->arg, "AI")); });
}

}  // namespace qkp
