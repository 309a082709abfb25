// One vocabulary across qkp's commands: the same words for the same things, in any case.
#include "tool_fixture.h"

namespace qk::testing {
namespace {

struct Vocabulary : Tool {};

TEST_F(Vocabulary, DeptAndCounterAreTheSameOption) {
  const char* pairs[][2] = {
      {"ads --dept 1 --id 2", "ads --counter 1 --id 2"},
      {"etexts --dept 1", "etexts --counter 1"},
      {"totals --dept 1", "totals --counter 1"},
      {"layout --dept 1 --layout 1", "layout --counter 1 --layout 1"},
      {"flags ads --dept 1 --id 2", "flags ads --counter 1 --id 2"},
  };
  for (const auto& p : pairs) {
    std::string a, b;
    EXPECT_EQ(qkp(p[0], &a), 0) << p[0] << ": " << err;
    EXPECT_EQ(qkp(p[1], &b), 0) << p[1] << ": " << err;
    EXPECT_FALSE(a.empty()) << p[0];
    EXPECT_EQ(a, b) << p[0];
  }
}

TEST_F(Vocabulary, FamiliesAreTakenInAnyCaseAndShownOneWay) {
  std::string upper, lower, mixed;
  EXPECT_EQ(qkp("lot --dept 2 --lot 12 --family VELTA", &upper), 0) << err;
  EXPECT_EQ(qkp("lot --dept 2 --lot 12 --family velta", &lower), 0) << err;
  EXPECT_EQ(qkp("lot --dept 2 --lot 12 --family 3000Top", &mixed), 0) << err;
  EXPECT_EQ(upper, lower);
  EXPECT_NE(mixed.find("20999900120L12-2026"), std::string::npos);

  std::string lines;
  EXPECT_EQ(qkp("lines set --dept 4 --line 1 --family kestra --scale 9"), 0) << err;
  EXPECT_EQ(qkp("lines", &lines), 0) << err;
  EXPECT_NE(lines.find("4      1     KESTRA   9"), std::string::npos) << lines;
}

TEST_F(Vocabulary, UsageErrorsSayWhatWasMeant) {
  struct Case {
    const char* args;
    int status;
    const char* says;  // on stderr
  } cases[] = {
      {"frobnicate", 2, "unknown command \"frobnicate\"; the commands are: date, settings"},
      {"--home x frobnicate --dept 1", 2, "unknown command \"frobnicate\""},
      {"lot --dept 1 --lot 12 --family 6000", 2, "--family"},
      {"lot --dept 1 --lot 999 --family 3000", 1, "qkp: lot 999 of department 1 (3000): "},
      {"layout --dept 1 --layout 77", 1, "qkp: layout 77 of department 1: does not exist"},
      {"layout --dept 1 --layout 2 --check", 1, ""},  // it lists problems
  };
  for (const auto& c : cases) {
    EXPECT_EQ(qkp(c.args), c.status) << c.args << ": " << err;
    EXPECT_NE(err.find(c.says), std::string::npos) << c.args << ": " << err;
  }
  std::string version;
  EXPECT_EQ(qkp("--version", &version), 0);
  EXPECT_EQ(version.rfind("qkp ", 0), 0u) << version;
}

}  // namespace
}  // namespace qk::testing
