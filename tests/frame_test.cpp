// Field helpers, the error reporter, the creation sequence, the date messages and the small files
// kept while unchanged.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "config/xml_file.h"
#include "frame/creation.h"
#include "frame/file_cache.h"
#include "frame/modUtility.h"
#include "frame/numeric_record.h"
#include "frame/report_error.h"
#include "qk/clsSimple.h"
#include "qk/host.h"
#include "test_support.h"

using namespace qk;
using namespace qk::testing;

TEST(FieldFormat, FormattaCampo) {
  auto spy = reset_globals();
  struct Row {
    const char* value;
    int16_t mode, width;
    const char* out;
  } rows[] = {
      {"123", 1, 6, "000123"},  {"123", 1, 2, "23"},  // leftmost digits dropped
      {"1,5", 1, 4, "01,5"},                          // commas survive
      {"12.5", 1, 5, "01205"},                        // a period becomes 0
      {"-5", 1, 3, "005"},                            // so does the minus sign
      {"a b", 1, 3, "000"},     {"AB", 0, 4, "AB  "},
      {"ABCDEF", 0, 4, "ABCD"}, {"AB", 7, 3, "AB "},  // any mode but 1 is text
      {"123", 1, 0, ""},        {"AB", 0, 0, ""},
  };
  for (const auto& r : rows)
    EXPECT_EQ(modUtility::p_strFormattaCampo(r.value, r.mode, r.width), r.out) << r.value;
  EXPECT_TRUE(spy->calls.empty());
  // A negative width cannot build the fill: reported, empty result.
  EXPECT_EQ(modUtility::p_strFormattaCampo("1", 1, -1), "");
  ASSERT_EQ(spy->calls.size(), 1u);
  EXPECT_EQ(spy->calls[0].procedure, "p_strFormattaCampo");
  EXPECT_EQ(spy->calls[0].module, "modUtility");
  EXPECT_EQ(spy->calls[0].number, 5);
  // The untrapped copy passes the error on.
  EXPECT_THROW(modHelpers::p_strFormattaCampo("1", 1, -1), automation::Error);
}

TEST(FieldFormat, NumericValue) {
  struct Row {
    const char* in;
    int32_t out;
  } rows[] = {{"2,5", 2}, {"3,5", 4}, {"12abc", 12}, {"", 0}, {"  42", 42}, {"-1,5", -2}};
  for (const auto& r : rows) EXPECT_EQ(modUtility::p_lngNumericValue(r.in), r.out) << r.in;
  EXPECT_THROW(modUtility::p_lngNumericValue("3000000000"), automation::Error);
}

TEST(FieldFormat, SplitCountAndInPlace) {
  int16_t n = 3;
  auto a = modUtility::m_strSplitString("ABCDEFG", n);
  EXPECT_EQ(a, automation::StringArray({"ABC", "DEF", "G"}));
  EXPECT_EQ(n, 1);  // the caller's length follows the short last chunk
  n = 3;
  EXPECT_FALSE(modUtility::m_strSplitString("", n).allocated());
  EXPECT_EQ(modUtility::p_intCountCharacter("10110000", "1"), 3);
  EXPECT_THROW(modUtility::p_intCountCharacter(std::string(32768, '1'), "1"), automation::Error);
  EXPECT_EQ(modUtility::p_intCountCharacter(std::string(32767, '1'), "1"), 32767);
  std::string s = "1,5";
  EXPECT_EQ(modHelpers::p_lngNumericValueInPlace(s), 2);  // 1.5 rounds to even 2
  EXPECT_EQ(s, "1.5");
  std::string longer(256, ',');
  EXPECT_THROW(modHelpers::p_strCommaToPeriodInPlace(longer), automation::Error);
  EXPECT_EQ(longer, std::string(256, ','));  // nothing replaced before the overflow
  EXPECT_EQ(numeric_record::header(numeric_record::kKeyBindings), "3599990");
}

