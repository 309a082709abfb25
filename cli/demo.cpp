#include "demo.h"

#include <filesystem>
#include <tuple>

#include "qk/sync/archive_pictures.h"
#include "qk/archive_tools.h"
#include "qk/host.h"
#include "qk/pictures.h"
#include "templates.h"

namespace qkp {

using qk::automation::Variant;

namespace {

void write_if(const std::string& path, const std::string& bytes, bool overwrite) {
  if (!overwrite && std::filesystem::exists(path)) return;
  qk::save_file_atomically(path, bytes);
}

qk::images::Picture pattern(int width, int height, int kind) {
  qk::images::Picture p{width, height, {}};
  for (int y = 0; y < height; ++y) {
    std::vector<bool> row(static_cast<std::size_t>(width));
    for (int x = 0; x < width; ++x) {
      bool frame = x < 2 || y < 2 || x >= width - 2 || y >= height - 2;
      bool diag = kind == 0 ? (x / 8 + y / 8) % 2 == 0 : (x + y) % 16 < 3;
      row[static_cast<std::size_t>(x)] = frame || (diag && y > height / 3);
    }
    p.rows.push_back(row);
  }
  return p;
}

std::string desc(int n) {
  std::string s = "Riga descrittiva numero " + std::to_string(n) + " del lotto";
  while (s.size() < 75) s += " x";
  return s;
}

// Rows written through the archive's tools, every column of the table in order (ROW_VERSION
// is the archive's own) or the named ones.
class Rows {
 public:
  explicit Rows(qk::ArchiveTools& a) : a_(a) {}
  // Columns left out at the end (added by later versions) take their defaults.
  void put(const char* table, std::vector<Variant> values) {
    const auto& t = *qk::archive::find_table(table);
    auto cols = qk::archive::written_columns(t);
    for (std::size_t i = values.size(); i < cols.size(); ++i) {
      const auto& d = qk::archive::find_column(t, cols[i])->default_value;
      values.push_back(d.none()                                     ? Variant::null()
                       : d.kind == qk::archive::Default::Kind::Text ? Variant(std::string(d.text))
                                                                    : Variant(d.integer));
    }
    a_.insert_row(t, cols, values);
  }
  void put_columns(const char* table, const std::vector<std::string>& cols,
                   const std::vector<Variant>& values) {
    a_.insert_row(*qk::archive::find_table(table), cols, values);
  }

 private:
  qk::ArchiveTools& a_;
};

}  // namespace

void write_default_files(const std::string& folder, bool overwrite) {
  std::filesystem::create_directories(folder + "/Languages");
  for (const auto& t : templates()) write_if(folder + "/" + t.path, t.text, overwrite);
}

void write_demo_files(const std::string& folder) {
  std::filesystem::create_directories(folder + "/images");
  std::string store = R"(<?xml version="1.0"?>
<root>
  <keys>
    <key path="Software\VB and VBA Program Settings\Varlen System\Appl" name="LanguageId" value="LAN_ITA" />
    <key path="Software\VB and VBA Program Settings\Varlen System\Debug" name="Silent" value="Y" />
  </keys>
</root>
)";
  qk::save_file_atomically(folder + "/registry.xml", store);
  // The folder keeps the bitmaps too: the preview and `qkp image` read files.
  for (const auto& [name, bytes] : demo_pictures())
    qk::save_file_atomically(folder + "/images/" + name, bytes);
}

const std::map<std::string, std::string>& demo_pictures() {
  static const std::map<std::string, std::string> pictures = {
      {"LOGO.BMP", qk::images::encode_bmp1(pattern(232, 245, 0))},
      {"SMALL.BMP", qk::images::encode_bmp1(pattern(40, 24, 1))},
      {"WIDE.BMP", qk::images::encode_bmp1(pattern(400, 20, 1))}};
  return pictures;
}

