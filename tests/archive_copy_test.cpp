// qkp archive copy between SQLite files and PostgreSQL databases, and what a server archive that
// cannot be used says.
#include "qk/archive_schema.h"
#include "tool_fixture.h"

using namespace qk::testing;

namespace {

// Every written column of every table of a SQLite archive, quoted (a null is not an empty text),
// rows in value order (row versions and row numbers are the archive's own, not part of what is
// copied).
std::string all_rows(const std::string& file) {
  std::string out;
  for (const auto& t : qk::archive::tables()) {
    std::string cols, quoted;
    for (const auto& c : qk::archive::written_columns(t)) {
      cols += (cols.empty() ? "" : ", ") + c;
      quoted += (quoted.empty() ? "quote(" : ", quote(") + c + ")";
    }
    out += std::string(t.name) + "\n" +
           sql_rows(file, "select " + quoted + " from " + std::string(t.name) + " order by " + cols);
  }
  return out;
}

// The demo archive (SQLite) copied to an archive of the parameter's kind and back.
struct ArchiveCopy : Tool, ::testing::WithParamInterface<Backend> {};
QK_ON_BOTH_BACKENDS(ArchiveCopy);

TEST_P(ArchiveCopy, RoundTripKeepsEveryRow) {
  std::string middle = dir.file("middle.sqlite");
  if (GetParam() == Backend::Postgres) QK_NEW_PG_DATABASE_OR_SKIP(middle);
  std::string original = home + "/Archivi.sqlite", back = dir.file("back.sqlite");
  // Texts with what a bulk copy's framing uses itself (tab, newline, carriage return, backslash,
  // its null marker), an empty one and a null.
  ASSERT_EQ(sql_exec(original,
                     "INSERT INTO ARTICOLI (BNC, Plu, DESCRIPTION) VALUES (1, 78, 'a' || char(9) "
                     "|| 'b' || char(10) || 'c' || char(13) || 'd\\e \\N \xC3\xA8'), (1, 79, '');"
                     "INSERT INTO QK_RUNS (RUN_ID, RUN_START, RUN_END) VALUES ('a', 'b', NULL), "
                     "('c', 'd', '')"),
            "");
  ASSERT_EQ(qkp("archive copy --from " + original + " --to '" + middle + "'"), 0) << err;
  ASSERT_EQ(qkp("archive copy --from '" + middle + "' --to " + back), 0) << err;
  std::string rows = all_rows(original);
  EXPECT_NE(rows.find("Mod\xC3\xA8na"), std::string::npos);  // a text beyond ASCII went through
  EXPECT_EQ(all_rows(back), rows);
  // Copying onto an archive needs --force, and then replaces it whole.
  EXPECT_EQ(qkp("archive copy --from " + original + " --to '" + middle + "'"), 1);
  EXPECT_NE(err.find("already"), std::string::npos) << err;
  EXPECT_EQ(qkp("archive copy --from " + original + " --to '" + middle + "' --force"), 0) << err;
  ASSERT_EQ(qkp("archive copy --from '" + middle + "' --to " + back + " --force"), 0) << err;
  EXPECT_EQ(all_rows(back), rows);
}

TEST_P(ArchiveCopy, ASourceThatCannotBeReadLeavesNoTarget) {
  std::string target = dir.file("target.sqlite");
  if (GetParam() == Backend::Postgres) QK_NEW_PG_DATABASE_OR_SKIP(target);
  // The last table holds a text the component cannot read (no 8-bit form): the copy fails there,
  // after every other table was written.
  ASSERT_EQ(sql_exec(home + "/Archivi.sqlite",
                     "INSERT INTO ARTICOLI (BNC, Plu, DESCRIPTION) VALUES (1, 77, '\xE6\x97\xA5')"),
            "");
  EXPECT_EQ(qkp("archive copy --from " + home + "/Archivi.sqlite --to '" + target + "'"), 1);
  EXPECT_NE(err.find("table ARTICOLI, column DESCRIPTION"), std::string::npos) << err;
  if (GetParam() == Backend::Sqlite) {
    EXPECT_FALSE(std::filesystem::exists(target));
  } else {
    EXPECT_EQ(PgServer::rows(target,
                             "select count(*) from pg_tables where schemaname = current_schema()"),
              "0\n");
  }
}

TEST_F(Tool, InitArchiveNamesTheArchiveOfANewInstallation) {
  std::string fresh = dir.file("fresh");
  EXPECT_EQ(qkp_in(fresh, "init --archive " + dir.file("elsewhere.sqlite")), 0) << err;
  EXPECT_TRUE(std::filesystem::exists(dir.file("elsewhere.sqlite")));
  std::string out;
  EXPECT_EQ(qkp_in(fresh, "settings get Appl Archive", &out), 0);
  EXPECT_EQ(out, dir.file("elsewhere.sqlite") + "\n");
}

TEST_F(Tool, ArchiveCopyRefusesWhatItCannotDo) {
  std::string original = home + "/Archivi.sqlite";
  struct Case {
    std::string args, message;
  } cases[] = {
      {"--from " + original + " --to " + original, "the source and the target are the same"},
      {"--from " + dir.file("none.sqlite") + " --to " + dir.file("x.sqlite"),
       "the archive " + dir.file("none.sqlite") + " does not exist"},
      {"--from " + original + " --to " + dir.file("x.db"),
       "an archive file's name ends with .sqlite"},
      {"--from " + original, "--to is required"},
  };
  for (const auto& c : cases) {
    EXPECT_NE(qkp("archive copy " + c.args), 0) << c.args;
    EXPECT_NE(err.find(c.message), std::string::npos) << c.args << ": " << err;
  }
  EXPECT_FALSE(std::filesystem::exists(dir.file("x.sqlite")));
}

// An installation whose archive is on the test server.
struct ServerArchive : Tool {
  void SetUp() override { set_up_on(Backend::Postgres); }
};

TEST_F(ServerArchive, WhatCannotBeUsedIsNamed) {
  std::string query = server.substr(server.find('?'));
  struct Case {
    std::string archive;  // the setting Archive; "" keeps the test's own
    std::string sql;      // run on the server first
    std::string message;
  } cases[] = {
      {server.substr(0, server.rfind("user=")) + "user=nobody", "",
       "cannot connect to the archive server " + server.substr(0, server.rfind("user=")) +
           "user=nobody: connection to server on socket"},
      {"postgresql://qk:secret@/nosuchdb" + query, "",
       "cannot connect to the archive server postgresql://qk:***@/nosuchdb"},
      {"", "DROP TABLE ETEXT", "the archive " + server + " has no table ETEXT"},
      {"", "UPDATE QK_SCHEMA SET VERSION = 1",
       "the archive " + server + " has schema version 1, this version needs " +
           std::to_string(qk::archive::kSchemaVersion) + ": run \"qkp archive upgrade\""},
      {"", "DROP TABLE QK_SCHEMA",
       "holds no archive (its table QK_SCHEMA is missing): create one with \"qkp init\""},
  };
  for (const auto& c : cases) {
    if (!c.sql.empty()) {
      ASSERT_EQ(PgServer::exec(server, c.sql), "") << c.sql;
    }
    if (!c.archive.empty()) {
      ASSERT_EQ(qkp("settings set Appl Archive '" + c.archive + "'"), 0);
    }
    EXPECT_EQ(qkp("pending --line 1"), 1) << c.message;
    EXPECT_NE(err.find(c.message), std::string::npos) << err;
    EXPECT_EQ(err.find("secret"), std::string::npos) << err;
    ASSERT_EQ(qkp("settings set Appl Archive '" + server + "'"), 0);
  }
  // What is left there is not an archive: init replaces it only when told to.
  EXPECT_EQ(qkp("init"), 1);
  EXPECT_NE(err.find("already holds an archive (use it from this folder with \"qkp init --join "),
            std::string::npos)
      << err;
  EXPECT_EQ(qkp("init --force"), 0) << err;
  std::string out;
  EXPECT_EQ(qkp("status", &out), 0) << err;
  EXPECT_EQ(qkp("pending --line 1"), 1);  // a new, empty archive
  EXPECT_NE(err.find("no department configures line 1"), std::string::npos) << err;
}

}  // namespace
