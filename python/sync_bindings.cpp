// The daily job for Python hosts: sync, pending and mark over the installation's archive, as
// qkp runs them (qk/sync.h). A record is reset only after the host's deliver function returned
// for every string of it, and only while its rows are as they were when it was built.
#include "sync_bindings.h"

#include <pybind11/stl.h>

#include <algorithm>
#include <optional>
#include <stdexcept>

#include "qk/host.h"
#include "qk/sync.h"

namespace py = pybind11;
namespace qs = qk::sync;

namespace {

void require_started() {
  if (!qk::host::started())
    throw std::runtime_error(
        "call qk_protocol.start() before the sync: it registers the archive companion and reads "
        "the installation's settings");
}

int32_t line_in(int32_t line) {
  if (line < 1 || line > 8) throw py::value_error("line: 1 to 8, got " + std::to_string(line));
  return line;
}

// None: the installation's own store (the setting Store); all_stores: every store's lines.
qs::StoreChoice store_in(const std::optional<std::string>& store, bool all_stores) {
  if (store && all_stores) throw py::value_error("store: give a store or all_stores, not both");
  if (all_stores) return std::nullopt;
  return store ? qs::StoreChoice(*store) : qs::installation_store();
}

qs::SyncScope scope_in(int32_t line, std::optional<int32_t> dept,
                       const std::optional<std::string>& store, bool all_stores) {
  qs::SyncScope s;
  s.line = line_in(line);
  if (dept && *dept < 0)
    throw py::value_error("dept: a department number, got " + std::to_string(*dept));
  s.dept = dept.value_or(-1);
  s.store = store_in(store, all_stores);
  return s;
}

const char* status_name(qs::SyncReport::Status s) {
  switch (s) {
    case qs::SyncReport::Done:
      return "done";
    case qs::SyncReport::Failed:
      return "failed";
    case qs::SyncReport::Busy:
      return "busy";
    case qs::SyncReport::NoLine:
      return "no line";
  }
  return "failed";
}

py::dict report_out(const qs::SyncReport& r, const py::list& messages) {
  py::dict kinds;
  for (const auto& [kind, t] : r.tally) {
    py::dict k;
    k["records"] = t.records;
    k["bytes"] = t.bytes;
    k["failed"] = t.failed;
    k["changed"] = t.changed;
    k["reset_failed"] = t.reset_failed;
    k["warned"] = t.warned;
    kinds[py::str(std::string(qk::kind_name(kind)))] = k;
  }
  py::dict d;
  d["status"] = status_name(r.status);
  d["records"] = r.records();
  d["bytes"] = r.bytes();
  d["kinds"] = kinds;
  d["stopped"] = r.stopped;
  d["holder"] = r.holder;
  d["retries"] = r.retries;
  d["run"] = r.run;
  d["seconds"] = r.seconds;
  d["messages"] = messages;
  return d;
}

py::dict run(int32_t line, const py::function& deliver, std::optional<int32_t> dept, bool full,
             const std::optional<std::string>& store, bool all_stores, bool wait,
             const std::string& by) {
  require_started();
  qs::SyncOptions o;
  o.scope = scope_in(line, dept, store, all_stores);
  o.scope.full = full;
  o.wait = wait;
  o.by = by;
  o.transport =
      "python " +
      py::str(py::getattr(deliver, "__qualname__", py::repr(deliver))).cast<std::string>();
  py::list messages;
  o.say = [&messages](const std::string& text) { messages.append(text); };
  // An interrupt (KeyboardInterrupt, SystemExit) stops delivery like a failure, and is raised
  // again once what was confirmed is reset.
  std::optional<py::error_already_set> interrupt;
  auto transport = qs::function_transport([&](const qs::Envelope& to, const std::string& b) {
    try {
      deliver(py::bytes(b), py::arg("dept") = to.dept, py::arg("line") = to.line,
              py::arg("scale") = to.scale, py::arg("family") = to.family, py::arg("kind") = to.kind,
              py::arg("id") = to.id);
    } catch (py::error_already_set& e) {
      if (e.matches(PyExc_Exception)) throw;  // the transport says what it was and stops
      std::string what = e.what();
      interrupt.emplace(std::move(e));
      throw std::runtime_error(what);
    }
  });
  auto archive = qs::open_archive_tools();
  qs::SyncReport r = qs::run_sync(*archive, *transport, o);
  if (interrupt) {
    interrupt->restore();
    throw py::error_already_set();
  }
  return report_out(r, messages);
}

py::list pending(int32_t line, std::optional<int32_t> dept, const std::optional<std::string>& store,
                 bool all_stores) {
  require_started();
  std::vector<std::string> problems;
  auto archive = qs::open_archive_tools();
  auto lines = qs::list_pending(*archive, scope_in(line, dept, store, all_stores), &problems);
  auto warn = py::module_::import("warnings").attr("warn");
  for (const auto& p : problems) warn(p);
  py::list out;
  for (const auto& l : lines) {
    if (!l.known_family)
      warn("department " + std::to_string(l.where.dept) + ", line " + std::to_string(l.where.line) +
           ": family \"" + l.where.family + "\" is not known to the sync");
    for (const auto& rec : l.records) {
      py::dict d;
      d["dept"] = l.where.dept;
      d["line"] = l.where.line;
      d["scale"] = l.where.scale;
      d["family"] = l.where.family;
      d["store"] = l.where.store;
      d["kind"] = std::string(qk::kind_name(rec.kind));
      d["id"] = rec.id;
      d["label"] = rec.label;
      d["flags"] = rec.flags;
      d["reason"] = rec.reason;
      out.append(d);
    }
  }
  return out;
}

py::dict mark(const py::object& lines, std::optional<int32_t> dept,
              const std::optional<std::vector<std::string>>& kinds, std::optional<int32_t> id,
              const std::optional<std::string>& store, bool all_stores) {
  require_started();
  qs::MarkRequest r;
  if (py::isinstance<py::int_>(lines))
    r.lines = {line_in(lines.cast<int32_t>())};
  else if (!lines.is_none())
    for (auto l : lines.cast<std::vector<int32_t>>()) r.lines.push_back(line_in(l));
  r.dept = dept.value_or(-1);
  std::string markable;
  for (qk::Kind k : qs::markable_kinds())
    markable += (markable.empty() ? "" : ", ") + std::string(qk::kind_name(k));
  for (const auto& name : kinds.value_or(std::vector<std::string>{})) {
    auto all = qs::markable_kinds();
    auto k =
        std::find_if(all.begin(), all.end(), [&](qk::Kind k) { return qk::kind_name(k) == name; });
    if (k == all.end()) throw py::value_error("kinds: \"" + name + "\" is none of " + markable);
    r.kinds.push_back(*k);
  }
  r.id = id;
  r.store = store_in(store, all_stores);
  auto archive = qs::open_archive_tools();
  qs::MarkResult m;
  try {
    m = qs::mark(*archive, r);
  } catch (const std::invalid_argument& e) {
    throw py::value_error(std::string("id: ") + e.what());
  }
  py::dict d;
  d["rows"] = m.rows;
  d["records"] = m.records;
  d["skipped"] = m.skipped;
  return d;
}

}  // namespace

