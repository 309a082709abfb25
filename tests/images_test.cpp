// Bitmap reader, scale-image compression and records, Kestra rows, printer frames, requests.
#include <random>

#include "archive_fixture.h"
#include "config/clsRegistry2Xml.h"
#include "images/bitmap_reader.h"
#include "images/kestra_printer_format.h"
#include "images/run_length.h"
#include "qk/clsImage.h"
#include "qk/clsImageKestra.h"
#include "qk/clsKplMakeRequest.h"
#include "qk/clsPrinterImage.h"
#include "qk/pictures.h"

using namespace qk;
using namespace qk::testing;
using images::Picture;

namespace {

Picture solid(int w, int h, bool black) {
  return {w, h,
          std::vector<std::vector<bool>>(static_cast<std::size_t>(h),
                                         std::vector<bool>(static_cast<std::size_t>(w), black))};
}

Picture random_picture(int w, int h, std::mt19937& rng) {
  Picture p{w, h, {}};
  std::bernoulli_distribution dot(0.3);
  std::uniform_int_distribution<int> runs(0, 3);
  for (int y = 0; y < h; ++y) {
    std::vector<bool> row(static_cast<std::size_t>(w));
    int mode = runs(rng);  // some rows blank, some full, some noisy: runs and literals
    for (int x = 0; x < w; ++x)
      row[static_cast<std::size_t>(x)] = mode == 0 ? false : mode == 1 ? true : dot(rng);
    p.rows.push_back(row);
  }
  return p;
}

// The picture a scale sees: R x 8 pixels wide, pad bits cleared (the files have white set bits,
// so the rows are inverted and the pad bits cleared).
Picture padded(const Picture& p) {
  Picture q = p;
  q.width = (p.width + 7) / 8 * 8;
  for (auto& r : q.rows) r.resize(static_cast<std::size_t>(q.width), false);
  return q;
}

struct Images : ArchiveFixture {
  std::string bmp(const std::string& name, const Picture& p) {
    dir.write(name, images::encode_bmp1(p));
    return dir.file(name);
  }
  FakeHost host;
};

}  // namespace

TEST(BitmapReader, Binary2Long) {
  reset_globals();
  EXPECT_EQ(images::m_lngBinary2Long(std::string("\x36\0\0\0", 4), "clsImage"), 54);
  EXPECT_EQ(images::m_lngBinary2Long(std::string("\0\x01", 2), "clsImage"), 256);
  EXPECT_EQ(images::m_lngBinary2Long("\xFF\xFF\xFF\x7F", "clsImage"), 2147483647);
  auto spy = reset_globals();
  EXPECT_EQ(images::m_lngBinary2Long(std::string("\0\0\0\x80", 4), "clsImage"), 0);  // overflow
  ASSERT_EQ(spy->calls.size(), 1u);
  EXPECT_EQ(spy->calls[0].procedure, "m_lngBinary2Long");
  EXPECT_EQ(spy->calls[0].number, 6);
}

