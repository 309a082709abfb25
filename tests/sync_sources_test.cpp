// The sync library on a real archive, with a transport that keeps what it is given: which kinds
// each family takes, sources with nothing pending, unknown families, and the reset guard.
#include "archive_fixture.h"
#include "qk/sync.h"

using namespace qk;
using namespace qk::testing;
using automation::Variant;

namespace {

// Records everything delivered, and fails on request.
class MemoryTransport : public sync::Transport {
 public:
  bool send(const sync::Envelope& to, const std::string& bytes) override {
    if (fail_after >= 0 && static_cast<long>(sent.size()) >= fail_after) {
      error_ = "line went away";
      return false;
    }
    sent.push_back({to, bytes});
    return true;
  }
  bool commit() override {
    committed = sent.size();
    return true;
  }
  std::size_t batch() const override { return batch_size; }
  const std::string& error() const override { return error_; }

  std::vector<std::pair<sync::Envelope, std::string>> sent;
  long fail_after = -1;
  std::size_t batch_size = 256;
  std::size_t committed = 0;  // strings made durable by the last commit

 private:
  std::string error_;
};

// The real archive tools, whose n-th commit fails as a full disk would make it.
class FailingCommit : public ArchiveTools {
 public:
  FailingCommit(std::shared_ptr<ArchiveTools> real, int fail_at) : real_(real), fail_at_(fail_at) {}
  std::string location() const override { return real_->location(); }
  void begin_read() override { real_->begin_read(); }
  void end_read() override { real_->end_read(); }
  void begin_write() override { real_->begin_write(); }
  void commit() override {
    if (++commits_ == fail_at_)
      automation::raise(automation::kPathFileAccessError, "disk I/O error (injected)");
    real_->commit();
  }
  void rollback() override { real_->rollback(); }
  std::vector<int32_t> record_ids(RecordGroup g, int32_t dept, int32_t scale, int32_t line,
                                  std::vector<std::string>* problems) override {
    return real_->record_ids(g, dept, scale, line, problems);
  }
  automation::RecordsetPtr group_rows(const GroupRef& ref) override {
    return real_->group_rows(ref);
  }
  std::map<int32_t, GroupState> group_states(const GroupRef& s, int32_t f, int32_t l,
                                             int32_t line) override {
    return real_->group_states(s, f, l, line);
  }
  long guard_resets(const RowSnapshot* guard) override { return real_->guard_resets(guard); }
  automation::RecordsetPtr select_rows(const archive::Table& t, const Where& w) override {
    return real_->select_rows(t, w);
  }
  void insert_row(const archive::Table& t, const std::vector<std::string>& c,
                  const std::vector<Variant>& v) override {
    real_->insert_row(t, c, v);
  }
  long update_rows(const archive::Table& t, const Where& w, const std::vector<std::string>& c,
                   const std::vector<Variant>& v) override {
    return real_->update_rows(t, w, c, v);
  }
  long delete_rows(const archive::Table& t, const Where& w) override {
    return real_->delete_rows(t, w);
  }
  long mark_pending(const archive::Table& t, const Where& w, const std::string& l) override {
    return real_->mark_pending(t, w, l);
  }
  std::unique_ptr<Lock> lock_line(int32_t line, bool wait, std::string* holder) override {
    return real_->lock_line(line, wait, holder);
  }
  void begin_new_archive(const std::string& f, bool r) override { real_->begin_new_archive(f, r); }
  void publish_new_archive() override { real_->publish_new_archive(); }
  void upgrade_schema(const std::string& f) override { real_->upgrade_schema(f); }

 private:
  std::shared_ptr<ArchiveTools> real_;
  int fail_at_, commits_ = 0;
};

struct Sync : ArchiveFixture {
  std::shared_ptr<ArchiveTools> tools;
  void SetUp() override {
    ArchiveFixture::SetUp();
    tools = sync::open_archive_tools();
  }
  void line(int dept, int line, const char* family, int scale) {
    exec("insert into SCALE_LINES (SL_BNC, SL_LINE, SL_FAMILY, SL_SCALE) values (?1, ?2, ?3, ?4)",
         {dept, line, family, scale});
  }
  void key(int dept, int scale, int k, const char* flags) {
    exec(
        "insert into TASTIERA_PLU (TP_BNC, TP_SCALE, TP_KEY, TP_VALUE, TP_FLAGTRASM)"
        " values (?1, ?2, ?3, ?4, ?5)",
        {dept, scale, k, 100 + k, flags});
  }
  sync::SyncReport run(int line, bool full, MemoryTransport& t, std::vector<std::string>* said,
                       ArchiveTools* through = nullptr) {
    sync::SyncOptions o;
    o.scope.line = line;
    o.scope.full = full;
    o.journal = false;  // these count the resets' commits; the journal has its own suite
    o.say = [said](const std::string& s) { said->push_back(s); };
    return sync::run_sync(through ? *through : *tools, t, o);
  }
  // The keys (by number) still pending on line 1.
  std::string pending_keys() {
    return scalar(
        "select coalesce(group_concat(TP_KEY, ' '), '') from (select TP_KEY from TASTIERA_PLU"
        " where substr(TP_FLAGTRASM, 1, 1) = '1' order by TP_KEY)");
  }
  std::vector<std::string> kinds(const MemoryTransport& t) {
    std::vector<std::string> k;
    for (const auto& [to, bytes] : t.sent)
      if (k.empty() || k.back() != to.kind) k.push_back(to.kind);
    return k;
  }
};

}  // namespace

