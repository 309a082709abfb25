// qkp layout receive and request on the demo archive.
#include "tool_fixture.h"

namespace qk::testing {
namespace {

struct LayoutTool : Tool {};

TEST_F(LayoutTool, WhatAScaleSendsBackIsStoredAndSendsTheSame) {
  for (const char* family : {"3000", "5000"}) {
    for (const char* format : {"text", "hex"}) {
      SCOPED_TRACE(std::string(family) + " " + format);
      std::string sent, again;
      std::string f = std::string(" --family ") + family;
      ASSERT_EQ(qkp(std::string("--format ") + format + " layout --dept 1 --layout 1" + f, &sent),
                0);
      dir.write("sent.txt", sent);
      std::string summary;
      EXPECT_EQ(
          qkp(std::string("--format ") + format + " layout receive --dept 1 --layout 9 --from 1" +
                  f + " --file " + dir.file("sent.txt"),
              &summary),
          0)
          << err;
      EXPECT_EQ(summary, "stored: a ticket, 1 text, 1 barcode, 1 logo\n");
      ASSERT_EQ(qkp("layout --dept 1 --layout 9" + f, &again), 0);
      std::string original;
      qkp("layout --dept 1 --layout 1" + f, &original);
      // The same records but for the layout number.
      std::string expected = original;
      if (std::string(family) == "3000") {
        for (std::size_t at; (at = expected.find("96999900")) != std::string::npos;)
          expected.replace(at, 8, "96999908");
      } else {
        for (std::size_t at; (at = expected.find("ID=100")) != std::string::npos;)
          expected.replace(at, 6, "ID=900");
      }
      EXPECT_EQ(again, expected);
    }
  }
}

TEST_F(LayoutTool, DryRunsAndBadFilesStoreNothing) {
  std::string before = dir.read("demo/Archivi.sqlite");
  dir.write("ok.txt", "969999000064004803\n");
  std::string out;
  EXPECT_EQ(qkp("layout receive --dept 1 --layout 9 --from 1 --family 3000 --dry-run --file " +
                    dir.file("ok.txt"),
                &out),
            0)
      << err;
  EXPECT_EQ(out, "would store: a ticket, 0 texts, 0 barcodes, 0 logos\n");
  dir.write("bad.txt", "969999000064004803\n96999900070\n");
  EXPECT_EQ(qkp("layout receive --dept 1 --layout 9 --from 1 --family 3000 --file " +
                dir.file("bad.txt")),
            1);
  EXPECT_NE(err.find("record 2: 3 characters after the header"), std::string::npos) << err;
  EXPECT_NE(err.find("nothing was stored"), std::string::npos) << err;
  dir.write("bad.hex", "96Z9\n");
  EXPECT_EQ(qkp("--format hex layout receive --dept 1 --layout 9 --family 3000 --file " +
                dir.file("bad.hex")),
            1);
  EXPECT_NE(err.find("line 1: not in the hex format"), std::string::npos) << err;
  EXPECT_EQ(dir.read("demo/Archivi.sqlite"), before);
}

}  // namespace
}  // namespace qk::testing
