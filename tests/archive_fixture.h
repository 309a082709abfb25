// A fresh installation folder with an empty archive (a SQLite file, or a database of the test
// server for the suites instantiated on both backends), the real companions registered, and a
// logger spy; rows are added with exec().
#pragma once

#include <gtest/gtest.h>

#include "backends.h"
#include "db_access/clsDbAccess.h"
#include "db_access/pg_archive.h"
#include "db_access/sqlite_archive.h"
#include "registry/clsRegistry.h"
#include "test_support.h"
#include "translate/clsTranslate.h"

namespace qk::testing {

struct ArchiveFixture : ::testing::Test {
  TempDir dir;
  ScopedEnv home{"QK_HOME", dir.path()};
  ScopedEnv cfg{"XDG_CONFIG_HOME", dir.file("cfg")};
  std::shared_ptr<LoggerSpy> spy;
  std::shared_ptr<companions::Archive> archive;

  std::string server;  // the archive's URI when it is on the test server

  void SetUp() override { set_up_on(Backend::Sqlite); }
  void set_up_on(Backend backend) {
    companions::register_db_access();
    companions::register_translate();
    companions::register_registry_helper();
    spy = reset_globals();
    if (backend == Backend::Sqlite) {
      archive = companions::SqliteArchive::create(dir.file("Archivi.sqlite"));
      return;
    }
    QK_NEW_PG_DATABASE_OR_SKIP(server);
    archive = companions::PgArchive::create(server, false);
    archive->end(true);
    host::create_settings_store(false);
    ASSERT_TRUE(host::save_setting("Appl", "Archive", server));
  }
  // The bytes a text column holds, in hexadecimal.
  std::string stored_hex(const std::string& column, const std::string& table) {
    return scalar(server.empty() ? "select hex(" + column + ") from " + table
                                 : "select upper(encode(convert_to(" + column +
                                       ", 'UTF8'), 'hex')) from " + table);
  }
  // One column of a query's rows, joined by commas.
  std::string column_values(const std::string& sql) {
    std::string s;
    for (auto rs = archive->query(sql); !rs->Eof(); rs->MoveNext())
      s += (s.empty() ? "" : ",") + rs->Fields(rs->columns()[0]).to_string();
    return s;
  }
  void exec(const std::string& sql, const std::vector<automation::Variant>& params = {}) {
    archive->execute(sql, params);
  }
  std::string scalar(const std::string& sql) {
    auto rs = archive->query(sql);
    return rs->Eof() ? "<none>" : rs->Fields(rs->columns()[0]).to_string();
  }
  // Configured lines of departments 0..dept: the given department gets `lines`.
  static automation::Variant configured(long dept, std::vector<int> lines) {
    auto a = std::make_shared<automation::VariantArray>(
        std::vector<std::pair<long, long>>{{0, dept}, {0, 7}});
    for (std::size_t i = 0; i < lines.size(); ++i) a->at(dept, static_cast<long>(i)) = lines[i];
    return automation::Variant(a);
  }
  std::vector<long> reported() const {
    std::vector<long> n;
    for (const auto& c : spy->calls) n.push_back(c.number);
    return n;
  }
};

// The suites of the archive's contract, run on both backends.
struct ArchiveContract : ArchiveFixture, ::testing::WithParamInterface<Backend> {
  void SetUp() override { set_up_on(GetParam()); }
};

}  // namespace qk::testing
