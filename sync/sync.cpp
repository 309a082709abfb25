#include "qk/sync.h"

#include <chrono>
#include <span>
#include <thread>

#include "content_hash.h"
#include "qk/error.h"
#include "qk/host.h"
#include "qk/sync/child_process.h"
#include "qk/sync/content_pending.h"
#include "qk/sync/journal.h"
#include "qk/sync/row_checks.h"

namespace qk::sync {

namespace {

thread_local std::string g_context;

constexpr int kResetAttempts = 5;

std::string describe(const ScaleLine& l) {
  return "department " + std::to_string(l.dept) + ", line " + std::to_string(l.line) + " (" +
         l.family + ", scale " + std::to_string(l.scale) + ")";
}

std::string error_text(const std::exception& e) {
  if (auto* a = dynamic_cast<const automation::Error*>(&e))
    return automation::error_label(a->number()) + ": " + cp1252_to_utf8(a->description());
  return e.what();
}

RowSnapshot snapshot_of(const archive::Table& t, automation::Recordset& rs) {
  RowSnapshot s{std::string(t.name), {}};
  for (rs.MoveFirst(); !rs.Eof(); rs.MoveNext())
    s.rows.emplace_back(static_cast<int64_t>(rs.Fields("ROW_ID").to_double()),
                        static_cast<int64_t>(rs.Fields(archive::kRowVersionColumn).to_double()));
  return s;
}

bool same_scope(const GroupRef& a, const GroupRef& b) {
  return a.group == b.group && a.dept == b.dept && a.scale == b.scale;
}

// How many of `ids` (increasing), from the first, lie close enough together that one read of
// first..last reads few rows of other records.
std::size_t close_together(std::span<const int32_t> ids) {
  std::size_t n = 1;
  while (n < ids.size() &&
         static_cast<int64_t>(ids[n]) - ids.front() < 2 * static_cast<int64_t>(n + 1))
    ++n;
  return n;
}

// Counts what the component reports around one call.
class Watch {
 public:
  Watch() : reports_(host::reports_on_this_thread()), notices_(host::notices_on_this_thread()) {}
  bool reported() const { return host::reports_on_this_thread() != reports_; }
  bool noticed() const { return host::notices_on_this_thread() != notices_; }

 private:
  long reports_, notices_;
};

// The sync of the lines, one department's line after another: records are built inside a read
// transaction (so a record and the snapshot of its rows agree), delivered, and reset in batches
// once the transport has made them durable. A batch may hold records of several departments, so
// that a sync of many small lines waits for the disk or the line once per batch, not per line.
class LineSync {
 public:
  LineSync(ArchiveTools& a, Transport& t, const SyncOptions& o, SyncReport& r)
      : a_(a), t_(t), o_(o), r_(r), content_(a) {}
  // The run whose journal gets the confirmed records.
  void journal_to(const Run* run) { run_ = run; }

