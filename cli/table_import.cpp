#include "table_import.h"

#include <csv.h>
#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>

#include "qk/error.h"
#include "qk/host.h"
#include "row_checks.h"
#include "sync.h"

namespace qkp {

using qk::automation::Variant;
namespace archive = qk::archive;

namespace {

struct Reader {
  CsvFile* file;
  std::vector<std::optional<std::string>> current;
};

void on_field(void* s, size_t n, void* data) {
  auto* r = static_cast<Reader*>(data);
  if (s)
    r->current.emplace_back(std::string(static_cast<const char*>(s), n));
  else
    r->current.emplace_back(std::nullopt);
}

void on_record(int, void* data) {
  auto* r = static_cast<Reader*>(data);
  r->file->records.push_back(std::move(r->current));
  r->current.clear();
}

[[noreturn]] void refuse(const std::string& text) {
  throw std::runtime_error(text);
}

// True when the bytes are well-formed UTF-8; else *bad is the offset of the first bad byte.
bool valid_utf8(const std::string& s, std::size_t* bad) {
  for (std::size_t i = 0; i < s.size();) {
    auto c = static_cast<unsigned char>(s[i]);
    std::size_t n = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
    bool ok = n != 0 && i + n <= s.size() && !(n == 2 && c < 0xC2);
    for (std::size_t k = 1; ok && k < n; ++k)
      ok = (static_cast<unsigned char>(s[i + k]) & 0xC0) == 0x80;
    if (!ok) {
      if (bad) *bad = i;
      return false;
    }
    i += n;
  }
  return true;
}

long line_at(const std::string& s, std::size_t offset) {
  return 1 + static_cast<long>(std::count(s.begin(), s.begin() + static_cast<long>(offset), '\n'));
}

// The separator the header line uses: ";" when it has more of them than commas (the usual
// separator where the decimal mark is a comma), else ",".
char header_delimiter(const std::string& bytes, const std::string& path) {
  long commas = 0, semicolons = 0;
  bool quoted = false;
  for (char c : bytes) {
    if (c == '"') quoted = !quoted;
    if (quoted) continue;
    if (c == '\n' || c == '\r') break;
    commas += c == ',';
    semicolons += c == ';';
  }
  if (commas > 0 && commas == semicolons)
    refuse(path +
           " line 1: the header uses both ',' and ';'; say which separates the fields "
           "with --delimiter");
  return semicolons > commas ? ';' : ',';
}

// The default of a column as a value (the SQL literal without its quotes).
Variant default_of(const archive::Column& c) {
  std::string d(c.default_sql);
  if (d.empty()) return Variant::null();
  if (d.front() == '\'') return Variant(d.substr(1, d.size() - 2));
  if (c.type == archive::ColumnType::Real) return Variant(std::stod(d));
  return Variant(static_cast<int32_t>(std::stol(d)));
}

// A text column whose default is the empty text: a CSV writes that text and Null alike (an empty
// field), so the two are one value here.
bool empty_text_default(const archive::Column& c) {
  return c.type == archive::ColumnType::Text && c.default_sql == "''";
}

// A field as the column's value. Problems are left to value_problem, which names them.
Variant parse_field(const archive::Column& c, const std::optional<std::string>& field,
                    const std::string& where) {
  if (!field || (c.type != archive::ColumnType::Text && field->empty()))
    return c.not_null || empty_text_default(c) ? default_of(c) : Variant::null();
  if (c.type == archive::ColumnType::Text) {
    std::size_t bad = 0;
    auto text = qk::utf8_to_cp1252(*field, &bad);
    if (!text)
      refuse(where + ": the character at byte " + std::to_string(bad + 1) +
             " has no 8-bit form (the scales' character set, Windows code page 1252)");
    // Families are written one way, whatever the file's letter case.
    for (auto allowed : c.allowed)
      if (strcasecmp(text->c_str(), std::string(allowed).c_str()) == 0) return Variant(allowed);
    return Variant(*text);
  }
  double d = 0;
  std::string number = *field;
  // A decimal comma, as desktop exports in Italy write it: "12,5" is 12.5.
  if (auto comma = number.find(',');
      comma != std::string::npos && number.find(',', comma + 1) == std::string::npos && comma > 0 &&
      std::isdigit(static_cast<unsigned char>(number[comma - 1])) && comma + 1 < number.size() &&
      std::isdigit(static_cast<unsigned char>(number[comma + 1])))
    number[comma] = '.';
  try {
    d = Variant(number).to_double();  // the host's reading of a number, "&H" and exponents included
  } catch (const qk::automation::Error&) {
    return Variant(*field);  // not a number: value_problem names it
  }
  if (c.type == archive::ColumnType::Integer && d == std::floor(d) && d >= archive::kIntegerMin &&
      d <= archive::kIntegerMax)
    return Variant(static_cast<int32_t>(d));
  return Variant(d);
}

// A value in a --diff line: text quoted, Null as Null.
std::string shown(const Variant& v) {
  if (v.is_null()) return "Null";
  if (v.is_numeric_type()) return v.to_text();
  return "\"" + qk::cp1252_to_utf8(v.to_text()) + "\"";
}

bool same(const archive::Column& c, const Variant& a, const Variant& b) {
  if (empty_text_default(c) && (a.is_null() || b.is_null()))
    return (a.is_null() || a.to_text().empty()) && (b.is_null() || b.to_text().empty());
  if (a.is_null() || b.is_null()) return a.is_null() == b.is_null();
  if (a.is_numeric_type() && b.is_numeric_type()) return a.to_double() == b.to_double();
  return a.to_text() == b.to_text();
}

struct Row {
  long line;  // in the file, for messages
  std::vector<Variant> values;
};

// One table's file, checked: the columns named by the header and every row's values.
struct TableRows {
  const archive::Table* table;
  std::string path;
  std::vector<std::string> columns;
  std::vector<Row> rows;
  std::vector<std::string> notes;