TEST(ReportError, TranslatedAndEnglishMessages) {
  auto spy = reset_globals(false);
  FakeHost host;
  globals().colStrings = {{"p_STR_DYNAMICSTRING_510_0", "Attenzione!"},
                          {"p_STR_DYNAMICSTRING_511_0", "Descrizione: "},
                          {"p_STR_DYNAMICSTRING_512_0", "Numero: "},
                          {"p_STR_DYNAMICSTRING_513_0", "nella procedura:"},
                          {"p_STR_DYNAMICSTRING_514_0", "Progetto: "},
                          {"p_STR_DYNAMICSTRING_515_0", "Modulo: "},
                          {"p_STR_DYNAMICSTRING_516_0", "Procedura: "},
                          {"p_STR_DYNAMICSTRING_517_0", "Contattare l'amministratore"}};
  report_trapped({"Get p_strProtocol", "clsBarCode"}, 13, "Type mismatch");
  ASSERT_EQ(host.boxes.size(), 1u);
  EXPECT_EQ(host.boxes[0].title, "Error");
  EXPECT_EQ(host.boxes[0].style, 21);
  EXPECT_EQ(host.boxes[0].text,
            "Attenzione!\r\n\r\nDescrizione: Type mismatch\r\nNumero: 13\r\n\r\n"
            "nella procedura:\r\n\r\nProgetto: QK_Protocol\r\nModulo: clsBarCode\r\n"
            "Procedura: Get p_strProtocol\r\n\r\nContattare l'amministratore");
  ASSERT_EQ(spy->calls.size(), 1u);
  const LogCall& c = spy->calls[0];
  EXPECT_EQ(c.level, 2);
  EXPECT_EQ(c.project, "QK_Protocol");
  EXPECT_EQ(c.module, "clsBarCode");
  EXPECT_EQ(c.procedure, "Get p_strProtocol");
  EXPECT_EQ(c.description, "Type mismatch");
  EXPECT_EQ(c.flag, 0);
  EXPECT_EQ(c.number, 13);

  // One missing translation: the translated box with that piece empty, then the English one.
  globals().colStrings.erase("p_STR_DYNAMICSTRING_513_0");
  host.boxes.clear();
  report_trapped({"Get p_strProtocol", "clsBarCode"}, 13, "Type mismatch");
  ASSERT_EQ(host.boxes.size(), 2u);
  EXPECT_NE(host.boxes[0].text.find("\r\n\r\n\r\n\r\nProgetto"), std::string::npos);
  EXPECT_EQ(host.boxes[1].text, english_error_message(13, "Type mismatch", "QK_Protocol",
                                                      "clsBarCode", "Get p_strProtocol"));
  EXPECT_EQ(host.boxes[1].text.substr(0, 42), "Warning! The following error occurred:\r\n\r\n");
  EXPECT_TRUE(host.exits.empty());  // Retry returns to the trap
}

TEST(ReportError, SilentAndLoggerWithoutPath) {
  auto spy = reset_globals(true);
  FakeHost host;
  spy->path = "";  // a logger without a path is not called
  report_trapped({"x", "y"}, 5, "Invalid procedure call or argument");
  EXPECT_TRUE(host.boxes.empty());  // silent, even with the translations missing
  EXPECT_TRUE(spy->calls.empty());
}

TEST(ReportError, CancelEndsTheProcess) {
  reset_globals(false);
  FakeHost host(host::kAnswerCancel);
  report_trapped({"x", "y"}, 6, "Overflow");
  // Two boxes (translations missing), the kept answer is Cancel: exit with the running code.
  EXPECT_EQ(host.boxes.size(), 2u);
  ASSERT_EQ(host.exits.size(), 1u);
  EXPECT_EQ(host.exits[0], host::kStillActive);
}

TEST(Creation, UnknownDatabaseComponentIsReportedAndTheInstanceLives) {
  TempDir dir;
  ScopedEnv home("QK_HOME", dir.path());
  ScopedEnv cfg("XDG_CONFIG_HOME", dir.file("cfg"));
  auto spy = reset_globals();
  automation::unregister_component(kDbAccessId);
  run_creation_sequence("clsBarCode", kStepsWithDatabase, {}, "clsBarcode");
  ASSERT_EQ(spy->calls.size(), 1u);
  EXPECT_EQ(spy->calls[0].number, 429);
  EXPECT_EQ(spy->calls[0].procedure, "Class_Initialize");
  EXPECT_EQ(spy->calls[0].module, "clsBarCode");
  EXPECT_NE(globals().objRegistry, nullptr);  // the slots set before the failure stay
  EXPECT_EQ(globals().strApplPath, dir.path() + "/");
}

