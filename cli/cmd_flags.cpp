// flags and reset: a record's pending-line flags, and the reset after a transmission, for each
// kind with flags, through the sync's own record sources.
#include "commands.h"
#include "qk/sync/network.h"
#include "qk/archive_tools.h"
#include "qk/sync/record_sources.h"
#include "session.h"

namespace qkp {

namespace {

namespace sync = qk::sync;

// How the tool names one record of each kind with flags.
struct FlaggedCommand {
  qk::Kind kind;
  const char* id_option;  // the option that numbers the record
  const char* what;
  int lines;  // the flag string's width: the lines a reset may name
};
constexpr FlaggedCommand kFlagged[] = {
    {qk::Kind::Keys, "--key", "key bindings (the key's block for 3000)", 8},
    {qk::Kind::Barcodes, "--form", "barcode formats (one form)", 4},
    {qk::Kind::Lots, "--lot", "a traceability lot", 8},
    {qk::Kind::Ads, "--id", "an advertising message", 8},
};

struct FlagOptions {
  int32_t dept = 0, id = 0, line = 0, scale = 1;
  std::string family = "3000";
};

void run(const FlaggedCommand& c, const FlagOptions& o, bool is_reset) {
  std::vector<std::string> problems;
  auto a = sync::open_archive_tools();
  // A key's flags are read and reset on its scale's line of the department (line 1 to look).
  sync::LineContext line = sync::single_line(*a, o.dept, is_reset ? o.line : 1, o.scale, &problems);
  for (const auto& p : problems) fail(p);
  qk::Form form =
      c.kind == qk::Kind::Keys ? qk::parse_form<qk::Kind::Keys>(o.family) : qk::Form::None;
  auto source = sync::source_of(c.kind).open(line, form);
  // A 3000 key lives in the block of 15 that holds it.
  int32_t id = form == qk::Form::Series3000 ? qk::key_block(o.id) : o.id;
  if (is_reset) {
    // A store's installation resets only its own lines.
    auto store = sync::installation_store();
    std::vector<std::string> ignored;
    bool own = !store;
    for (const auto& l : sync::read_network(*a, &ignored))
      own = own || (l.dept == o.dept && l.line == o.line && l.store == *store);
    if (!own)
      return fail("department " + std::to_string(o.dept) + " has no line " +
                  std::to_string(o.line) + " of " + sync::store_label(store) +
                  "; nothing was reset");
    sync::StoreLimit limit(*a, store);
    source->reset(id);
  } else
    std::printf("%s\n", source->flags(id).c_str());
}

}  // namespace

void add_flag_commands(CLI::App& app, Options&) {
  auto* flags = app.add_subcommand("flags", "Show the pending-line flags of a record");
  auto* reset = app.add_subcommand("reset", "Clear a served line's flag, as after a transmission");
  flags->require_subcommand(1);
  reset->require_subcommand(1);
  std::vector<std::string> key_forms = form_choices<qk::Kind::Keys>();
  for (bool is_reset : {false, true})
    for (const FlaggedCommand& c : kFlagged) {
      auto o = std::make_shared<FlagOptions>();
      auto* cmd =
          (is_reset ? reset : flags)->add_subcommand(std::string(qk::kind_name(c.kind)), c.what);
      add_dept_option(cmd, o->dept);
      cmd->add_option(c.id_option, o->id, "the record's number")->required();
      if (c.kind == qk::Kind::Keys) {
        cmd->add_option("--scale", o->scale, "scale number")->required();
        cmd->add_option("--family", o->family, "the keys' form: 3000, 5000 or 2000")
            ->transform(CLI::IsMember(key_forms, CLI::ignore_case));
      }
      if (is_reset)
        cmd->add_option("--line", o->line, "served line, 1 to " + std::to_string(c.lines))
            ->required()
            ->check(CLI::Range(1, c.lines));
      cmd->callback([&c, o, is_reset] { run(c, *o, is_reset); });
    }
}

}  // namespace qkp