TEST(Families, WhatEachFamilyTakes) {
  using qk::Form;
  using sync::Kind;
  struct Row {
    const char* family;
    Kind kind;
    Form form;
  } rows[] = {
      {"3000", Kind::Keys, Form::Series3000},
      {"3000top", Kind::Lots, Form::Series3000Top},  // any letter case
      {"2000", Kind::Vat, Form::Series2000},
      {"5000", Kind::Barcodes, Form::None},
      {"5000", Kind::Ads, Form::Series5000},
      {"VELTA", Kind::Keys, Form::None},
      {"VELTA", Kind::Lots, Form::Velta},
      {"KESTRA", Kind::Images, Form::Kestra},
      {"KESTRA", Kind::Layouts, Form::None},
      {"3000", Kind::Date, Form::Numeric},
  };
  for (const auto& r : rows) {
    const qk::Family* f = sync::forms_of(r.family);
    ASSERT_NE(f, nullptr) << r.family;
    EXPECT_EQ(f->form(r.kind), r.form) << r.family << " " << sync::kind_name(r.kind);
  }
  // What a command building one record "for a family" offers: each form once, catalogue order.
  auto lots = qk::kFormsOf<Kind::Lots>;
  std::vector<std::string_view> names;
  for (std::size_t i = 0; i < lots.second; ++i) names.push_back(qk::form_name(lots.first[i]));
  EXPECT_EQ(names, (std::vector<std::string_view>{"3000", "3000TOP", "2000", "5000", "VELTA"}));
  EXPECT_EQ(qk::parse_form<Kind::Lots>("velta"), Form::Velta);
  EXPECT_EQ(qk::parse_form<Kind::Keys>("3000TOP"), Form::None) << "keys have no 3000TOP form";
  EXPECT_EQ(sync::forms_of("6000"), nullptr);
  // The table's order is the sending order: date first, images last.
  EXPECT_EQ(sync::sources().front().kind, Kind::Date);
  EXPECT_EQ(sync::sources().back().kind, Kind::Images);
}

TEST_F(Sync, NothingPendingSendsNothingNotEvenTheDate) {
  line(1, 1, "3000", 1);
  key(1, 1, 1, "00000000");
  MemoryTransport t;
  std::vector<std::string> said;
  auto r = run(1, false, t, &said);
  EXPECT_EQ(r.status, sync::SyncReport::Done);
  EXPECT_TRUE(t.sent.empty());
  // With everything requested the date and the key block go.
  r = run(1, true, t, &said);
  EXPECT_EQ(kinds(t), (std::vector<std::string>{"date", "keys"}));
}

TEST_F(Sync, AFullSyncResetsOnlyWhatWasPendingOnTheLine) {
  line(1, 1, "5000", 1);
  key(1, 1, 1, "10100000");
  key(1, 1, 2, "01000000");  // not pending on line 1: its rows are left as they are, although
  key(1, 2, 2, "00100000");  // resetting it would write the merged flags to both
  MemoryTransport t;
  std::vector<std::string> said;
  auto r = run(1, true, t, &said);
  EXPECT_EQ(r.status, sync::SyncReport::Done);
  EXPECT_EQ(kinds(t), (std::vector<std::string>{"date", "keys"}));
  EXPECT_EQ(t.sent.size(), 3u);  // the date and both keys
  EXPECT_EQ(scalar("select group_concat(TP_FLAGTRASM, ' ') from (select TP_FLAGTRASM from"
                   " TASTIERA_PLU order by TP_KEY, TP_SCALE)"),
            "00100000 01000000 00100000");
}

