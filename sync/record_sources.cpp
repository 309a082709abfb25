#include "qk/sync/record_sources.h"

#include <unistd.h>

#include <array>
#include <map>

#include "qk/clsAbbinamentoTasti.h"
#include "qk/clsAdvertisingMessage.h"
#include "qk/clsBarCode.h"
#include "qk/clsEText.h"
#include "qk/clsImage.h"
#include "qk/clsImageKestra.h"
#include "qk/clsIva.h"
#include "qk/clsLayout.h"
#include "qk/clsSimple.h"
#include "qk/clsTraceability.h"
#include "qk/host.h"
#include "qk/sync/archive_pictures.h"
#include "qk/sync/row_checks.h"

namespace qk::sync {

using automation::Variant;

namespace {

using Strings = std::vector<std::string>;

// The ids of a flag-carrying group, through the archive.
class FlaggedSource : public RecordSource {
 public:
  FlaggedSource(const LineContext& c, RecordGroup g, std::string noun)
      : c_(c), group_(g), noun_(std::move(noun)) {}
  std::vector<int32_t> ids(int32_t line, std::vector<std::string>* problems) override {
    return c_.archive->record_ids(group_, c_.where.dept, c_.where.scale, line, problems);
  }
  std::string label(int32_t id) const override { return noun_ + " " + std::to_string(id); }
  std::optional<GroupRef> group(int32_t id) const override {
    return GroupRef{group_, c_.where.dept, c_.where.scale, id};
  }

 protected:
  int32_t line() const { return c_.where.line; }
  LineContext c_;

 private:
  RecordGroup group_;
  std::string noun_;
};

// Records numbered 1 to a count the class gives (VAT rates, electronic texts).
class CountedSource : public RecordSource {
 public:
  std::vector<int32_t> ids(int32_t, std::vector<std::string>*) override {
    std::vector<int32_t> v;
    for (int32_t p = 1; p <= count(); ++p) v.push_back(p);
    return v;
  }

 protected:
  virtual int32_t count() = 0;
};

// Records numbered by a column of a table's rows of the department (layouts, images).
std::vector<int32_t> table_ids(
    const LineContext& c, const char* table, const char* id_column,
    std::vector<std::string>* problems,
    const std::function<void(int32_t, automation::Recordset&)>& each = {}) {
  const archive::Table& t = *archive::find_table(table);
  auto rs = c.archive->select_rows(t, {{std::string(t.department), c.where.dept}});
  std::vector<int32_t> v;
  for (; !rs->Eof(); rs->MoveNext()) {
    std::string p = value_problem(*archive::find_column(t, id_column), rs->Fields(id_column));
    if (!p.empty()) {
      if (problems)
        problems->push_back(row_name(t, *rs) + ": " + id_column + " " + p + "; left out");
      continue;
    }
    v.push_back(rs->Fields(id_column).to_int32());
    if (each) each(v.back(), *rs);
  }
  return v;
}

class DateSource : public RecordSource {
 public:
  explicit DateSource(Form form) : tagged_(form == Form::Series5000) {}
  std::vector<int32_t> ids(int32_t, std::vector<std::string>*) override { return {0}; }
  std::string label(int32_t) const override { return "date and time"; }
  Strings build(int32_t) override {
    clsSimple s;
    return {tagged_ ? s.DataOraO5000() : s.DataOra()};
  }

 private:
  bool tagged_;
};

class VatSource : public CountedSource {
 public:
  VatSource() { iva_.Initialize(); }
  std::string label(int32_t id) const override { return "VAT rate " + std::to_string(id); }
  Strings build(int32_t id) override {
    int16_t pos = static_cast<int16_t>(id);
    iva_.CursorPosition(pos);
    return {iva_.Protocol2000()};
  }

 protected:
  int32_t count() override { return iva_.RecordCount(); }

 private:
  clsIva iva_;
};

class BarcodeSource : public FlaggedSource {
 public:
  explicit BarcodeSource(const LineContext& c)
      : FlaggedSource(c, RecordGroup::BarcodeForm, "barcode form") {
    bc_.p_varKey(Variant(c.where.dept));
    bc_.p_varConfiguredLines(c.configured);
  }
  std::vector<int32_t> ids(int32_t line, std::vector<std::string>* problems) override {
    // The flags have four positions: lines 5 to 8 are never pending, only sent in full.
    if (line > kWidth) return {};
    return FlaggedSource::ids(line, problems);
  }
  Strings build(int32_t id) override {
    select(id);
    return {bc_.p_strProtocol()};
  }
  std::string flags(int32_t id) override {
    select(id);
    return bc_.p_strFlagTrasm();
  }
  void reset(int32_t id) override {
    if (line() > kWidth) return;
    int32_t l = line();
    select(id);
    bc_.p_ResetFlagTrasm(l);
  }