  // One department's line; false when delivery stopped.
  bool run(const LineContext& line) {
    line_context_ = describe(line.where);
    line_ = line.where.line;
    store_ = line.where.store;
    forget_states();  // they say what is pending on one line
    ContextScope context(line_context_);
    LineContext c = line;
    c.warn = [this](const std::string& text) {
      o_.say(current_context() + ": " + text);
      warned_ = true;
    };
    struct Opened {
      Kind kind;
      bool flagged;
      Form form;
      std::shared_ptr<RecordSource> source;
      std::vector<int32_t> ids;
    };
    std::vector<Opened> kinds;
    std::size_t pending = 0;
    if (lost_) return false;
    for (const SourceEntry& e : sources()) {
      Form form = c.forms->form(e.kind);
      if (form == Form::None || (o_.scope.clock_only && e.kind != Kind::Date)) continue;
      try {
        // A record without flags goes when its rows differ from its last delivery here.
        bool by_content = !e.flagged && e.rows.table && !o_.scope.full;
        std::map<int32_t, std::string> changed;
        if (by_content) changed = content_.pending(c.where, e.kind);
        if (by_content && changed.empty()) continue;
        std::vector<std::string> problems;
        auto source = e.open(c, form);
        auto ids = source->ids(e.flagged && !o_.scope.full ? c.where.line : 0, &problems);
        for (const auto& p : problems) problem(p);
        if (by_content) std::erase_if(ids, [&](int32_t id) { return !changed.contains(id); });
        if (e.flagged || by_content) pending += ids.size();
        kinds.push_back({e.kind, e.flagged, form, std::move(source), std::move(ids)});
      } catch (const std::exception& ex) {
        if (lost(&ex)) return false;
        problem(std::string(kind_name(e.kind)) + " could not be listed: " + error_text(ex));
        ++r_.tally[e.kind].failed;
      }
    }
    if (!o_.scope.full && !o_.scope.clock_only && pending == 0) return true;
    envelope_ = {c.where.dept, c.where.line, c.where.scale, c.where.family, "", 0};
    for (auto& k : kinds)
      for (std::size_t i = 0; i < k.ids.size(); ++i)
        if (!deliver(k.kind, k.flagged, k.source, std::span(k.ids).subspan(i)))
          return lost_ ? false : stop();
    return true;
  }

  // Makes the last batch durable and resets it; false when delivery stopped.
  bool finish() { return (flush() && !lost_) || (!lost_ && stop()); }

  // Whether the archive's connection was lost (error 462, raised or reported, by the companion
  // that keeps the first cause): then the sync stops at once, says so once, and tries nothing
  // more on the archive. What was delivered but not yet reset will be sent again.
  bool lost(const std::exception* raised = nullptr) {
    if (lost_) return true;
    auto* e = dynamic_cast<const automation::Error*>(raised);
    host::Report last = host::last_report_on_this_thread();
    std::string why = e && e->number() == automation::kRemoteServerUnavailable
                          ? cp1252_to_utf8(e->description())
                      : !e && last.number == automation::kRemoteServerUnavailable &&
                              host::reports_on_this_thread() != reports_at_lost_check_
                          ? cp1252_to_utf8(last.description)
                          : "";
    reports_at_lost_check_ = host::reports_on_this_thread();
    if (why.empty()) return false;
    lost_ = true;
    reading_ = false;
    forget_states();
    std::size_t unreset = 0;
    for (const auto& w : waiting_) unreset += w.source ? 1 : 0;
    o_.say(why +
           "; the sync stops here: what was reset stays reset, everything else stays pending" +
           (unreset ? " (" + std::to_string(unreset) +
                          " records delivered but not reset will be sent again)"
                    : ""));
    r_.status = SyncReport::Failed;
    r_.stopped = why;
    waiting_.clear();
    return true;
  }

 private:
  struct Waiting {
    Kind kind;
    long long bytes;
    std::size_t strings;
    std::shared_ptr<RecordSource> source;  // records pending on the line only: they are reset
    int32_t id;
    std::optional<GroupRef> group;
    RowSnapshot snapshot;
    std::string context;  // "department 1, line 2 (5000, scale 2), key 7"
    JournalEntry entry;   // what the journal says of it once confirmed
    std::string rows;     // a record without flags: its rows as built (content_pending.h)
  };

  void problem(const std::string& text) {
    o_.say(current_context() + ": " + text);
    r_.status = SyncReport::Failed;
  }