void bind_sync(py::module_& m) {
  m.def("sync", &run, py::arg("line"), py::arg("deliver"), py::arg("dept") = py::none(),
        py::arg("full") = false, py::arg("store") = py::none(), py::arg("all_stores") = false,
        py::arg("wait") = false, py::arg("by") = "python",
        "Delivers what the line misses, as qkp sync does. deliver(data, dept=, line=, scale=, "
        "family=, kind=, id=) gets each string of each record as bytes and returns once they "
        "are safely delivered; raising stops delivery, and what it had not confirmed stays "
        "pending. A record is reset only while its rows are as when it was built. Returns a "
        "report: status ('done', 'failed', 'busy', 'no line'), records, bytes, kinds, stopped, "
        "run (its id in the journal), messages.");
  m.def("pending", &pending, py::arg("line"), py::arg("dept") = py::none(),
        py::arg("store") = py::none(), py::arg("all_stores") = false,
        "The records pending on the line, as qkp pending lists them: one dict per record (dept, "
        "line, scale, family, store, kind, id, label, flags, reason).");
  m.def("mark", &mark, py::arg("lines") = py::none(), py::arg("dept") = py::none(),
        py::arg("kinds") = py::none(), py::arg("id") = py::none(), py::arg("store") = py::none(),
        py::arg("all_stores") = false,
        "Marks records pending (send again), as qkp mark does: on a line, a list of lines or "
        "every configured line (None); one department or all; some kinds or all; one record "
        "(id, with one kind). Returns rows, records (without flags) and skipped departments.");
}
