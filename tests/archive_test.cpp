// The database companion on real archives (SQLite files, and databases of a PostgreSQL server
// the tests start): dialect, text encoding, contract members.
#include <algorithm>
#include <optional>

#include "archive_fixture.h"
#include "db_access/access_sql.h"
#include "frame/flags.h"
#include "qk/error.h"
#include "qk/sync/network.h"
#include "qk/sync/row_checks.h"

using namespace qk;
using namespace qk::testing;
using automation::Variant;

TEST(AccessSql, Translation) {
  struct Row {
    const char* in;
    const char* out;
  } rows[] = {
      {"select * from T where A = 1", "select * from T where A = 1"},  // nothing to change
      {"select * from TASTIERA_PLU where TP_BNC = 3 and TP_KEY = 7 and (int(TP_LINES/4)) mod 2 <> "
       "0",
       "select * from TASTIERA_PLU where TP_BNC = 3 and TP_KEY = 7 and "
       "qk_mod((int(TP_LINES* 1.0 /4)), 2) <> 0"},
      {"select a mod b mod c from t", "select qk_mod(qk_mod(a, b), c) from t"},
      {"select a + b mod c * d from t", "select a + qk_mod(b, c * d) from t"},
      {"select -a mod 3 from t", "select qk_mod(-a, 3) from t"},
      {"select a \\ b mod c from t", "select qk_mod(qk_intdiv(a, b), c) from t"},
      {"select t.x mod 2 from t", "select qk_mod(t.x, 2) from t"},
      {"select f(a, b) mod 2 from t", "select qk_mod(f(a, b), 2) from t"},
      {"select \"it's\" & [My Col] from t where b = True",
       "select 'it''s' || \"My Col\" from t where b = -1"},
      {"select 'a mod b' from t", "select 'a mod b' from t"},  // inside a literal: untouched
  };
  for (const auto& r : rows) EXPECT_EQ(companions::translate_access_sql(r.in), r.out) << r.in;
}

TEST(AccessSql, LiteralsBecomeParameters) {
  struct Row {
    const char* in;
    const char* out;
    std::size_t values;
  } rows[] = {
      {"select * from T where A = 1 and B = 'x''y'", "select * from T where A = ?1 and B = ?2", 2},
      {"update T set F= '10' where K= 7", "update T set F= ?1 where K= ?2", 2},
      {"select 7 from T where A = 2.5 order by 1", "select 7 from T where A = ?1 order by 1", 1},
      {"select * from T where A = 12345678901", "select * from T where A = 12345678901", 0},
      {"select * from T", "select * from T", 0},
  };
  for (const auto& r : rows) {
    auto p = companions::parameterize(r.in);
    EXPECT_EQ(p.sql, r.out);
    EXPECT_EQ(p.values.size(), r.values);
  }
  EXPECT_EQ(companions::parameterize("select * from T where B = 'x''y'").values[0].to_string(),
            "x'y");
}

TEST_P(ArchiveContract, DialectKeepsItsMeaning) {
  struct Row {
    const char* sql;
    const char* value;
  } rows[] = {
      {"select 7/2", "3.5"},  // floating division
      {"select int(7/2)", "3"},
      {"select int(-3.5)", "-4"},  // Int rounds down
      {"select 7 mod 3", "1"},
      {"select -7 mod 3", "-1"},  // the sign of the dividend
      {"select 2.5 mod 2", "0"},  // operands rounded to even first: 2 mod 2
      {"select 3.5 mod 3", "1"},  // 4 mod 3
      {"select 7 \\ 2", "3"},
      {"select 'a' & 'b'", "ab"},
      {"select instr('00100000', '1') > 0", "1"},
  };
  companions::clsDbAccess db;
  db.Initialize(Variant("Archivi.mdb"));
  for (const auto& r : rows) {
    auto rs = db.p_objRetrieveGenericRecordset(Variant(std::string(r.sql) + " as v"));
    EXPECT_EQ(rs->Fields("v").to_string(), r.value) << r.sql;
  }
}