  // Delivers the first of `ids`, the records of the kind still to go, in increasing order.
  bool deliver(Kind kind, bool flagged, const std::shared_ptr<RecordSource>& from,
               std::span<const int32_t> ids) {
    RecordSource& source = *from;
    int32_t id = ids.front();
    // A sync of what is pending lists only records pending on the line; a full sync sends every
    // record but resets only those pending on the line when they are built (resetting the others
    // would write back the flags they already have).
    bool pending = flagged && !o_.scope.full;
    if (lost_) return false;
    if (!reading_) {
      try {
        a_.begin_read();
      } catch (const std::exception& ex) {
        if (lost(&ex)) return false;
        throw;
      }
      reading_ = true;
    }
    ContextScope context(line_context_ + ", " + source.label(id));
    KindTally& tally = r_.tally[kind];
    Waiting w{kind, 0, 0, nullptr, id, source.group(id), {}, current_context(), {}, {}};
    std::vector<std::string> strings;
    Watch watch;
    warned_ = false;
    try {
      if (w.group) {
        GroupState state = group_state(*w.group, ids);
        w.snapshot = std::move(state.rows);
        pending = pending || (flagged && state.pending);
        if (state.suspect) {
          // A row the component cannot read is named, and its record is not built at all.
          auto rows = a_.group_rows(*w.group);
          auto problems = row_problems(group_table(w.group->group), *rows);
          if (!problems.empty()) {
            for (const auto& p : problems) problem(p);
            ++tally.failed;
            problem("not sent because of the values above; left pending");
            return true;
          }
          w.snapshot = snapshot_of(group_table(w.group->group), *rows);
        }
      }
      // Read before the record is built: what it is kept with is never newer than what it sent.
      if (!flagged) w.rows = content_.rows_of(kind, envelope_.dept, id);
      strings = source.build(id);
    } catch (const RecordRefused& ex) {
      ++tally.failed;
      problem(std::string(ex.what()) + (flagged ? "; left pending" : "; not sent"));
      return true;
    } catch (const std::exception& ex) {
      if (lost(&ex)) return false;
      problem("error while building: " + error_text(ex));
      strings.clear();
    }
    std::erase(strings, std::string());
    if (pending) w.source = from;
    if ((strings.empty() || watch.reported()) && lost()) return false;
    if (strings.empty() || watch.reported()) {
      ++tally.failed;
      problem(std::string("could not be built") + (flagged ? ", left pending" : ", not sent"));
      return true;
    }
    if (watch.noticed() || warned_) {
      ++tally.warned;
      r_.status = SyncReport::Failed;
    }
    envelope_.kind = std::string(kind_name(kind));
    envelope_.id = id;
    in_flight_ = current_context();
    for (const auto& s : strings) {
      if (!t_.send(envelope_, s)) return false;
      w.bytes += static_cast<long long>(s.size());
      ++w.strings;
      hash_.add(s);
    }
    w.entry = {
        store_, envelope_.dept, envelope_.line, envelope_.scale, envelope_.family, envelope_.kind,
        id,     w.bytes,        hash_.hex()};
    waiting_.push_back(std::move(w));
    in_flight_.clear();
    o_.progress(++delivered_);
    return waiting_.size() < t_.batch() || flush();
  }

  // The state of a record's group within the read transaction. The states of the records that
  // follow it are read with it while they lie close together (a sync that sends a department's
  // every key reads them in one go, one that sends a key here and there reads each alone) and
  // while they fit in the batch this read transaction builds.
  GroupState group_state(const GroupRef& ref, std::span<const int32_t> ids) {
    if (!states_scope_ || !same_scope(*states_scope_, ref) || ref.id < states_first_ ||
        ref.id > states_last_) {
      std::size_t room =
          std::max<std::size_t>(1, t_.batch() - std::min(t_.batch(), waiting_.size()));
      std::size_t n = close_together(ids.first(std::min(ids.size(), room)));
      states_ = a_.group_states(ref, ids.front(), ids[n - 1], line_);
      states_scope_ = ref;
      states_first_ = ids.front();
      states_last_ = ids[n - 1];
    }
    auto it = states_.find(ref.id);
    if (it != states_.end()) return it->second;
    return GroupState{RowSnapshot{std::string(group_table(ref.group).name), {}}};  // no rows
  }

  void forget_states() {
    states_.clear();
    states_scope_.reset();
  }

  void end_reading() {
    if (reading_) {
      reading_ = false;
      try {
        a_.end_read();
      } catch (const std::exception& ex) {
        if (!lost(&ex)) throw;
      }
    }
    forget_states();
  }

