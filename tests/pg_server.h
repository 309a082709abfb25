// The PostgreSQL server of a test run: a throw-away cluster (tests/pg_cluster.sh) started the
// first time a test asks for a database, stopped when the test program ends. Each test gets a
// database of its own. Rows are read back with libpq itself, not through the companion.
#pragma once

#include <libpq-fe.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

namespace qk::testing {

class PgServer {
 public:
  static PgServer& get() {
    static PgServer server;
    return server;
  }
  bool available() const { return !socket_.empty(); }
  // Why there is no server (for the skip message).
  const std::string& why() const { return why_; }

  // A new, empty database; its connection URI.
  std::string new_database() {
    std::string name = "qk_" + std::to_string(::getpid()) + "_" + std::to_string(++databases_);
    std::string error = exec(uri("postgres"), "CREATE DATABASE " + name);
    if (!error.empty()) throw std::runtime_error("CREATE DATABASE " + name + ": " + error);
    return uri(name);
  }
  std::string uri(const std::string& database, const std::string& user = "qk") const {
    return "postgresql:///" + database + "?host=" + socket_ + "&user=" + user;
  }

  // Runs statements; "" or the server's message.
  static std::string exec(const std::string& uri, const std::string& sql) {
    PGconn* c = PQconnectdb(uri.c_str());
    std::string error;
    if (PQstatus(c) != CONNECTION_OK) {
      error = PQerrorMessage(c);
    } else {
      PGresult* r = PQexec(c, sql.c_str());
      if (PQresultStatus(r) != PGRES_COMMAND_OK && PQresultStatus(r) != PGRES_TUPLES_OK)
        error = PQresultErrorMessage(r);
      PQclear(r);
    }
    PQfinish(c);
    return error;
  }
  // Rows of a query, "a|b" per row with a newline after each (as sql_rows gives them).
  static std::string rows(const std::string& uri, const std::string& sql) {
    PGconn* c = PQconnectdb(uri.c_str());
    std::string out;
    if (PQstatus(c) != CONNECTION_OK) {
      out = std::string("<") + PQerrorMessage(c) + ">";
    } else {
      PGresult* r = PQexec(c, sql.c_str());
      if (PQresultStatus(r) != PGRES_TUPLES_OK) {
        out = std::string("<") + PQresultErrorMessage(r) + ">";
      } else {
        for (int i = 0; i < PQntuples(r); ++i) {
          for (int j = 0; j < PQnfields(r); ++j)
            out += (j ? "|" : "") + std::string(PQgetvalue(r, i, j));
          out += "\n";
        }
      }
      PQclear(r);
    }
    PQfinish(c);
    return out;
  }

 private:
  PgServer() {
    std::string tmpl = (std::filesystem::temp_directory_path() / "qk-pg-XXXXXX").string();
    folder_ = mkdtemp(tmpl.data());
    std::string out;
    int status = run(QK_SOURCE_DIR "/tests/pg_cluster.sh start " + folder_, &out);
    while (!out.empty() && out.back() == '\n') out.pop_back();
    if (status == 0)
      socket_ = out;
    else
      why_ = out.empty() ? "the PostgreSQL cluster script failed" : out;
  }
  ~PgServer() {
    // A forked child of a test that ends normally must not stop the parent's server.
    if (::getpid() != owner_) return;
    run(QK_SOURCE_DIR "/tests/pg_cluster.sh stop " + folder_, nullptr);
    std::error_code ec;
    std::filesystem::remove_all(folder_, ec);
  }
  static int run(const std::string& command, std::string* out) {
    FILE* p = popen(("sh " + command + " 2>&1").c_str(), "r");
    if (!p) return -1;
    char buf[512];
    std::size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0)
      if (out) out->append(buf, n);
    int status = pclose(p);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  std::string folder_, socket_, why_;
  int databases_ = 0;
  pid_t owner_ = ::getpid();
};

}  // namespace qk::testing