TEST_F(ArchiveFixture, MissingArchiveIsAnErrorNotANewFile) {
  std::filesystem::remove(dir.file("Archivi.sqlite"));
  companions::clsDbAccess db;
  try {
    db.Initialize(Variant("Archivi.mdb"));
    FAIL();
  } catch (const automation::Error& e) {
    EXPECT_EQ(e.number(), automation::kFileNotFound);
    EXPECT_NE(e.description().find("qkp init"), std::string::npos);
  }
  EXPECT_FALSE(std::filesystem::exists(dir.file("Archivi.sqlite")));
}

TEST_F(ArchiveFixture, ArchiveSettingNamesTheFile) {
  dir.write("registry.xml", "<root><keys><key path='x' name='Archive' value='" +
                                dir.file("other.sqlite") + "'/></keys></root>");
  EXPECT_EQ(companions::clsDbAccess::locate("Archivi.mdb"), dir.file("other.sqlite"));
}

TEST_P(ArchiveContract, TextCrossesAsEightBit) {
  exec("insert into ETEXT (ET_BNC, Id, Row, Descr) values (1, 1, 1, ?1)",
       {Variant("Caff\xE8 2 \x80")});
  EXPECT_EQ(stored_hex("Descr", "ETEXT"), "43616666C3A8203220E282AC");
  exec(
      "insert into ETEXT (ET_BNC, Id, Row, Descr) values (1, 2, 1, '\xE6\x97\xA5')");  // a
                                                                                       // character
                                                                                       // with no
                                                                                       // 8-bit form
  companions::clsDbAccess db;
  db.Initialize(Variant("Archivi.mdb"));
  EXPECT_EQ(db.p_ETEXT_objRetrieveRowsById(1, 0, 1)->Fields("Descr").to_string(),
            "Caff\xE8 2 \x80");
  try {
    db.p_ETEXT_objRetrieveRowsById(2, 0, 1);
    FAIL();
  } catch (const automation::Error& e) {
    EXPECT_NE(e.description().find("table ETEXT, column Descr, row 1"), std::string::npos)
        << e.description();
  }
}

TEST_P(ArchiveContract, HierarchicalLayoutRecordset) {
  exec("insert into TICKET (TK_BNC, TK_ID, TK_DESCRIPTION) values (1, 5, 'T')");
  exec("insert into TICKET_DETAIL values (1, 5, 1, 4), (1, 5, 2, 3)");
  exec(
      "insert into TICKET_PROPERTY values (1, 5, 1, 1, '60'), (1, 5, 1, 5, '80'),"
      " (1, 5, 2, 0, '7')");
  companions::clsDbAccess db;
  db.Initialize(Variant("Archivi.mdb"));
  auto layouts = db.p_TICKET_DETAIL_objRetrieveHierarchicalRecordset(1, 5);
  ASSERT_FALSE(layouts->Eof());
  auto objects = layouts->Fields("object").as<automation::Recordset>();
  ASSERT_EQ(objects->RecordCount(), 2);
  auto props = objects->Fields("Property").as<automation::Recordset>();
  EXPECT_EQ(objects->Fields("OBJ_TYPE").to_int32(), 4);
  EXPECT_EQ(props->RecordCount(), 2);
  EXPECT_EQ(props->Fields("value").to_string(), "60");
  EXPECT_TRUE(db.p_TICKET_DETAIL_objRetrieveHierarchicalRecordset(1, 6)->Eof());
}

TEST_P(ArchiveContract, UpdateMembersClearTheServedLineInOneTransaction) {
  exec(
      "insert into TRACEABILITY (TRC_BNC, TRC_ID, TRC_ROW, TRC_FLAGTRASM) values"
      " (1, 7, 1, '11000000'), (1, 7, 2, '00100000')");
  companions::clsDbAccess db;
  db.Initialize(Variant("Archivi.mdb"));
  db.p_TRACEABILITY_UpdateFlagTrasm(1, 7, 2, "11100000");
  EXPECT_EQ(column_values("select TRC_FLAGTRASM from TRACEABILITY order by TRC_ROW"),
            "10100000,10100000");
  // A line outside the string writes nothing.
  EXPECT_THROW(db.p_TRACEABILITY_UpdateFlagTrasm(1, 7, 9, "11111111"), automation::Error);
  EXPECT_EQ(column_values("select TRC_FLAGTRASM from TRACEABILITY order by TRC_ROW"),
            "10100000,10100000");
}

