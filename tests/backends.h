// The two databases an archive can live in. Suites that hold for both are instantiated on each;
// the PostgreSQL instance is skipped, with the reason, when the test server cannot be started.
#pragma once

#include <gtest/gtest.h>

#include "pg_server.h"

namespace qk::testing {

enum class Backend { Sqlite, Postgres };

inline void PrintTo(Backend b, std::ostream* os) {
  *os << (b == Backend::Sqlite ? "SQLite" : "PostgreSQL");
}
inline std::string backend_name(const ::testing::TestParamInfo<Backend>& info) {
  return ::testing::PrintToString(info.param);
}

#define QK_ON_BOTH_BACKENDS(Suite)                                                         \
  INSTANTIATE_TEST_SUITE_P(                                                                \
      Archive, Suite,                                                                      \
      ::testing::Values(::qk::testing::Backend::Sqlite, ::qk::testing::Backend::Postgres), \
      ::qk::testing::backend_name)

// A new database on the test server; skips the calling test when there is no server.
#define QK_NEW_PG_DATABASE_OR_SKIP(uri)                                                  \
  do {                                                                                   \
    auto& server_ = ::qk::testing::PgServer::get();                                      \
    if (!server_.available()) GTEST_SKIP() << "no PostgreSQL server: " << server_.why(); \
    uri = server_.new_database();                                                        \
  } while (0)

}  // namespace qk::testing