  // Makes the waiting records durable, counts them and resets the flagged ones whose rows are
  // unchanged since they were built.
  bool flush() {
    end_reading();
    if (waiting_.empty() || lost_) return !lost_;
    if (!t_.commit()) return false;
    settle_waiting();
    return true;
  }

  // Counts the waiting records as delivered and resets the flagged ones.
  void settle_waiting() {
    bool resets = false;
    for (const auto& w : waiting_) {
      KindTally& tally = r_.tally[w.kind];
      ++tally.records;
      tally.bytes += w.bytes;
      resets = resets || w.source || !w.rows.empty();
    }
    if (resets || run_) reset_waiting();
    waiting_.clear();
  }

  // A reset the archive refused because of another writer (a deadlock it broke, a lock not had
  // in time) left nothing written: it is tried again, a few times, and each attempt is said.
  void reset_waiting() {
    for (int attempt = 1;; ++attempt) {
      std::string conflict = try_reset_waiting();
      if (conflict.empty()) return;
      if (attempt == kResetAttempts) {
        problem("the flags of " + std::to_string(waiting_.size()) +
                " delivered records could not be written after " + std::to_string(attempt) +
                " attempts (" + conflict + "); they will be sent again");
        return;
      }
      ++r_.retries;
      o_.say(line_context_ + ": another writer held the archive (" + conflict +
             "); resetting the last " + std::to_string(waiting_.size()) +
             " records again, attempt " + std::to_string(attempt + 1) + " of " +
             std::to_string(kResetAttempts));
      std::this_thread::sleep_for(std::chrono::milliseconds(50 * attempt));
    }
  }

  // Names the records reset from waiting_[i] on that share its scope and lie close together as
  // the records whose rows the archive reads at once; returns the index past the last of them.
  std::size_t expect_resets_from(std::size_t i) {
    const GroupRef& scope = *waiting_[i].group;
    std::vector<int32_t> ids;
    std::vector<std::size_t> at;
    for (std::size_t k = i; k < waiting_.size(); ++k) {
      const Waiting& w = waiting_[k];
      if (!w.source) continue;
      if (!w.group || !same_scope(*w.group, scope) || (!ids.empty() && w.group->id <= ids.back()))
        break;
      ids.push_back(w.group->id);
      at.push_back(k);
    }
    std::size_t n = close_together(ids);
    a_.expect_resets(scope, ids.front(), ids[n - 1]);
    return at[n - 1] + 1;
  }

  // "" when done (or failed for another reason, said); the conflict's text when it may be retried.
  std::string try_reset_waiting() {
    try {
      a_.begin_write();
      // The flag writes of a batch's resets are written together, after their reads.
      bool held = a_.hold_resets();
      std::size_t named_until = 0;
      std::vector<JournalEntry> confirmed;
      std::vector<DeliveredRecord> kept;
      // Each reset record and the rows its writes left alone; which of them set a guard.
      std::vector<std::pair<const Waiting*, long>> left;
      std::vector<std::size_t> guarded;
      std::string now = utc_now();
      for (std::size_t i = 0; i < waiting_.size(); ++i) {
        const Waiting& w = waiting_[i];
        if (!w.source) {
          confirmed.push_back(w.entry);
          if (!w.rows.empty())
            kept.push_back(
                {{w.entry.dept, w.entry.line, w.entry.family, w.entry.scale, w.entry.store},
                 w.kind,
                 w.id,
                 w.rows,
                 w.entry.hash});
          continue;
        }
        if (held && w.group && i >= named_until) named_until = expect_resets_from(i);
        ContextScope context(w.context);
        Watch watch;
        if (w.group) guarded.push_back(left.size());
        a_.guard_resets(w.group ? &w.snapshot : nullptr);
        w.source->reset(w.id);
        left.emplace_back(&w, a_.guard_resets(nullptr));
        if (watch.reported()) {
          ++r_.tally[w.kind].reset_failed;
          problem("delivered, but its flags could not be reset; it will be sent again");
        } else {
          confirmed.push_back(w.entry);
        }
      }
      if (held) {
        std::vector<long> later = a_.write_held_resets();
        for (std::size_t g = 0; g < later.size() && g < guarded.size(); ++g)
          left[guarded[g]].second += later[g];
      }
      for (const auto& [w, rows] : left) {
        if (rows == 0) continue;
        ContextScope context(w->context);
        ++r_.tally[w->kind].changed;
        o_.say(current_context() +
               ": changed in the archive while it was sent; what changed stays pending for the "
               "next sync");
      }
      // The journal's rows commit with the resets: one exists exactly when its record was
      // confirmed and reset.
      record_delivered(a_, kept, now, run_ ? run_->id : "");
      if (run_) write_journal(a_, *run_, now, confirmed);
      a_.commit();
    } catch (const std::exception& ex) {
      a_.guard_resets(nullptr);
      try {
        a_.rollback();
      } catch (const std::exception&) {
        // A lost connection's rollback: the server ended the transaction.
      }
      if (lost(&ex)) return "";
      auto* e = dynamic_cast<const automation::Error*>(&ex);
      if (e && e->number() == automation::kWriteConflict) return error_text(ex);
      problem("the flags of " + std::to_string(waiting_.size()) +
              " delivered records could not be written (" + error_text(ex) +
              "); they will be sent again");
    }
    return "";
  }

