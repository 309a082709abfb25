// Replays the fuzzers' kept corpus through the same target functions the fuzzers call: inputs
// that once found new paths (and any that once crashed) stay checked on every build.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "fuzz/targets.h"
#include "test_support.h"

namespace qk::fuzz {
// Test names and messages show the target's name.
void PrintTo(const NamedTarget& t, std::ostream* os) {
  *os << t.name;
}
}  // namespace qk::fuzz

namespace {

std::vector<std::string> corpus(const std::string& name) {
  std::vector<std::string> files;
  std::filesystem::path dir = std::string(QK_SOURCE_DIR) + "/tests/fuzz/corpus/" + name;
  if (!std::filesystem::is_directory(dir)) return files;
  for (auto& e : std::filesystem::directory_iterator(dir)) {
    std::ifstream in(e.path(), std::ios::binary);
    files.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  return files;
}

class FuzzCorpus : public ::testing::TestWithParam<qk::fuzz::NamedTarget> {};

TEST_P(FuzzCorpus, EveryKeptInputRunsClean) {
  qk::testing::TempDir dir;
  qk::testing::ScopedEnv home("QK_HOME", dir.path());
  qk::testing::ScopedEnv cfg("XDG_CONFIG_HOME", dir.file("cfg"));
  auto files = corpus(GetParam().name);
  ASSERT_FALSE(files.empty()) << "no kept corpus for " << GetParam().name;
  for (const auto& bytes : files)
    EXPECT_EQ(GetParam().run(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()), 0);
  qk::testing::reset_globals();
}

INSTANTIATE_TEST_SUITE_P(Targets, FuzzCorpus, ::testing::ValuesIn(qk::fuzz::targets()),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
