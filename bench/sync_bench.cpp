// A full sync of one line of the large demo network, against a plain read of the rows that sync
// reads, on the SQLite archive and on the same archive on a PostgreSQL server (a throw-away
// cluster started for the run, as the tests do). The ratio is the cost of building the protocol
// and bookkeeping the flags.
#include <benchmark/benchmark.h>
#include <libpq-fe.h>
#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "db_access/clsDbAccess.h"
#include "demo.h"
#include "frame/globals.h"
#include "pg_server.h"
#include "qk/host.h"
#include "registry/clsRegistry.h"
#include "session.h"
#include "qk/sync.h"
#include "translate/clsTranslate.h"

namespace {

// The large demo network in an installation folder of its own; `archive` is its setting Archive
// ("" for the SQLite file in the folder).
std::string fill_large(const std::string& name, const std::string& archive) {
  std::string f = (std::filesystem::temp_directory_path() / name).string();
  std::filesystem::remove_all(f);
  std::filesystem::create_directories(f);
  setenv("QK_HOME", f.c_str(), 1);
  qkp::write_default_files(f, true);
  if (!archive.empty()) {
    qk::host::create_settings_store(false);
    qk::host::save_setting("Appl", "Archive", archive);
  }
  auto tools =
      std::dynamic_pointer_cast<qk::ArchiveTools>(qk::automation::create_object(qk::kDbAccessId));
  tools->begin_new_archive(qk::kArchiveName, true);
  tools->begin_write();
  qkp::fill_large_archive(*tools);
  tools->commit();
  tools->publish_new_archive();
  return f;
}

void start_once() {
  static bool started = [] {
    qkp::start_session();
    qk::globals().objLogger.reset();
    qk::globals().booSilent = true;
    return true;
  }();
  (void)started;
}

// Each benchmark works in its archive's folder.
std::string large_archive() {
  start_once();
  static std::string folder = fill_large("qk-bench-large", "");
  setenv("QK_HOME", folder.c_str(), 1);
  return folder;
}

// The server's archive, or "" (and why) when no server could be started.
std::string large_server_archive(std::string* uri) {
  start_once();
  static std::string server = [] {
    auto& s = qk::testing::PgServer::get();
    return s.available() ? s.new_database() : std::string();
  }();
  static std::string folder = server.empty() ? "" : fill_large("qk-bench-large-pg", server);
  if (!folder.empty()) setenv("QK_HOME", folder.c_str(), 1);
  *uri = server;
  return folder;
}

const char* kTablesRead[] = {"SCALE_LINES",  "ALIQUOTE",      "BARCODE",         "TASTIERA_PLU",
                             "TRACEABILITY", "ADVERTISING",   "MESSAGES",        "ETEXT",
                             "TICKET",       "TICKET_DETAIL", "TICKET_PROPERTY", "IMMAGINI"};

// Argument 1: every flagged record of line 1 is marked pending again before each run, so every
// record is also reset (the first sync of a line); 0: the line is up to date, as when a scale
// is replaced and gets everything again.
void full_sync_of_line1(benchmark::State& state, const std::string& folder) {
  qk::sync::SyncOptions o;
  o.scope.line = 1;
  o.scope.full = true;
  o.say = [](const std::string& text) { std::fprintf(stderr, "%s\n", text.c_str()); };
  std::string out = folder + "/sent.bin";
  auto tools = qk::sync::open_archive_tools();
  qk::sync::MarkRequest all_pending;
  all_pending.lines = {1};
  for (auto _ : state) {
    state.PauseTiming();
    if (state.range(0)) qk::sync::mark(*tools, all_pending);
    std::filesystem::remove(out);
    state.ResumeTiming();
    auto transport = qk::sync::file_transport(out, qk::sync::Separator::CrLf, std::nullopt);
    qk::sync::run_sync(*tools, *transport, o);
  }
  state.counters["bytes_sent"] = static_cast<double>(std::filesystem::file_size(out));
}

void BM_FullSyncOfLine1(benchmark::State& state) {
  full_sync_of_line1(state, large_archive());
}
BENCHMARK(BM_FullSyncOfLine1)
    ->ArgName("all_pending")
    ->Arg(1)
    ->Arg(0)
    ->Unit(benchmark::kMillisecond);

// Runs a sync benchmark on the server's copy of the large network, or says why it cannot.
void on_server(benchmark::State& state, void (*run)(benchmark::State&, const std::string& folder)) {
  std::string uri, folder = large_server_archive(&uri);
  if (folder.empty()) {
    state.SkipWithError(("no PostgreSQL server: " + qk::testing::PgServer::get().why()).c_str());
    return;
  }
  run(state, folder);
}

void BM_FullSyncOfLine1_PostgreSQL(benchmark::State& state) {
  on_server(state, full_sync_of_line1);
}
BENCHMARK(BM_FullSyncOfLine1_PostgreSQL)
    ->ArgName("all_pending")
    ->Arg(1)
    ->Arg(0)
    ->Unit(benchmark::kMillisecond);

// The daily sync of line 1 (only what is pending) when the line is up to date: what every
// unattended pass over a line costs. A full sync before the timed runs delivers everything.
void up_to_date_sync_of_line1(benchmark::State& state, const std::string& folder) {
  qk::sync::SyncOptions o;
  o.scope.line = 1;
  o.say = [](const std::string& text) { std::fprintf(stderr, "%s\n", text.c_str()); };
  std::string out = folder + "/sent.bin";
  auto tools = qk::sync::open_archive_tools();
  {
    qk::sync::SyncOptions full = o;
    full.scope.full = true;
    auto transport = qk::sync::file_transport(out, qk::sync::Separator::CrLf, std::nullopt);
    qk::sync::run_sync(*tools, *transport, full);
  }
  std::filesystem::remove(out);
  for (auto _ : state) {
    auto transport = qk::sync::file_transport(out, qk::sync::Separator::CrLf, std::nullopt);
    qk::sync::run_sync(*tools, *transport, o);
  }
  state.counters["bytes_sent"] =
      std::filesystem::exists(out) ? static_cast<double>(std::filesystem::file_size(out)) : 0;
}

void BM_SyncOfLine1_UpToDate(benchmark::State& state) {
  up_to_date_sync_of_line1(state, large_archive());
}
BENCHMARK(BM_SyncOfLine1_UpToDate)->Unit(benchmark::kMillisecond);

void BM_SyncOfLine1_UpToDate_PostgreSQL(benchmark::State& state) {
  on_server(state, up_to_date_sync_of_line1);
}
BENCHMARK(BM_SyncOfLine1_UpToDate_PostgreSQL)->Unit(benchmark::kMillisecond);

// Every row of every table the sync of line 1 reads, each column stepped.
void BM_PlainReadOfTheSameRows(benchmark::State& state) {
  std::string folder = large_archive();
  sqlite3* db = nullptr;
  sqlite3_open_v2((folder + "/Archivi.sqlite").c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
  long long cells = 0;
  for (auto _ : state) {
    for (const char* t : kTablesRead) {
      sqlite3_stmt* s = nullptr;
      sqlite3_prepare_v2(db, (std::string("select * from ") + t).c_str(), -1, &s, nullptr);
      while (sqlite3_step(s) == SQLITE_ROW)
        for (int c = 0; c < sqlite3_column_count(s); ++c) {
          benchmark::DoNotOptimize(sqlite3_column_text(s, c));
          ++cells;
        }
      sqlite3_finalize(s);
    }
  }
  state.counters["cells"] =
      benchmark::Counter(static_cast<double>(cells), benchmark::Counter::kAvgIterations);
  sqlite3_close(db);
}
BENCHMARK(BM_PlainReadOfTheSameRows)->Unit(benchmark::kMillisecond);

// The same on the server: one query per table, every cell's text taken from the result.
void BM_PlainReadOfTheSameRows_PostgreSQL(benchmark::State& state) {
  std::string uri;
  if (large_server_archive(&uri).empty()) {
    state.SkipWithError("no PostgreSQL server");
    return;
  }
  PGconn* c = PQconnectdb(uri.c_str());
  long long cells = 0;
  for (auto _ : state) {
    for (const char* t : kTablesRead) {
      PGresult* r = PQexec(c, (std::string("select * from ") + t).c_str());
      for (int i = 0; i < PQntuples(r); ++i)
        for (int j = 0; j < PQnfields(r); ++j) {
          benchmark::DoNotOptimize(PQgetvalue(r, i, j));
          ++cells;
        }
      PQclear(r);
    }
  }
  state.counters["cells"] =
      benchmark::Counter(static_cast<double>(cells), benchmark::Counter::kAvgIterations);
  PQfinish(c);
}
BENCHMARK(BM_PlainReadOfTheSameRows_PostgreSQL)->Unit(benchmark::kMillisecond);

}  // namespace