TEST(Creation, SilentSettingIsCaseSensitive) {
  TempDir dir;
  ScopedEnv home("QK_HOME", dir.path());
  ScopedEnv cfg("XDG_CONFIG_HOME", dir.file("cfg"));
  struct Row {
    const char* stored;  // nullptr: no setting at all
    bool silent;
  } rows[] = {{nullptr, true}, {"Y", true}, {"y", false}, {"N", false}};
  for (const auto& r : rows) {
    dir.write(
        "registry.xml",
        std::string("<root><keys>") +
            (r.stored ? std::string("<key path=\"x\" name=\"Silent\" value=\"") + r.stored + "\"/>"
                      : "") +
            "</keys></root>");
    reset_globals(!r.silent);
    run_creation_sequence("clsAbbinamentoTasti", kStepCreateRegistry | kStepReadSilent);
    EXPECT_EQ(globals().booSilent, r.silent) << (r.stored ? r.stored : "none");
  }
}

TEST(DateTime, NumericAndTaggedForms) {
  struct Row {
    LocalTime t;
    const char* numeric;
    const char* tagged;
  } rows[] = {
      {{2026, 3, 5, 14, 7, 9},
       "2599990050326140709",
       "<MSG OPE=FUN NPM=1 NCM=1 TYP=DATA YYY=126 MMM=3 DAY=5 HHH=14 MIN=7 SSS=9 />"},
      {{2000, 1, 1, 0, 0, 0},
       "2599990010100000000",
       "<MSG OPE=FUN NPM=1 NCM=1 TYP=DATA YYY=100 MMM=1 DAY=1 HHH=0 MIN=0 SSS=0 />"},
      {{1999, 12, 31, 23, 59, 58},
       "2599990311299235958",
       "<MSG OPE=FUN NPM=1 NCM=1 TYP=DATA YYY=99 MMM=12 DAY=31 HHH=23 MIN=59 SSS=58 />"},
  };
  clsSimple s;
  for (const auto& r : rows) {
    set_clock([&] { return r.t; });
    EXPECT_EQ(s.DataOra(), r.numeric);
    EXPECT_EQ(s.DataOraO5000(), r.tagged);
  }
  set_clock(nullptr);
}

TEST(DateTime, OneClockReadingPerMessage) {
  int calls = 0;
  set_clock([&] {
    ++calls;
    return LocalTime{2026, 1, 1, 0, 0, calls};  // a clock that moves on every reading
  });
  EXPECT_EQ(clsSimple().DataOraO5000(),
            "<MSG OPE=FUN NPM=1 NCM=1 TYP=DATA YYY=126 MMM=1 DAY=1 HHH=0 MIN=0 SSS=1 />");
  EXPECT_EQ(calls, 1);
  set_clock(nullptr);
}

// Kept bytes are always the file's present bytes: a change in place, a replacement and a removal
// all show at the next read.
TEST(SmallFiles, KeptOnlyWhileUnchanged) {
  TempDir dir;
  std::string path = dir.file("Parameters.xml");
  auto age = [&](long seconds_ago) {  // as if written that long ago, so that it is kept
    timespec t[2];
    clock_gettime(CLOCK_REALTIME, &t[0]);
    t[0].tv_sec -= seconds_ago;
    t[1] = t[0];
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), t, 0), 0);
  };
  EXPECT_EQ(small_file_bytes(path), nullptr);
  dir.write("Parameters.xml", "<a>1</a>");
  age(3600);
  auto first = small_file_bytes(path);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(*first, "<a>1</a>");
  EXPECT_EQ(small_file_bytes(path), first);  // kept: the same bytes, not read again
  auto doc = config::shared_document(path);
  EXPECT_EQ(config::shared_document(path), doc);  // parsed once while unchanged
  EXPECT_STREQ(doc->child("a").text().get(), "1");
  {
    std::fstream f(path, std::ios::in | std::ios::out | std::ios::binary);
    f.seekp(3);
    f << '2';  // same size
  }
  age(3600);
  EXPECT_EQ(*small_file_bytes(path), "<a>2</a>");
  EXPECT_STREQ(config::shared_document(path)->child("a").text().get(), "2");
  save_file_atomically(path, "<a>3</a>");
  EXPECT_EQ(*small_file_bytes(path), "<a>3</a>");
  std::filesystem::remove(path);
  EXPECT_EQ(small_file_bytes(path), nullptr);
  EXPECT_FALSE(config::shared_document(path)->first_child());
  std::filesystem::create_directory(path);  // not a file
  EXPECT_EQ(small_file_bytes(path), nullptr);
}