void fill_demo_archive(qk::ArchiveTools& tools) {
  Rows a(tools);
  // Three departments, eight lines of mixed families.
  struct Line {
    int bnc, line;
    const char* family;
    int scale;
  } lines[] = {{1, 1, "3000", 1},  {1, 2, "5000", 2}, {1, 3, "2000", 3},   {2, 1, "3000TOP", 1},
               {2, 2, "VELTA", 2}, {2, 3, "5000", 3}, {3, 1, "KESTRA", 1}, {3, 2, "3000", 2}};
  for (const auto& l : lines) a.put("SCALE_LINES", {l.bnc, l.line, l.family, l.scale});

  // Keys: PLU bindings for every scale, a few of another kind, a long value, rows bound to a
  // single line, and pending flags on some lines.
  for (const auto& l : lines)
    for (int key = 1; key <= 40; ++key) {
      if (key % 7 == 0) continue;  // unassigned keys call up the PLU of their own number
      int value = key == 5 ? 12345 : 100 + key;
      const char* mode = key % 11 == 0 ? "R" : "P";
      int bound = key % 13 == 0 ? 2 : 255;
      std::string flags = key <= 20 ? "11100000" : "00000000";
      a.put("TASTIERA_PLU", {l.bnc, l.scale, key, value, mode, bound, flags});
    }

  for (int bnc = 1; bnc <= 3; ++bnc) {
    a.put("BARCODE", {bnc, 1, "A#6@B#13", "1000"});
    a.put("BARCODE", {bnc, 2, "P#5@W#5@C#1", "1100"});
    a.put("BARCODE", {bnc, 3, "E#2@P#4@Q#123", "0000"});
  }

  // Lots: an ordinary lot with an accented description, a lot with no descriptions whose code
  // is its number (sent as a deletion to the 5000 series), a lot to delete on Velta scales,
  // long descriptions, and a lot of two rows.
  auto lot = [&](int bnc, int id, int row, const std::string& code,
                 const std::vector<std::string>& lines_of_text, int optional,
                 const Variant& charged, const char* flags) {
    std::vector<std::string> cols = {"TRC_BNC",  "TRC_ID",       "TRC_ROW",  "TRC_ID_LOT",
                                     "TRC_MODE", "TRC_OPTIONAL", "WCHARGED", "TRC_FLAGTRASM"};
    std::vector<Variant> params{bnc, id, row, code, 1, optional, charged, flags};
    for (std::size_t i = 0; i < lines_of_text.size(); ++i) {
      cols.push_back("TRC_DESC" + std::to_string(i + 1));
      params.emplace_back(lines_of_text[i]);
    }
    a.put_columns("TRACEABILITY", cols, params);
  };
  for (int bnc = 1; bnc <= 3; ++bnc) {
    lot(bnc, 12, 1, "L12-2026",
        {"Lotto di produzione", "Origine: Italia", "Nato in Francia", "Allevato in Italia",
         "Macellato: Mod\xE8na"},
        0b110, Variant("1500"), "11100000");
    lot(bnc, 7, 1, "7", {}, 0, Variant::null(), "11000000");
    lot(bnc, 13, 1, "L13", {"<TBD>"}, 0, Variant("0"), "11100000");
    std::vector<std::string> many;
    for (int i = 1; i <= 20; ++i) many.push_back(desc(i));
    lot(bnc, 14, 1, "LOTTO-CON-CODICE-LUNGO", many, 0xFFFFE, Variant("250"), "10100000");
    lot(bnc, 15, 1, "L15", {"Prima riga", "Seconda riga"}, 0, Variant("10"), "00000000");
    lot(bnc, 15, 2, "L15", {"Riga due/1", "", "Riga due/3"}, 0, Variant("10"), "00000000");
  }

  // Advertising messages with their texts (one 300 characters long, one with the euro sign).
  std::string long_text;
  for (int i = 0; long_text.size() < 300; ++i) long_text += "Offerta " + std::to_string(i) + "! ";
  long_text.resize(300);
  for (int bnc = 1; bnc <= 3; ++bnc) {
    a.put("ADVERTISING", {bnc, 1, 1, "PROMO.BMP", 5, 2, 3, 10, "11100000"});
    a.put("ADVERTISING", {bnc, 2, 0, "", 3, 1, 1, 11, "01000000"});
    a.put("ADVERTISING", {bnc, 3, 2, "", 0, 0, 0, Variant::null(), "00000000"});
    a.put("MESSAGES", {bnc, 10, 1, long_text});
    a.put("MESSAGES", {bnc, 10, 2, "Solo oggi: 2 \x80 al kg"});
    a.put("MESSAGES", {bnc, 11, 1, "Benvenuti!"});
    // Electronic texts.
    a.put("ETEXT", {bnc, 12, 1, "Ingredienti: farina, acqua, sale"});
    a.put("ETEXT", {bnc, 12, 2, "Conservare in luogo fresco"});
    a.put("ETEXT", {bnc, 7, 1, "Allergeni: glutine"});
  }

  for (auto [id, pct] : {std::pair{1, 4.0}, {2, 10.0}, {3, 22.0}, {4, 22.5}})
    a.put("ALIQUOTE", {id, pct});
  for (int bnc = 1; bnc <= 3; ++bnc)
    for (int plu = 101; plu <= 110; ++plu)
      a.put("ARTICOLI",
            {bnc, plu, "Articolo " + std::to_string(plu), plu % 3 == 0 ? "10000000" : "00000000"});

  for (int bnc = 1; bnc <= 3; ++bnc) {
    for (auto [id, name, description] :
         {std::tuple{4, "LOGO.BMP", "Logo negozio"}, {5, "SMALL.BMP", "Marchio"}})
      a.put_columns("IMMAGINI", {"IM_BNC", "IM_ID", "IM_FILE_NAME", "IM_DESCRIPTION", "IM_PICTURE"},
                    {bnc, id, name, description, qk::sync::picture_text(demo_pictures().at(name))});
  }

  // Two layouts per department: an 80 x 60 mm ticket with a text, a barcode and a logo; a
  // second one with a text of field number 51 (left out of the 3000 series).
  struct Prop {
    int obj, type;
    std::vector<std::pair<int, const char*>> props;
  };
  std::vector<Prop> first = {{1, 4, {{1, "60"}, {2, "3"}, {5, "80"}, {6, "2"}, {7, "0"}}},
                             {2,
                              3,
                              {{0, "7"},
                               {1, "0"},
                               {2, "20"},
                               {3, "1A"},
                               {4, "1"},
                               {5, "1003"},
                               {7, "12,5"},
                               {8, "1"},
                               {9, "0"},
                               {10, "20"},
                               {11, "10"},
                               {13, "2001"},
                               {14, "2000"}}},
                             {3,
                              2,
                              {{0, "8"},
                               {1, "0"},
                               {2, "5"},
                               {3, "13"},
                               {4, "2"},
                               {6, "5"},
                               {7, "0"},
                               {8, "0"},
                               {9, "30"},
                               {11, "3000"},
                               {12, "3001"},
                               {15, "2"}}},
                             {4,
                              1,
                              {{0, "9"},
                               {2, "0"},
                               {4, "50"},
                               {5, "4"},
                               {6, "0"},
                               {7, "0"},
                               {8, "5"},
                               {10, "4000"},
                               {11, "4000"},
                               {14, "0"}}}};
  std::vector<Prop> second = {{1, 4, {{1, "40"}, {2, "1"}, {5, "60"}, {6, "0"}, {7, "0"}}},
                              {2,
                               3,
                               {{0, "51"},
                                {1, "0"},
                                {2, "10"},
                                {3, "0"},
                                {4, "37"},
                                {5, "1025"},
                                {7, "1"},
                                {8, "0"},
                                {9, "0"},
                                {10, "5"},
                                {11, "1"},
                                {13, "2000"},
                                {14, "2000"}}},
                              {3, 3, {{0, "50"}, {4, "37"}, {10, "1"}}}};
  for (int bnc = 1; bnc <= 3; ++bnc) {
    for (auto [id, objects] : {std::pair{1, &first}, {2, &second}}) {
      a.put("TICKET", {bnc, id, id == 1 ? "Etichetta standard" : "Etichetta ridotta"});
      for (const auto& o : *objects) {
        a.put("TICKET_DETAIL", {bnc, id, o.obj, o.type});
        for (auto [pid, v] : o.props) a.put("TICKET_PROPERTY", {bnc, id, o.obj, pid, v});
      }
    }
  }
}

}  // namespace qkp