  std::size_t index(std::string_view column) const {
    for (std::size_t i = 0; i < columns.size(); ++i)
      if (columns[i] == column) return i;
    return std::string::npos;
  }
  qk::Where where(const Row& r, std::span<const std::string_view> names) const {
    qk::Where w;
    for (auto n : names) w.emplace_back(std::string(n), r.values[index(n)]);
    return w;
  }
  std::string key_text(const Row& r, std::span<const std::string_view> names) const {
    std::string s;
    for (auto n : names)
      s += (s.empty() ? "" : ", ") + std::string(n) + " " + r.values[index(n)].to_text();
    return s;
  }
};

TableRows check_file(const CsvFile& f) {
  std::string name = std::filesystem::path(f.path).stem().string();
  const archive::Table* t = archive::find_table_any_case(name);
  if (!t) {
    std::string known;
    for (const auto& table : archive::tables())
      known += (known.empty() ? "" : ", ") + std::string(table.name);
    refuse(f.path + ": the archive has no table " + name +
           " (files are named after a table: " + known + ")");
  }
  if (f.records.empty())
    refuse(f.path + ": the file is empty; the first line must name the columns");
  TableRows out{t, f.path, {}, {}, {}};
  std::vector<std::size_t> kept;  // the fields each record gives, by position
  std::vector<std::string> extra;
  for (std::size_t i = 0; i < f.records[0].size(); ++i) {
    std::string col = f.records[0][i].value_or("");
    const archive::Column* known = archive::find_column_any_case(*t, col);
    if (known) col = std::string(known->name);
    if (archive::same_name(col, archive::kRowVersionColumn) || !known) {
      if (f.ignore_extra) {
        extra.push_back(col);
        continue;
      }
      if (archive::same_name(col, archive::kRowVersionColumn))
        refuse(f.path + " line 1: " + col +
               " is kept by the archive itself; leave the column out (or --ignore-extra)");
      refuse(f.path + " line 1: " + name + " has no column \"" + col +
             "\" (--ignore-extra skips the columns the archive does not have)");
    }
    if (std::count(out.columns.begin(), out.columns.end(), col))
      refuse(f.path + " line 1: the column \"" + col + "\" is named twice");
    out.columns.push_back(col);
    kept.push_back(i);
  }
  if (!extra.empty()) {
    std::string list;
    for (const auto& e : extra) list += (list.empty() ? "" : ", ") + e;
    out.notes.push_back("columns " + name + " does not have, skipped: " + list);
  }
  // Identity columns with a default may be left out (a lot's TRC_ROW is 1): they take it.
  std::vector<std::string> defaulted;
  for (auto needed : archive::identity(*t)) {
    if (out.index(needed) != std::string::npos) continue;
    const archive::Column& c = *archive::find_column(*t, needed);
    if (!c.default_sql.empty()) {
      defaulted.emplace_back(needed);
      continue;
    }
    std::string all;
    for (auto id : archive::identity(*t)) all += (all.empty() ? "" : ", ") + std::string(id);
    refuse(f.path + " line 1: the column " + std::string(needed) + " is missing (" + name +
           "'s rows are identified by " + all + ")");
  }
  std::size_t given = f.records[0].size();
  out.columns.insert(out.columns.end(), defaulted.begin(), defaulted.end());
  for (std::size_t r = 1; r < f.records.size(); ++r) {
    const auto& rec = f.records[r];
    long line = static_cast<long>(r + 1);
    std::string at = f.path + " line " + std::to_string(line);
    if (rec.size() != given) {
      std::string hint;
      for (const auto& field : rec)
        if (field &&
            (field->find(';') != std::string::npos || field->find(',') != std::string::npos))
          hint =
              " (a separator inside a field needs the field in double quotes; or is the "
              "separator another one? --delimiter)";
      refuse(at + ": " + std::to_string(rec.size()) + " fields, the header names " +
             std::to_string(given) + " columns" + hint);
    }
    Row row{line, {}};
    for (std::size_t c = 0; c < kept.size(); ++c) {
      const archive::Column& col = *archive::find_column(*t, out.columns[c]);
      std::string here = at + ", column " + out.columns[c];
      row.values.push_back(parse_field(col, rec[kept[c]], here));
      std::string p = qk::sync::value_problem(col, row.values.back());
      if (!p.empty()) refuse(here + ": " + p);
    }
    for (const auto& d : defaulted) row.values.push_back(default_of(*archive::find_column(*t, d)));
    out.rows.push_back(std::move(row));
  }
  return out;
}

class Importer {
 public:
  Importer(qk::ArchiveTools& a, const ImportOptions& o) : a_(a), o_(o) {}

