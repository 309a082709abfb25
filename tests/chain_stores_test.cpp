// A chain on one archive: stores that deliver and reset only their own lines, folders that join
// the archive, pictures that travel with their rows, and an archive of the previous version that
// keeps working as one store.
#include <filesystem>
#include <fstream>
#include <set>

#include "logged_sync.h"
#include "tool_fixture.h"

using namespace qk::testing;

namespace {

struct ChainStores : ToolOnBoth {
  // The archive as another folder names it.
  std::string location() { return server.empty() ? home + "/Archivi.sqlite" : server; }
  // Statements run on the archive as another program would; "" or the error.
  std::string run_sql(const std::string& statements) {
    return server.empty() ? sql_exec(home + "/Archivi.sqlite", statements)
                          : PgServer::exec(server, statements);
  }
  // The departments a logged sync delivered to.
  static std::set<std::string> departments(const std::string& log) {
    std::set<std::string> d;
    for (const auto& s : logged_strings(log)) d.insert(s.substr(0, s.find(' ')));
    return d;
  }
};
QK_ON_BOTH_BACKENDS(ChainStores);

// Store A has department 1 but its line 2, which is store B's with departments 2 and 3. Both
// stores sync line 1 at once while the chain office imports; each transport gets its own
// departments only, and neither store's sync, mark or reset touches the other's lines.
TEST_P(ChainStores, EachStoreDeliversAndResetsOnlyItsOwnLines) {
  // The chain office gives the demo's lines to the stores by importing the network.
  std::filesystem::create_directories(dir.file("network"));
  std::ofstream(dir.file("network/SCALE_LINES.csv"))
      << "SL_BNC,SL_LINE,SL_FAMILY,SL_SCALE,SL_STORE\n1,1,3000,1,A\n1,2,5000,2,B\n1,3,2000,3,A\n"
         "2,1,3000TOP,1,B\n2,2,VELTA,2,B\n2,3,5000,3,B\n3,1,KESTRA,1,B\n3,2,3000,2,B\n";
  ASSERT_EQ(qkp("import-csv --replace " + dir.file("network")), 0) << err;
  std::ofstream(dir.file("network/SCALE_LINES.csv"))
      << "SL_BNC,SL_LINE,SL_FAMILY,SL_SCALE,SL_STORE\n1,1,3000,1,A B\n";
  EXPECT_EQ(qkp("import-csv --replace " + dir.file("network")), 1);
  EXPECT_NE(err.find("column SL_STORE: holds \"A B\", not a store's name"), std::string::npos)
      << err;
  std::string store_a = dir.file("storeA"), store_b = dir.file("storeB");
  ASSERT_EQ(qkp_in(store_a, "init --join '" + location() + "' --store A"), 0) << err;
  ASSERT_EQ(qkp_in(store_b, "init --join '" + location() + "' --store B"), 0) << err;
  std::string out;
  ASSERT_EQ(qkp_in(store_a, "status", &out), 0);
  EXPECT_NE(out.find("store                store A"), std::string::npos) << out;
  // What store B's lines hold before store A does anything.
  auto b_flags = [&] {
    return sql("select TP_BNC, TP_SCALE, TP_KEY, substr(TP_FLAGTRASM, 2, 1) from TASTIERA_PLU "
               "where TP_BNC = 1 order by 1, 2, 3") +
           sql("select TP_BNC, TP_SCALE, TP_KEY, TP_FLAGTRASM from TASTIERA_PLU where TP_BNC > 1 "
               "order by 1, 2, 3");
  };
  std::string b_before = b_flags();
  EXPECT_EQ(qkp_in(store_a, "mark --all-lines --dept 1 --kind keys"), 0) << err;
  EXPECT_EQ(qkp_in(store_a, "sync --line 1 --out " + dir.file("a0.txt")), 0) << err;
  EXPECT_EQ(b_flags(), b_before) << "store A changed a line of store B";

  // Both stores' line 1 at once, while the chain office imports: neither waits for the other.
  std::string log_a = dir.file("a.log"), log_b = dir.file("b.log");
  ASSERT_EQ(qkp("mark --all-lines --kind lots"), 0) << err;
  {
    Importer importer(*this, {1, 2, 3}, 101, 10, 0);
    pid_t a = start_logged_sync(store_a, "--line 1", log_a);
    pid_t b = start_logged_sync(store_b, "--line 1", log_b);
    EXPECT_EQ(exit_status_of(a), 0) << file_bytes(log_a + ".err");
    EXPECT_EQ(exit_status_of(b), 0) << file_bytes(log_b + ".err");
    EXPECT_EQ(importer.failures(), "");
  }
  EXPECT_EQ(departments(log_a), std::set<std::string>{"1"});
  // Department 3's line 1 (a KESTRA printer) takes none of the lots, only its images, never
  // sent there.
  EXPECT_EQ(departments(log_b), (std::set<std::string>{"2", "3"}));

  // Each store lists, marks and syncs only its own lines; the chain office sees them all.
  struct Case {
    std::string folder, args;
    int status;
    const char* says;  // on stderr or stdout
  } cases[] = {
      {store_a, "lines", 0, "1      3     2000"},
      {store_a, "sync --line 2 --out " + dir.file("x.txt"), 1,
       "no department configures line 2 of store A"},
      {store_a, "pending --line 2", 1, "no department configures line 2 of store A"},
      {store_a, "lines set --dept 2 --line 1 --family 5000 --scale 9", 2,
       "department 2, line 1 belongs to store B, not to store A"},
      {store_a, "lines set --dept 4 --line 1 --family 5000 --scale 9 --store B", 2,
       "this installation serves store A"},
      {store_b, "lines remove --dept 1 --line 1", 2, "belongs to store A"},
      {store_a, "reset lots --dept 2 --lot 12 --line 1", 1,
       "department 2 has no line 1 of store A; nothing was reset"},
      {store_a, "lines --all-stores", 0, "2      1     3000TOP  1      "},
      {home, "lines", 0, "pending  store"},
      {store_a, "init --join '" + location() + "' --store 'A B'", 2, "not a store's name"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(qkp_in(c.folder, c.args, &out), c.status) << c.args << ": " << err;
    EXPECT_NE((out + err).find(c.says), std::string::npos) << c.args << ": " << out << err;
  }
  EXPECT_EQ(qkp_in(store_a, "lines", &out), 0);
  EXPECT_EQ(out.find("\n2 "), std::string::npos) << "store A lists department 2: " << out;

  // A quiet sync leaves store A nothing pending; store B's line 1 of department 1 is not A's.
  EXPECT_EQ(qkp_in(store_a, "sync --line 1 --out " + dir.file("a1.txt")), 0) << err;
  EXPECT_EQ(qkp_in(store_a, "pending --line 1"), 3) << err;
  EXPECT_EQ(qkp_in(store_b, "sync --line 1 --out " + dir.file("b1.txt")), 0) << err;
  EXPECT_EQ(qkp_in(store_b, "pending --line 1"), 3) << err;
}

// An archive of an older version (no stores, no addresses, pictures in the folder) upgrades in
// place: one store, its pictures loaded from images/, the missing one named once, and it syncs as
// before.
TEST_P(ChainStores, AnUpgradedArchiveIsOneStoreWithItsPictures) {
  ASSERT_EQ(qkp("sync --line 1 --dept 1 --full --out " + dir.file("before.txt")), 0) << err;
  // Back to version 2: no stores, pictures, journal, deliveries, nor versions of the tables
  // without flags.
  std::string v2 =
      "ALTER TABLE SCALE_LINES DROP COLUMN SL_STORE; ALTER TABLE SCALE_LINES DROP COLUMN "
      "SL_ADDRESS; DROP TABLE QK_JOURNAL; DROP TABLE QK_RUNS; DROP TABLE QK_DELIVERED; ";
  if (!server.empty()) v2 += "DROP FUNCTION qk_archive_changed CASCADE; ";
  for (const char* t : {"ETEXT", "IMMAGINI", "TICKET", "ALIQUOTE"})
    v2 += server.empty()
              ? std::string("DROP TRIGGER ") + t + "_ADDED; DROP TRIGGER " + t + "_CHANGED; "
              : std::string("DROP FUNCTION ") + t + "_VERSION CASCADE; ";
  for (const char* t : {"TICKET_DETAIL", "TICKET_PROPERTY"})
    v2 += server.empty() ? std::string("DROP TRIGGER ") + t + "_INSERT_NEW; DROP TRIGGER " + t +
                               "_UPDATE_NEW; DROP TRIGGER " + t + "_UPDATE_OLD; DROP TRIGGER " + t +
                               "_DELETE_OLD; "
                         : std::string("DROP FUNCTION ") + t + "_VERSION CASCADE; ";
  for (const char* t : {"ETEXT", "IMMAGINI", "TICKET", "ALIQUOTE"})
    v2 += std::string("ALTER TABLE ") + t + " DROP COLUMN ROW_VERSION; ";
  v2 += "ALTER TABLE IMMAGINI DROP COLUMN IM_PICTURE; ";
  v2 += server.empty() ? "PRAGMA user_version = 2;" : "UPDATE QK_SCHEMA SET VERSION = 2;";
  ASSERT_EQ(run_sql(v2), "");
  EXPECT_EQ(qkp("lines"), 1);
  EXPECT_NE(err.find("run \"qkp archive upgrade\""), std::string::npos) << err;
  std::filesystem::remove(home + "/images/SMALL.BMP");
  std::string out;
  EXPECT_EQ(qkp("archive upgrade", &out), 1) << err;
  EXPECT_NE(err.find("upgraded from schema version 2 to 5"), std::string::npos) << err;
  EXPECT_NE(err.find("stored 3 pictures of "), std::string::npos) << err;
  EXPECT_NE(err.find("image 5 of department 1 (SMALL.BMP): no picture file"), std::string::npos)
      << err;
  EXPECT_EQ(qkp("lines", &out), 0) << err;
  EXPECT_EQ(lines_of(out).at(0), "dept   line  family   scale  pending") << "no stores";
  // The logo goes from the archive even once the folder's file is gone; the missing picture is
  // one message, and the rest is sent as before.
  std::filesystem::remove_all(home + "/images");
  EXPECT_EQ(qkp("sync --line 1 --dept 1 --full --out " + dir.file("after.txt")), 1);
  std::string missing =
      "department 1, line 1 (3000, scale 1), image 5 (SMALL.BMP): image 5 of department 1 (file "
      "SMALL.BMP) has no picture in the archive: add it with \"qkp images add --dept 1 --id 5 "
      "SMALL.BMP\"; not sent";
  EXPECT_NE(err.find(missing), std::string::npos) << err;
  int said = 0;
  for (const auto& l : lines_of(err)) said += l.find("image 5") != std::string::npos;
  EXPECT_EQ(said, 1) << err;
  EXPECT_EQ(err.find("placeholder"), std::string::npos) << err;
  EXPECT_EQ(err.find("error 9"), std::string::npos) << err;
  std::string a = file_bytes(dir.file("before.txt")), b = file_bytes(dir.file("after.txt"));
  // Every record but the clock's and the missing picture's went as before.
  std::size_t logo = a.find("Logo negozio");
  ASSERT_NE(logo, std::string::npos);
  EXPECT_NE(b.find(a.substr(logo, 2000)), std::string::npos);
  // The upgrade's triggers keep the versions: a layout property changed after the full sync (which
  // delivered the layouts) makes only its layout pending again.
  std::filesystem::create_directories(dir.file("edit"));
  std::ofstream(dir.file("edit/TICKET_PROPERTY.csv"))
      << "TD_BNC,TD_ID,TD_OBJ,Id,value\n1,2,1,1,41\n";
  ASSERT_EQ(qkp("import-csv --replace " + dir.file("edit")), 0) << err;
  ASSERT_EQ(qkp("pending --line 1 --dept 1", &out), 0) << err;
  EXPECT_NE(out.find("layout 2                 changed since"), std::string::npos) << out;
  EXPECT_EQ(out.find("layout 1 "), std::string::npos) << out;
}

// A picture added in one folder is what another folder's sync sends, byte for byte; a file the
// component cannot read as a bitmap is refused.
TEST_P(ChainStores, APictureAddedInOneFolderIsSentByAnother) {
  std::string other = dir.file("other");
  ASSERT_EQ(qkp_in(other, "init --join '" + location() + "'"), 0) << err;
  std::filesystem::copy_file(home + "/images/WIDE.BMP", dir.file("banner.bmp"));
  std::ofstream(dir.file("notes.bmp")) << "not a bitmap";
  EXPECT_EQ(qkp("images add --dept 1 --id 9 " + dir.file("notes.bmp")), 1);
  EXPECT_NE(err.find("is not a bitmap"), std::string::npos) << err;
  EXPECT_EQ(qkp("images add --dept 1 --id 9 --description Banner " + dir.file("banner.bmp")), 0)
      << err;
  std::string expected;
  ASSERT_EQ(qkp("--format raw image --key 9 --description Banner --from 01010101 --file " +
                    dir.file("banner.bmp"),
                &expected),
            0)
      << err;
  std::filesystem::remove(dir.file("banner.bmp"));
  std::filesystem::remove_all(home + "/images");
  std::string log = dir.file("other.log");
  EXPECT_EQ(exit_status_of(start_logged_sync(other, "--line 1 --dept 1 --full", log)), 0)
      << file_bytes(log + ".err");
  std::string sent;
  for (const auto& s : logged_strings(log))
    if (s.rfind("1 images 9 ", 0) == 0) sent += s.substr(11);
  EXPECT_FALSE(sent.empty());
  std::string wanted;
  for (const auto& l : lines_of(expected)) wanted += l;
  EXPECT_TRUE(sent == wanted) << "the other folder sent another picture";
  EXPECT_EQ(qkp_in(other, "images --dept 1", &sent), 0);
  EXPECT_NE(sent.find("banner.bmp    Banner"), std::string::npos) << sent;
}

// A scale added to a department gets everything the department has for its family: `lines set`
// marks it and says how many rows, and the next sync sends the flagged records `--full` sends.
using NetworkLines = Tool;

TEST_F(NetworkLines, ANewLineGetsEverythingItsDepartmentHas) {
  std::string out;
  EXPECT_EQ(qkp("lines set --dept 1 --line 4 --family 5000 --scale 2", &out), 0) << err;
  EXPECT_EQ(out, "added department 1, line 4: 114 rows marked pending there\n");
  EXPECT_EQ(qkp("lines set --dept 1 --line 4 --family 5000 --scale 2", &out), 0) << err;
  EXPECT_EQ(out, "unchanged department 1, line 4: 0 rows marked pending there\n");
  std::string added = dir.file("added.log"), full = dir.file("full.log");
  EXPECT_EQ(exit_status_of(start_logged_sync(home, "--line 4", added)), 0);
  start_logged_sync(home, "--line 4 --full", full);
  while (wait(nullptr) > 0) {
  }
  auto flagged = [](const std::string& log) {
    std::multiset<std::string> strings;
    for (const auto& s : logged_strings(log))
      for (const char* kind : {" keys ", " barcodes ", " lots ", " ads "})
        if (s.find(kind) == 1) strings.insert(s);
    return strings;
  };
  EXPECT_FALSE(flagged(added).empty());
  EXPECT_EQ(flagged(added), flagged(full));
  EXPECT_EQ(qkp("lines remove --dept 1 --line 4", &out), 0) << err;
  EXPECT_EQ(out,
            "removed department 1, line 4: 0 rows of the department still hold it pending (a line "
            "set there again gets everything anyway)\n");
}

}  // namespace