namespace qkp {

void fill_large_archive(qk::ArchiveTools& tools) {
  Rows a(tools);
  const char* families[] = {"3000", "5000", "2000", "3000TOP", "5000", "VELTA", "3000", "KESTRA"};
  const std::string pending = "11111111";
  for (int bnc = 1; bnc <= 50; ++bnc) {
    for (int line = 1; line <= 8; ++line)
      a.put("SCALE_LINES", {bnc, line, families[(line - 1 + bnc) % 8], line});
    for (int scale = 1; scale <= 8; ++scale)
      for (int key = 1; key <= 250; ++key)
        a.put("TASTIERA_PLU", {bnc, scale, key, 1000 + key, "P", 255, pending});
    for (int form = 1; form <= 4; ++form) a.put("BARCODE", {bnc, form, "A#6@B#13@C#2", "1111"});
    for (int lot = 1; lot <= 100; ++lot) {
      std::vector<std::string> cols = {"TRC_BNC", "TRC_ID", "TRC_ID_LOT", "TRC_FLAGTRASM"};
      std::vector<Variant> p{bnc, lot, "LOT-" + std::to_string(bnc) + "-" + std::to_string(lot),
                             pending};
      for (int i = 1; i <= 8; ++i) {
        cols.push_back("TRC_DESC" + std::to_string(i));
        p.emplace_back(desc(i));
      }
      a.put_columns("TRACEABILITY", cols, p);
    }
    for (int id = 1; id <= 10; ++id) {
      a.put("ADVERTISING", {bnc, id, 1, "PROMO.BMP", 5, 2, 3, id, pending});
      a.put("MESSAGES", {bnc, id, 1, "Offerta del giorno numero " + std::to_string(id)});
    }
    for (int id = 1; id <= 5; ++id) {
      a.put("ETEXT", {bnc, id, 1, "Ingredienti"});
      a.put("ETEXT", {bnc, id, 2, "Allergeni"});
    }
    for (int id = 1; id <= 4; ++id) {
      a.put("TICKET", {bnc, id, "Etichetta"});
      for (auto [obj, type] : {std::pair{1, 4}, {2, 3}, {3, 2}})
        a.put("TICKET_DETAIL", {bnc, id, obj, type});
      const char* props[][2] = {{"1", "60"}, {"2", "3"}, {"5", "80"}, {"6", "0"}, {"7", "0"}};
      for (auto& pr : props) a.put("TICKET_PROPERTY", {bnc, id, 1, pr[0], pr[1]});
      const char* text[][2] = {{"0", "7"},    {"1", "0"},    {"2", "20"},   {"3", "1A"},
                               {"4", "1"},    {"5", "1003"}, {"7", "12,5"}, {"8", "1"},
                               {"9", "0"},    {"10", "20"},  {"11", "10"},  {"13", "2001"},
                               {"14", "2000"}};
      for (auto& pr : text) a.put("TICKET_PROPERTY", {bnc, id, 2, pr[0], pr[1]});
      const char* code[][2] = {{"0", "8"},  {"1", "0"},     {"2", "5"},     {"3", "13"},
                               {"4", "2"},  {"6", "5"},     {"7", "0"},     {"8", "0"},
                               {"9", "30"}, {"11", "3000"}, {"12", "3001"}, {"15", "2"}};
      for (auto& pr : code) a.put("TICKET_PROPERTY", {bnc, id, 3, pr[0], pr[1]});
    }
  }
  for (auto [id, pct] : {std::pair{1, 4.0}, {2, 10.0}, {3, 22.0}}) a.put("ALIQUOTE", {id, pct});
}

}  // namespace qkp
