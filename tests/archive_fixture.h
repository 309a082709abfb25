// A fresh installation folder with an empty archive, the real companions registered, and a
// logger spy; rows are added with exec().
#pragma once

#include <gtest/gtest.h>

#include "db_access/clsDbAccess.h"
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

  void SetUp() override {
    companions::register_db_access();
    companions::register_translate();
    companions::register_registry_helper();
    spy = reset_globals();
    archive = companions::SqliteArchive::create(dir.file("Archivi.sqlite"));
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

}  // namespace qk::testing
