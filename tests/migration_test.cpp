// Moving a desktop installation over: a registry export with Windows paths, the CSV files such an
// office exports, and its database read through mdbtools (stood in for by fixture scripts).
#include <filesystem>

#include "tool_fixture.h"

namespace qk::testing {
namespace {

struct Migration : Tool {
  std::string archive() { return dir.read("demo/Archivi.sqlite"); }
  void csv(const std::string& name, const std::string& bytes) {
    std::filesystem::create_directories(dir.file("csv"));
    dir.write("csv/" + name, bytes);
  }
};

TEST_F(Migration, ARegistryExportNeverLendsItsWindowsFolders) {
  std::string fresh = dir.file("fresh");
  std::filesystem::create_directories(fresh);
  dir.write("fresh/export.reg",
            "REGEDIT4\r\n\r\n[HKEY_CURRENT_USER\\Software\\VB and VBA Program Settings\\Varlen "
            "System\\Appl]\r\n\"Path\"=\"C:\\\\Programmi\\\\Varlen\\\\\"\r\n"
            "\"PathLanguages\"=\"C:\\\\Programmi\\\\Varlen\\\\Lingue\"\r\n"
            "\"LanguageId\"=\"LAN_ENG\"\r\n");
  EXPECT_EQ(qkp_in(fresh, "settings init"), 0) << err;
  EXPECT_NE(err.find("Path named the Windows folder \"C:\\Programmi\\Varlen\\\""),
            std::string::npos)
      << err;
  std::string v;
  qkp_in(fresh, "settings get Appl Path", &v);
  EXPECT_EQ(v, ".\n");
  qkp_in(fresh, "settings get Appl PathLanguages", &v);
  EXPECT_EQ(v, "Languages\n");
  qkp_in(fresh, "settings get Appl LanguageId", &v);
  EXPECT_EQ(v, "LAN_ENG\n") << "the other imported settings are kept";
  // Without an archive, the message says which setting made the path and how to change it.
  EXPECT_EQ(qkp_in(fresh, "pending --line 1"), 1);
  EXPECT_NE(err.find("Its folder comes from the setting Path (\".\")"), std::string::npos) << err;
  EXPECT_NE(err.find("qkp settings set Appl Path FOLDER"), std::string::npos) << err;
  EXPECT_EQ(qkp_in(fresh, "init"), 0) << err;
  EXPECT_EQ(qkp_in(fresh, "pending --line 1"), 1) << err;  // an empty network: no line 1
}

TEST_F(Migration, DesktopCsvFilesAreRead) {
  // Semicolons, Windows code page 1252, a decimal comma and a column the archive lacks.
  csv("ALIQUOTE.csv", "Id;percentage;Note\r\n5;7,5;ridotta \xE8\r\n");
  EXPECT_EQ(qkp("import-csv " + dir.file("csv") + " --ignore-extra"), 0) << err;
  EXPECT_NE(err.find("read as Windows code page 1252"), std::string::npos) << err;
  EXPECT_NE(err.find("fields separated by ';'"), std::string::npos) << err;
  EXPECT_NE(err.find("skipped: Note"), std::string::npos) << err;
  EXPECT_EQ(sql("select percentage from ALIQUOTE where Id = 5"), "7.5\n");
}

TEST_F(Migration, RefusedCsvFilesNameTheCauseAndLeaveTheArchiveAsItWas) {
  struct Case {
    const char* file;
    const char* bytes;
    const char* options;
    const char* says;
  } cases[] = {
      {"ALIQUOTE.csv", "Id;percentage;Note\n5;7,5;x\n", "",
       "line 1: ALIQUOTE has no column \"Note\" (--ignore-extra"},
      {"ALIQUOTE.csv", "Id,percentage\n5;7\n", "--delimiter ,",
       "line 2: 1 fields, the header names 2 columns (a separator inside a field"},
      {"BARCODE.csv", "BC_BNC,BC_FORM,BC_VALUE\n1,9,\"caf\xE8\"\n", "--encoding utf-8",
       "line 2: not UTF-8 (byte 33); a file saved by a Windows program is usually --encoding "
       "cp1252"},
      {"ALIQUOTE.csv", "Id,percentage\n5,sette\n", "", "line 2, column percentage"},
      {"ALIQUOTE.csv", "Id;percentage,x\n", "", "the header uses both ',' and ';'"},
      {"ALIQUOTE.csv", "Id,percentage\n5,\"7\n", "", "malformed CSV"},
  };
  std::string before = archive();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.bytes);
    std::filesystem::remove_all(dir.file("csv"));
    csv(c.file, c.bytes);
    EXPECT_EQ(qkp("import-csv " + dir.file("csv") + " " + c.options), 1);
    EXPECT_NE(err.find(c.says), std::string::npos) << err;
    EXPECT_NE(err.find("archive unchanged"), std::string::npos) << err;
    EXPECT_EQ(archive(), before);
  }
}

struct MdbImport : Migration {
  ScopedEnv path{"PATH", std::string(QK_SOURCE_DIR) + "/tests/fixtures/mdb:" +
                             (std::getenv("PATH") ? std::getenv("PATH") : "/usr/bin:/bin")};
  std::string mdb = dir.file("Archivi.mdb");
  void SetUp() override {
    Tool::SetUp();
    dir.write("Archivi.mdb", "stands for a desktop database");
  }
};

TEST_F(MdbImport, TheTablesTheArchiveKnowsAreLoaded) {
  EXPECT_EQ(qkp("import-mdb " + mdb), 0) << err;
  EXPECT_NE(err.find("table Clienti is not in the archive; skipped"), std::string::npos) << err;
  EXPECT_NE(err.find("skipped: Descrizione"), std::string::npos) << err;
  EXPECT_NE(err.find("skipped: BC_NOTE"), std::string::npos) << err;
  EXPECT_EQ(sql("select Id, percentage from ALIQUOTE where Id >= 5 order by Id"),
            "5|7.5\n6|21.0\n");
  EXPECT_EQ(sql("select BC_VALUE from BARCODE where BC_FORM in (7, 8) order by BC_FORM"),
            "A#6@B#13\nP#5@W#5\n");
  EXPECT_EQ(qkp("import-mdb " + mdb + " --tables aliquote"), 1) << "ALIQUOTE 5 exists now";
  EXPECT_EQ(qkp("import-mdb " + mdb + " --tables ALIQUOTE --replace"), 0) << err;
  EXPECT_EQ(qkp("import-mdb " + mdb + " --tables Fornitori"), 1);
  EXPECT_NE(err.find("has no table Fornitori that the archive knows"), std::string::npos) << err;
}

TEST_F(MdbImport, WithoutMdbtoolsTheMessageSaysWhatToInstall) {
  ScopedEnv bare("PATH", dir.file("nowhere"));
  std::string before = archive();
  EXPECT_EQ(qkp("import-mdb " + mdb), 1);
  EXPECT_NE(err.find("mdb-tables was not found: install Debian's mdbtools"), std::string::npos)
      << err;
  EXPECT_EQ(archive(), before);
}

}  // namespace
}  // namespace qk::testing