 private:
  static constexpr int kWidth = 4;
  void select(int32_t id) { bc_.p_strForm(std::to_string(id)); }
  clsBarCode bc_;
};

class KeySource : public FlaggedSource {
 public:
  KeySource(const LineContext& c, Form form)
      : FlaggedSource(c, *group_of(Kind::Keys, form),
                      form == Form::Series3000 ? "key block" : "key"),
        form_(form) {
    keys_.p_varKey(Variant(c.where.dept));
    keys_.p_strScale(std::to_string(c.where.scale));
    keys_.p_intLine(static_cast<int16_t>(c.where.line));
    keys_.p_varConfiguredLines(c.configured);
  }
  Strings build(int32_t id) override {
    select(id);
    if (form_ == Form::Series5000) return {keys_.p_strProtocolO50()};
    if (form_ == Form::Series2000) return {keys_.p_strProtocolO20()};
    return {keys_.p_strProtocol()};
  }
  std::string flags(int32_t id) override {
    select(id);
    if (form_ == Form::Series5000) return keys_.p_strFlagTrasm50();
    if (form_ == Form::Series2000) return keys_.p_strFlagTrasm20();
    return keys_.p_strFlagTrasm();
  }
  void reset(int32_t id) override {
    int32_t l = line();
    select(id);
    if (form_ == Form::Series5000)
      keys_.p_ResetFlagTrasm50(l);
    else if (form_ == Form::Series2000)
      keys_.p_ResetFlagTrasm20(l);
    else
      keys_.p_ResetFlagTrasm(l);
  }

 private:
  // A block is addressed by its first key.
  void select(int32_t id) {
    keys_.p_strScaleKey(std::to_string(form_ == Form::Series3000 ? first_key_of(id) : id));
  }
  Form form_;
  clsAbbinamentoTasti keys_;
};

class LotSource : public FlaggedSource {
 public:
  LotSource(const LineContext& c, Form form)
      : FlaggedSource(c, RecordGroup::Lot, "lot"), form_(form) {
    lots_.p_lngBnc(c.where.dept);
    lots_.p_varConfiguredLines(c.configured);
  }
  Strings build(int32_t id) override {
    select(id);
    switch (form_) {
      case Form::Velta:
        return {lots_.p_strProtocol()};
      case Form::Series3000Top:
        return lots_.p_3000TOP_strProtocol().items();
      case Form::Series2000:
        return lots_.p_2000_strProtocol().items();
      case Form::Series3000:
        return lots_.p_3000_strProtocol().items();
      default:
        return {lots_.p_5000_strProtocol()};
    }
  }
  std::string flags(int32_t id) override {
    select(id);
    return lots_.p_strFlagTrasm();
  }
  void reset(int32_t id) override {
    int32_t l = line();
    select(id);
    lots_.p_ResetFlagTrasm(l);
  }

 private:
  void select(int32_t id) { lots_.p_strTraceabilityId(std::to_string(id)); }
  Form form_;
  clsTraceability lots_;
};

class AdSource : public FlaggedSource {
 public:
  explicit AdSource(const LineContext& c)
      : FlaggedSource(c, RecordGroup::Ad, "advertising message") {
    int32_t counter = c.where.dept;
    ads_.Counter(counter);
    ads_.configuredLines(c.configured);
  }
  Strings build(int32_t id) override {
    select(id);
    return {ads_.Protocol().to_text()};
  }
  std::string flags(int32_t id) override {
    select(id);
    return ads_.p_strFlagTrasm();
  }
  void reset(int32_t id) override {
    int32_t l = line();
    select(id);
    ads_.p_ResetFlagTrasm(l);
  }

 private:
  void select(int32_t id) { ads_.Id(id); }
  clsAdvertisingMessage ads_;
};

class TextSource : public CountedSource {
 public:
  explicit TextSource(const LineContext& c) {
    // The texts' class uses the database object an earlier class created on this thread.
    clsAdvertisingMessage opener;
    int32_t counter = c.where.dept;
    texts_.Counter(counter);
    texts_.InitializeGlobal();
    texts_.GlobalMode(true);
  }
  std::string label(int32_t id) const override { return "electronic text " + std::to_string(id); }
  Strings build(int32_t id) override {
    texts_.CursorPosition(static_cast<int16_t>(id));
    return {texts_.Protocol().to_text()};
  }

 protected:
  int32_t count() override { return texts_.RecordCount(); }

 private:
  clsEText texts_;
};

class LayoutSource : public RecordSource {
 public:
  LayoutSource(const LineContext& c, Form form) : c_(c), device_(form == Form::Series3000 ? 2 : 1) {
    layout_.p_lngBnc(c.where.dept);
  }
  std::vector<int32_t> ids(int32_t, std::vector<std::string>* problems) override {
    return table_ids(c_, "TICKET", "TK_ID", problems);
  }
  std::string label(int32_t id) const override { return "layout " + std::to_string(id); }
  Strings build(int32_t id) override {
    layout_.p_lngTicketId(id);
    if (!layout_.p_booRetrieveData()) return {};
    return layout_.p_strProtocol(device_).items();
  }