  void load(const TableRows& t, TableCount& count) {
    if (!t.table->key.empty() || !o_.replace)
      for (const Row& r : t.rows) load_row(t, r, count);
    else
      load_groups(t, count);
  }

  long marked() const { return marked_; }
  std::vector<std::string>& diffs() { return diffs_; }

 private:
  void load_row(const TableRows& t, const Row& r, TableCount& count) {
    const archive::Table& table = *t.table;
    bool keyed = !table.key.empty();
    std::string at = t.path + " line " + std::to_string(r.line);
    if (keyed) {
      qk::Where key = t.where(r, table.key);
      auto existing = a_.select_rows(table, key);
      if (!existing->Eof()) {
        if (!o_.replace)
          refuse(at + ": " + std::string(table.name) + " already has the row " +
                 t.key_text(r, table.key) + "; add --replace to update it");
        std::string changes;
        for (std::size_t c = 0; c < t.columns.size(); ++c)
          if (!same(*archive::find_column(table, t.columns[c]), existing->Fields(t.columns[c]),
                    r.values[c]))
            changes += (changes.empty() ? "" : ", ") + t.columns[c] + " " +
                       shown(existing->Fields(t.columns[c])) + " -> " + shown(r.values[c]);
        if (changes.empty()) {
          ++count.unchanged;
          return;
        }
        say(t, r, changes);
        write(at, [&] { a_.update_rows(table, key, t.columns, r.values); });
        ++count.changed;
        changed(t, r);
        return;
      }
    }
    write(at, [&] { a_.insert_row(table, t.columns, r.values); });
    ++count.inserted;
    if (keyed) say(t, r, "new row");
    changed(t, r);
  }

