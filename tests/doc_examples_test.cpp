// Every example printed in docs/*.md is run here, so a page can never drift from the code.
//
// A ```console block holds commands ("$ qkp …", run on a fresh demo installation) each followed
// by the output it prints, literally. Two marks shorten long output: a line that is just "…"
// means more lines follow, and a line ending in "…" matches any output line that starts with
// the text before it. A ```fields block splits records of the preceding command into fields:
// each of its lines, with every " | " taken out, is one line that command printed.
#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "tool_fixture.h"

namespace qk::testing {
namespace {

constexpr std::string_view kEllipsis = "…";

struct Block {
  std::string page;
  int line;  // of the opening fence
  std::string kind;
  std::vector<std::string> body;
};

std::vector<Block> blocks_of(const std::string& path, const std::string& page) {
  std::vector<Block> blocks;
  std::ifstream in(path);
  std::string l;
  Block* open = nullptr;
  for (int n = 1; std::getline(in, l); ++n) {
    if (l.rfind("```", 0) == 0) {
      if (open) {
        open = nullptr;
      } else {
        blocks.push_back({page, n, l.substr(3), {}});
        open = &blocks.back();
      }
    } else if (open) {
      open->body.push_back(l);
    }
  }
  return blocks;
}

std::vector<Block> asserted_blocks() {
  std::vector<std::string> pages;
  std::string docs = std::string(QK_SOURCE_DIR) + "/docs";
  if (DIR* d = opendir(docs.c_str())) {
    while (dirent* e = readdir(d)) {
      std::string name = e->d_name;
      if (name.size() > 3 && name.substr(name.size() - 3) == ".md") pages.push_back(name);
    }
    closedir(d);
  }
  std::sort(pages.begin(), pages.end());
  std::vector<Block> all;
  for (const auto& p : pages)
    for (auto& b : blocks_of(docs + "/" + p, p))
      if (b.kind == "console" || b.kind == "fields") all.push_back(std::move(b));
  return all;
}

bool ends_with(const std::string& s, std::string_view tail) {
  return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

// "" when the output matches what the page prints, else what differs.
std::string compare(const std::vector<std::string>& printed, const std::vector<std::string>& got) {
  for (std::size_t i = 0; i < printed.size(); ++i) {
    const std::string& want = printed[i];
    if (want == kEllipsis) return "";
    if (i >= got.size()) return "output ends before \"" + want + "\"";
    if (ends_with(want, kEllipsis)) {
      std::string head = want.substr(0, want.size() - kEllipsis.size());
      if (got[i].rfind(head, 0) != 0)
        return "line " + std::to_string(i + 1) + " is \"" + got[i] + "\", not \"" + want + "\"";
    } else if (got[i] != want) {
      return "line " + std::to_string(i + 1) + " is \"" + got[i] + "\", not \"" + want + "\"";
    }
  }
  if (got.size() > printed.size())
    return "more output than printed: \"" + got[printed.size()] + "\"";
  return "";
}

std::string without_separators(std::string s) {
  for (std::size_t p; (p = s.find(" | ")) != std::string::npos;) s.erase(p, 3);
  return s;
}

struct DocExamples : Tool {};

TEST_F(DocExamples, EveryConsoleBlockPrintsWhatThePageShows) {
  auto blocks = asserted_blocks();
  ASSERT_FALSE(blocks.empty()) << "no ```console block under docs/";
  int commands = 0;
  // Pages name the demo's files relative to its folder, as a user standing in it would.
  char* previous = getcwd(nullptr, 0);
  ASSERT_EQ(chdir(home.c_str()), 0);
  std::vector<std::string> last_output;
  for (const auto& b : blocks) {
    SCOPED_TRACE(b.page + ":" + std::to_string(b.line));
    if (b.kind == "fields") {
      ASSERT_FALSE(last_output.empty()) << "a fields block with no command before it";
      for (const auto& l : b.body) {
        std::string record = without_separators(l);
        EXPECT_NE(std::find(last_output.begin(), last_output.end(), record), last_output.end())
            << "\"" << l << "\" is not a record the command above printed";
      }
      continue;
    }
    for (std::size_t i = 0; i < b.body.size();) {
      const std::string& l = b.body[i];
      ASSERT_EQ(l.rfind("$ qkp ", 0), 0u) << "expected a \"$ qkp …\" line, got \"" << l << "\"";
      std::vector<std::string> printed;
      for (++i; i < b.body.size() && b.body[i].rfind("$ ", 0) != 0; ++i)
        printed.push_back(b.body[i]);
      std::string out;
      int status = qkp(l.substr(6), &out);
      EXPECT_EQ(status, 0) << l << ": " << err;
      last_output = lines_of(out);
      EXPECT_EQ(compare(printed, last_output), "") << l;
      ++commands;
    }
  }
  EXPECT_EQ(chdir(previous), 0);
  free(previous);
  EXPECT_GT(commands, 10);
}

// The marks themselves, so a doc example can't pass by accident.
TEST(DocExampleMarks, CompareAsThePagesUseThem) {
  struct Case {
    std::vector<std::string> printed, got;
    bool match;
  } cases[] = {
      {{"a", "b"}, {"a", "b"}, true}, {{"a"}, {"a", "b"}, false},
      {{"a", "b"}, {"a"}, false},     {{"a", "…"}, {"a", "b", "c"}, true},
      {{"ab…"}, {"abc"}, true},       {{"ab…"}, {"xbc"}, false},
      {{"a "}, {"a"}, false},  // trailing blanks count
  };
  for (const auto& c : cases) EXPECT_EQ(compare(c.printed, c.got).empty(), c.match);
  EXPECT_EQ(without_separators("h0 | 01 | ALIQUOTA 1       | 1"), "h001ALIQUOTA 1      1");
}

}  // namespace
}  // namespace qk::testing
