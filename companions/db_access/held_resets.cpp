#include "db_access/held_resets.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <map>
#include <optional>
#include <unordered_map>
#include <unordered_set>

#include "db_access/archive.h"
#include "db_access/clsDbAccess.h"

namespace qk::companions {

using automation::Variant;
using automation::VarType;

namespace {

// A statement's text with each "?N" outside quotes written as name(N); nothing when a
// placeholder is unnumbered or names no value.
template <class Name>
std::optional<std::string> numbered_as(const std::string& text, std::size_t values, Name name) {
  std::string out;
  char quote = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (quote) {
      quote = c == quote ? 0 : quote;  // a doubled quote closes and opens again: same result
    } else if (c == '\'' || c == '"') {
      quote = c;
    } else if (c == '?') {
      std::size_t end = i + 1;
      while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end]))) ++end;
      if (end == i + 1 || end - i > 6) return std::nullopt;
      std::size_t n = std::stoul(text.substr(i + 1, end - i - 1));
      if (n == 0 || n > values) return std::nullopt;
      out += name(n);
      i = end - 1;
      continue;
    }
    out += c;
  }
  return out;
}

// One statement's rows of values: at most so many writes and guarded rows.
constexpr std::size_t kMaxWrites = 1000, kMaxRows = 5000;

}  // namespace

void HeldResets::start() {
  clear();
  holding_ = true;
}

void HeldResets::clear() {
  holding_ = false;
  guards_ = 0;
  kept_.clear();
}

bool HeldResets::keep(const std::string& table, const std::string& update,
                      const std::string& condition, const std::vector<Variant>& params,
                      const std::vector<std::pair<int64_t, int64_t>>& rows) {
  if (!holding_ || guards_ == 0) return false;
  std::string form;
  for (const Variant& p : params) {
    if (p.is_string())
      form += 's';
    else if (p.type() == VarType::Integer || p.type() == VarType::Long)
      form += 'i';
    else if (p.type() == VarType::Double && std::isfinite(p.to_double()))
      form += 'd';
    else
      return false;
  }
  auto any = [](std::size_t) { return std::string(); };
  if (!numbered_as(update, params.size(), any) || !numbered_as(condition, params.size(), any))
    return false;
  kept_.push_back({guards_ - 1, table, update, condition, form, params, rows});
  return true;
}

std::vector<long> HeldResets::write(Archive& a) {
  std::vector<long> left(guards_, 0);
  a.batch_reads.clear();  // what was read for the batch is about to change
  // Where a statement costs no round trip, each write's own statement is the cheaper: SQLite
  // copies an update's join before it writes, which costs more than the statements it saves.
  if (!a.round_trips()) {
    for (const Kept& k : kept_)
      left[k.guard] += guarded_write(a, k.table, k.update, k.condition, k.params, k.rows);
    clear();
    return left;
  }
  // The writes of one text, in statements whose rows are each one write's only.
  std::map<std::string, std::vector<std::size_t>> same_text;
  for (std::size_t i = 0; i < kept_.size(); ++i) {
    const Kept& k = kept_[i];
    same_text[k.table + '\n' + k.update + '\n' + k.condition + '\n' + k.form].push_back(i);
  }
  for (const auto& [text, writes] : same_text) {
    std::vector<std::size_t> together;
    std::unordered_set<int64_t> rows;
    for (std::size_t i : writes) {
      const auto& mine = kept_[i].rows;
      bool shared = std::any_of(mine.begin(), mine.end(),
                                [&](const auto& r) { return rows.count(r.first) > 0; });
      if (!together.empty() &&
          (shared || together.size() == kMaxWrites || rows.size() + mine.size() > kMaxRows)) {
        write_together(a, together, left);
        together.clear();
        rows.clear();
      }
      together.push_back(i);
      for (const auto& r : mine) rows.insert(r.first);
    }
    write_together(a, together, left);
  }
  clear();
  return left;
}

void HeldResets::write_together(Archive& a, const std::vector<std::size_t>& writes,
                                std::vector<long>& left) {
  const Kept& first = kept_[writes.front()];
  std::size_t n = first.params.size();
  // Numbers are written as they are; texts are values of the statement, each once.
  std::vector<Variant> texts;
  std::unordered_map<std::string, std::size_t> text_number;
  auto literal = [&](const Variant& v) -> std::string {
    if (v.is_string()) {
      auto [at, added] = text_number.try_emplace(v.to_string(), texts.size() + 1);
      if (added) texts.push_back(v);
      return "?" + std::to_string(at->second);
    }
    if (v.type() == VarType::Double) {
      char buf[32];
      std::snprintf(buf, sizeof buf, "%.17g", v.to_double());
      return buf;
    }
    return std::to_string(static_cast<long long>(v.to_double()));
  };
  // Value N of a write is column N + 1 of its row of values; column 1 numbers the write.
  auto column = [](std::size_t c) { return "v.column" + std::to_string(c + 1); };
  std::string condition = *numbered_as(first.condition, n, column);
  std::string update = *numbered_as(first.update, n, column);
  std::string each, guarded;
  std::unordered_map<int64_t, std::size_t> write_of_row;
  for (std::size_t w = 0; w < writes.size(); ++w) {
    const Kept& k = kept_[writes[w]];
    std::string values = std::to_string(w);
    for (const Variant& p : k.params) values += ", " + literal(p);
    each += (w ? ", (" : "(") + values + ")";
    for (auto [id, version] : k.rows) {
      guarded += (guarded.empty() ? "(" : ", (") + values + ", " + std::to_string(id) + ", " +
                 std::to_string(version) + ")";
      write_of_row[id] = w;
    }
  }
  std::vector<long> all(writes.size(), 0), updated(writes.size(), 0);
  a.each_row("select v.column1 as K, count(*) as N from (values " + each + ") as v join " +
                 first.table + " on (" + condition + ") group by v.column1",
             texts, [&](std::vector<Variant>& row) {
               all[static_cast<std::size_t>(row[0].to_int32())] = row[1].to_int32();
             });
  if (!guarded.empty())
    a.each_row(update + " from (values " + guarded + ") as v where (" + condition + ") and " +
                   first.table + ".rowid = " + column(n + 1) + " and " + first.table +
                   ".ROW_VERSION = " + column(n + 2) + " returning " + first.table + ".rowid as R",
               texts, [&](std::vector<Variant>& row) {
                 auto it = write_of_row.find(static_cast<int64_t>(row[0].to_double()));
                 if (it != write_of_row.end()) ++updated[it->second];
               });
  // Rows of a condition the guard does not hold (added since) are left alone too.
  for (std::size_t w = 0; w < writes.size(); ++w) {
    const Kept& k = kept_[writes[w]];
    left[k.guard] += std::max<long>(all[w], static_cast<long>(k.rows.size())) - updated[w];
  }
}

}  // namespace qk::companions