TEST(BitmapReader, RefusalsShowTheirNotice) {
  auto spy = reset_globals();
  FakeHost host;
  std::string good = images::encode_bmp1(solid(8, 8, false));
  auto with = [&](std::size_t at, std::string bytes) {
    std::string s = good;
    s.replace(at, bytes.size(), bytes);
    return s;
  };
  std::string four_bit = with(28, std::string("\x04\x00", 2));
  struct Row {
    std::string file;
    int32_t expected_size;
    bool limit;
    const char* notice;  // nullptr: accepted
  } rows[] = {
      {good, static_cast<int32_t>(good.size()), true, nullptr},
      {with(0, "BA"), static_cast<int32_t>(good.size()), true, images::kNotBitmap},
      {good + "x", static_cast<int32_t>(good.size()) + 1, true, images::kWrongSize},
      {four_bit, static_cast<int32_t>(good.size()), true, images::kNotMonochrome},
      {images::encode_bmp1(solid(232, 245, false)), -1, true, nullptr},
      {images::encode_bmp1(solid(233, 245, false)), -1, true, images::kTooLarge},
      {images::encode_bmp1(solid(233, 245, false)), -1, false, nullptr},  // printer: no limit
      {with(10, std::string("\x80\0\0\0", 4)), static_cast<int32_t>(good.size()), true, nullptr},
  };
  for (const auto& r : rows) {
    host.boxes.clear();
    images::ByteStream s(r.file);
    images::HeaderScan h;
    int32_t expected = r.expected_size < 0 ? static_cast<int32_t>(r.file.size()) : r.expected_size;
    if (r.file.size() != good.size() + 1 &&
        r.expected_size == static_cast<int32_t>(good.size()) + 1)
      expected = r.expected_size;
    bool ok = images::m_booScanBitmapHeader(s, expected, h, r.limit, "clsImage");
    EXPECT_EQ(ok, r.notice == nullptr);
    if (r.notice) {
      ASSERT_EQ(host.boxes.size(), 1u);
      EXPECT_EQ(host.boxes[0].text, r.notice);
      EXPECT_EQ(host.boxes[0].style, 48);
      EXPECT_EQ(host.boxes[0].title, "");
    } else {
      EXPECT_TRUE(host.boxes.empty());
    }
  }
  // A file whose stored size is one byte short of the real one.
  images::ByteStream s(good + "x");
  images::HeaderScan h;
  host.boxes.clear();
  EXPECT_FALSE(
      images::m_booScanBitmapHeader(s, static_cast<int32_t>(good.size()) + 1, h, true, "clsImage"));
  EXPECT_EQ(host.boxes.at(0).text, "Attenzione!\r\nLa dimensione \xE8 sbagliata");
  EXPECT_EQ(h.file_size, static_cast<int32_t>(good.size()));  // kept on refusal
  // A truncated file goes to the trap: reported, false.
  images::ByteStream t(good.substr(0, 40));
  EXPECT_FALSE(
      images::m_booScanBitmapHeader(t, static_cast<int32_t>(good.size()), h, true, "clsImage"));
  EXPECT_EQ(spy->calls.back().number, 62);
}

TEST(BitmapReader, PadMasks) {
  // Width 10: R = 2, stored rows of 4 bytes, 6 pad bits (mask 0x3F).
  std::string row = std::string("\x0F\xF0\xAA\xBB", 4);
  EXPECT_EQ(images::m_strBitmap2Scales(row, 10, true), std::string("\xF0\x00", 2));   // cleared
  EXPECT_EQ(images::m_strBitmap2Scales(row, 10, false), std::string("\x0F\xFF", 2));  // set
  EXPECT_EQ(images::m_strBitmap2Scales(row, 8, false), std::string("\x0F", 1));       // no pad bits
  // Bottom row first in the file, top row first out; a partial leading row is ignored.
  EXPECT_EQ(images::m_strBitmap2Scales(std::string("z\x01\0\0\0\x02\0\0\0", 9), 8, false),
            "\x02\x01");
}

TEST_F(Images, CompressionEngine) {
  int32_t previous = 0;
  int16_t run = 0;
  std::string out;
  auto feed = [&](unsigned char v, bool first, bool last) {
    images::compress_byte({previous, run, out}, v, first, last);
  };
  struct Row {
    std::vector<int> in;
    std::vector<int> out;
  } rows[] = {
      {{0x12, 0x00, 0x00, 0x34}, {0x12, 0x00, 0x02, 0x34}},
      {{0x00}, {0x00, 0x01}},
      {{0xFF, 0xFF, 0x00}, {0xFF, 0x02, 0x00, 0x01}},
      {{0x41, 0x42}, {0x41, 0x42}},
  };
  for (const auto& r : rows) {
    for (std::size_t i = 0; i < r.in.size(); ++i)
      feed(static_cast<unsigned char>(r.in[i]), i == 0, i + 1 == r.in.size());
    std::string expected;
    for (int b : r.out) expected += static_cast<char>(b);
    EXPECT_EQ(out, expected);
  }
  // 254 group bytes then one more: (v, 254) and (v, 1).
  for (int i = 0; i < 255; ++i) feed(0xFF, i == 0, i == 254);
  EXPECT_EQ(out, "\xFF\xFE\xFF\x01");
}