  // Delivery stopped: the records the far end confirmed are counted and reset, the rest stays
  // pending. The message names the record delivery stopped at: the first one not confirmed (a
  // sender answers late, so that may lie in an earlier department than the one being sent).
  bool stop() {
    end_reading();
    r_.stopped = t_.error();
    std::size_t confirmed = t_.confirmed(), kept = 0;
    for (; kept < waiting_.size() && waiting_[kept].strings <= confirmed; ++kept)
      confirmed -= waiting_[kept].strings;
    std::size_t unconfirmed = waiting_.size() - kept;
    std::string at = unconfirmed           ? waiting_[kept].context
                     : !in_flight_.empty() ? in_flight_
                                           : line_context_;
    waiting_.erase(waiting_.begin() + static_cast<std::ptrdiff_t>(kept), waiting_.end());
    settle_waiting();
    o_.say(at + ": delivery stopped (" + t_.error() + "); " +
           (unconfirmed ? std::to_string(unconfirmed) +
                              " records not confirmed and everything not yet sent stay pending"
                        : std::string("everything not yet sent stays pending")));
    r_.status = SyncReport::Failed;
    return false;
  }

  ArchiveTools& a_;
  Transport& t_;
  const SyncOptions& o_;
  SyncReport& r_;
  const Run* run_ = nullptr;  // the journal's run; none: no journal
  ContentPending content_;
  ContentHash hash_;
  Envelope envelope_;
  std::string line_context_, store_;
  std::string in_flight_;  // the record being handed to the transport
  std::vector<Waiting> waiting_;
  // The group states read in this read transaction: one scope, records first..last.
  std::map<int32_t, GroupState> states_;
  std::optional<GroupRef> states_scope_;
  int32_t states_first_ = 0, states_last_ = 0, line_ = 0;
  bool reading_ = false, warned_ = false, lost_ = false;
  long reports_at_lost_check_ = host::reports_on_this_thread();
  long delivered_ = 0;
};

}  // namespace

const std::string& current_context() {
  return g_context;
}

ContextScope::ContextScope(std::string text) : previous_(std::move(g_context)) {
  g_context = std::move(text);
}

ContextScope::~ContextScope() {
  g_context = std::move(previous_);
}

long SyncReport::records() const {
  long n = 0;
  for (const auto& [k, t] : tally) n += t.records;
  return n;
}

long long SyncReport::bytes() const {
  long long n = 0;
  for (const auto& [k, t] : tally) n += t.bytes;
  return n;
}

int for_each_line(ArchiveTools& a, const SyncScope& scope, const LineVisitor& each,
                  const std::function<void(const ScaleLine&)>& unknown,
                  std::vector<std::string>* problems) {
  std::vector<ScaleLine> network = read_network(a, problems);
  LineContext c;
  c.configured = configured_lines(network);
  c.archive = &a;
  c.images_folder = path_in(installation_folder(), "images") + "/";
  int visited = 0;
  for (const ScaleLine& where : network) {
    if ((scope.line > 0 && where.line != scope.line) ||
        (scope.dept >= 0 && where.dept != scope.dept) || !in_store(where, scope.store))
      continue;
    ++visited;
    c.where = where;
    c.forms = forms_of(where.family);
    if (c.forms)
      each(c);
    else if (unknown)
      unknown(where);
  }
  return visited;
}

SyncReport run_sync(ArchiveTools& a, Transport& t, const SyncOptions& o) {
  auto start = std::chrono::steady_clock::now();
  SyncReport r;
  auto locks =
      lock_line_of(a, o.scope.store, read_network(a, nullptr), o.scope.line, o.wait, &r.holder);
  if (locks.empty()) {
    r.status = SyncReport::Busy;
    return r;
  }
  StoreLimit limit(a, o.scope.store);
  std::vector<std::string> problems;
  bool stopped = false;
  std::optional<Run> run;
  LineSync lines(a, t, o, r);
  int visited = 0;
  try {
    if (o.journal) {
      run = begin_run(a, o.by, o.scope.store.value_or(""), o.scope.line, o.transport);
      lines.journal_to(&*run);
    }
    visited = for_each_line(
        a, o.scope,
        [&](const LineContext& c) {
          if (!stopped) stopped = !lines.run(c);
        },
        [&](const ScaleLine& l) {
          o.say(describe(l) + ": the family " + l.family + " is unknown; nothing sent");
          r.status = SyncReport::Failed;
        },
        &problems);
    if (!stopped) stopped = !lines.finish();
  } catch (const std::exception& e) {
    // What the archive raised outside a record (reading the network, a transaction): the run
    // still ends with its report.
    if (!lines.lost(&e)) problems.push_back(error_text(e));
    stopped = true;
    visited = std::max(visited, 1);
  }
  // The transport ends its processes now, so that how they ended is part of the report.
  if (!t.finish() && !stopped) {
    problems.push_back("the transport did not end cleanly: " + t.error());
    r.stopped = t.error();
  }
  for (const auto& p : problems) o.say(p);
  if (!problems.empty() || stopped) r.status = SyncReport::Failed;
  if (visited == 0 && problems.empty()) r.status = SyncReport::NoLine;
  r.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  // After a lost connection nothing more is tried on the archive: the run keeps no end and is
  // listed as interrupted.
  if (run && !lines.lost()) {
    run->records = r.records();
    run->bytes = r.bytes();
    run->retries = r.retries;
    run->outcome = stop_signal() != 0               ? "stopped"
                   : r.status == SyncReport::Done   ? "done"
                   : r.status == SyncReport::NoLine ? "no line"
                                                    : "failed";
    run->error = !r.stopped.empty() ? r.stopped : problems.empty() ? "" : problems.front();
    r.run = run->id;
    try {
      end_run(a, *run);
    } catch (const std::exception& e) {
      // A lost archive: the run keeps no end and is listed as interrupted.
      o.say("the run's end could not be written to the journal: " + error_text(e));
    }
  }
  return r;
}

std::vector<PendingLine> list_pending(ArchiveTools& a, const SyncScope& scope,
                                      std::vector<std::string>* problems) {
  std::vector<PendingLine> out;
  ContentPending content(a);
  for_each_line(
      a, scope,
      [&](const LineContext& c) {
        ContextScope context(describe(c.where));
        PendingLine p{c.where, true, {}};
        for (const SourceEntry& e : sources()) {
          Form form = c.forms->form(e.kind);
          if (form == Form::None || (!e.flagged && !e.rows.table)) continue;
          try {
            std::map<int32_t, std::string> changed;
            if (!e.flagged && (changed = content.pending(c.where, e.kind)).empty()) continue;
            auto source = e.open(c, form);
            for (int32_t id : source->ids(e.flagged ? c.where.line : 0, problems)) {
              if (e.flagged)
                p.records.push_back({e.kind, id, source->label(id), source->flags(id), ""});
              else if (changed.contains(id))
                p.records.push_back({e.kind, id, source->label(id), "", changed[id]});
            }
          } catch (const std::exception& ex) {
            if (problems)
              problems->push_back(describe(c.where) + ": " + std::string(kind_name(e.kind)) +
                                  " could not be listed: " + error_text(ex));
          }
        }
        out.push_back(std::move(p));
      },
      [&](const ScaleLine& l) {
        out.push_back({l, false, {}});
      },
      problems);
  return out;
}

std::vector<Kind> markable_kinds() {
  std::vector<Kind> kinds;
  for (const auto& e : sources())
    if (e.flagged || e.rows.table) kinds.push_back(e.kind);
  return kinds;
}

MarkResult mark(ArchiveTools& a, const MarkRequest& r) {
  if (r.id && r.kinds.size() != 1)
    throw std::invalid_argument("an id names a key, a form, a lot or a message: give one kind");
  MarkResult result;
  std::vector<std::string> problems;
  std::vector<ScaleLine> network = read_network(a, &problems);
  std::map<int32_t, std::vector<int32_t>> configured;
  StoreLimit limit(a, r.store);
  for (const auto& l : network)
    if ((r.dept < 0 || l.dept == r.dept) && in_store(l, r.store))
      configured[l.dept].push_back(l.line);
  if (r.dept >= 0 && configured.empty())
    result.skipped.push_back("department " + std::to_string(r.dept) + " has no lines" +
                             (r.store ? " of " + store_label(r.store) : ""));
  std::vector<Kind> kinds = r.kinds.empty() ? markable_kinds() : r.kinds;
  ArchiveWrite write(a);
  {
    for (const auto& [dept, lines] : configured) {
      std::vector<int32_t> chosen;
      for (int32_t l : r.lines.empty() ? lines : r.lines) {
        if (std::find(lines.begin(), lines.end(), l) != lines.end())
          chosen.push_back(l);
        else
          result.skipped.push_back("department " + std::to_string(dept) + " has no line " +
                                   std::to_string(l));
      }
      if (chosen.empty()) continue;
      for (Kind k : kinds) {
        // A record without flags is sent again once its last delivery is forgotten.
        if (!source_of(k).flagged && source_of(k).rows.table)
          for (int32_t l : chosen) result.records += forget_delivered(a, dept, l, k, r.id);
        auto g = group_of(k, Form::None);
        if (!g) continue;
        const archive::Table& t = group_table(*g);
        Where where{{std::string(t.department), dept}};
        if (r.id) where.emplace_back(std::string(t.record_id), *r.id);
        int width = archive::find_column(t, t.flags)->flag_width;
        result.rows += a.mark_pending(t, where, line_mask(width, chosen));
      }
    }
  }
  write.commit();
  return result;
}

long mark_line_pending(ArchiveTools& a, int32_t dept, int32_t line, const std::string& family) {
  const Family* forms = forms_of(family);
  long rows = 0;
  for (const auto& e : sources()) {
    auto g = e.flagged && forms ? group_of(e.kind, Form::None) : std::nullopt;
    if (!g || forms->form(e.kind) == Form::None) continue;
    const archive::Table& t = group_table(*g);
    rows += a.mark_pending(t, {{std::string(t.department), dept}},
                           line_mask(archive::find_column(t, t.flags)->flag_width, {line}));
  }
  return rows;
}

long rows_pending_on(ArchiveTools& a, int32_t dept, int32_t line) {
  long rows = 0;
  for (const auto& t : archive::tables()) {
    if (t.flags.empty()) continue;
    for (auto rs = a.select_rows(t, {{std::string(t.department), dept}}); !rs->Eof();
         rs->MoveNext()) {
      std::string f = rs->Fields(std::string(t.flags)).to_text();
      rows += line >= 1 && static_cast<std::size_t>(line) <= f.size() && f[line - 1] == '1';
    }
  }
  return rows;
}

}  // namespace qk::sync