// Flag writes under a store limit change only the store's (department, line) pairs, whoever
// writes them (the component's own statements, the numeric members, marking); under a reset
// guard a position is only ever cleared, so a reset computed before another line's reset
// committed cannot restore that line's flag.
TEST_P(ArchiveContract, FlagWritesStayOnTheirStoresLinesAndResetsOnlyClear) {
  exec(
      "insert into SCALE_LINES (SL_BNC, SL_LINE, SL_FAMILY, SL_SCALE, SL_STORE) values"
      " (1, 1, '3000', 1, 'A'), (1, 2, '3000', 2, 'B'), (1, 3, '3000', 3, 'A'),"
      " (2, 1, '3000', 1, 'B')");
  companions::clsDbAccess db;
  db.Initialize(Variant("Archivi.mdb"));
  const archive::Table& lots = *archive::find_table("TRACEABILITY");
  auto flags = [&] {
    return column_values("select TRC_FLAGTRASM from TRACEABILITY order by TRC_BNC");
  };
  struct Case {
    std::optional<std::string> store;
    bool guarded;
    std::string before, write;  // write: a flag string, or "mark" for mark_pending("11111111")
    const char* after;          // department 1, department 2
  } cases[] = {
      {"A", false, "11110000", "00000000", "01010000,11110000"},
      {"A", false, "00000000", "mark", "10100000,00000000"},
      {"B", false, "00000000", "11111111", "01000000,10000000"},
      {"Z", false, "11111111", "00000000", "11111111,11111111"},
      {std::nullopt, false, "11110000", "00000000", "00000000,00000000"},
      // A stale reset of line 2 computed from "11000000" after line 1's reset committed.
      {std::nullopt, true, "01000000", "10000000", "00000000,00000000"},
      {"A", true, "11110000", "11111111", "11110000,11110000"},
      {"A", true, "11110000", "01110000", "01110000,11110000"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.store.value_or("every store") + (c.guarded ? ", guarded: " : ": ") + c.write);
    exec("delete from TRACEABILITY");
    exec(
        "insert into TRACEABILITY (TRC_BNC, TRC_ID, TRC_ROW, TRC_FLAGTRASM) values"
        " (1, 7, 1, ?1), (2, 7, 1, ?1)",
        {c.before});
    db.limit_to_store(c.store);
    RowSnapshot rows{"TRACEABILITY", {}};
    for (auto rs = archive->query("select rowid as R, ROW_VERSION as V from TRACEABILITY");
         !rs->Eof(); rs->MoveNext())
      rows.rows.emplace_back(static_cast<int64_t>(rs->Fields("R").to_double()),
                             static_cast<int64_t>(rs->Fields("V").to_double()));
    std::sort(rows.rows.begin(), rows.rows.end());
    if (c.guarded) db.guard_resets(&rows);
    if (c.write == "mark")
      db.mark_pending(lots, {{"TRC_ID", 7}}, "11111111");
    else
      db.p_GENERIC_ExecuteQuery("update TRACEABILITY set TRC_FLAGTRASM= '" + c.write +
                                "' where TRC_ID= 7");
    db.guard_resets(nullptr);
    db.limit_to_store(std::nullopt);
    EXPECT_EQ(flags(), c.after);
  }
  // The numeric members go through the same rule.
  exec("update TRACEABILITY set TRC_FLAGTRASM = '11110000'");
  db.limit_to_store("A");
  db.p_TRACEABILITY_UpdateFlagTrasm(1, 7, 1, "11110000");
  db.limit_to_store(std::nullopt);
  EXPECT_EQ(flags(), "01110000,11110000");
}

