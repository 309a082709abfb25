#include "qk/sync/content_pending.h"

#include <map>
#include <tuple>

#include "qk/sync/record_sources.h"

namespace qk::sync {

using automation::Variant;

namespace {

const archive::Table& delivered_table() {
  return *archive::find_table("QK_DELIVERED");
}

int64_t whole(const Variant& v) {
  return v.is_null() ? 0 : static_cast<int64_t>(v.to_double());
}

std::string rows_text(automation::Recordset& rs) {
  return std::to_string(whole(rs.Fields("ROWS"))) + ":" +
         std::to_string(whole(rs.Fields("VERSION")));
}

// "2026-11-20T14:02:05Z" as "2026-11-20 14:02" (UTC, as the journal).
std::string shown_time(const std::string& t) {
  return t.size() >= 16 ? t.substr(0, 10) + " " + t.substr(11, 5) : t;
}

}  // namespace

ContentPending::ContentPending(ArchiveTools& a)
    : a_(a), versions_(dynamic_cast<ArchiveVersions*>(&a)) {}

const ContentPending::Versions& ContentPending::versions(Kind k) {
  auto found = kinds_.find(k);
  if (found != kinds_.end()) return found->second;
  Versions& v = kinds_[k];
  const ContentRows& rows = source_of(k).rows;
  if (!versions_ || !rows.table) return v;
  const archive::Table& t = *archive::find_table(rows.table);
  if (!rows.record) {
    auto rs = versions_->row_versions(t, {});
    if (!rs->Eof()) {
      v.whole = rows_text(*rs);
      v.whole_rows = static_cast<int32_t>(whole(rs->Fields("ROWS")));
    }
    return v;
  }
  std::string dept(t.department);
  auto rs = versions_->row_versions(t, {dept, rows.record});
  int32_t last_dept = 0, position = 0;
  for (; !rs->Eof(); rs->MoveNext()) {
    int32_t d = rs->Fields(dept).to_int32();
    Variant id = rs->Fields(rows.record);
    position = d == last_dept ? position + 1 : 1;
    last_dept = d;
    // By position, the record's own number is part of what it is.
    std::string text = rows_text(*rs);
    if (rows.by_position) text = std::to_string(whole(id)) + "/" + text;
    v.records[{d, rows.by_position ? position : id.to_int32()}] = text;
  }
  if (rows.also) {
    const archive::Table& also = *archive::find_table(rows.also);
    std::string also_dept(also.department);
    for (auto d = versions_->row_versions(also, {also_dept}); !d->Eof(); d->MoveNext())
      v.departments[d->Fields(also_dept).to_int32()] = rows_text(*d);
  }
  return v;
}

std::string ContentPending::rows_of(Kind k, int32_t dept, int32_t id) {
  const Versions& v = versions(k);
  if (!v.whole.empty()) return v.whole;
  auto it = v.records.find({dept, id});
  if (it == v.records.end()) return "";
  auto also = v.departments.find(dept);
  return it->second +
         (source_of(k).rows.also ? " " + (also == v.departments.end() ? "0:0" : also->second) : "");
}

const std::map<std::tuple<int32_t, std::string, int32_t>, ContentPending::Delivered>&
ContentPending::delivered(int32_t line) {
  auto found = lines_.find(line);
  if (found != lines_.end()) return found->second;
  auto& m = lines_[line];
  for (auto rs = a_.select_rows(delivered_table(), {{"D_LINE", line}}); !rs->Eof(); rs->MoveNext())
    m[{rs->Fields("D_BNC").to_int32(), rs->Fields("D_KIND").to_text(),
       rs->Fields("D_ID").to_int32()}] = {
        rs->Fields("D_STORE").to_text(), rs->Fields("D_FAMILY").to_text(),
        rs->Fields("D_ROWS").to_text(), rs->Fields("D_TIME").to_text(),
        rs->Fields("D_SCALE").to_int32()};
  return m;
}

std::map<int32_t, std::string> ContentPending::pending(const ScaleLine& where, Kind k) {
  std::map<int32_t, std::string> out;
  if (!versions_ || !source_of(k).rows.table) return out;
  const Versions& v = versions(k);
  std::vector<int32_t> ids;
  if (!v.whole.empty())
    for (int32_t id = 1; id <= v.whole_rows; ++id) ids.push_back(id);
  for (auto it = v.records.lower_bound({where.dept, INT32_MIN});
       it != v.records.end() && it->first.first == where.dept; ++it)
    ids.push_back(it->first.second);
  const auto& sent = delivered(where.line);
  std::string kind(kind_name(k));
  for (int32_t id : ids) {
    auto d = sent.find({where.dept, kind, id});
    // Another scale, family or store on the line is a scale that never got it.
    if (d == sent.end() || d->second.store != where.store || d->second.family != where.family ||
        d->second.scale != where.scale)
      out[id] = "never sent";
    else if (d->second.rows != rows_of(k, where.dept, id))
      out[id] = "changed since " + shown_time(d->second.time);
  }
  return out;
}

void record_delivered(ArchiveTools& a, const std::vector<DeliveredRecord>& records,
                      const std::string& time, const std::string& run) {
  if (records.empty()) return;
  static const std::vector<std::string> columns = {"D_BNC",   "D_LINE",  "D_KIND",   "D_ID",
                                                   "D_STORE", "D_SCALE", "D_FAMILY", "D_ROWS",
                                                   "D_HASH",  "D_TIME",  "D_RUN"};
  // A record twice in one batch is kept as last delivered: one statement may not write a key
  // twice.
  std::map<std::tuple<int32_t, int32_t, Kind, int32_t>, const DeliveredRecord*> last;
  for (const auto& r : records) last[{r.where.dept, r.where.line, r.kind, r.id}] = &r;
  std::vector<std::vector<Variant>> rows;
  rows.reserve(last.size());
  for (const auto& [key, r] : last)
    rows.push_back({r->where.dept, r->where.line, std::string(kind_name(r->kind)), r->id,
                    r->where.store, r->where.scale, r->where.family, r->rows, r->hash, time, run});
  a.put_rows(delivered_table(), columns, rows);
}

long forget_delivered(ArchiveTools& a, int32_t dept, int32_t line, std::optional<Kind> k,
                      std::optional<int32_t> id) {
  Where where{{"D_BNC", dept}, {"D_LINE", line}};
  if (k) where.emplace_back("D_KIND", std::string(kind_name(*k)));
  if (id) where.emplace_back("D_ID", *id);
  return a.delete_rows(delivered_table(), where);
}

}  // namespace qk::sync