// Records close together are checked in one read, scattered ones each alone, a read never
// crossing a batch: whichever way, the same strings go and the same flags are reset.
TEST_F(Sync, RecordsReadTogetherOrAloneGoAndResetAlike) {
  line(1, 2, "5000", 2);
  std::vector<int> keys = {1, 2, 3, 4, 5, 7, 9, 10, 40, 41, 300, 301, 302, 5000};
  for (int k : keys) {
    key(1, 1, k, "01000000");
    key(1, 2, k, k % 3 ? "11000000" : "00000000");  // not all pending: the full sync sends all
  }
  std::vector<std::pair<std::string, std::string>> first;  // what went, the flags left
  for (bool full : {false, true})
    for (std::size_t batch : {256, 1, 2, 5}) {
      SCOPED_TRACE((full ? "full, batch " : "pending, batch ") + std::to_string(batch));
      exec(
          "update TASTIERA_PLU set TP_FLAGTRASM = CASE WHEN TP_KEY % 3 = 0 AND TP_SCALE = 2"
          " THEN '00000000' ELSE '11000000' END");
      MemoryTransport t;
      t.batch_size = batch;
      std::vector<std::string> said;
      EXPECT_EQ(run(2, full, t, &said).status, sync::SyncReport::Done);
      std::string sent;
      for (const auto& [to, bytes] : t.sent)
        if (to.kind == "keys") sent += std::to_string(to.id) + " ";
      std::pair<std::string, std::string> got{
          sent, scalar("select group_concat(TP_FLAGTRASM, ' ') from (select TP_FLAGTRASM from"
                       " TASTIERA_PLU order by TP_KEY, TP_SCALE)")};
      if (batch == 256) first.push_back(got);
      EXPECT_EQ(got, first.back());
    }
  ASSERT_EQ(first.size(), 2u);
  // Every key is pending on line 2 through scale 1's row: all go, every flag of line 2 clears.
  EXPECT_EQ(first[0].first, "1 2 3 4 5 7 9 10 40 41 300 301 302 5000 ");
  EXPECT_EQ(first[1], first[0]);
  EXPECT_EQ(first[0].second.find("11"), std::string::npos) << first[0].second;
}

// A batch may hold several departments' records: none is reset before the commit that makes it
// durable, whichever department it belongs to.
TEST_F(Sync, ABatchAcrossDepartmentsIsResetOnlyOnceDurable) {
  for (int dept : {1, 2}) {
    line(dept, 1, "5000", 1);
    for (int k = 1; k <= 3; ++k) key(dept, 1, k, "11000000");
  }
  auto pending = [&] {
    return scalar("select count(*) from TASTIERA_PLU where substr(TP_FLAGTRASM, 1, 1) = '1'");
  };
  std::vector<std::string> said;
  MemoryTransport fails;
  fails.fail_after = 5;  // department 1's date and keys, department 2's date: then the line goes
  EXPECT_EQ(run(1, false, fails, &said).status, sync::SyncReport::Failed);
  EXPECT_EQ(fails.committed, 0u);
  EXPECT_EQ(pending(), "6");  // department 1 was delivered but never made durable
  for (std::size_t batch : {256, 2}) {
    exec("update TASTIERA_PLU set TP_FLAGTRASM = '11000000'");
    MemoryTransport t;
    t.batch_size = batch;
    EXPECT_EQ(run(1, false, t, &said).status, sync::SyncReport::Done);
    EXPECT_EQ(t.sent.size(), 8u);
    EXPECT_EQ(t.committed, 8u);
    EXPECT_EQ(pending(), "0") << batch;
  }
}

TEST_F(Sync, AFamilyThatTakesNoKeysGetsNoKeys) {
  line(1, 1, "VELTA", 1);
  key(1, 1, 1, "11111111");
  MemoryTransport t;
  std::vector<std::string> said;
  auto r = run(1, true, t, &said);
  EXPECT_EQ(r.status, sync::SyncReport::Done);
  EXPECT_TRUE(t.sent.empty());  // Velta takes lots only, and there are none
  EXPECT_EQ(scalar("select TP_FLAGTRASM from TASTIERA_PLU"), "11111111");
}

TEST_F(Sync, UnknownFamilyAndNoLineAreSaid) {
  MemoryTransport t;
  std::vector<std::string> said;
  EXPECT_EQ(run(1, false, t, &said).status, sync::SyncReport::NoLine);
  // A family the archive refuses cannot be inserted; one read back oddly still is reported.
  exec("PRAGMA ignore_check_constraints = 1");
  line(2, 1, "6000", 1);
  EXPECT_EQ(run(1, true, t, &said).status, sync::SyncReport::Failed);
  ASSERT_FALSE(said.empty());
  EXPECT_NE(said.back().find("SL_FAMILY holds \"6000\""), std::string::npos) << said.back();
}

TEST_F(Sync, DeliveryThatStopsLeavesTheRestPending) {
  line(1, 1, "5000", 1);
  for (int k = 1; k <= 5; ++k) key(1, 1, k, "11111111");
  MemoryTransport t;
  t.fail_after = 3;  // the date and two keys
  std::vector<std::string> said;
  auto r = run(1, false, t, &said);
  EXPECT_EQ(r.status, sync::SyncReport::Failed);
  EXPECT_EQ(r.stopped, "line went away");
  // Nothing was confirmed (the batch never committed), so every key is still pending.
  EXPECT_EQ(scalar("select count(*) from TASTIERA_PLU where substr(TP_FLAGTRASM, 1, 1) = '1'"),
            "5");
}