// A batch's resets held and written together leave the flags and the counts of rows left alone
// that writing each at once leaves: two resets of one lot (written apart on a server), a row
// changed or added since the snapshot, the component's own statement under a store limit.
TEST_P(ArchiveContract, HeldResetsLeaveWhatEachResetLeaves) {
  exec(
      "insert into SCALE_LINES (SL_BNC, SL_LINE, SL_FAMILY, SL_SCALE, SL_STORE) values"
      " (1, 1, '3000', 1, 'A'), (1, 2, '3000', 2, 'B'), (1, 3, '3000', 3, 'A')");
  struct Reset {
    int lot;
    const char* write;  // the component's statement's flags, or "member:<line>"
  };
  struct Case {
    const char* name;
    std::optional<std::string> store;
    std::vector<Reset> resets;
    const char* meddle;  // run between the snapshots and the resets
    const char* after;   // flags by lot and row
    std::vector<long> left;
  } cases[] = {
      {"two lots by the member",
       {},
       {{7, "member:1"}, {8, "member:1"}},
       "",
       "01100000,01100000,01100000",
       {0, 0}},
      {"one lot twice",
       {},
       {{7, "01100000"}, {7, "10100000"}},
       "",
       "00100000,00100000,11100000",
       {0, 0}},
      {"a row changed",
       {},
       {{7, "01100000"}, {8, "01100000"}},
       "update TRACEABILITY set TRC_DESC1 = 'x' where TRC_ID = 7 and TRC_ROW = 2",
       "01100000,11100000,01100000",
       {1, 0}},
      {"a row added",
       {},
       {{8, "00000000"}},
       "insert into TRACEABILITY (TRC_BNC, TRC_ID, TRC_ROW, TRC_FLAGTRASM) values (1, 8, 2, "
       "'11100000')",
       "11100000,11100000,00000000,11100000",
       {1}},
      {"a store's lines",
       "A",
       {{7, "00000000"}, {8, "00000000"}},
       "",
       "01000000,01000000,01000000",
       {0, 0}},
  };
  companions::clsDbAccess db;
  db.Initialize(Variant("Archivi.mdb"));
  for (const auto& c : cases)
    for (bool held : {false, true}) {
      SCOPED_TRACE(std::string(c.name) + (held ? ", held" : ", each at once"));
      exec("delete from TRACEABILITY");
      exec(
          "insert into TRACEABILITY (TRC_BNC, TRC_ID, TRC_ROW, TRC_FLAGTRASM) values"
          " (1, 7, 1, '11100000'), (1, 7, 2, '11100000'), (1, 8, 1, '11100000')");
      std::vector<RowSnapshot> snapshots;
      for (const auto& r : c.resets) {
        RowSnapshot& s = snapshots.emplace_back(RowSnapshot{"TRACEABILITY", {}});
        for (auto rs = archive->query(
                 "select rowid as R, ROW_VERSION as V from TRACEABILITY where TRC_ID = ?1 "
                 "order by rowid",
                 {r.lot});
             !rs->Eof(); rs->MoveNext())
          s.rows.emplace_back(static_cast<int64_t>(rs->Fields("R").to_double()),
                              static_cast<int64_t>(rs->Fields("V").to_double()));
      }
      if (*c.meddle) exec(c.meddle);
      db.limit_to_store(c.store);
      db.begin_write();
      if (held) {
        ASSERT_TRUE(db.hold_resets());
      }
      std::vector<long> left;
      for (std::size_t i = 0; i < c.resets.size(); ++i) {
        const Reset& r = c.resets[i];
        db.guard_resets(&snapshots[i]);
        std::string write = r.write;
        if (write.rfind("member:", 0) == 0)
          db.p_TRACEABILITY_UpdateFlagTrasm(1, r.lot, std::stoi(write.substr(7)), "11100000");
        else
          db.p_GENERIC_ExecuteQuery("update TRACEABILITY set TRC_FLAGTRASM= '" + write +
                                    "' where TRC_BNC= 1 and TRC_ID= " + std::to_string(r.lot));
        left.push_back(db.guard_resets(nullptr));
      }
      if (held) {
        std::vector<long> later = db.write_held_resets();
        ASSERT_EQ(later.size(), left.size());
        for (std::size_t i = 0; i < left.size(); ++i) left[i] += later[i];
      }
      db.commit();
      db.limit_to_store(std::nullopt);
      EXPECT_EQ(column_values("select TRC_FLAGTRASM from TRACEABILITY order by TRC_ID, TRC_ROW"),
                c.after);
      EXPECT_EQ(left, c.left);
    }
}