TEST_F(Images, EscapingAndChunks) {
  clsImage img;
  std::string data = std::string("\x83\x03\x41", 3) + std::string(26, 'a') + "\xFF\x05";
  auto chunks = img.p_strTransmissionString(data);
  ASSERT_EQ(chunks.lower_bound(), 1);
  ASSERT_EQ(chunks.upper_bound(), 2);
  // The 30th byte is 0xFF: the chunk ends at 29 and 0xFF starts the next one.
  EXPECT_EQ(chunks[1],
            std::string("\x04\x83\x83\xC1", 4) + std::string(26, static_cast<char>('a' ^ 0x80)));
  EXPECT_EQ(chunks[2], "\x7F\x85");
  EXPECT_FALSE(img.p_strTransmissionString("").allocated());
}

TEST_F(Images, ScaleRecords) {
  clsImage img;
  img.p_varKey(automation::Variant("0"));
  img.p_strFullPath(bmp("x.bmp", solid(8, 8, true)));
  EXPECT_EQ(img.p_strProtocol(), automation::StringArray({"40999900000                01010101"}));

  // All white with inversion: every byte 0x00 -> pairs (0x00, 254) and a last shorter pair.
  img.p_varKey(automation::Variant(7));
  img.p_strDescription("Logo");
  img.p_strFromDate("010126");
  img.p_strToDate("311226");
  img.p_strFullPath(bmp("white.bmp", solid(80, 60, false)));
  auto records = img.p_strProtocol();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0], "40999900700Logo            010126311226");
  std::string stream = "\x02\x58\x0A" + std::string("\x00\xFE\x00\xFE\x00\x5C", 6);
  std::string escaped;
  for (unsigned char b : stream) escaped += static_cast<char>(b ^ 0x80);
  EXPECT_EQ(records[1], "40999900701" + escaped);

  // Refused or missing files give the placeholder record, no error.
  img.p_strFullPath(bmp("big.bmp", solid(233, 245, false)));
  EXPECT_EQ(img.p_strProtocol(), automation::StringArray({"40999900700Immagine #7     01010101"}));
  img.p_strFullPath("");
  EXPECT_EQ(img.p_strProtocol().size(), 1u);
  // A description over 16 characters is an error: nothing is built.
  img.p_strFullPath(bmp("white.bmp", solid(80, 60, false)));
  img.p_strDescription("Descrizione lunga oltre");
  EXPECT_FALSE(img.p_strProtocol().allocated());
  EXPECT_EQ(reported().back(), 5);
}

TEST_F(Images, RecordNumbersStopAt99) {
  std::mt19937 rng(7);
  Picture p{232, 245, {}};
  std::bernoulli_distribution dot(0.5);
  for (int y = 0; y < 245; ++y) {
    std::vector<bool> row(232);
    for (int x = 0; x < 232; ++x) row[static_cast<std::size_t>(x)] = dot(rng);
    p.rows.push_back(row);
  }
  clsImage img;
  img.p_varKey(automation::Variant(3));
  img.p_strFullPath(bmp("noise.bmp", p));
  auto records = img.p_strProtocol();
  ASSERT_GT(records.size(), 120u);
  EXPECT_EQ(records[99].substr(9, 2), "99");
  EXPECT_EQ(records[100].substr(9, 2), "99");
  EXPECT_EQ(records[records.upper_bound()].substr(9, 2), "99");
  EXPECT_EQ(records[1].substr(9, 2), "01");
  EXPECT_EQ(images::decode_scale_records(records.items()).rows, padded(p).rows);
}