  // One line of --diff: the row and what changes in it.
  void say(const TableRows& t, const Row& r, const std::string& what) {
    if (o_.diff)
      diffs_.push_back(std::string(t.table->name) + " line " + std::to_string(r.line) + " (" +
                       t.key_text(r, t.table->key) + "): " + what);
  }

  // Tables without a key (the keyboard): the file's rows of a group replace the group's rows.
  void load_groups(const TableRows& t, TableCount& count) {
    const archive::Table& table = *t.table;
    std::map<std::vector<std::string>, std::vector<const Row*>> groups;
    std::vector<std::vector<std::string>> order;
    for (const Row& r : t.rows) {
      std::vector<std::string> k;
      for (auto n : table.replace_group) k.push_back(r.values[t.index(n)].to_text());
      if (!groups.count(k)) order.push_back(k);
      groups[k].push_back(&r);
    }
    auto render = [&](auto&& value_of) {
      std::vector<std::string> v;
      for (std::size_t c = 0; c < t.columns.size(); ++c) {
        Variant x = value_of(c);
        bool blank = x.is_null() && empty_text_default(*archive::find_column(table, t.columns[c]));
        v.push_back(blank               ? ""
                    : x.is_null()       ? "\x01"
                    : x.is_numeric_type() ? std::to_string(x.to_double())
                                          : x.to_text());
      }
      return v;
    };
    for (const auto& k : order) {
      const auto& rows = groups[k];
      qk::Where where = t.where(*rows.front(), table.replace_group);
      auto existing = a_.select_rows(table, where);
      std::multiset<std::vector<std::string>> before, after;
      for (; !existing->Eof(); existing->MoveNext())
        before.insert(render([&](std::size_t c) { return existing->Fields(t.columns[c]); }));
      for (const Row* r : rows) after.insert(render([&](std::size_t c) { return r->values[c]; }));
      if (before == after) {
        count.unchanged += static_cast<long>(rows.size());
        continue;
      }
      (before.empty() ? count.inserted : count.changed) += static_cast<long>(rows.size());
      if (o_.diff)
        diffs_.push_back(std::string(table.name) + " line " + std::to_string(rows.front()->line) +
                         " (" + t.key_text(*rows.front(), table.replace_group) + "): " +
                         std::to_string(rows.size()) + " rows replace " +
                         std::to_string(before.size()));
      a_.delete_rows(table, where);
      for (const Row* r : rows)
        write(t.path + " line " + std::to_string(r->line),
              [&] { a_.insert_row(table, t.columns, r->values); });
      changed(t, *rows.front());
    }
  }

  template <class F>
  void write(const std::string& at, F&& f) {
    try {
      f();
    } catch (const qk::automation::Error& e) {
      refuse(at + ": the archive refused the row: " + qk::cp1252_to_utf8(e.description()));
    }
  }

