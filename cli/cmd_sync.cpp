// lines, pending, sync, mark and status: the network and the main job.
#include <unistd.h>

#include <map>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "picture_files.h"
#include "qk/column_rules.h"
#include "qk/error.h"
#include "qk/host.h"
#include "qk/line_address.h"
#include "qk/sync.h"
#include "qk/sync/child_process.h"
#include "qk/sync/content_pending.h"
#include "session.h"

namespace qkp {

namespace sync = qk::sync;

namespace {

std::string line_heading(const sync::ScaleLine& l) {
  return "department " + std::to_string(l.dept) + ", line " + std::to_string(l.line) + " (" +
         l.family + ", scale " + std::to_string(l.scale) + ")";
}

void say_all(const std::vector<std::string>& problems) {
  for (const auto& p : problems) fail(p);
}

// --all-stores: the chain office's view, whatever store the installation names.
void add_all_stores(CLI::App* cmd, bool* all) {
  cmd->add_flag("--all-stores", *all,
                "every store's lines, not only the installation's store (setting Store)");
}
sync::StoreChoice chosen_store(bool all) {
  return all ? std::nullopt : sync::installation_store();
}

// " of store A" when the installation serves one store.
std::string of_store(const sync::StoreChoice& s) {
  return s ? " of " + sync::store_label(s) : "";
}

// The network with the records pending on each line (a line of a family the sync does not know
// shows "unknown": nothing is sent to it).
void list_lines(const Options& g, const sync::StoreChoice& store) {
  auto a = sync::open_archive_tools();
  std::vector<std::string> problems;
  sync::SyncScope scope;
  scope.store = store;
  auto lines = sync::list_pending(*a, scope, &problems);
  say_all(problems);
  if (g.format == Format::Json) {
    nlohmann::json out = nlohmann::json::array();
    for (const auto& l : lines)
      out.push_back({{"dept", l.where.dept},
                     {"line", l.where.line},
                     {"family", l.where.family},
                     {"scale", l.where.scale},
                     {"store", l.where.store},
                     {"address", l.where.address},
                     {"pending", l.known_family ? nlohmann::json(l.records.size()) : nullptr}});
    std::printf("%s\n", out.dump(1).c_str());
    return;
  }
  // The store and address columns only where the archive has them.
  bool stores = false, addresses = false;
  for (const auto& l : lines) {
    stores = stores || !l.where.store.empty();
    addresses = addresses || !l.where.address.empty();
  }
  auto row = [&](const std::string& pending, const std::string& store, const std::string& to) {
    std::string s = pending;
    if (stores || addresses) s.resize(std::max<std::size_t>(s.size(), 8), ' ');
    if (stores) s += " " + store;
    if (stores && addresses) s.resize(std::max<std::size_t>(s.size(), 20), ' ');
    if (addresses) s += " " + to;
    while (!s.empty() && s.back() == ' ') s.pop_back();
    return s;
  };
  std::printf("%-6s %-5s %-8s %-6s %s\n", "dept", "line", "family", "scale",
              row("pending", "store", "address").c_str());
  for (const auto& l : lines)
    std::printf("%-6d %-5d %-8s %-6d %s\n", l.where.dept, l.where.line, l.where.family.c_str(),
                l.where.scale,
                row(l.known_family ? std::to_string(l.records.size()) : "unknown", l.where.store,
                    l.where.address)
                    .c_str());
}

// The network as a drawing: a row per department, a box per line with its family, scale and
// the records pending on it.
void draw_lines(const std::string& path, const sync::StoreChoice& store) {
  auto a = sync::open_archive_tools();
  std::vector<std::string> problems;
  sync::SyncScope scope;
  scope.store = store;
  auto lines = sync::list_pending(*a, scope, &problems);
  say_all(problems);
  std::map<int32_t, std::vector<const sync::PendingLine*>> by_dept;
  for (const auto& l : lines) by_dept[l.where.dept].push_back(&l);
  // The department column fits the longest name ("department 123") at 14 px.
  std::size_t longest = 0;
  for (const auto& [dept, list] : by_dept)
    longest = std::max(longest, ("department " + std::to_string(dept)).size());
  const int box_w = 150, box_h = 46, top = 40;
  const int left = 20 + 8 * static_cast<int>(longest);
  int width = left + 8 * (box_w + 10) + 10;
  int height = top + static_cast<int>(by_dept.size()) * (box_h + 14) + 10;
  std::string s = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + std::to_string(width) +
                  "\" height=\"" + std::to_string(height) +
                  "\" font-family=\"sans-serif\">\n"
                  "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
  for (int line = 1; line <= 8; ++line)
    s += "<text x=\"" + std::to_string(left + (line - 1) * (box_w + 10) + box_w / 2) +
         "\" y=\"24\" text-anchor=\"middle\" font-size=\"14\">line " + std::to_string(line) +
         "</text>\n";
  int row = 0;
  for (const auto& [dept, list] : by_dept) {
    int y = top + row++ * (box_h + 14);
    s += "<text x=\"10\" y=\"" + std::to_string(y + box_h / 2 + 5) +
         "\" font-size=\"14\">department " + std::to_string(dept) + "</text>\n";
    for (const auto* l : list) {
      int x = left + (l->where.line - 1) * (box_w + 10);
      std::size_t pending = l->records.size();
      std::string fill = !l->known_family ? "#fdd" : pending ? "#ffe9b3" : "#dff3df";
      s += "<g class=\"line\" data-dept=\"" + std::to_string(dept) + "\" data-line=\"" +
           std::to_string(l->where.line) + "\" data-pending=\"" + std::to_string(pending) +
           "\"><rect x=\"" + std::to_string(x) + "\" y=\"" + std::to_string(y) + "\" width=\"" +
           std::to_string(box_w) + "\" height=\"" + std::to_string(box_h) + "\" rx=\"6\" fill=\"" +
           fill + "\" stroke=\"#555\"/><text x=\"" + std::to_string(x + 8) + "\" y=\"" +
           std::to_string(y + 19) + "\" font-size=\"13\">" + l->where.family + " · scale " +
           std::to_string(l->where.scale) + "</text><text x=\"" + std::to_string(x + 8) +
           "\" y=\"" + std::to_string(y + 37) + "\" font-size=\"12\">" +
           (!l->known_family ? std::string("unknown family")
                             : std::to_string(pending) + " pending") +
           "</text></g>\n";
    }
  }
  s += "</svg>\n";
  write_drawing(path, s);
}

void show_pending(const Options& g, const sync::SyncScope& scope) {
  auto a = sync::open_archive_tools();
  std::vector<std::string> problems;
  auto lines = sync::list_pending(*a, scope, &problems);
  say_all(problems);
  if (lines.empty()) {
    fail("no department configures line " + std::to_string(scope.line) +
         (scope.dept >= 0 ? " in department " + std::to_string(scope.dept) : "") +
         of_store(scope.store));
    return;
  }
  std::size_t total = 0;
  for (const auto& l : lines) total += l.records.size();
  if (g.format == Format::Json) {
    nlohmann::json out = nlohmann::json::array();
    for (const auto& l : lines) {
      nlohmann::json records = nlohmann::json::array();
      for (const auto& r : l.records)
        records.push_back({{"kind", sync::kind_name(r.kind)},
                           {"id", r.id},
                           {"label", qk::cp1252_to_utf8(r.label)},
                           {"flags", r.flags},
                           {"reason", r.reason}});
      out.push_back({{"dept", l.where.dept},
                     {"line", l.where.line},
                     {"family", l.where.family},
                     {"scale", l.where.scale},
                     {"known_family", l.known_family},
                     {"records", records}});
    }
    std::printf("%s\n", out.dump(1).c_str());
  } else {
    for (const auto& l : lines) {
      std::printf("%s\n", line_heading(l.where).c_str());
      if (!l.known_family) std::printf("  unknown family: nothing is sent\n");
      if (l.records.empty()) std::printf("  nothing pending\n");
      for (const auto& r : l.records)
        std::printf("  %-9s %-24s %s\n", sync::kind_name(r.kind).data(),
                    qk::cp1252_to_utf8(r.label).c_str(),
                    (r.reason.empty() ? r.flags : r.reason).c_str());
    }
  }
  if (total == 0) set_exit_status(kExitNothing);
}

// A store's installation changes only its own lines; the chain office (--all-stores, or an
// installation naming no store) changes any.
void check_own_line(qk::ArchiveTools& a, const qk::Where& key, bool all_stores) {
  sync::StoreChoice mine = chosen_store(all_stores);
  if (!mine) return;
  auto rs = a.select_rows(*qk::archive::find_table("SCALE_LINES"), key);
  if (rs->Eof()) return;
  std::string owner = rs->Fields("SL_STORE").to_text();
  if (owner != *mine)
    throw CLI::ValidationError(
        "lines", "department " + key[0].second.to_text() + ", line " + key[1].second.to_text() +
                     " belongs to " + sync::store_label(owner) + ", not to " +
                     sync::store_label(mine) + "; change it from the chain office (--all-stores)");
}

struct SyncCommand {
  sync::SyncOptions options;
  std::string out_file, exec, sender, separator = "crlf", serial;
  std::string started_by;  // the service that started the run, for the journal
  double sender_timeout = 30;
  bool all_stores = false;
  bool json = false;  // the report as JSON on stdout too (the service reads it)
};

// The lines of the scope, when the sync delivers to their addresses: each must have one.
std::vector<sync::ScaleLine> addressed_lines(qk::ArchiveTools& a, const sync::SyncScope& scope) {
  std::vector<sync::ScaleLine> lines;
  std::string missing;
  auto take = [&](const sync::ScaleLine& l) {
    if (l.address.empty()) missing += (missing.empty() ? "" : ", ") + std::to_string(l.dept);
    lines.push_back(l);
  };
  sync::for_each_line(
      a, scope, [&](const sync::LineContext& c) { take(c.where); }, take, nullptr);
  if (!missing.empty())
    throw CLI::ValidationError(
        "sync", "line " + std::to_string(scope.line) + " of department" +
                    (missing.find(',') != std::string::npos ? "s " : " ") + missing +
                    " has no address: give it one (qkp lines set … --to ADDRESS) or say where "
                    "to send (--out FILE, --sender CMD or --exec CMD)");
  return lines;
}

// What a run did, for a program that started it: {"outcome", "records", "bytes", "seconds",
// "run", "stopped", "kinds": {kind: {"records", "bytes", "failed", …}}}.
void print_report(const sync::SyncReport& r) {
  static const char* outcomes[] = {"done", "failed", "busy", "no line"};
  nlohmann::json kinds = nlohmann::json::object();
  for (const auto& [kind, t] : r.tally)
    kinds[std::string(sync::kind_name(kind))] = {
        {"records", t.records},        {"bytes", t.bytes},
        {"failed", t.failed},          {"changed", t.changed},
        {"not_reset", t.reset_failed}, {"warned", t.warned}};
  nlohmann::json out = {{"outcome", outcomes[r.status]},
                        {"records", r.records()},
                        {"bytes", r.bytes()},
                        {"seconds", r.seconds},
                        {"run", r.run},
                        {"stopped", r.stopped},
                        {"kinds", kinds}};
  std::printf("%s\n", out.dump().c_str());
  std::fflush(stdout);
}

void run_sync(const SyncCommand& c) {
  std::optional<sync::SerialSettings> serial;
  if (!c.serial.empty()) {
    std::string why;
    serial = sync::parse_serial_settings(c.serial, &why);
    if (!serial) throw CLI::ValidationError("--serial-settings", why);
  }
  auto separator = sync::parse_separator(c.separator);
  bool to_addresses = c.out_file.empty() && c.sender.empty() && c.exec.empty();
  std::unique_ptr<sync::Transport> transport;
  if (to_addresses) {
    auto a = sync::open_archive_tools();
    transport = sync::address_transport(addressed_lines(*a, c.options.scope));
  } else {
    transport = !c.out_file.empty() ? sync::file_transport(c.out_file, *separator, serial)
                : !c.sender.empty()
                    ? sync::sender_transport(c.sender, c.sender_timeout, c.options.scope.dept >= 0)
                    : sync::command_transport(c.exec);
  }
  // Ctrl-C or a TERM stops at the next record: what was confirmed is reset, the rest stays
  // pending, and the transport's processes are ended.
  sync::install_stop_handlers();
  auto a = sync::open_archive_tools();
  note("sync of line " + std::to_string(c.options.scope.line) + of_store(c.options.scope.store) +
       ": archive " + a->location() + ", settings " + qk::host::settings_file());
  bool terminal = ::isatty(2);
  sync::SyncOptions o = c.options;
  o.by = "qkp sync --line " + std::to_string(o.scope.line) +
         (o.scope.dept >= 0 ? " --dept " + std::to_string(o.scope.dept) : "") +
         (o.scope.full ? " --full" : "") + (o.scope.clock_only ? " --date" : "");
  if (!c.started_by.empty()) o.by = c.started_by + ": " + o.by;
  o.transport = to_addresses          ? "the lines' addresses"
                : !c.out_file.empty() ? "file " + c.out_file
                : !c.sender.empty()   ? "sender " + c.sender
                                      : "exec " + c.exec;
  o.say = [terminal](const std::string& text) {
    std::fprintf(stderr, "%sqkp: %s\n", terminal ? "\r" : "", text.c_str());
  };
  if (terminal)
    o.progress = [](long n) {
      if (n % 200 == 0) std::fprintf(stderr, "\rqkp: %ld records sent", n);
    };
  lost_connection_said_by_command(true);
  sync::SyncReport r = sync::run_sync(*a, *transport, o);
  lost_connection_said_by_command(false);
  if (terminal) std::fprintf(stderr, "\r");
  if (c.json) print_report(r);
  if (r.status == sync::SyncReport::Busy) {
    note("line " + std::to_string(o.scope.line) + of_store(o.scope.store) + " of " + a->location() +
         " is being synced by another process (" + (r.holder.empty() ? "unknown" : r.holder) +
         "); nothing was sent; run again when it is done, or add --wait");
    set_exit_status(kExitBusy);
    return;
  }
  if (r.status == sync::SyncReport::NoLine) {
    fail("no department configures line " + std::to_string(o.scope.line) +
         (o.scope.dept >= 0 ? " in department " + std::to_string(o.scope.dept) : "") +
         of_store(o.scope.store));
    return;
  }
  for (const auto& [kind, t] : r.tally) {
    std::string extra;
    if (t.failed) extra += ", " + std::to_string(t.failed) + " failed";
    if (t.changed) extra += ", " + std::to_string(t.changed) + " changed meanwhile";
    if (t.reset_failed) extra += ", " + std::to_string(t.reset_failed) + " not reset";
    if (t.warned) extra += ", " + std::to_string(t.warned) + " with warnings";
    std::fprintf(stderr, "qkp: %-9s %6ld records delivered %9lld bytes%s\n",
                 sync::kind_name(kind).data(), t.records, t.bytes, extra.c_str());
  }
  std::fprintf(stderr, "qkp: sync of line %d%s: %ld records, %lld bytes delivered in %.3f s%s\n",
               o.scope.line, of_store(o.scope.store).c_str(), r.records(), r.bytes(), r.seconds,
               r.retries ? (", " + counted(r.retries, "reset") + " tried again").c_str() : "");
  if (r.status != sync::SyncReport::Done)
    set_exit_status(kExitFailed);
  else if (r.records() == 0)
    set_exit_status(kExitNothing);
  if (sync::stop_signal() != 0) {
    transport.reset();  // ends the sender before qkp goes
    sync::reraise_stop_signal();
  }
}

std::vector<std::string> markable_kind_names() {
  std::vector<std::string> names;
  for (qk::Kind k : sync::markable_kinds()) names.emplace_back(sync::kind_name(k));
  return names;
}

}  // namespace

void add_sync_commands(CLI::App& app, Options& g) {
  auto* lines = app.add_subcommand("lines", "The scale lines of every department");
  struct LineOptions {
    int32_t dept = 0, line = 0, scale = 0;
    std::string family, store, address;
    bool all_stores = false;
  };
  auto lo = std::make_shared<LineOptions>();
  auto* set = lines->add_subcommand("set", "Add or change a line of a department");
  set->add_option("--dept", lo->dept)->required()->check(CLI::NonNegativeNumber);
  set->add_option("--line", lo->line, "1 to 8")->required()->check(CLI::Range(1, 8));
  std::vector<std::string> families(qk::kFamilyNames.begin(), qk::kFamilyNames.end());
  set->add_option("--family", lo->family)
      ->required()
      ->transform(CLI::IsMember(families, CLI::ignore_case));
  set->add_option("--scale", lo->scale, "scale number served on the line")->required();
  auto* store = set->add_option("--store", lo->store,
                                "the store the line belongs to (default: the installation's)");
  auto* to = set->add_option(
      "--to", lo->address,
      "where its records go: tcp://HOST:PORT[?timeout=S], serial:DEVICE[?9600,8,N,1], file:PATH "
      "or sender:COMMAND; {dept}, {scale} and {line} are replaced (\"\": none; default: kept)");
  add_all_stores(set, &lo->all_stores);
  set->callback([lo, store, to] {
    auto a = sync::open_archive_tools();
    const auto& t = *qk::archive::find_table("SCALE_LINES");
    std::string given = store->count() ? lo->store : sync::installation_store().value_or("");
    if (std::string p = qk::archive::value_problem(*qk::archive::find_column(t, "SL_STORE"), given);
        !p.empty())
      throw CLI::ValidationError("--store", "\"" + given + "\" " + p.substr(p.find(',') + 2));
    if (auto mine = chosen_store(lo->all_stores); mine && given != *mine)
      throw CLI::ValidationError("--store", "this installation serves " + sync::store_label(mine) +
                                                "; give a line to another store from the chain "
                                                "office (--all-stores)");
    if (std::string p = qk::line_address_problem(lo->address); !p.empty())
      throw CLI::ValidationError("--to", "\"" + lo->address + "\" is not a line's address: " + p);
    qk::Where key{{"SL_BNC", lo->dept}, {"SL_LINE", lo->line}};
    sync::ArchiveWrite write(*a);
    check_own_line(*a, key, lo->all_stores);
    auto before = a->select_rows(t, key);
    bool added = before->Eof();
    // A new scale, or another family or scale number on the line, has none of the department's
    // records yet: every one becomes pending there.
    bool changed = added || before->Fields("SL_FAMILY").to_text() != lo->family ||
                   before->Fields("SL_SCALE").to_int32() != lo->scale;
    std::string address =
        to->count() || added ? lo->address : before->Fields("SL_ADDRESS").to_text();
    if (added)
      a->insert_row(t, {"SL_BNC", "SL_LINE", "SL_FAMILY", "SL_SCALE", "SL_STORE", "SL_ADDRESS"},
                    {lo->dept, lo->line, lo->family, lo->scale, given, address});
    else
      a->update_rows(t, key, {"SL_FAMILY", "SL_SCALE", "SL_STORE", "SL_ADDRESS"},
                     {lo->family, lo->scale, given, address});
    long marked = changed ? sync::mark_line_pending(*a, lo->dept, lo->line, lo->family) : 0;
    // The records without flags follow: nothing is on record for the line's new scale.
    if (changed) sync::forget_delivered(*a, lo->dept, lo->line);
    write.commit();
    std::string where =
        "department " + std::to_string(lo->dept) + ", line " + std::to_string(lo->line);
    std::printf("%s %s: %s marked pending there\n",
                added     ? "added"
                : changed ? "changed"
                          : "unchanged",
                where.c_str(), counted(marked, "row").c_str());
  });
  auto* remove = lines->add_subcommand("remove", "Remove a line of a department");
  remove->add_option("--dept", lo->dept)->required()->check(CLI::NonNegativeNumber);
  remove->add_option("--line", lo->line)->required()->check(CLI::Range(1, 8));
  add_all_stores(remove, &lo->all_stores);
  remove->callback([lo] {
    auto a = sync::open_archive_tools();
    qk::Where key{{"SL_BNC", lo->dept}, {"SL_LINE", lo->line}};
    sync::ArchiveWrite write(*a);
    check_own_line(*a, key, lo->all_stores);
    if (a->delete_rows(*qk::archive::find_table("SCALE_LINES"), key) == 0)
      return fail("department " + std::to_string(lo->dept) + " has no line " +
                  std::to_string(lo->line));
    long left = sync::rows_pending_on(*a, lo->dept, lo->line);
    sync::forget_delivered(*a, lo->dept, lo->line);
    write.commit();
    std::printf(
        "removed department %d, line %d: %s of the department still hold it pending "
        "(a line set there again gets everything anyway)\n",
        lo->dept, lo->line, counted(left, "row").c_str());
  });
  auto svg = std::make_shared<std::string>();
  lines->add_option("--svg", *svg,
                    "draw the network, with each line's pending records, as FILE.svg (or .png)");
  auto all_lines_stores = std::make_shared<bool>(false);
  add_all_stores(lines, all_lines_stores.get());
  lines->callback([lines, &g, svg, all_lines_stores] {
    if (!lines->get_subcommands().empty()) return;
    if (!svg->empty()) return draw_lines(*svg, chosen_store(*all_lines_stores));
    list_lines(g, chosen_store(*all_lines_stores));
  });

  auto scope = std::make_shared<sync::SyncScope>();
  auto* pending = app.add_subcommand(
      "pending", "Records still pending on a line (exit status 3 when nothing is)");
  pending->add_option("--line", scope->line, "served line, 1 to 8")
      ->required()
      ->check(CLI::Range(1, 8));
  pending->add_option("--dept", scope->dept, "only this department")->check(CLI::NonNegativeNumber);
  auto all_pending = std::make_shared<bool>(false);
  add_all_stores(pending, all_pending.get());
  pending->callback([&g, scope, all_pending] {
    scope->store = chosen_store(*all_pending);
    show_pending(g, *scope);
  });

  auto sc = std::make_shared<SyncCommand>();
  auto* sync = app.add_subcommand(
      "sync",
      "Send a line everything it is missing (to each line's address, unless told otherwise); "
      "reset each flag once delivered (exit status 3 when nothing was pending)");
  sync->add_option("--line", sc->options.scope.line, "served line, 1 to 8")
      ->required()
      ->check(CLI::Range(1, 8));
  sync->add_option("--dept", sc->options.scope.dept, "only this department")
      ->check(CLI::NonNegativeNumber);
  sync->add_flag("--full", sc->options.scope.full,
                 "send everything the family takes, not only pending");
  sync->add_flag("--wait", sc->options.wait, "wait for another sync of the line to finish");
  sync->add_flag("--date", sc->options.scope.clock_only,
                 "send only the date and time (to set the scales' clocks)");
  sync->add_option("--started-by", sc->started_by, "")->group("");
  add_all_stores(sync, &sc->all_stores);
  auto* out = sync->add_option("--out", sc->out_file,
                               "append the records to FILE, or write them to a device");
  auto* exec = sync->add_option("--exec", sc->exec, "run CMD once per string, bytes on stdin");
  auto* sender = sync->add_option(
      "--sender", sc->sender,
      "run CMD once for the line and hand it every record (framed with its department, scale "
      "and family on its stdin, acknowledged on its stdout; docs/sync.md)");
  sync->add_option("--sender-timeout", sc->sender_timeout,
                   "seconds to wait for each acknowledgement of --sender (default 30)")
      ->check(CLI::Range(0.001, 86400.0))
      ->needs(sender);
  sync->add_option("--separator", sc->separator,
                   "after each record in --out: crlf (default), lf, none or stx-etx")
      ->check(CLI::IsMember({"crlf", "lf", "none", "stx-etx"}))
      ->needs(out);
  sync->add_option("--serial-settings", sc->serial,
                   "for a serial line in --out: SPEED,BITS,PARITY,STOP such as 9600,8,N,1")
      ->needs(out);
  out->excludes(exec, sender);
  exec->excludes(out, sender);
  sender->excludes(out, exec);
  sync->callback([&g, sc] {
    sc->options.scope.store = chosen_store(sc->all_stores);
    sc->json = g.format == Format::Json;
    run_sync(*sc);
  });

  struct MarkOptions {
    int32_t line = 0, dept = -1, id = 0;
    bool all_lines = false, all_stores = false;
    std::string kind;
  };
  auto mo = std::make_shared<MarkOptions>();
  auto* mark = app.add_subcommand("mark", "Mark records pending (send again), on configured lines");
  auto* line =
      mark->add_option("--line", mo->line, "the line to send again")->check(CLI::Range(1, 8));
  auto* all = mark->add_flag("--all-lines", mo->all_lines, "every line of the department");
  line->excludes(all);
  all->excludes(line);
  mark->add_option("--dept", mo->dept, "only this department")->check(CLI::NonNegativeNumber);
  mark->add_option("--kind", mo->kind,
                   "keys, barcodes, lots, ads, vat, etexts, layouts or images (default: all)")
      ->check(CLI::IsMember(markable_kind_names()));
  auto* id = mark->add_option("--id", mo->id, "one record: its key, form, lot, message, … number");
  add_all_stores(mark, &mo->all_stores);
  mark->callback([&g, mo, id] {
    if (mo->line == 0 && !mo->all_lines)
      throw CLI::ValidationError("mark", "give --line L or --all-lines");
    if (id->count() && mo->kind.empty())
      throw CLI::ValidationError("--id",
                                 "needs --kind (an id names a key, a form, a lot or a message)");
    sync::MarkRequest r;
    if (mo->line) r.lines = {mo->line};
    r.dept = mo->dept;
    for (qk::Kind k : sync::markable_kinds())
      if (mo->kind == sync::kind_name(k)) r.kinds = {k};
    if (id->count()) r.id = mo->id;
    r.store = chosen_store(mo->all_stores);
    auto a = sync::open_archive_tools();
    auto result = sync::mark(*a, r);
    for (const auto& s : result.skipped) note(s + ": not marked");
    if (mo->dept >= 0 && result.rows == 0 && !result.skipped.empty()) set_exit_status(kExitFailed);
    if (g.format == Format::Json) {
      nlohmann::json out = {
          {"rows", result.rows}, {"records", result.records}, {"skipped", result.skipped}};
      std::printf("%s\n", out.dump(1).c_str());
      return;
    }
    std::printf("%s marked pending\n", counted(result.rows, "row").c_str());
    if (result.records > 0)
      std::printf("%s without flags marked pending (their last delivery there is forgotten)\n",
                  counted(result.records, "record").c_str());
  });

  auto* status = app.add_subcommand("status", "The installation: folder, settings, archive, files");
  status->callback([&g] {
    std::string folder = qk::installation_folder(), settings = qk::host::settings_file();
    auto exists = [](const std::string& p) { return ::access(p.c_str(), F_OK) == 0; };
    std::string archive;
    try {
      archive = sync::open_archive_tools()->location();
    } catch (const qk::automation::Error& e) {
      archive = "(not usable: " + qk::cp1252_to_utf8(e.description()) + ")";
      set_exit_status(kExitFailed);
    }
    std::vector<std::pair<std::string, std::string>> rows = {
        {"component folder", qk::component_folder()},
        {"installation folder", folder + " (" + home_source() + ")"},
        {"settings", settings + (exists(settings) ? "" : " (missing: defaults apply)")},
        {"archive", archive},
        {"store", sync::store_label(sync::installation_store())},
        {"Configurazione.xml", qk::component_folder() + "/Configurazione.xml"},
        {"Parameters.xml", folder + "/Parameters.xml"},
        {"images", folder + "/images/"}};
    for (auto& [name, path] : rows)
      if ((name == "Configurazione.xml" || name == "Parameters.xml") && !exists(path))
        path += " (missing)";
    if (g.format == Format::Json) {
      nlohmann::json out = nlohmann::json::object();
      for (const auto& [name, path] : rows) out[name] = path;
      std::printf("%s\n", out.dump(1).c_str());
      return;
    }
    for (const auto& [name, path] : rows) std::printf("%-20s %s\n", name.c_str(), path.c_str());
  });
}

}  // namespace qkp