// The records' states read together are what each record's own read gives: the same rows, in
// the same order, grouped as the records group them.
TEST_P(ArchiveContract, GroupStatesGroupRowsAsTheRecordsDo) {
  auto key = [&](int dept, int scale, int k, const char* flags) {
    exec("insert into TASTIERA_PLU (TP_BNC, TP_SCALE, TP_KEY, TP_FLAGTRASM) values (?, ?, ?, ?)",
         {dept, scale, k, flags});
  };
  key(1, 1, 16, "00000000");
  key(1, 1, 1, "01000000");
  key(1, 2, 1, "00000000");
  // Another department's rows in between: a scope's rows need not lie together.
  for (int k = 1; k <= 6; ++k) key(2, 1, k, "01000000");
  key(1, 1, 15, "00000000");
  key(1, 1, 30, "00000000");
  key(1, 1, 31, "01000000");  // block 2: outside the blocks asked for
  key(1, 3, 1, "00100000");
  key(2, 1, 1, "01000000");  // another department
  companions::clsDbAccess db;
  db.Initialize(Variant("Archivi.mdb"));
  struct Case {
    GroupRef scope;
    int32_t first, last;
    std::map<int32_t, std::size_t> rows;  // record id: rows
    std::vector<int32_t> pending_on_2;
  } cases[] = {
      {{RecordGroup::KeyBlock, 1, 1, 0}, 0, 1, {{0, 2}, {1, 2}}, {0}},
      {{RecordGroup::KeyBlock, 1, 2, 0}, 0, 5, {{0, 1}}, {}},
      {{RecordGroup::Key, 1, 0, 0}, 1, 16, {{1, 3}, {15, 1}, {16, 1}}, {1}},
      {{RecordGroup::Key, 1, 0, 0}, 2, 14, {}, {}},
  };
  for (const auto& c : cases) {
    auto states = db.group_states(c.scope, c.first, c.last, 2);
    std::map<int32_t, std::size_t> rows;
    std::vector<int32_t> pending;
    for (const auto& [id, s] : states) {
      rows[id] = s.rows.rows.size();
      if (s.pending) pending.push_back(id);
      EXPECT_FALSE(s.suspect);
      // The same snapshot as the record's own read.
      GroupRef ref = c.scope;
      ref.id = id;
      auto own = db.group_rows(ref);
      RowSnapshot snapshot{"TASTIERA_PLU", {}};
      for (; !own->Eof(); own->MoveNext())
        snapshot.rows.emplace_back(static_cast<int64_t>(own->Fields("ROW_ID").to_double()),
                                   static_cast<int64_t>(own->Fields("ROW_VERSION").to_double()));
      EXPECT_EQ(s.rows, snapshot) << id;
    }
    EXPECT_EQ(rows, c.rows);
    EXPECT_EQ(pending, c.pending_on_2);
  }
}