TEST_F(Images, RoundTripsOfRandomBitmaps) {
  std::mt19937 rng(42);
  for (int n = 0; n < 30; ++n) {
    int w = 1 + static_cast<int>(rng() % 230), h = 1 + static_cast<int>(rng() % (56840 / 232));
    Picture p = random_picture(w, h, rng);
    std::string path = bmp("r.bmp", p);
    clsImage img;
    img.p_varKey(automation::Variant(1));
    img.p_strFullPath(path);
    EXPECT_EQ(images::decode_scale_records(img.p_strProtocol().items()).rows, padded(p).rows)
        << w << "x" << h;
    clsImageKestra k;
    k.p_varKey(automation::Variant(1));
    k.p_strFullPath(path);
    Picture kp = images::decode_kestra_records(k.p_strProtocol().items());
    ASSERT_EQ(kp.rows.size(), p.rows.size());
    for (std::size_t y = 0; y < p.rows.size(); ++y)
      for (int x = 0; x < 384; ++x)
        EXPECT_EQ(kp.rows[y][static_cast<std::size_t>(x)],
                  x < w && p.rows[y][static_cast<std::size_t>(x)]);
    clsPrinterImage pr;
    pr.p_strFullPath(path);
    Picture pp = images::decode_printer_frames(pr.p_strProtocol().items(), w);
    Picture expected = padded(p);
    while (!expected.rows.empty() &&
           std::none_of(expected.rows.back().begin(), expected.rows.back().end(),
                        [](bool b) { return b; }))
      expected.rows.pop_back();
    EXPECT_EQ(pp.rows, expected.rows);
  }
  EXPECT_TRUE(spy->calls.empty());
}

TEST_F(Images, KestraRows) {
  clsImageKestra k;
  k.p_varKey(automation::Variant(5));
  Picture p = solid(16, 2, false);
  p.rows[0][4] = true;  // 0x08 after inversion
  k.p_strFullPath(bmp("k.bmp", p));
  auto r = k.p_strProtocol();
  ASSERT_EQ(r.lower_bound(), 1);
  ASSERT_EQ(r.upper_bound(), 3);
  EXPECT_EQ(r[1], "4099990050010800" + std::string(92, '0'));
  EXPECT_EQ(r[3], "409999005999");
  k.p_strFullPath(bmp("w.bmp", solid(400, 2, true)));
  EXPECT_EQ(k.p_strProtocol()[1].substr(12), std::string(96, 'F'));  // the last 2 bytes dropped
  k.p_strFullPath(bmp("big.bmp", solid(233, 245, false)));
  EXPECT_FALSE(k.p_strProtocol().allocated());
  EXPECT_EQ(reported().back(), 9);
}

TEST_F(Images, PrinterFrames) {
  clsPrinterImage pr;
  pr.p_strFullPath(bmp("p.bmp", solid(8, 8, false)));
  EXPECT_TRUE(pr.p_booImageIsValid());
  auto f = pr.p_strProtocol();
  ASSERT_EQ(f.lower_bound(), 1);
  ASSERT_EQ(f.upper_bound(), 23);
  EXPECT_EQ(f[1].size(), 1026u);
  EXPECT_EQ(f[1].substr(0, 512), std::string(512, '\xFF'));
  EXPECT_EQ(f[1].substr(512, 512), std::string(512, '\0'));
  EXPECT_EQ(f[1].substr(1024), std::string("\xFE\x00", 2));  // 130,560 mod 65536 = 65,024
  EXPECT_EQ(f[2], std::string(1026, '\0'));
  EXPECT_EQ(kestra_printer_format::frame_checksum(std::string(1025, '\xFF')), 261120);
  // 22 x 1024 - 512 repacked bytes: exactly 22 data frames and one zero frame (width 8).
  pr.p_strFullPath(bmp("p22.bmp", solid(8, 22 * 1024 - 512, true)));
  auto g = pr.p_strProtocol();
  ASSERT_EQ(g.upper_bound(), 23);
  EXPECT_EQ(g[22].substr(0, 1024), std::string(1024, '\xFF'));
  EXPECT_EQ(g[23], std::string(1026, '\0'));
  dir.write("bad.bmp", "BA" + std::string(100, 'x'));
  pr.p_strFullPath(dir.file("bad.bmp"));
  EXPECT_FALSE(pr.p_strProtocol().allocated());
  EXPECT_FALSE(pr.p_booImageIsValid());
}

