// lines, pending and sync: the network and the main job.
#include "automation/error.h"
#include "commands.h"
#include "db_access/clsDbAccess.h"
#include "families.h"
#include "network.h"
#include "session.h"
#include "sync.h"

namespace qkp {

void add_network_commands(CLI::App& app, Options& g) {
  auto* lines = app.add_subcommand("lines", "The scale lines of every department");
  struct LineOptions {
    int32_t dept = 0, line = 0, scale = 0;
    std::string family;
  };
  auto lo = std::make_shared<LineOptions>();
  auto* set = lines->add_subcommand("set", "Add or change a line of a department");
  set->add_option("--dept", lo->dept)->required();
  set->add_option("--line", lo->line, "1 to 8")->required()->check(CLI::Range(1, 8));
  std::vector<std::string> families;
  for (const auto& f : kFamilies) families.push_back(f.family);
  set->add_option("--family", lo->family)->required()->check(CLI::IsMember(families));
  set->add_option("--scale", lo->scale, "scale number served on the line")->required();
  set->callback([lo] {
    qk::companions::clsDbAccess db;
    db.Initialize(qk::automation::Variant("Archivi.mdb"));
    db.archive().execute(
        "insert into SCALE_LINES values (?1, ?2, ?3, ?4) on conflict (SL_BNC, SL_LINE) do update"
        " set SL_FAMILY = excluded.SL_FAMILY, SL_SCALE = excluded.SL_SCALE",
        {lo->dept, lo->line, lo->family, lo->scale});
  });
  auto* remove = lines->add_subcommand("remove", "Remove a line of a department");
  remove->add_option("--dept", lo->dept)->required();
  remove->add_option("--line", lo->line)->required();
  remove->callback([lo] {
    qk::companions::clsDbAccess db;
    db.Initialize(qk::automation::Variant("Archivi.mdb"));
    if (db.archive().execute("delete from SCALE_LINES where SL_BNC = ?1 and SL_LINE = ?2",
                             {lo->dept, lo->line}) == 0)
      fail("department " + std::to_string(lo->dept) + " has no line " + std::to_string(lo->line));
  });
  lines->callback([lines] {
    if (!lines->get_subcommands().empty()) return;
    std::printf("%-6s %-5s %-8s %s\n", "dept", "line", "family", "scale");
    for (const auto& l : read_network())
      std::printf("%-6ld %-5ld %-8s %ld\n", l.dept, l.line, l.family.c_str(), l.scale);
  });

  auto scope = std::make_shared<SyncScope>();
  auto* pending = app.add_subcommand("pending", "Records still pending on a line");
  pending->add_option("--line", scope->line, "served line, 1 to 8")->required();
  pending->add_option("--dept", scope->dept, "only this department");
  pending->callback([scope] {
    auto network = read_network();
    auto configured = configured_lines(network);
    bool any = false;
    for (const auto& where : network) {
      if (where.line != scope->line || (scope->dept >= 0 && where.dept != scope->dept)) continue;
      any = true;
      const FamilyForms* f = forms_of(where.family);
      std::printf("department %ld, line %ld (%s, scale %ld)\n", where.dept, where.line,
                  where.family.c_str(), where.scale);
      if (!f) continue;
      for (Kind k : kKinds) {
        if (!has_flags(k)) continue;
        for (auto& item : collect(k, where, *f, *scope, configured))
          std::printf("  %-9s %-24s %s\n", kind_name(k), item.label.c_str(),
                      item.flags ? item.flags().c_str() : "");
      }
    }
    if (!any) fail("no department configures line " + std::to_string(scope->line));
  });

  auto so = std::make_shared<SyncOptions>();
  auto* sync = app.add_subcommand(
      "sync", "Send a line everything it is missing; reset each flag once delivered");
  sync->add_option("--line", so->scope.line, "served line, 1 to 8")->required();
  sync->add_option("--dept", so->scope.dept, "only this department");
  sync->add_flag("--full", so->scope.full, "send everything the family takes, not only pending");
  auto* out = sync->add_option("--out", so->out_file, "append the strings to FILE (fsync'd)");
  auto* exec = sync->add_option("--exec", so->exec, "run CMD once per string, bytes on stdin");
  out->excludes(exec);
  exec->excludes(out);
  sync->callback([&g, so] {
    if (so->out_file.empty() && so->exec.empty())
      throw CLI::ValidationError("sync", "give --out FILE or --exec CMD");
    so->format = g.format;
    run_sync(*so);
  });
}

}  // namespace qkp
