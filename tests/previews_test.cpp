// Pictures for people: layout drawings checked by their geometry, image PNGs pixel by pixel.
#include "qk/previews.h"

#include <png.h>

#include <fstream>
#include <pugixml.hpp>

#include "archive_fixture.h"
#include "tool_fixture.h"

namespace qk::testing {
namespace {

// A 1-bit BMP of `width` x `height` whose dark pixels are where `dark` says; `standard`: palette
// entry 0 black (the usual order), else entry 0 white.
std::string bitmap(int width, int height, bool standard,
                   const std::function<bool(int, int)>& dark) {
  auto put32 = [](std::string& s, uint32_t v) {
    for (int i = 0; i < 4; ++i) s += static_cast<char>((v >> (8 * i)) & 0xFF);
  };
  auto put16 = [](std::string& s, uint16_t v) {
    s += static_cast<char>(v & 0xFF);
    s += static_cast<char>(v >> 8);
  };
  uint32_t stride = ((width + 7) / 8 + 3) / 4 * 4, data = stride * height;
  std::string s = "BM";
  put32(s, 62 + data), put32(s, 0), put32(s, 62), put32(s, 40), put32(s, width), put32(s, height);
  put16(s, 1), put16(s, 1), put32(s, 0), put32(s, data), put32(s, 2835), put32(s, 2835);
  put32(s, 2), put32(s, 0);
  put32(s, standard ? 0x000000 : 0xFFFFFF);
  put32(s, standard ? 0xFFFFFF : 0x000000);
  for (int y = height - 1; y >= 0; --y) {
    std::string row(stride, '\0');
    for (int x = 0; x < width; ++x)
      if (dark(x, y) != standard)  // the bit that selects the dark entry
        row[x / 8] |= static_cast<char>(0x80 >> (x % 8));
    s += row;
  }
  return s;
}

struct Grey {
  int width = 0, height = 0;
  std::vector<uint8_t> pixels;
  uint8_t at(int x, int y) const { return pixels[static_cast<std::size_t>(y) * width + x]; }
};

Grey read_png(const std::string& path) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  Grey g;
  if (!png_image_begin_read_from_file(&image, path.c_str())) return g;
  image.format = PNG_FORMAT_GRAY;
  g.width = static_cast<int>(image.width);
  g.height = static_cast<int>(image.height);
  g.pixels.resize(PNG_IMAGE_SIZE(image));
  if (!png_image_finish_read(&image, nullptr, g.pixels.data(), 0, nullptr)) g = {};
  return g;
}

struct ImagePreview : Tool {};

TEST_F(ImagePreview, ThePngShowsTheBitmapsOwnPixels) {
  auto dark = [](int x, int y) { return (x * 7 + y * 3) % 5 == 0; };
  for (bool standard : {true, false}) {
    for (int width : {1, 8, 10, 384, 400}) {
      for (const char* kind : {"scale", "kestra"}) {
        SCOPED_TRACE(std::string(kind) + " width " + std::to_string(width) +
                     (standard ? " standard palette" : " reversed palette"));
        dir.write("in.bmp", bitmap(width, 6, standard, dark));
        ASSERT_EQ(qkp(std::string("image preview --file ") + dir.file("in.bmp") + " --kind " +
                      kind + " --png " + dir.file("out.png")),
                  0)
            << err;
        Grey g = read_png(dir.file("out.png"));
        ASSERT_EQ(g.height, 6);
        bool kestra = std::string(kind) == "kestra";
        int shown = kestra ? 384 : width;
        ASSERT_GE(g.width, std::min(width, shown));
        for (int y = 0; y < 6; ++y)
          for (int x = 0; x < width; ++x) {
            if (x < shown) {
              ASSERT_EQ(g.at(x, y), dark(x, y) ? 0 : 255) << x << "," << y;
            } else {  // what a Kestra loses, in a lighter shade
              ASSERT_EQ(g.at(x, y), dark(x, y) ? 150 : 225) << x << "," << y;
            }
          }
      }
    }
  }
}

TEST_F(ImagePreview, DecodedRecordsAsPng) {
  dir.write("in.bmp", bitmap(16, 4, true, [](int x, int y) { return x == y; }));
  std::string hex;
  ASSERT_EQ(qkp("--format hex image --key 3 --file " + dir.file("in.bmp"), &hex), 0);
  dir.write("records.hex", hex);
  ASSERT_EQ(qkp("image --decode " + dir.file("records.hex") + " --png " + dir.file("d.png")), 0)
      << err;
  Grey g = read_png(dir.file("d.png"));
  ASSERT_EQ(g.width, 16);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 16; ++x) EXPECT_EQ(g.at(x, y), x == y ? 0 : 255);
}

