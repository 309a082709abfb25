// keys, barcodes, vat, totals, and the flags/reset commands of keys and barcodes.
#include "commands.h"
#include "qk/sync/network.h"
#include "qk/archive_tools.h"
#include "qk/clsBarCode.h"
#include "qk/clsIva.h"
#include "qk/clsTotals.h"
#include "qk/error.h"
#include "qk/host.h"
#include "qk/sync/record_sources.h"
#include "session.h"

namespace qkp {

namespace {

struct KeyOptions {
  int32_t dept = 1, scale = 1;
  std::optional<int32_t> key;
  std::string family = "3000";
  int16_t line = 1;
  bool all = false;
};

// The key's record (for 3000, its block's), or every record the line's form has for the
// department, built by the sync's own key source: what a sync would send. A key or department
// the archive does not bind says so (the component would build an empty block).
void run_keys(const Options& g, const KeyOptions& o) {
  std::vector<std::string> problems;
  auto a = qk::sync::open_archive_tools();
  auto line = qk::sync::single_line(*a, o.dept, o.line, o.scale, &problems);
  qk::Form form = qk::parse_form<qk::Kind::Keys>(o.family);
  auto source = qk::sync::source_of(qk::Kind::Keys).open(line, form);
  std::vector<int32_t> ids = source->ids(0, &problems);
  for (const auto& p : problems) fail(p);
  bool blocks = form == qk::Form::Series3000;
  std::string where =
      "department " + std::to_string(o.dept) + (blocks ? ", scale " + std::to_string(o.scale) : "");
  if (ids.empty()) return fail(where + " has no key bindings");
  if (o.key) {
    int32_t id = blocks ? qk::key_block(*o.key) : *o.key;
    if (std::find(ids.begin(), ids.end(), id) == ids.end())
      return fail("key " + std::to_string(*o.key) + " of " + where +
                  (blocks ? ": no key of its block is bound" : ": not bound"));
    ids = {id};
  }
  std::vector<std::string> out;
  for (int32_t id : ids)
    for (auto& s : source->build(id)) out.push_back(std::move(s));
  std::erase(out, std::string());  // failed builds were reported on stderr
  print(g, out);
}

}  // namespace

void add_keys_commands(CLI::App& app, Options& g) {
  auto ko = std::make_shared<KeyOptions>();
  auto* keys = app.add_subcommand("keys", "Key-binding records for one scale line");
  keys->add_option("--dept", ko->dept, "department")->required()->check(CLI::NonNegativeNumber);
  keys->add_option("--scale", ko->scale, "scale number")->required();
  keys->add_option("--line", ko->line, "served line, 1 to 8")->check(CLI::Range(1, 8));
  keys->add_option("--family", ko->family, "3000, 5000 or 2000")
      ->transform(CLI::IsMember(form_choices<qk::Kind::Keys>(), CLI::ignore_case));
  auto* key = keys->add_option("--key", ko->key, "key number");
  auto* all = keys->add_flag("--all", ko->all, "every key of the department");
  key->excludes(all);
  all->excludes(key);
  keys->callback([&g, ko] {
    if (!ko->key && !ko->all) throw CLI::ValidationError("keys", "give --key K or --all");
    run_keys(g, *ko);
  });

  auto bkey = std::make_shared<int32_t>(0);
  auto* barcodes = app.add_subcommand("barcodes", "Type \"18\" records of every form of a key");
  barcodes->add_option("--key", *bkey, "department key of the barcode formats")
      ->required()
      ->check(CLI::NonNegativeNumber);
  barcodes->callback([&g, bkey] {
    qk::clsBarCode b;
    b.p_varKey(qk::automation::Variant(*bkey));
    b.p_MoveFirst();
    std::vector<std::string> out;
    while (!b.p_booEOF()) {
      std::string r = b.p_strProtocol();
      if (!r.empty()) out.push_back(r);
      b.p_MoveNext();
    }
    print(g, out);
  });

  auto* vat = app.add_subcommand("vat", "VAT rate records (2000 series)");
  vat->callback([&g] {
    qk::clsIva iva;
    iva.Initialize();
    std::vector<std::string> out;
    for (int16_t pos = 1; pos <= iva.RecordCount(); ++pos) {
      iva.CursorPosition(pos);
      out.push_back(iva.Protocol2000());
    }
    print(g, out);
  });

  struct TotalsOptions {
    int16_t counter = 255;
    std::string mode = "C";
  };
  auto to = std::make_shared<TotalsOptions>();
  auto* totals = app.add_subcommand("totals", "Totals requests per article (2000 series)");
  totals->add_option("--dept,--counter", to->counter, "department (counter), 255 = all")
      ->required();
  totals->add_option("--mode", to->mode, "C, G or V (only flagged articles)")
      ->check(CLI::IsMember({"C", "G", "V"}));
  totals->callback([&g, to] {
    qk::clsTotals t;
    t.Mode(to->mode);
    t.Counter(to->counter);
    t.Initialize();
    std::vector<std::string> out;
    for (int16_t pos = 1; pos <= t.RecordCount(); ++pos) {
      t.CursorPosition(pos);
      out.push_back(t.Protocol2000());
    }
    print(g, out);
  });
}

}  // namespace qkp