// Every row whose values the sync's checks would name is suspect; clean rows, accented text
// among them, are not.
TEST_P(ArchiveContract, GroupStatesSuspectWhatTheChecksWouldName) {
  struct Case {
    const char* values;  // TP_KEY, TP_VALUE, TP_MODE, TP_FLAGTRASM
    bool suspect;
  } cases[] = {
      {"1, 100, 'P', '10000000'", false},
      {"2, 100, 'P', '1000000'", true},                               // seven flags
      {"3, 100, 'P', '1000000x'", true},                              // not 0 or 1
      {"4, 3000000000, 'P', '10000000'", true},                       // past 32 bits
      {"5, -2147483648, '\xC3\xA8\xE2\x82\xAC', '10000000'", false},  // è€ have 8-bit forms
      {"6, 100, '\xE6\x97\xA5', '10000000'", true},                   // no 8-bit form
  };
  for (const auto& c : cases)
    exec(std::string("insert into TASTIERA_PLU (TP_BNC, TP_SCALE, TP_KEY, TP_VALUE, TP_MODE, "
                     "TP_FLAGTRASM) values (1, 1, ") +
         c.values + ")");
  exec(
      "insert into TRACEABILITY (TRC_BNC, TRC_ID, TRC_DESC20, TRC_MODE) values"
      " (1, 1, 'Caff\xC3\xA8', NULL), (1, 2, '\xE6\x97\xA5', 0)");
  companions::clsDbAccess db;
  db.Initialize(Variant("Archivi.mdb"));
  auto keys = db.group_states({RecordGroup::Key, 1, 0, 0}, 1, 6, 1);
  ASSERT_EQ(keys.size(), std::size(cases));
  for (const auto& c : cases) {
    int32_t id = std::stoi(c.values);
    EXPECT_EQ(keys[id].suspect, c.suspect) << c.values;
    // The checks agree: a row they can read shows a problem exactly when it is suspect.
    try {
      auto rows = db.group_rows({RecordGroup::Key, 1, 0, id});
      auto table = *archive::find_table("TASTIERA_PLU");
      EXPECT_EQ(!sync::row_problems(table, *rows).empty(), c.suspect) << c.values;
    } catch (const automation::Error&) {
      EXPECT_TRUE(c.suspect) << c.values;
    }
  }
  auto lots = db.group_states({RecordGroup::Lot, 1, 0, 0}, 1, 2, 1);
  EXPECT_FALSE(lots[1].suspect);  // an empty mode may be left to its default
  EXPECT_TRUE(lots[2].suspect);
}

// A validity date is judged alike by the column's rule and by each database's form of it.
TEST_P(ArchiveContract, DatesAreSuspectExactlyWhenTheRuleRefusesThem) {
  struct Case {
    const char* date;
    bool refused;
  } cases[] = {
      {"", false},         {"01010101", false}, {"29022024", false}, {"29022000", false},
      {"01010000", false}, {"31122026", false}, {"29022025", true},  {"29021900", true},
      {"31042026", true},  {"00012026", true},  {"01132026", true},  {"2026-12-0", true},
      {"1012026", true},   {"310120261", true},
  };
  const archive::Table& images = *archive::find_table("IMMAGINI");
  int id = 0;
  for (const auto& c : cases)
    exec("insert into IMMAGINI (IM_BNC, IM_ID, IM_FROM) values (1, ?, ?)",
         {Variant(++id), Variant(c.date)});
  auto rs = archive->query("select IM_ID, " + archive->suspect_sql(images) +
                           " as S from IMMAGINI order by IM_ID");
  for (const auto& c : cases) {
    ASSERT_FALSE(rs->Eof());
    EXPECT_EQ(
        !archive::value_problem(*archive::find_column(images, "IM_FROM"), Variant(c.date)).empty(),
        c.refused)
        << c.date;
    EXPECT_EQ(rs->Fields("S").to_int32() != 0, c.refused) << c.date;
    rs->MoveNext();
  }
}