TEST_F(Sync, GuardLeavesChangedRowsAlone) {
  key(1, 1, 7, "11000000");
  key(1, 2, 7, "11000000");
  auto rows = tools->group_rows({RecordGroup::Key, 1, 0, 7});
  RowSnapshot snapshot{"TASTIERA_PLU", {}};
  for (; !rows->Eof(); rows->MoveNext())
    snapshot.rows.emplace_back(static_cast<int64_t>(rows->Fields("ROW_ID").to_double()),
                               static_cast<int64_t>(rows->Fields("ROW_VERSION").to_double()));
  ASSERT_EQ(snapshot.rows.size(), 2u);
  // Scale 2's row changes after the snapshot; a third row is added.
  exec("update TASTIERA_PLU set TP_VALUE = 1 where TP_SCALE = 2");
  key(1, 3, 7, "11000000");
  tools->guard_resets(&snapshot);
  tools->begin_write();
  auto db = automation::create_as<DbAccess>(kDbAccessId);
  db->Initialize(Variant(kArchiveName));
  db->p_GENERIC_ExecuteQuery(
      Variant("update TASTIERA_PLU set TP_FLAGTRASM= '10000000' where TP_BNC= 1 and TP_KEY= 7"));
  tools->commit();
  EXPECT_EQ(tools->guard_resets(nullptr), 2);  // one changed, one added
  EXPECT_EQ(scalar("select group_concat(TP_FLAGTRASM, ' ') from (select TP_FLAGTRASM from"
                   " TASTIERA_PLU order by TP_SCALE)"),
            "10000000 11000000 11000000");
  // Without a guard the statement runs as written.
  db->p_GENERIC_ExecuteQuery(
      Variant("update TASTIERA_PLU set TP_FLAGTRASM= '00000000' where TP_BNC= 1 and TP_KEY= 7"));
  EXPECT_EQ(scalar("select count(*) from TASTIERA_PLU where TP_FLAGTRASM = '00000000'"), "3");
}

// Delivery stopped after every possible string: the keys whose string was made durable by a
// commit are reset, every other key is still pending.
TEST_F(Sync, StoppedAtAnyPointExactlyTheUnconfirmedKeysStayPending) {
  line(1, 1, "5000", 1);
  for (int k = 1; k <= 6; ++k) key(1, 1, k, "11111111");
  for (long stop = 0; stop <= 7; ++stop) {  // the date, then one string per key
    SCOPED_TRACE("stopped after " + std::to_string(stop) + " strings");
    exec("update TASTIERA_PLU set TP_FLAGTRASM = '11111111'");
    MemoryTransport t;
    t.fail_after = stop;
    t.batch_size = 2;
    std::vector<std::string> said;
    run(1, false, t, &said);
    std::string expected;
    for (std::size_t i = 0; i < t.sent.size(); ++i) {
      const auto& to = t.sent[i].first;
      if (to.kind == "keys" && i >= t.committed)
        expected += (expected.empty() ? "" : " ") + std::to_string(to.id);
    }
    for (long k = std::max<long>(1, static_cast<long>(t.sent.size())); k <= 6; ++k)
      expected += (expected.empty() ? "" : " ") + std::to_string(k);
    EXPECT_EQ(pending_keys(), expected);
  }
}

// The archive refuses the commit of one batch of resets: that batch stays pending (it will be
// sent again), the others are reset.
TEST_F(Sync, AFailedResetCommitLeavesThatBatchPending) {
  line(1, 1, "5000", 1);
  for (int k = 1; k <= 6; ++k) key(1, 1, k, "11111111");
  const char* expected[] = {"1", "2 3", "4 5", "6"};  // batches of two: date+1, 2+3, 4+5, 6
  for (int fail = 1; fail <= 4; ++fail) {
    SCOPED_TRACE("commit " + std::to_string(fail) + " fails");
    exec("update TASTIERA_PLU set TP_FLAGTRASM = '11111111'");
    FailingCommit through(tools, fail);
    MemoryTransport t;
    t.batch_size = 2;
    std::vector<std::string> said;
    auto r = run(1, false, t, &said, &through);
    EXPECT_EQ(r.status, sync::SyncReport::Failed);
    EXPECT_EQ(t.sent.size(), 7u) << "delivery goes on";
    EXPECT_EQ(pending_keys(), expected[fail - 1]);
    bool said_it = false;
    for (const auto& s : said)
      said_it = said_it || s.find("will be sent again") != std::string::npos;
    EXPECT_TRUE(said_it);
  }
}