TEST_F(ImagePreview, EveryDemoLayoutIsDrawn) {
  int drawn = 0;
  for (int dept = 1; dept <= 3; ++dept)
    for (int layout = 1; layout <= 4; ++layout) {
      std::string out = dir.file("l.svg");
      std::remove(out.c_str());
      int status = qkp("layout preview --dept " + std::to_string(dept) + " --layout " +
                       std::to_string(layout) + " --out " + out);
      ASSERT_NE(status, 2) << err;
      if (err.find("does not exist") != std::string::npos) continue;
      pugi::xml_document doc;
      ASSERT_TRUE(doc.load_file(out.c_str())) << err;
      ++drawn;
      ASSERT_EQ(qkp("layout preview --dept " + std::to_string(dept) + " --layout " +
                    std::to_string(layout) + " --family 5000 --out " + dir.file("l.png")) == 2,
                false);
      EXPECT_GT(read_png(dir.file("l.png")).width, 0);
    }
  EXPECT_GE(drawn, 2);
}

struct LayoutDrawing : ArchiveFixture {
  FakeHost host;
  int next_object = 1;
  void object(int type, std::vector<std::pair<int, std::string>> props) {
    int obj = next_object++;
    exec("insert into TICKET_DETAIL values (1, 1, ?1, ?2)", {obj, type});
    for (auto& [id, v] : props)
      exec("insert into TICKET_PROPERTY values (1, 1, ?1, ?2, ?3)", {obj, id, v});
  }
  // The drawn objects by field number: x, y, width, height (mm) and classes.
  std::map<std::string, pugi::xml_node> objects(const LayoutPreview& p, pugi::xml_document& doc) {
    std::map<std::string, pugi::xml_node> out;
    EXPECT_TRUE(doc.load_string(p.svg.c_str()));
    for (auto g : doc.select_nodes("//g[starts-with(@class, 'object')]"))
      out[g.node().attribute("data-field").value()] = g.node();
    return out;
  }
};

TEST_F(LayoutDrawing, ObjectsSitWhereTheRecordsPutThem) {
  exec("insert into TICKET (TK_BNC, TK_ID, TK_DESCRIPTION) values (1, 1, 'drawn')");
  // A ticket 80 x 60 mm whose origin is 2,5 mm right and 1 mm down (decimal commas).
  object(4, {{1, "60"}, {2, "3"}, {5, "80"}, {6, "2,5"}, {7, "1"}});
  object(3, props("0=7 1=0 2=10 3=0 4=1 5=0 7=12,5 9=1 10=1 11=10 13=0 14=0"));
  object(2, props("0=60 1=0 2=5 3=13 4=0 6=5 8=0 9=30 11=0 12=0 15=2"));
  object(1, {{0, "9"}, {2, "0"}, {4, "90"}, {5, "1"}, {7, "0"}, {8, "5"}, {10, "0"}, {11, "0"}});
  LayoutPreview p = preview_layout(1, 1, "3000", dir.file("images"));
  ASSERT_TRUE(p.exists);
  pugi::xml_document doc;
  auto o = objects(p, doc);
  ASSERT_EQ(o.size(), 3u);
  // X 12,5 mm + origin 2,5 mm; Y 10 mm + origin 1 mm; direction 1 is a quarter turn.
  EXPECT_STREQ(o["7"].attribute("data-x-mm").value(), "15");
  EXPECT_STREQ(o["7"].attribute("data-y-mm").value(), "11");
  EXPECT_STREQ(o["7"].attribute("transform").value(), "translate(15 11) rotate(90)");
  EXPECT_STREQ(o["7"].attribute("data-width-mm").value(), "15");  // 10 characters x 1.5 mm
  // Field 60: sent to the 5000 series only.
  EXPECT_STREQ(o["60"].attribute("class").value(), "object barcode not-sent");
  EXPECT_STREQ(o["60"].attribute("data-x-mm").value(), "7.5");
  // The logo: 90 mm + 2,5 is past the ticket's 80 mm, and its picture file is missing.
  EXPECT_STREQ(o["9"].attribute("class").value(), "object logo outside");
  ASSERT_EQ(p.problems.size(), 2u);
  EXPECT_NE(p.problems[0].find("no picture file"), std::string::npos) << p.problems[0];
  EXPECT_EQ(p.problems[1], "logo 9 reaches outside the ticket (at 92.5, 6 mm)");
  auto ticket = doc.select_node("//rect[@class='ticket']").node();
  EXPECT_STREQ(ticket.attribute("width").value(), "80");
  EXPECT_STREQ(ticket.attribute("height").value(), "60");
}

}  // namespace
}  // namespace qk::testing

namespace qk::testing {
namespace {

// The pictures in docs/previews.md are what the tool draws today.
TEST(Previews, DocPicturesAreCurrent) {
  TempDir dir;
  std::string src = std::string(QK_SOURCE_DIR) + "/docs/previews";
  std::string build = std::string(QKP_BINARY).substr(0, std::string(QKP_BINARY).rfind('/'));
  ASSERT_EQ(std::system(("sh " + src + "/make.sh " + build + " " + dir.path()).c_str()), 0);
  for (const char* svg : {"layout-1-1.svg", "layout-1-2-5000.svg", "lines.svg"}) {
    std::ifstream committed(src + "/" + svg);
    std::string want((std::istreambuf_iterator<char>(committed)), std::istreambuf_iterator<char>());
    EXPECT_EQ(dir.read(svg), want) << svg << " is stale: run docs/previews/make.sh";
  }
}

}  // namespace
}  // namespace qk::testing