// SQLite keeps values its columns' types cannot hold; they are suspect, and a key that is no
// whole number belongs to no key's record (as the records' own reads select them).
TEST_F(ArchiveFixture, GroupStatesOfValuesSqliteKeepsAsGiven) {
  exec(
      "insert into TASTIERA_PLU (TP_BNC, TP_SCALE, TP_KEY, TP_VALUE) values (1, 1, 1, 'abc'),"
      " (1, 1, 2, 2.5), (1, 1, 3.5, 0), (1, 1, 'x', 0), (1, 1, 1e19, 0), (1, 1, 4, 0)");
  companions::clsDbAccess db;
  db.Initialize(Variant("Archivi.mdb"));
  auto keys = db.group_states({RecordGroup::Key, 1, 0, 0}, 0, 100, 1);
  std::string seen;
  for (const auto& [id, s] : keys) seen += std::to_string(id) + (s.suspect ? "! " : " ");
  EXPECT_EQ(seen, "1! 2! 4 ");
  // Key 3.5 lies inside block 0, whose read selects keys 1 to 15.
  auto blocks = db.group_states({RecordGroup::KeyBlock, 1, 1, 0}, 0, 0, 1);
  ASSERT_EQ(blocks.size(), 1u);
  EXPECT_EQ(blocks[0].rows.rows.size(), 4u);
  EXPECT_TRUE(blocks[0].suspect);
}

TEST(Flags, MergeMaskAndClear) {
  struct Row {
    std::vector<const char*> stored;
    const char* merged;  // nullptr: the merge fails
  } rows[] = {
      {{"10000000", "00100000"}, "10100000"},
      {{}, "00000000"},
      {{"1"}, "10000000"},          // shorter strings merge from position 1
      {{"x1y00000"}, "01000000"},   // only "1" counts
      {{"000000001"}, nullptr},     // a "1" past the width fails
      {{"000000000"}, "00000000"},  // extra "0"s are harmless
  };
  for (const auto& r : rows) {
    automation::MemoryRecordset rs({"F"});
    for (const char* s : r.stored) rs.add_row({Variant(s)});
    if (r.merged) {
      EXPECT_EQ(flags::merge(rs, "F", 8), r.merged);
    } else {
      EXPECT_THROW(flags::merge(rs, "F", 8), automation::Error);
    }
  }
  std::string f = "11110000";
  flags::mask_unconfigured(f, ArchiveFixture::configured(1, {1, 1, 0, 0, 0, 0, 0, 0}), 1, 8);
  EXPECT_EQ(f, "11000000");
  f = "1111";
  flags::mask_unconfigured(f, ArchiveFixture::configured(1, {1, 1}), 1, 4);  // unset = not
  EXPECT_EQ(f, "1100");
  EXPECT_THROW(flags::mask_unconfigured(f, ArchiveFixture::configured(1, {1}), 2, 4),
               automation::Error);  // the array does not cover department 2
  f = "11100000";
  flags::clear_line(f, 3);
  EXPECT_EQ(f, "11000000");
  EXPECT_THROW(flags::clear_line(f, 9), automation::Error);
  EXPECT_THROW(flags::clear_line(f, 0), automation::Error);
}

// The server goes away inside a write transaction: the rollback that ends it is logged, nothing
// is raised from the destructor, and the process goes on.
TEST_P(ArchiveContract, ALostServerInAWriteTransactionIsLoggedNotFatal) {
  if (server.empty()) GTEST_SKIP() << "a file archive has no server to lose";
  std::vector<std::string> logged;
  host::set_event_log([&](int, const std::string& text) { logged.push_back(text); });
  auto tools = sync::open_archive_tools(server);
  {
    sync::ArchiveWrite write(*tools);
    std::string database = server.substr(server.find("///") + 3);
    database = database.substr(0, database.find('?'));
    PgServer::rows(PgServer::get().uri("postgres"),
                   "SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE datname = '" +
                       database + "' AND pid <> pg_backend_pid()");
  }
  host::set_event_log(nullptr);
  ASSERT_EQ(logged.size(), 1u);
  EXPECT_NE(logged[0].find("a rollback failed"), std::string::npos) << logged[0];
  EXPECT_EQ(error_of([&] { tools->begin_write(); }), automation::kRemoteServerUnavailable);
}

QK_ON_BOTH_BACKENDS(ArchiveContract);