TEST_F(ArchiveFixture, TotalsRequests) {
  globals().objRegistry = std::make_shared<clsRegistry2Xml>();
  clsKplMakeRequest k;
  std::string all = "all", mixed = "Lot", empty;
  struct Row {
    std::string got, expected;
  } rows[] = {
      {k.p_RX_strTrasmettiRichiestaRicezioneTotaliPlu(),
       "<READ_ARC=TOT_COD_ARTICOLO,ALL><END_READ_ARC>\r\n"},
      {k.p_RX_TOTALI_strTrasmettiRichiestaVariazioneStruttura(),
       "<SET_READ_STRUCT=TOT_GEN><T0><T2><T4><T10><T18><END_SET_READ_STRUCT>\r\n"},
      {k.p_RX_TOTALI_LOTTIPLU_strTrasmettiRichiestaVariazioneStruttura(),
       "<SET_READ_STRUCT=TOT_GEN><T0><T2><T3><T4><T10><T18><END_SET_READ_STRUCT>\r\n"},
      {k.p_RX_TOTALI_PLU_strTrasmettiRichiestaProssimoStream(),
       "<READ_ARC=TOT_COD_ARTICOLO,ALL><GET_NEXT><END_READ_ARC>\r\n"},
      {k.p_RX_strTrasmettiRichiestaRicezioneTotaliLotti(),
       "<READ_ARC=TOT_TRACC,ALL><END_READ_ARC>\r\n"},
      {k.p_RX_strTrasmettiRichiestaRicezioneTotaliLottiPlu(),
       "<READ_ARC=TOT_TRACC_PLU,ALL><END_READ_ARC>\r\n"},
      {k.p_RX_TOTALI_LOTTI_strTrasmettiRichiestaProssimoStream(),
       "<READ_ARC=TOT_TRACC,ALL><GET_NEXT><END_READ_ARC>\r\n"},
      {k.p_RX_TOTALI_LOTTI_PLU_strTrasmettiRichiestaProssimoStream(),
       "<READ_ARC=TOT_TRACC_PLU,ALL><GET_NEXT><END_READ_ARC>\r\n"},
      {k.p_RX_strGetTotalControl(),
       "<OPTION_CONNECTION><TOTAL_CONTROL=true><END_OPTION_CONNECTION>\r\n"},
      {k.p_RX_strStopLavorazioniInCorso(), "<STOP><END_STOP>\r\n"},
      {k.p_RX_strRetrieveStatus(), "<GET_STATUS><END_GET_STATUS>\r\n"},
      {k.p_RX_strRichiediCancellazioneTotali(all), "<RESET_TOT=ALL><END_RESET_TOT>\r\n"},
      {k.p_RX_strRichiediCancellazioneTotali(mixed), "<RESET_TOT=LOT><END_RESET_TOT>\r\n"},
      {k.p_RX_strRichiediCancellazioneTotali(empty), "<RESET_TOT=><END_RESET_TOT>\r\n"},
  };
  for (const auto& r : rows) EXPECT_EQ(r.got, r.expected);
  EXPECT_EQ(all, "all");  // the argument is not changed
  EXPECT_TRUE(spy->calls.empty());
}

TEST_F(ArchiveFixture, RequestsWithoutSettingsStoreReportTheirLoader) {
  globals().objRegistry.reset();
  clsKplMakeRequest k;
  ASSERT_EQ(spy->calls.size(), 1u);
  EXPECT_EQ(spy->calls[0].procedure, "m_LoadTranslations");
  EXPECT_EQ(spy->calls[0].number, 91);
  EXPECT_EQ(k.p_RX_strRetrieveStatus(), "<GET_STATUS><END_GET_STATUS>\r\n");
}
