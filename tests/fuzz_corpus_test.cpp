// Replays the fuzzers' kept corpus through the reader, the decoders, the dialect translator and
// the registry export reader: inputs that once found new paths stay checked on every build.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "db_access/access_sql.h"
#include "images/bitmap_reader.h"
#include "qk/error.h"
#include "qk/pictures.h"
#include "registry/clsRegistry.h"
#include "test_support.h"

using namespace qk;

namespace {
std::vector<std::string> corpus(const std::string& name) {
  std::vector<std::string> files;
  for (auto& e : std::filesystem::directory_iterator(std::string(QK_SOURCE_DIR) +
                                                     "/tests/fuzz/corpus/" + name)) {
    std::ifstream in(e.path(), std::ios::binary);
    files.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  return files;
}
}  // namespace

TEST(FuzzCorpus, BitmapReaderAndDecoders) {
  qk::testing::reset_globals();
  qk::testing::FakeHost host;
  auto files = corpus("bitmap");
  ASSERT_FALSE(files.empty());
  for (const auto& bytes : files) {
    images::ByteStream s(bytes);
    images::HeaderScan h;
    if (images::m_booScanBitmapHeader(s, static_cast<int32_t>(bytes.size()), h, true, "clsImage") &&
        h.width > 0)
      images::m_strBitmap2Scales(s.rest(), h.width, h.inverted);
    std::vector<std::string> records{bytes};
    for (int kind = 0; kind < 3; ++kind) {
      try {
        if (kind == 0)
          images::decode_scale_records(records);
        else if (kind == 1)
          images::decode_kestra_records(records);
        else
          images::decode_printer_frames(records, 64);
      } catch (const automation::Error& e) {
        EXPECT_FALSE(e.description().empty());
      }
    }
  }
}

TEST(FuzzCorpus, DialectAndRegistryExports) {
  auto files = corpus("sql");
  ASSERT_FALSE(files.empty());
  for (const auto& text : files) {
    companions::translate_access_sql(text);
    try {
      companions::RegExport().parse("REGEDIT4\n" + text, "corpus.reg");
    } catch (const std::exception&) {
    }
  }
}
