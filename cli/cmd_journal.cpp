// journal and runs: what was delivered where and when, and what each sync run did.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <ctime>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "qk/archive_schema.h"
#include "qk/host.h"
#include "qk/sync.h"
#include "qk/sync/journal.h"
#include "qk/sync/network.h"
#include "session.h"

namespace qkp {

namespace {

namespace sync = qk::sync;
using qk::automation::Variant;

// The rows of a journal table matching `where`, oldest first, as JSON objects of their columns.
std::vector<nlohmann::json> journal_rows(qk::ArchiveTools& a, const char* table,
                                         const qk::Where& where) {
  const auto& t = *qk::archive::find_table(table);
  std::vector<nlohmann::json> rows;
  for (auto rs = a.select_rows(t, where); !rs->Eof(); rs->MoveNext()) {
    nlohmann::json row = nlohmann::json::object();
    for (const auto& c : qk::archive::written_columns(t)) {
      Variant v = rs->Fields(c);
      if (v.is_null())
        row[c] = nullptr;
      else if (v.is_numeric_type())
        row[c] = static_cast<int64_t>(v.to_double());
      else
        row[c] = qk::cp1252_to_utf8(v.to_text());
    }
    rows.push_back(std::move(row));
  }
  return rows;
}

// "90d", "12h", "30m": the time that long before now, as the journal writes times.
std::string before_now(const std::string& age) {
  char unit = age.empty() ? ' ' : age.back();
  long seconds_per = unit == 'd' ? 86400 : unit == 'h' ? 3600 : unit == 'm' ? 60 : 0;
  std::string number = age.substr(0, age.empty() ? 0 : age.size() - 1);
  if (!seconds_per || number.empty() || number.find_first_not_of("0123456789") != std::string::npos)
    throw CLI::ValidationError("--older-than",
                               "\"" + age + "\" is not an age such as 90d, 12h or 30m");
  std::time_t t = std::time(nullptr) - std::stol(number) * seconds_per;
  std::tm tm{};
  gmtime_r(&t, &tm);
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%SZ", &tm);
  return buf;
}

// A page of rows counted from the newest: the newest `last` (all when 0) after leaving out the
// `skip` newest, still oldest first.
struct Page {
  int last = 0, skip = 0;
  void apply(std::vector<nlohmann::json>& rows) const {
    std::size_t keep = rows.size() - std::min(rows.size(), static_cast<std::size_t>(skip));
    rows.resize(keep);
    if (last > 0 && keep > static_cast<std::size_t>(last))
      rows.erase(rows.begin(), rows.end() - last);
  }
  void add_options(CLI::App* cmd) {
    cmd->add_option("--last", last, "only the newest N")->check(CLI::NonNegativeNumber);
    cmd->add_option("--skip", skip, "leave out the newest N first (the page before)")
        ->check(CLI::NonNegativeNumber);
  }
};

struct JournalOptions {
  int32_t line = 0, dept = -1, id = 0;
  std::string kind, since, until, older_than;
  Page page;
};

void show_journal(const Options& g, const JournalOptions& o, bool id_given) {
  auto a = sync::open_archive_tools();
  qk::Where where;
  if (o.line) where.emplace_back("J_LINE", o.line);
  if (o.dept >= 0) where.emplace_back("J_BNC", o.dept);
  if (!o.kind.empty()) where.emplace_back("J_KIND", o.kind);
  if (id_given) where.emplace_back("J_ID", o.id);
  std::vector<nlohmann::json> rows;
  for (auto& r : journal_rows(*a, "QK_JOURNAL", where)) {
    const std::string& time = r["J_TIME"].get_ref<const std::string&>();
    if ((o.since.empty() || time >= o.since) && (o.until.empty() || time < o.until))
      rows.push_back(std::move(r));
  }
  std::stable_sort(rows.begin(), rows.end(), [](const nlohmann::json& x, const nlohmann::json& y) {
    return x["J_TIME"].get<std::string>() < y["J_TIME"].get<std::string>();
  });
  o.page.apply(rows);
  if (g.format == Format::Json) {
    std::printf("%s\n", nlohmann::json(rows).dump(1).c_str());
  } else {
    std::printf("%-20s %-6s %-4s %-5s %-7s %-8s %-6s %-8s %s\n", "time", "dept", "line", "scale",
                "family", "kind", "id", "bytes", "sha-256");
    for (const auto& r : rows)
      std::printf("%-20s %-6lld %-4lld %-5lld %-7s %-8s %-6lld %-8lld %s%s\n",
                  r["J_TIME"].get<std::string>().c_str(), r["J_BNC"].get<long long>(),
                  r["J_LINE"].get<long long>(), r["J_SCALE"].get<long long>(),
                  r["J_FAMILY"].get<std::string>().c_str(), r["J_KIND"].get<std::string>().c_str(),
                  r["J_ID"].get<long long>(), r["J_LENGTH"].get<long long>(),
                  r["J_HASH"].get<std::string>().substr(0, 16).c_str(),
                  r["J_STORE"].get<std::string>().empty()
                      ? ""
                      : ("  store " + r["J_STORE"].get<std::string>()).c_str());
  }
  if (rows.empty()) set_exit_status(kExitNothing);
}

// A run without an end is running while its line's sync lock is held, else it was interrupted.
std::string outcome_of(qk::ArchiveTools& a, const nlohmann::json& run) {
  std::string outcome = run["RUN_OUTCOME"].get<std::string>();
  if (!run["RUN_END"].is_null()) return outcome;
  std::string store = run["RUN_STORE"].get<std::string>(), holder;
  try {
    auto locks =
        sync::lock_line_of(a, store.empty() ? sync::StoreChoice() : store, {},
                           static_cast<int32_t>(run["RUN_LINE"].get<long long>()), false, &holder);
    return locks.empty() ? "running" : "interrupted";
  } catch (const std::exception&) {
    return "running or interrupted";  // a user who may not take the lock cannot tell which
  }
}

void show_runs(const Options& g, int32_t line, const Page& page) {
  auto a = sync::open_archive_tools();
  qk::Where where;
  if (line) where.emplace_back("RUN_LINE", line);
  auto rows = journal_rows(*a, "QK_RUNS", where);
  std::stable_sort(rows.begin(), rows.end(), [](const nlohmann::json& x, const nlohmann::json& y) {
    return x["RUN_START"].get<std::string>() < y["RUN_START"].get<std::string>();
  });
  page.apply(rows);
  for (auto& r : rows) r["RUN_OUTCOME"] = outcome_of(*a, r);
  if (g.format == Format::Json) {
    std::printf("%s\n", nlohmann::json(rows).dump(1).c_str());
    return;
  }
  std::printf("%-20s %-20s %-4s %-8s %-9s %-11s %s\n", "start", "end", "line", "records", "bytes",
              "outcome", "by, transport, error");
  for (const auto& r : rows) {
    std::string end = r["RUN_END"].is_null() ? "-" : r["RUN_END"].get<std::string>();
    std::string what =
        r["RUN_BY"].get<std::string>() + ", " + r["RUN_TRANSPORT"].get<std::string>();
    if (!r["RUN_STORE"].get<std::string>().empty())
      what += ", store " + r["RUN_STORE"].get<std::string>();
    if (r["RUN_RETRIES"].get<long long>() > 0)
      what += ", " + std::to_string(r["RUN_RETRIES"].get<long long>()) + " resets tried again";
    if (!r["RUN_ERROR"].get<std::string>().empty())
      what += ": " + r["RUN_ERROR"].get<std::string>();
    std::printf(
        "%-20s %-20s %-4lld %-8lld %-9lld %-11s %s\n", r["RUN_START"].get<std::string>().c_str(),
        end.c_str(), r["RUN_LINE"].get<long long>(), r["RUN_RECORDS"].get<long long>(),
        r["RUN_BYTES"].get<long long>(), r["RUN_OUTCOME"].get<std::string>().c_str(), what.c_str());
  }
}

// Drops the runs that started before the cutoff, with their records' rows.
void prune(const std::string& older_than) {
  std::string cutoff = before_now(older_than);
  auto a = sync::open_archive_tools();
  long runs = 0, entries = 0;
  sync::ArchiveWrite write(*a);
  for (const auto& r : journal_rows(*a, "QK_RUNS", {})) {
    if (r["RUN_START"].get<std::string>() >= cutoff) continue;
    std::string id = r["RUN_ID"].get<std::string>();
    entries += a->delete_rows(*qk::archive::find_table("QK_JOURNAL"), {{"J_RUN", id}});
    runs += a->delete_rows(*qk::archive::find_table("QK_RUNS"), {{"RUN_ID", id}});
  }
  write.commit();
  std::printf("removed %s and %s of runs started before %s\n", counted(runs, "run").c_str(),
              counted(entries, "journal row").c_str(), cutoff.c_str());
}

}  // namespace

void add_journal_commands(CLI::App& app, Options& g) {
  auto o = std::make_shared<JournalOptions>();
  auto* journal = app.add_subcommand(
      "journal", "What was delivered where and when: one row per record a line confirmed");
  journal->add_option("--line", o->line, "served line")->check(CLI::Range(1, 8));
  journal->add_option("--dept", o->dept, "department")->check(CLI::NonNegativeNumber);
  std::vector<std::string> kinds;
  for (const auto& e : sync::sources()) kinds.emplace_back(sync::kind_name(e.kind));
  auto* kind =
      journal->add_option("--kind", o->kind, "kind of record")->check(CLI::IsMember(kinds));
  auto* id = journal->add_option("--id", o->id, "the record's number (with --kind)")->needs(kind);
  journal->add_option("--since", o->since,
                      "only from this UTC time on (2026-11-20 or 2026-11-20T14:00:00Z)");
  journal->add_option("--until", o->until, "only before this UTC time");
  o->page.add_options(journal);
  journal->callback([&g, o, journal, id] {
    if (!journal->get_subcommands().empty()) return;
    show_journal(g, *o, id->count() > 0);
  });
  auto* prune_cmd =
      journal->add_subcommand("prune", "Remove the runs (and their rows) older than an age");
  prune_cmd->add_option("--older-than", o->older_than, "an age: 90d, 12h or 30m")->required();
  prune_cmd->callback([o] { prune(o->older_than); });

  auto ro = std::make_shared<JournalOptions>();
  auto* runs =
      app.add_subcommand("runs", "The sync runs: when, which line, how much, how they ended");
  runs->add_option("--line", ro->line, "served line")->check(CLI::Range(1, 8));
  ro->page.add_options(runs);
  runs->callback([&g, ro] { show_runs(g, ro->line, ro->page); });
}

}  // namespace qkp
