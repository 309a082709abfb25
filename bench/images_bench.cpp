// Encoder speed: the three image encoders on a 232 x 245 logo and a 2000 x 2000 printer image,
// and the repacker and compressor alone on the same pixels (bytes per second).
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>

#include "db_access/clsDbAccess.h"
#include "db_access/sqlite_archive.h"
#include "frame/globals.h"
#include "images/bitmap_reader.h"
#include "images/run_length.h"
#include "qk/clsImage.h"
#include "qk/clsImageKestra.h"
#include "qk/clsPrinterImage.h"
#include "qk/pictures.h"
#include "translate/clsTranslate.h"

namespace {

struct Setup {
  std::string folder, logo, big;
  Setup() {
    folder = (std::filesystem::temp_directory_path() / "qk-bench").string();
    std::filesystem::create_directories(folder);
    setenv("QK_HOME", folder.c_str(), 1);
    qk::companions::register_db_access();
    qk::companions::register_translate();
    std::filesystem::remove(folder + "/Archivi.sqlite");
    qk::companions::SqliteArchive::create(folder + "/Archivi.sqlite");
    qk::globals().booSilent = true;
    logo = write("logo.bmp", 232, 245);
    big = write("big.bmp", 2000, 2000);
  }
  std::string write(const std::string& name, int w, int h) {
    std::mt19937 rng(1);
    qk::images::Picture p{w, h, {}};
    for (int y = 0; y < h; ++y) {
      std::vector<bool> row(static_cast<std::size_t>(w));
      // A logo: blank margins, solid bars and some texture, as real logos compress.
      for (int x = 0; x < w; ++x)
        row[static_cast<std::size_t>(x)] =
            (y / 20) % 3 == 0 ? x > w / 4 && x < 3 * w / 4 : (y / 20) % 3 == 1 && rng() % 4 == 0;
      p.rows.push_back(row);
    }
    std::string path = folder + "/" + name;
    std::ofstream(path, std::ios::binary) << qk::images::encode_bmp1(p);
    return path;
  }
};

Setup& setup() {
  static Setup s;
  return s;
}

void BM_ScaleImage_232x245(benchmark::State& state) {
  qk::clsImage img;
  img.p_varKey(qk::automation::Variant(1));
  img.p_strFullPath(setup().logo);
  for (auto _ : state) benchmark::DoNotOptimize(img.p_strProtocol());
  state.SetBytesProcessed(state.iterations() *
                          static_cast<int64_t>(std::filesystem::file_size(setup().logo)));
}
BENCHMARK(BM_ScaleImage_232x245);

void BM_KestraImage_232x245(benchmark::State& state) {
  qk::clsImageKestra img;
  img.p_varKey(qk::automation::Variant(1));
  img.p_strFullPath(setup().logo);
  for (auto _ : state) benchmark::DoNotOptimize(img.p_strProtocol());
  state.SetBytesProcessed(state.iterations() *
                          static_cast<int64_t>(std::filesystem::file_size(setup().logo)));
}
BENCHMARK(BM_KestraImage_232x245);

void BM_PrinterImage_2000x2000(benchmark::State& state) {
  qk::clsPrinterImage img;
  img.p_strFullPath(setup().big);
  for (auto _ : state) benchmark::DoNotOptimize(img.p_strProtocol());
  state.SetBytesProcessed(state.iterations() *
                          static_cast<int64_t>(std::filesystem::file_size(setup().big)));
}
BENCHMARK(BM_PrinterImage_2000x2000)->Unit(benchmark::kMillisecond);

void BM_RepackAndCompress_2000x2000(benchmark::State& state) {
  std::ifstream in(setup().big, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::string pixels = bytes.substr(62);
  int32_t previous = -1;
  int16_t run = 0;
  std::string out;
  for (auto _ : state) {
    std::string b = qk::images::m_strBitmap2Scales(pixels, 2000, true);
    for (std::size_t i = 0; i < b.size(); ++i)
      qk::images::compress_byte({previous, run, out}, static_cast<unsigned char>(b[i]), i == 0,
                                i + 1 == b.size());
    benchmark::DoNotOptimize(out);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(pixels.size()));
}
BENCHMARK(BM_RepackAndCompress_2000x2000)->Unit(benchmark::kMillisecond);

// The floor the encoders are measured against: copying the same bytes once.
void BM_MemcpyOfTheLogoFile(benchmark::State& state) {
  std::ifstream in(setup().logo, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::string copy(bytes.size(), '\0');
  for (auto _ : state) {
    std::memcpy(copy.data(), bytes.data(), bytes.size());
    benchmark::DoNotOptimize(copy.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes.size()));
}
BENCHMARK(BM_MemcpyOfTheLogoFile);

void BM_MemcpyOfThePrinterFile(benchmark::State& state) {
  std::ifstream in(setup().big, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::string copy(bytes.size(), '\0');
  for (auto _ : state) {
    std::memcpy(copy.data(), bytes.data(), bytes.size());
    benchmark::DoNotOptimize(copy.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes.size()));
}
BENCHMARK(BM_MemcpyOfThePrinterFile);

}  // namespace

BENCHMARK_MAIN();  // one main for every benchmark file
