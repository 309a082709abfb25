// keys, barcodes, vat, totals, and the flags/reset commands of keys and barcodes.
#include <set>

#include "commands.h"
#include "network.h"
#include "qk/archive_tools.h"
#include "qk/clsAbbinamentoTasti.h"
#include "qk/clsBarCode.h"
#include "qk/clsIva.h"
#include "qk/clsTotals.h"
#include "qk/error.h"
#include "qk/host.h"
#include "session.h"

namespace qkp {

namespace {

struct KeyOptions {
  int32_t dept = 1, scale = 1;
  std::optional<int32_t> key;
  std::string family = "3000";
  int16_t line = 1;
  bool all = false;
  int32_t reset_line = 0;
};

std::unique_ptr<qk::clsAbbinamentoTasti> keys_for(const KeyOptions& o) {
  auto k = std::make_unique<qk::clsAbbinamentoTasti>();
  k->p_varKey(qk::automation::Variant(o.dept));
  k->p_strScale(std::to_string(o.scale));
  k->p_strScaleKey(o.key ? std::to_string(*o.key) : "");
  k->p_intLine(o.line);
  k->p_varConfiguredLines(network_lines());
  return k;
}

std::string key_protocol(qk::clsAbbinamentoTasti& k, const std::string& family) {
  if (family == "5000") return k.p_strProtocolO50();
  if (family == "2000") return k.p_strProtocolO20();
  return k.p_strProtocol();
}

// Whether the archive binds what the command asks for: the key (its block of 15 on the scale, for
// 3000) or, with --all, any key of the department. The component would build an empty block.
bool keys_exist(const KeyOptions& o) {
  std::vector<std::string> problems;
  auto a = qk::sync::open_archive_tools();
  bool blocks = o.family == "3000";
  auto ids = a->record_ids(blocks ? qk::RecordGroup::KeyBlock : qk::RecordGroup::Key, o.dept,
                           o.scale, 0, &problems);
  for (const auto& p : problems) fail(p);
  std::string scale = blocks ? ", scale " + std::to_string(o.scale) : "";
  if (ids.empty()) {
    fail("department " + std::to_string(o.dept) + scale + " has no key bindings");
    return false;
  }
  if (!o.key) return true;
  int32_t id = blocks ? (*o.key - 1) / qk::kKeysPerBlock : *o.key;
  if (std::find(ids.begin(), ids.end(), id) != ids.end()) return true;
  fail("key " + std::to_string(*o.key) + " of department " + std::to_string(o.dept) + scale +
       (blocks ? ": no key of its block is bound" : ": not bound"));
  return false;
}

void run_keys(const Options& g, const KeyOptions& o) {
  if (!keys_exist(o)) return;
  auto k = keys_for(o);
  std::vector<std::string> out;
  if (!o.all) {
    out.push_back(key_protocol(*k, o.family));
  } else if (o.family == "3000") {
    // One type "35" record per block of 15 that holds a key of the department.
    k->InitializeGlobal();
    std::set<long> blocks;
    for (int16_t pos = 1; pos <= k->RecordCount(); ++pos) {
      k->CursorPosition(pos);
      k->GlobalMode("True");
      std::string msg = k->p_strProtocolO50();  // moves p_strScaleKey to the walk's key
      blocks.insert((qk::automation::Variant(k->p_strScaleKey()).to_int32() - 1L) / 15);
    }
    k->GlobalMode("False");
    for (long b : blocks) {
      k->p_strScaleKey(std::to_string(b * 15 + 1));
      out.push_back(k->p_strProtocol());
    }
  } else {
    k->InitializeGlobal();
    k->GlobalMode("True");
    for (int16_t pos = 1; pos <= k->RecordCount(); ++pos) {
      k->CursorPosition(pos);
      out.push_back(key_protocol(*k, o.family));
    }
  }
  std::erase(out, std::string());  // failed builds were reported on stderr
  print(g, out);
}

void add_key_options(CLI::App* cmd, KeyOptions& o, bool with_line, bool with_key_choice) {
  cmd->add_option("--dept", o.dept, "department")->required()->check(CLI::NonNegativeNumber);
  cmd->add_option("--scale", o.scale, "scale number")->required();
  if (with_line) cmd->add_option("--line", o.line, "served line, 1 to 8")->check(CLI::Range(1, 8));
  cmd->add_option("--family", o.family, "3000, 5000 or 2000")
      ->check(CLI::IsMember({"3000", "5000", "2000"}));
  if (with_key_choice) {
    auto* key = cmd->add_option("--key", o.key, "key number");
    auto* all = cmd->add_flag("--all", o.all, "every key of the department");
    key->excludes(all);
    all->excludes(key);
  } else {
    cmd->add_option("--key", o.key, "key number")->required();
  }
}

}  // namespace

void add_keys_commands(CLI::App& app, Options& g) {
  auto ko = std::make_shared<KeyOptions>();
  auto* keys = app.add_subcommand("keys", "Key-binding records for one scale line");
  add_key_options(keys, *ko, true, true);
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

void add_flag_commands(CLI::App& app, Options&) {
  auto* flags = app.add_subcommand("flags", "Show the pending-line flags of a record");
  auto* reset = app.add_subcommand("reset", "Clear a served line's flag, as after a transmission");
  flags->require_subcommand(1);
  reset->require_subcommand(1);

  for (bool is_reset : {false, true}) {
    CLI::App* parent = is_reset ? reset : flags;
    auto ko = std::make_shared<KeyOptions>();
    auto* k = parent->add_subcommand("keys", "key bindings (the key's block for 3000)");
    add_key_options(k, *ko, false, false);
    if (is_reset) k->add_option("--line", ko->reset_line, "served line")->required();
    k->callback([ko, is_reset] {
      auto keys = keys_for(*ko);
      if (!is_reset) {
        std::string f = ko->family == "5000"   ? keys->p_strFlagTrasm50()
                        : ko->family == "2000" ? keys->p_strFlagTrasm20()
                                               : keys->p_strFlagTrasm();
        std::printf("%s\n", f.c_str());
        return;
      }
      int32_t line = ko->reset_line;
      if (ko->family == "5000")
        keys->p_ResetFlagTrasm50(line);
      else if (ko->family == "2000")
        keys->p_ResetFlagTrasm20(line);
      else
        keys->p_ResetFlagTrasm(line);
    });

    struct BarcodeOptions {
      int32_t dept = 0, form = 0, line = 0;
    };
    auto bo = std::make_shared<BarcodeOptions>();
    auto* b = parent->add_subcommand("barcodes", "barcode formats (one form)");
    b->add_option("--dept", bo->dept, "department key")->required()->check(CLI::NonNegativeNumber);
    b->add_option("--form", bo->form, "form number")->required();
    if (is_reset) b->add_option("--line", bo->line, "served line, 1 to 4")->required();
    b->callback([bo, is_reset] {
      qk::clsBarCode bc;
      bc.p_varKey(qk::automation::Variant(bo->dept));
      bc.p_strForm(std::to_string(bo->form));
      bc.p_varConfiguredLines(network_lines());
      if (is_reset)
        bc.p_ResetFlagTrasm(bo->line);
      else
        std::printf("%s\n", bc.p_strFlagTrasm().c_str());
    });
  }
}

}  // namespace qkp
