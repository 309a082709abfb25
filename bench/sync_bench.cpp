// A full sync of one line of the large demo network, against a plain SQLite read of the rows
// that sync reads. The ratio is the cost of building the protocol and bookkeeping the flags.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstdlib>
#include <filesystem>

#include "db_access/clsDbAccess.h"
#include "demo.h"
#include "frame/globals.h"
#include "qk/host.h"
#include "registry/clsRegistry.h"
#include "session.h"
#include "sync.h"
#include "translate/clsTranslate.h"

namespace {

std::string large_archive() {
  static std::string folder = [] {
    std::string f = (std::filesystem::temp_directory_path() / "qk-bench-large").string();
    std::filesystem::remove_all(f);
    std::filesystem::create_directories(f);
    setenv("QK_HOME", f.c_str(), 1);
    qkp::start_session();
    qk::globals().objLogger.reset();
    qk::globals().booSilent = true;
    qkp::write_default_files(f, true);
    auto tools =
        std::dynamic_pointer_cast<qk::ArchiveTools>(qk::automation::create_object(qk::kDbAccessId));
    tools->begin_new_archive(qk::kArchiveName, true);
    tools->begin_write();
    qkp::fill_large_archive(*tools);
    tools->commit();
    tools->publish_new_archive();
    return f;
  }();
  return folder;
}

// Argument 1: every flagged record of line 1 is marked pending again before each run, so every
// record is also reset (the first sync of a line); 0: the line is up to date, as when a scale
// is replaced and gets everything again.
void BM_FullSyncOfLine1(benchmark::State& state) {
  std::string folder = large_archive();
  qk::sync::SyncOptions o;
  o.scope.line = 1;
  o.scope.full = true;
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
BENCHMARK(BM_FullSyncOfLine1)
    ->ArgName("all_pending")
    ->Arg(1)
    ->Arg(0)
    ->Unit(benchmark::kMillisecond);

// Every row of every table the sync of line 1 reads, each column stepped.
void BM_PlainReadOfTheSameRows(benchmark::State& state) {
  std::string folder = large_archive();
  sqlite3* db = nullptr;
  sqlite3_open_v2((folder + "/Archivi.sqlite").c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
  const char* tables[] = {"SCALE_LINES",  "ALIQUOTE",      "BARCODE",         "TASTIERA_PLU",
                          "TRACEABILITY", "ADVERTISING",   "MESSAGES",        "ETEXT",
                          "TICKET",       "TICKET_DETAIL", "TICKET_PROPERTY", "IMMAGINI"};
  long long cells = 0;
  for (auto _ : state) {
    for (const char* t : tables) {
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

}  // namespace