  // A new or changed row makes its record pending on the department's configured lines.
  void changed(const TableRows& t, const Row& r) {
    if (!o_.mark) return;
    const archive::Table& table = *t.table;
    if (table.name == "SCALE_LINES") {
      int32_t dept = r.values[t.index("SL_BNC")].to_int32();
      int32_t line = r.values[t.index("SL_LINE")].to_int32();
      lines_.reset();
      for (const auto& ft : archive::tables())
        if (!ft.flags.empty())
          marked_ += a_.mark_pending(ft, {{std::string(ft.department), dept}}, mask(ft, {line}));
      return;
    }
    if (table.name == "MESSAGES") {
      const archive::Table& ads = *archive::find_table("ADVERTISING");
      int32_t dept = r.values[t.index("MSG_BNC")].to_int32();
      marked_ +=
          a_.mark_pending(ads, {{"ADV_BNC", dept}, {"MSG_LNK_ID", r.values[t.index("MSG_LNK_ID")]}},
                          mask(ads, lines_of(dept)));
      return;
    }
    if (table.flags.empty()) return;
    int32_t dept = r.values[t.index(table.department)].to_int32();
    marked_ +=
        a_.mark_pending(table, t.where(r, archive::identity(table)), mask(table, lines_of(dept)));
  }

  std::string mask(const archive::Table& t, const std::vector<int32_t>& lines) {
    return qk::sync::line_mask(archive::find_column(t, t.flags)->flag_width, lines);
  }

  const std::vector<int32_t>& lines_of(int32_t dept) {
    if (!lines_) {
      lines_.emplace();
      for (const auto& l : qk::sync::read_network(a_, nullptr)) (*lines_)[l.dept].push_back(l.line);
    }
    return (*lines_)[dept];
  }

  qk::ArchiveTools& a_;
  const ImportOptions& o_;
  long marked_ = 0;
  std::vector<std::string> diffs_;
  std::optional<std::map<int32_t, std::vector<int32_t>>> lines_;
};

std::string csv_field(const Variant& v, bool text) {
  if (v.is_null()) return "";
  if (!text) {
    if (v.type() == qk::automation::VarType::Double) {
      char buf[64];
      auto r = std::to_chars(buf, buf + sizeof buf, v.to_double());
      return std::string(buf, r.ptr);
    }
    return v.to_text();
  }
  std::string s = qk::cp1252_to_utf8(v.to_text()), out = "\"";
  for (char c : s) out += c == '"' ? std::string("\"\"") : std::string(1, c);
  return out + "\"";
}

}  // namespace

CsvFile read_csv(const std::string& path, const CsvFormat& format) {
  std::error_code ec;
  if (!std::filesystem::is_regular_file(path, ec))
    throw std::runtime_error(path + ": cannot be read (not a regular file)");
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error(path + ": cannot be read (" + std::strerror(errno) + ")");
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) throw std::runtime_error(path + ": cannot be read (" + std::strerror(errno) + ")");
  return parse_csv(std::move(bytes), path, format);
}

CsvFile parse_csv(std::string bytes, const std::string& path, const CsvFormat& format) {
  CsvFile f{path, {}, format.ignore_extra, {}};
  bool bom = bytes.compare(0, 3, "\xEF\xBB\xBF") == 0;
  if (bom) bytes.erase(0, 3);
  std::size_t bad = 0;
  if (format.encoding == CsvEncoding::Utf8 && !valid_utf8(bytes, &bad))
    refuse(path + " line " + std::to_string(line_at(bytes, bad)) + ": not UTF-8 (byte " +
           std::to_string(bad + 1) +
           "); a file saved by a Windows program is usually --encoding cp1252");
  if (format.encoding == CsvEncoding::Cp1252 ||
      (format.encoding == CsvEncoding::Detect && !bom && !valid_utf8(bytes, nullptr))) {
    bytes = qk::cp1252_to_utf8(bytes);
    if (format.encoding == CsvEncoding::Detect)
      f.notes.push_back("read as Windows code page 1252 (the file is not UTF-8)");
  }
  char delimiter = format.delimiter ? format.delimiter : header_delimiter(bytes, path);
  if (!format.delimiter && delimiter != ',')
    f.notes.push_back(std::string("fields separated by '") + delimiter + "'");
  csv_parser p;
  csv_init(&p, CSV_STRICT | CSV_STRICT_FINI | CSV_APPEND_NULL | CSV_EMPTY_IS_NULL);
  csv_set_delim(&p, static_cast<unsigned char>(delimiter));
  Reader r{&f, {}};
  if (csv_parse(&p, bytes.data(), bytes.size(), on_field, on_record, &r) != bytes.size() ||
      csv_fini(&p, on_field, on_record, &r) != 0) {
    std::string err = csv_strerror(csv_error(&p));
    csv_free(&p);
    throw std::runtime_error(path + ": malformed CSV after record " +
                             std::to_string(f.records.size()) + " (line " +
                             std::to_string(f.records.size() + 1) + "): " + err +
                             " (a field holding a double quote must be quoted, with the quote "
                             "doubled)");
  }
  csv_free(&p);
  return f;
}