 private:
  LineContext c_;
  int16_t device_;
  clsLayout layout_;
};

class ImageSource : public RecordSource {
 public:
  ImageSource(const LineContext& c, Form form) : c_(c), kestra_(form == Form::Kestra) {}
  std::vector<int32_t> ids(int32_t, std::vector<std::string>* problems) override {
    return table_ids(
        c_, "IMMAGINI", "IM_ID", problems, [this](int32_t id, automation::Recordset& rs) {
          rows_[id] = {rs.Fields("IM_FILE_NAME").to_text(), rs.Fields("IM_DESCRIPTION").to_text(),
                       rs.Fields("IM_FROM").to_text(), rs.Fields("IM_TO").to_text(),
                       rs.Fields("IM_PICTURE").to_text()};
        });
  }
  std::string label(int32_t id) const override {
    auto it = rows_.find(id);
    return "image " + std::to_string(id) + (it == rows_.end() ? "" : " (" + it->second[0] + ")");
  }
  Strings build(int32_t id) override {
    const auto& r = rows_.at(id);
    // The picture the archive holds, never a file of this folder that may be stale or missing.
    std::string where = "image " + std::to_string(id) + " of department " +
                        std::to_string(c_.where.dept) + " (file " + r[0] + ")";
    if (r[4].empty())
      throw RecordRefused(where +
                          " has no picture in the archive: add it with \"qkp images add "
                          "--dept " +
                          std::to_string(c_.where.dept) + " --id " + std::to_string(id) + " " +
                          r[0] + "\"");
    auto bytes = picture_bytes(r[4]);
    if (!bytes) throw RecordRefused(where + ": its picture in the archive is not base64");
    std::string path = materialised_picture(c_.images_folder, *bytes);
    if (kestra_) {
      clsImageKestra k;
      k.p_varKey(Variant(id));
      k.p_strFullPath(path);
      return k.p_strProtocol().items();
    }
    // The component writes the dates as given: one the scale cannot read is not sent.
    const archive::Table& images = *archive::find_table("IMMAGINI");
    for (auto [column, value] : {std::pair{"IM_FROM", &r[2]}, std::pair{"IM_TO", &r[3]}}) {
      std::string problem = value_problem(*archive::find_column(images, column), Variant(*value));
      if (!problem.empty()) throw RecordRefused(where + ": " + column + " " + problem);
    }
    clsImage i;
    i.p_varKey(Variant(id));
    i.p_strFullPath(path);
    i.p_strDescription(r[1]);
    i.p_strFromDate(r[2]);
    i.p_strToDate(r[3]);
    return i.p_strProtocol().items();
  }

 private:
  LineContext c_;
  bool kestra_;
  // file, description, from, to, picture
  std::map<int32_t, std::array<std::string, 5>> rows_;
};

template <class T>
std::unique_ptr<RecordSource> with_form(const LineContext& c, Form form) {
  return std::make_unique<T>(c, form);
}

}  // namespace

const std::vector<SourceEntry>& sources() {
  static const std::vector<SourceEntry> table = {
      {Kind::Date, false,
       [](const LineContext&, Form form) -> std::unique_ptr<RecordSource> {
         return std::make_unique<DateSource>(form);
       }},
      {Kind::Vat,
       false,
       [](const LineContext&, Form) -> std::unique_ptr<RecordSource> {
         return std::make_unique<VatSource>();
       },
       {"ALIQUOTE"}},
      {Kind::Barcodes, true,
       [](const LineContext& c, Form) -> std::unique_ptr<RecordSource> {
         return std::make_unique<BarcodeSource>(c);
       }},
      {Kind::Keys, true, with_form<KeySource>},
      {Kind::Lots, true, with_form<LotSource>},
      {Kind::Ads, true,
       [](const LineContext& c, Form) -> std::unique_ptr<RecordSource> {
         return std::make_unique<AdSource>(c);
       }},
      {Kind::ETexts,
       false,
       [](const LineContext& c, Form) -> std::unique_ptr<RecordSource> {
         return std::make_unique<TextSource>(c);
       },
       {"ETEXT", "Id", true}},
      // A 5000 layout's logo names its image's file.
      {Kind::Layouts, false, with_form<LayoutSource>, {"TICKET", "TK_ID", false, "IMMAGINI"}},
      {Kind::Images, false, with_form<ImageSource>, {"IMMAGINI", "IM_ID"}},
  };
  return table;
}

LineContext single_line(ArchiveTools& a, int32_t dept, int32_t line, int32_t scale,
                        std::vector<std::string>* problems) {
  LineContext c;
  c.where = {dept, line, "", scale, ""};
  c.configured = configured_lines(read_network(a, problems));
  c.archive = &a;
  c.images_folder = path_in(installation_folder(), "images") + "/";
  return c;
}

const SourceEntry& source_of(Kind k) {
  for (const auto& s : sources())
    if (s.kind == k) return s;
  return sources().front();
}

std::optional<RecordGroup> group_of(Kind k, Form form) {
  switch (k) {
    case Kind::Barcodes:
      return RecordGroup::BarcodeForm;
    case Kind::Keys:
      return form == Form::Series3000 ? RecordGroup::KeyBlock : RecordGroup::Key;
    case Kind::Lots:
      return RecordGroup::Lot;
    case Kind::Ads:
      return RecordGroup::Ad;
    default:
      return std::nullopt;
  }
}

}  // namespace qk::sync
