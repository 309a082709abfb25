// The qkp tool end to end: a demo installation in a temporary folder, qkp run as a separate
// process, and the archive read back with the database's own library (SQLite, or libpq for the
// suites instantiated on both backends).
#pragma once

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <sqlite3.h>
#include <sys/wait.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "backends.h"
#include "test_support.h"

namespace qk::testing {

// Rows of a query, "a|b" per row with a newline after each, as the sqlite3 shell prints them.
inline std::string sql_rows(const std::string& db_path, const std::string& sql) {
  sqlite3* db = nullptr;
  std::string out;
  if (sqlite3_open_v2(db_path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
    sqlite3_close(db);
    return "<cannot open " + db_path + ">";
  }
  sqlite3_busy_timeout(db, 5000);
  sqlite3_stmt* s = nullptr;
  if (sqlite3_prepare_v2(db, sql.c_str(), -1, &s, nullptr) != SQLITE_OK) {
    out = std::string("<") + sqlite3_errmsg(db) + ">";
  } else {
    while (sqlite3_step(s) == SQLITE_ROW) {
      for (int c = 0; c < sqlite3_column_count(s); ++c) {
        const unsigned char* t = sqlite3_column_text(s, c);
        out += (c ? "|" : "") + std::string(t ? reinterpret_cast<const char*>(t) : "");
      }
      out += "\n";
    }
  }
  sqlite3_finalize(s);
  sqlite3_close(db);
  return out;
}

// Runs statements on an archive file as another program would; "" or the error.
inline std::string sql_exec(const std::string& db_path, const std::string& sql) {
  sqlite3* db = nullptr;
  sqlite3_open_v2(db_path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
  sqlite3_busy_timeout(db, 5000);
  char* error = nullptr;
  std::string out;
  if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &error) != SQLITE_OK)
    out = error ? error : "?";
  sqlite3_free(error);
  sqlite3_close(db);
  return out;
}

// SHA-256 of bytes in hexadecimal, as the journal records a delivered record.
inline std::string sha256(const std::string& bytes) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int n = 0;
  EVP_Digest(bytes.data(), bytes.size(), digest, &n, EVP_sha256(), nullptr);
  std::string hex;
  for (unsigned int i = 0; i < n; ++i) {
    char b[3];
    std::snprintf(b, sizeof b, "%02x", digest[i]);
    hex += b;
  }
  return hex;
}

// How many bytes of `received` the journal's rows cover: each confirmed record must lie whole in
// what a scale received, one after the other (sent without separators); a row that does not is a
// failure, and nothing is counted beyond it.
inline std::size_t confirmed_within(const nlohmann::json& rows, const std::string& received) {
  std::size_t at = 0;
  for (const auto& r : rows) {
    std::size_t length = r["J_LENGTH"].get<std::size_t>();
    bool whole = at + length <= received.size() &&
                 sha256(received.substr(at, length)) == r["J_HASH"].get<std::string>();
    EXPECT_TRUE(whole) << "confirmed but not received as sent: " << r.dump();
    if (!whole) return at;
    at += length;
  }
  return at;
}

inline std::vector<std::string> lines_of(const std::string& s) {
  std::vector<std::string> v;
  std::istringstream in(s);
  for (std::string l; std::getline(in, l);) v.push_back(l);
  return v;
}

struct Tool : ::testing::Test {
  TempDir dir;
  ScopedEnv cfg{"XDG_CONFIG_HOME", dir.file("cfg")};
  std::string home = dir.file("demo");
  std::string err;  // stderr of the last run

  // Runs qkp with arguments (a shell fragment); returns its exit status, stdout in *out.
  int qkp(const std::string& args, std::string* out = nullptr) { return qkp_in(home, args, out); }
  int qkp_in(const std::string& installation, const std::string& args, std::string* out = nullptr) {
    std::string cmd = std::string(QKP_BINARY) + " --home " + installation + " " + args + " 2>" +
                      dir.file("stderr.txt");
    FILE* p = popen(cmd.c_str(), "r");
    std::string text;
    char buf[4096];
    std::size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) text.append(buf, n);
    int status = pclose(p);
    if (out) *out = text;
    err = dir.read("stderr.txt");
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  // What `qkp --format json ARGS` prints, parsed (an empty array when it prints nothing).
  nlohmann::json json_of(const std::string& args) {
    std::string out;
    qkp("--format json " + args, &out);
    return out.empty() ? nlohmann::json::array() : nlohmann::json::parse(out);
  }
  std::string server;  // the archive's URI when it is on the test server
  std::string sql(const std::string& query) {
    return server.empty() ? sql_rows(home + "/Archivi.sqlite", query)
                          : PgServer::rows(server, query);
  }
  void SetUp() override { set_up_on(Backend::Sqlite); }
  void set_up_on(Backend backend) {
    if (backend == Backend::Postgres) QK_NEW_PG_DATABASE_OR_SKIP(server);
    ASSERT_EQ(qkp("init --demo" + (server.empty() ? "" : " --archive '" + server + "'")), 0) << err;
  }
};

// End-to-end suites that hold on both backends.
struct ToolOnBoth : Tool, ::testing::WithParamInterface<Backend> {
  void SetUp() override { set_up_on(GetParam()); }
};

}  // namespace qk::testing
