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

#include "qk/sync/archive_pictures.h"
#include "qk/column_rules.h"
#include "qk/error.h"
#include "qk/host.h"
#include "qk/sync/row_checks.h"
#include "qk/sync.h"

namespace qkp {

using qk::automation::Variant;
namespace archive = qk::archive;

namespace {

// What libcsv's callbacks fill: the record being read, and where the visitor stopped or what it
// raised (nothing is thrown through the C parser).
struct Reader {
  const RecordVisitor* each;
  std::vector<std::optional<std::string>> current;
  long records = 0;
  bool stopped = false;
  std::exception_ptr failure;
};

void on_field(void* s, size_t n, void* data) {
  auto* r = static_cast<Reader*>(data);
  if (r->stopped) return;
  if (s)
    r->current.emplace_back(std::string(static_cast<const char*>(s), n));
  else
    r->current.emplace_back(std::nullopt);
}

void on_record(int, void* data) {
  auto* r = static_cast<Reader*>(data);
  if (r->stopped) return;
  ++r->records;
  try {
    r->stopped = !(*r->each)(r->current, r->records);
  } catch (...) {
    r->failure = std::current_exception();
    r->stopped = true;
  }
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

// The length of the incomplete UTF-8 sequence that ends `s` (0 when it ends on a whole
// character): a chunk boundary may cut a character in two.
std::size_t cut_character(const std::string& s) {
  for (std::size_t back = 1; back <= 3 && back <= s.size(); ++back) {
    auto c = static_cast<unsigned char>(s[s.size() - back]);
    if ((c & 0xC0) == 0x80) continue;  // a continuation byte: look further back
    std::size_t n = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 1;
    return n > back ? back : 0;
  }
  return 0;
}

constexpr std::size_t kChunk = 1 << 16;

// UTF-8 checked chunk by chunk: a character cut by a chunk's end is checked with the next one.
class Utf8Check {
 public:
  // False at the first byte that is not UTF-8 (line() and byte() then say where).
  bool feed(const std::string& chunk) {
    std::string part = carry_ + chunk;
    std::size_t cut = cut_character(part), bad = 0;
    std::string whole = part.substr(0, part.size() - cut);
    if (!valid_utf8(whole, &bad)) {
      line_ += std::count(whole.begin(), whole.begin() + static_cast<long>(bad), '\n');
      offset_ += bad;
      return false;
    }
    line_ += std::count(whole.begin(), whole.end(), '\n');
    offset_ += whole.size();
    carry_ = part.substr(part.size() - cut);
    return true;
  }
  // False when the input ends inside a character.
  bool finish() const { return carry_.empty(); }
  long line() const { return line_; }
  std::size_t byte() const { return offset_ + 1; }

 private:
  std::string carry_;
  long line_ = 1;
  std::size_t offset_ = 0;
};

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

// The default of a column as a value.
Variant default_of(const archive::Column& c) {
  using K = archive::Default::Kind;
  const archive::Default& d = c.default_value;
  if (d.kind == K::Text) return Variant(std::string(d.text));
  if (d.kind == K::None) return Variant::null();
  if (c.type == archive::ColumnType::Real) return Variant(static_cast<double>(d.integer));
  return Variant(static_cast<int32_t>(d.integer));
}

// A text column whose default is the empty text: a CSV writes that text and Null alike (an empty
// field), so the two are one value here.
bool empty_text_default(const archive::Column& c) {
  return c.type == archive::ColumnType::Text &&
         c.default_value.kind == archive::Default::Kind::Text && c.default_value.text.empty();
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

// One table's file as its header describes it: the table, the columns the rows give (the
// fields they come from) and those left to their default.
struct TableRows {
  const archive::Table* table;
  std::string path;
  std::vector<std::string> columns;
  std::vector<std::string> notes;
  std::vector<std::size_t> kept;       // the field of each column the file gives
  std::vector<std::string> defaulted;  // identity columns the file leaves out
  std::size_t given = 0;               // fields per record

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

TableRows check_header(const std::string& path,
                       const std::vector<std::optional<std::string>>* header, bool ignore_extra) {
  std::string name = std::filesystem::path(path).stem().string();
  const archive::Table* t = archive::find_table_any_case(name);
  if (t && t->own)
    refuse(path + ": " + std::string(t->name) +
           " is the delivery journal, written by the syncs themselves; it is not imported");
  if (!t) {
    std::string known;
    for (const auto& table : archive::tables())
      if (!table.own) known += (known.empty() ? "" : ", ") + std::string(table.name);
    refuse(path + ": the archive has no table " + name +
           " (files are named after a table: " + known + ")");
  }
  if (!header) refuse(path + ": the file is empty; the first line must name the columns");
  TableRows out{t, path, {}, {}, {}, {}, header->size()};
  std::vector<std::string> extra;
  for (std::size_t i = 0; i < header->size(); ++i) {
    std::string col = (*header)[i].value_or("");
    const archive::Column* known = archive::find_column_any_case(*t, col);
    if (known) col = std::string(known->name);
    if (archive::same_name(col, archive::kRowVersionColumn) || !known) {
      if (ignore_extra) {
        extra.push_back(col);
        continue;
      }
      if (archive::same_name(col, archive::kRowVersionColumn))
        refuse(path + " line 1: " + col +
               " is kept by the archive itself; leave the column out (or --ignore-extra)");
      refuse(path + " line 1: " + name + " has no column \"" + col +
             "\" (--ignore-extra skips the columns the archive does not have)");
    }
    if (std::count(out.columns.begin(), out.columns.end(), col))
      refuse(path + " line 1: the column \"" + col + "\" is named twice");
    out.columns.push_back(col);
    out.kept.push_back(i);
  }
  if (!extra.empty()) {
    std::string list;
    for (const auto& e : extra) list += (list.empty() ? "" : ", ") + e;
    out.notes.push_back("columns " + name + " does not have, skipped: " + list);
  }
  // Identity columns with a default may be left out (a lot's TRC_ROW is 1): they take it.
  for (auto needed : archive::identity(*t)) {
    if (out.index(needed) != std::string::npos) continue;
    const archive::Column& c = *archive::find_column(*t, needed);
    if (!c.default_value.none()) {
      out.defaulted.emplace_back(needed);
      continue;
    }
    std::string all;
    for (auto id : archive::identity(*t)) all += (all.empty() ? "" : ", ") + std::string(id);
    refuse(path + " line 1: the column " + std::string(needed) + " is missing (" + name +
           "'s rows are identified by " + all + ")");
  }
  out.columns.insert(out.columns.end(), out.defaulted.begin(), out.defaulted.end());
  return out;
}

// One record of the file, every value checked against its column.
Row check_record(const TableRows& h, const std::vector<std::optional<std::string>>& rec,
                 long line) {
  const archive::Table* t = h.table;
  std::string at = h.path + " line " + std::to_string(line);
  {
    std::size_t given = h.given;
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
  }
  Row row{line, {}};
  for (std::size_t c = 0; c < h.kept.size(); ++c) {
    const archive::Column& col = *archive::find_column(*t, h.columns[c]);
    std::string here = at + ", column " + h.columns[c];
    row.values.push_back(parse_field(col, rec[h.kept[c]], here));
    std::string p = qk::archive::value_problem(col, row.values.back());
    if (!p.empty()) refuse(here + ": " + p);
  }
  for (const auto& d : h.defaulted) row.values.push_back(default_of(*archive::find_column(*t, d)));
  return row;
}

class Importer {
 public:
  Importer(qk::ArchiveTools& a, const ImportOptions& o) : a_(a), o_(o) {}

  // One row as it is read. The keyboard's rows (no key) with replace are gathered one key at a
  // time: a key's rows replace its rows as a group.
  void add(const TableRows& t, Row r, TableCount& count) {
    if (!t.table->key.empty() || !o_.replace) return load_row(t, r, count);
    std::vector<std::string> k = group_key(t, r);
    if (!group_.empty() && k != group_key(t, group_.front())) finish(t, count);
    group_.push_back(std::move(r));
  }
  // The end of a file: the last key's rows.
  void finish(const TableRows& t, TableCount& count) {
    if (group_.empty()) return;
    load_group(t, group_, count);
    group_.clear();
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

  std::vector<std::string> group_key(const TableRows& t, const Row& r) const {
    std::vector<std::string> k;
    for (auto n : t.table->replace_group) k.push_back(r.values[t.index(n)].to_text());
    return k;
  }

  // Tables without a key (the keyboard): the file's rows of a key replace the key's rows. The
  // rows of a key are expected together; rows of a key met again later (an unsorted file) are
  // added to what this import already gave it.
  void load_group(const TableRows& t, const std::vector<Row>& rows, TableCount& count) {
    const archive::Table& table = *t.table;
    auto render = [&](auto&& value_of) {
      std::vector<std::string> v;
      for (std::size_t c = 0; c < t.columns.size(); ++c) {
        Variant x = value_of(c);
        bool blank = x.is_null() && empty_text_default(*archive::find_column(table, t.columns[c]));
        v.push_back(blank                 ? ""
                    : x.is_null()         ? "\x01"
                    : x.is_numeric_type() ? std::to_string(x.to_double())
                                          : x.to_text());
      }
      return v;
    };
    std::string key = t.key_text(rows.front(), table.replace_group);
    bool again = !replaced_.insert(key).second;
    qk::Where where = t.where(rows.front(), table.replace_group);
    if (!again) {
      auto existing = a_.select_rows(table, where);
      std::multiset<std::vector<std::string>> before, after;
      for (; !existing->Eof(); existing->MoveNext())
        before.insert(render([&](std::size_t c) { return existing->Fields(t.columns[c]); }));
      for (const Row& r : rows) after.insert(render([&](std::size_t c) { return r.values[c]; }));
      if (before == after) {
        count.unchanged += static_cast<long>(rows.size());
        return;
      }
      (before.empty() ? count.inserted : count.changed) += static_cast<long>(rows.size());
      if (o_.diff)
        diffs_.push_back(std::string(table.name) + " line " + std::to_string(rows.front().line) +
                         " (" + key + "): " + std::to_string(rows.size()) + " rows replace " +
                         std::to_string(before.size()));
      a_.delete_rows(table, where);
    } else {
      count.changed += static_cast<long>(rows.size());
    }
    for (const Row& r : rows)
      write(t.path + " line " + std::to_string(r.line),
            [&] { a_.insert_row(table, t.columns, r.values); });
    changed(t, rows.front());
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
      marked_ +=
          qk::sync::mark_line_pending(a_, dept, line, r.values[t.index("SL_FAMILY")].to_text());
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
  std::vector<Row> group_;          // the rows of the key being read (the keyboard)
  std::set<std::string> replaced_;  // the keys this import replaced
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

CsvInput csv_file(const std::string& path, const CsvFormat& format) {
  return {path, format, [path]() -> ChunkReader {
            std::error_code ec;
            if (!std::filesystem::is_regular_file(path, ec))
              throw std::runtime_error(path + ": cannot be read (not a regular file)");
            auto in = std::make_shared<std::ifstream>(path, std::ios::binary);
            if (!*in)
              throw std::runtime_error(path + ": cannot be read (" + std::strerror(errno) + ")");
            return [in, path](char* buffer, std::size_t capacity) {
              in->read(buffer, static_cast<std::streamsize>(capacity));
              if (in->bad())
                throw std::runtime_error(path + ": cannot be read (" + std::strerror(errno) + ")");
              return static_cast<std::size_t>(in->gcount());
            };
          }};
}

CsvInput csv_bytes(std::string bytes, const std::string& name, const CsvFormat& format) {
  auto shared = std::make_shared<const std::string>(std::move(bytes));
  return {name, format, [shared]() -> ChunkReader {
            auto at = std::make_shared<std::size_t>(0);
            return [shared, at](char* buffer, std::size_t capacity) {
              std::size_t n = std::min(capacity, shared->size() - *at);
              std::memcpy(buffer, shared->data() + *at, n);
              *at += n;
              return n;
            };
          }};
}

void read_records(const CsvInput& in, const RecordVisitor& each, std::vector<std::string>* notes) {
  const std::string& path = in.path;
  const CsvFormat& format = in.format;
  std::string chunk(kChunk, '\0');
  // Which encoding: UTF-8 when every byte is (or a byte-order mark says so), else code page 1252.
  // Detecting reads the input once before parsing it.
  bool bom = false, utf8 = format.encoding == CsvEncoding::Utf8;
  auto not_utf8 = [&](const Utf8Check& check) {
    refuse(path + " line " + std::to_string(check.line()) + ": not UTF-8 (byte " +
           std::to_string(check.byte()) +
           "); a file saved by a Windows program is usually --encoding cp1252");
  };
  if (format.encoding == CsvEncoding::Detect) {
    ChunkReader read = in.open();
    Utf8Check check;
    bool first = true, valid = true;
    for (std::size_t n; valid && (n = read(chunk.data(), chunk.size())) > 0; first = false) {
      if (first) bom = chunk.compare(0, std::min<std::size_t>(3, n), "\xEF\xBB\xBF") == 0 && n >= 3;
      valid = check.feed(chunk.substr(0, n));
    }
    utf8 = (valid && check.finish()) || bom;
  }
  if (!utf8 && format.encoding == CsvEncoding::Detect && notes)
    notes->push_back("read as Windows code page 1252 (the file is not UTF-8)");

  csv_parser p;
  csv_init(&p, CSV_STRICT | CSV_STRICT_FINI | CSV_APPEND_NULL | CSV_EMPTY_IS_NULL);
  Reader r{&each, {}, 0, false, nullptr};
  auto fail_parse = [&](const std::string& err) {
    csv_free(&p);
    throw std::runtime_error(path + ": malformed CSV after record " + std::to_string(r.records) +
                             " (line " + std::to_string(r.records + 1) + "): " + err +
                             " (a field holding a double quote must be quoted, with the quote "
                             "doubled)");
  };
  ChunkReader read = in.open();
  bool first = true;
  std::string pending;
  auto feed = [&](const std::string& bytes) {
    if (csv_parse(&p, bytes.data(), bytes.size(), on_field, on_record, &r) != bytes.size())
      fail_parse(csv_strerror(csv_error(&p)));
    if (r.failure) {
      csv_free(&p);
      std::rethrow_exception(r.failure);
    }
  };
  Utf8Check check;  // an input said to be UTF-8 is checked as it is read
  for (std::size_t n; !r.stopped && (n = read(chunk.data(), chunk.size())) > 0;) {
    std::string bytes = chunk.substr(0, n);
    if (format.encoding == CsvEncoding::Utf8 && !check.feed(bytes)) not_utf8(check);
    if (!utf8) bytes = qk::cp1252_to_utf8(bytes);
    if (first) {
      // The header line decides the separator: gather it whole first.
      pending += bytes;
      bool has_line = pending.find('\n') != std::string::npos;
      if (!has_line && pending.size() < (1u << 20)) continue;
      if (bom && pending.compare(0, 3, "\xEF\xBB\xBF") == 0) pending.erase(0, 3);
      char delimiter = format.delimiter ? format.delimiter : header_delimiter(pending, path);
      if (!format.delimiter && delimiter != ',' && notes)
        notes->push_back(std::string("fields separated by '") + delimiter + "'");
      csv_set_delim(&p, static_cast<unsigned char>(delimiter));
      first = false;
      feed(pending);
      pending.clear();
      continue;
    }
    feed(bytes);
  }
  if (first) {  // a file shorter than its header line's first chunk
    if (bom && pending.compare(0, 3, "\xEF\xBB\xBF") == 0) pending.erase(0, 3);
    char delimiter = format.delimiter ? format.delimiter : header_delimiter(pending, path);
    if (!format.delimiter && delimiter != ',' && notes)
      notes->push_back(std::string("fields separated by '") + delimiter + "'");
    csv_set_delim(&p, static_cast<unsigned char>(delimiter));
    feed(pending);
  }
  if (format.encoding == CsvEncoding::Utf8 && !r.stopped && !check.finish()) not_utf8(check);
  if (!r.stopped && csv_fini(&p, on_field, on_record, &r) != 0)
    fail_parse(csv_strerror(csv_error(&p)));
  csv_free(&p);
  if (r.failure) std::rethrow_exception(r.failure);
}

CsvFile parse_csv(std::string bytes, const std::string& path, const CsvFormat& format) {
  CsvFile f{path, {}, format.ignore_extra, {}};
  read_records(
      csv_bytes(std::move(bytes), path, format),
      [&](std::vector<std::optional<std::string>>& record, long) {
        f.records.push_back(std::move(record));
        return true;
      },
      &f.notes);
  return f;
}

std::size_t check_csv(const CsvFile& f) {
  TableRows h = check_header(f.path, f.records.empty() ? nullptr : &f.records[0], f.ignore_extra);
  for (std::size_t r = 1; r < f.records.size(); ++r)
    check_record(h, f.records[r], static_cast<long>(r + 1));
  return f.records.empty() ? 0 : f.records.size() - 1;
}

ImportResult import_tables(qk::ArchiveTools& a, const std::vector<CsvInput>& inputs,
                           const ImportOptions& o) {
  // The headers first: which table each input fills, so that the tables load in the archive's
  // order (the network before the records it configures) and a bad header stops nothing half-way.
  struct Planned {
    const CsvInput* input;
    TableRows header;
  };
  std::vector<Planned> planned;
  std::vector<std::string> notes;
  for (const auto& in : inputs) {
    std::optional<std::vector<std::optional<std::string>>> header;
    std::vector<std::string> read_notes;
    read_records(
        in,
        [&](std::vector<std::optional<std::string>>& record, long) {
          header = std::move(record);
          return false;
        },
        &read_notes);
    planned.push_back(
        {&in, check_header(in.path, header ? &*header : nullptr, in.format.ignore_extra)});
    for (const auto& n : read_notes) notes.push_back(in.path + ": " + n);
    for (const auto& n : planned.back().header.notes) notes.push_back(in.path + ": " + n);
  }
  auto rank = [](const TableRows& t) {
    auto all = archive::tables();
    return std::find_if(all.begin(), all.end(),
                        [&](const archive::Table& x) { return &x == t.table; }) -
           all.begin();
  };
  std::stable_sort(planned.begin(), planned.end(), [&](const Planned& x, const Planned& y) {
    return rank(x.header) < rank(y.header);
  });
  for (std::size_t i = 1; i < planned.size(); ++i)
    if (planned[i].header.table == planned[i - 1].header.table)
      refuse(planned[i].input->path + ": a second file for the table " +
             std::string(planned[i].header.table->name));
  ImportResult result;
  result.notes = notes;
  qk::sync::ArchiveWrite write(a);
  Importer importer(a, o);
  for (const auto& p : planned) {
    TableCount count{std::string(p.header.table->name)};
    read_records(*p.input, [&](std::vector<std::optional<std::string>>& record, long line) {
      if (line > 1) importer.add(p.header, check_record(p.header, record, line), count);
      return true;
    });
    importer.finish(p.header, count);
    result.tables.push_back(count);
  }
  result.marked = importer.marked();
  result.diffs = std::move(importer.diffs());
  bool images = std::any_of(planned.begin(), planned.end(),
                            [](const Planned& p) { return p.header.table->name == "IMMAGINI"; });
  if (images && !o.pictures_folder.empty()) {
    auto load = qk::sync::load_missing_pictures(a, o.pictures_folder);
    for (const auto& m : load.missing)
      result.notes.push_back(m +
                             ": no picture file beside the tables (images/<dept>/NAME, "
                             "images/NAME or NAME in " +
                             o.pictures_folder + "); it has none until \"qkp images add\"");
  }
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
      if ((!only.empty() && t.name != only) || (only.empty() && t.own)) continue;
      // A file's bytes go to a file of their own (images/<dept>/<name>), not into the table.
      std::vector<std::string> cols;
      for (const auto& c : archive::written_columns(t))
        if (archive::find_column(t, c)->form != archive::TextForm::FileBytes) cols.push_back(c);
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
        if (t.name == "IMMAGINI") {
          auto bytes = qk::sync::picture_bytes(rs->Fields("IM_PICTURE").to_text());
          std::string name = rs->Fields("IM_FILE_NAME").to_text();
          if (bytes && !bytes->empty() && !name.empty())
            files.emplace_back(
                qk::sync::picture_file_candidates(folder, rs->Fields("IM_BNC").to_int32(), name)[0],
                std::move(*bytes));
        }
      }
      files.emplace_back(folder + "/" + std::string(t.name) + ".csv", text);
      counts.emplace_back(std::string(t.name), n);
    }
  } catch (...) {
    a.end_read();
    throw;
  }
  a.end_read();
  for (const auto& [path, text] : files) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    qk::save_file_atomically(path, text);
  }
  return counts;
}

}  // namespace qkp