std::size_t check_csv(const CsvFile& f) {
  return check_file(f).rows.size();
}

ImportResult import_tables(qk::ArchiveTools& a, const std::vector<CsvFile>& files,
                           const ImportOptions& o) {
  std::vector<TableRows> checked;
  std::vector<std::string> notes;
  for (const auto& f : files) {
    checked.push_back(check_file(f));
    for (const auto& n : f.notes) notes.push_back(f.path + ": " + n);
    for (const auto& n : checked.back().notes) notes.push_back(f.path + ": " + n);
  }
  // In the archive's order, so that the network is loaded before the records it configures.
  auto rank = [](const TableRows& t) {
    auto all = archive::tables();
    return std::find_if(all.begin(), all.end(),
                        [&](const archive::Table& x) { return &x == t.table; }) -
           all.begin();
  };
  std::stable_sort(checked.begin(), checked.end(),
                   [&](const TableRows& x, const TableRows& y) { return rank(x) < rank(y); });
  for (std::size_t i = 1; i < checked.size(); ++i)
    if (checked[i].table == checked[i - 1].table)
      refuse(checked[i].path + ": a second file for the table " +
             std::string(checked[i].table->name));
  ImportResult result;
  result.notes = notes;
  qk::sync::ArchiveWrite write(a);
  Importer importer(a, o);
  for (const auto& t : checked) {
    TableCount count{std::string(t.table->name)};
    importer.load(t, count);
    result.tables.push_back(count);
  }
  result.marked = importer.marked();
  result.diffs = std::move(importer.diffs());
  if (!o.dry_run) write.commit();
  return result;
}

std::vector<std::pair<std::string, long>> export_tables(qk::ArchiveTools& a,
                                                        const std::string& folder,
                                                        const std::string& only) {
  if (!only.empty() && !archive::find_table(only))
    throw std::runtime_error("the archive has no table " + only);
  std::vector<std::pair<std::string, std::string>> files;  // path, contents
  std::vector<std::pair<std::string, long>> counts;
  a.begin_read();
  try {
    for (const auto& t : archive::tables()) {
      if (!only.empty() && t.name != only) continue;
      std::vector<std::string> cols = archive::written_columns(t);
      std::string text;
      for (std::size_t i = 0; i < cols.size(); ++i) text += (i ? "," : "") + cols[i];
      text += "\r\n";
      long n = 0;
      for (auto rs = a.select_rows(t, {}); !rs->Eof(); rs->MoveNext(), ++n) {
        for (std::size_t i = 0; i < cols.size(); ++i)
          text += (i ? "," : "") +
                  csv_field(rs->Fields(cols[i]),
                            archive::find_column(t, cols[i])->type == archive::ColumnType::Text);
        text += "\r\n";
      }
      files.emplace_back(folder + "/" + std::string(t.name) + ".csv", text);
      counts.emplace_back(std::string(t.name), n);
    }
  } catch (...) {
    a.end_read();
    throw;
  }
  a.end_read();
  std::filesystem::create_directories(folder);
  for (const auto& [path, text] : files) qk::save_file_atomically(path, text);
  return counts;
}

}  // namespace qkp
