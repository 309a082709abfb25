// The everyday loop of a back office, end to end: copied installations, edits that become
// pending, corrections by import, export, delivery to a serial line and exit statuses.
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "tool_fixture.h"

using namespace qk::testing;

namespace {

std::string file_bytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// A folder of CSV files for import-csv.
std::string csv_folder(const TempDir& dir, const std::string& name,
                       const std::vector<std::pair<std::string, std::string>>& files) {
  std::string folder = dir.file(name);
  std::filesystem::create_directories(folder);
  for (const auto& [file, text] : files) std::ofstream(folder + "/" + file) << text;
  return folder;
}

using Workflow = Tool;

TEST_F(Workflow, CopiedInstallationUsesItsOwnArchive) {
  std::string before = file_bytes(home + "/Archivi.sqlite");
  std::string copy = dir.file("copy");
  std::filesystem::copy(home, copy, std::filesystem::copy_options::recursive);
  std::string out;
  ASSERT_EQ(qkp_in(copy, "status", &out), 0) << err;
  EXPECT_NE(out.find("archive              " + copy + "/Archivi.sqlite"), std::string::npos) << out;
  ASSERT_EQ(qkp_in(copy, "sync --line 2 --out " + dir.file("sent.bin")), 0) << err;
  EXPECT_NE(err.find("archive " + copy + "/Archivi.sqlite"), std::string::npos) << err;
  EXPECT_EQ(file_bytes(home + "/Archivi.sqlite"), before);  // the original is untouched
  std::string pending_keys =
      "select count(*) from TASTIERA_PLU where TP_BNC = 1 and substr(TP_FLAGTRASM, 2, 1) = '1'";
  EXPECT_EQ(sql_rows(copy + "/Archivi.sqlite", pending_keys), "0\n");
  EXPECT_EQ(sql(pending_keys), "54\n");
}

TEST_F(Workflow, ImportedRecordsBecomePendingAndGoWithTheNextSync) {
  ASSERT_EQ(qkp("sync --line 2 --dept 1 --out " + dir.file("first.bin")), 0) << err;
  ASSERT_EQ(qkp("pending --line 2 --dept 1"), 3);
  std::string folder = csv_folder(
      dir, "edits",
      {{"BARCODE.csv", "BC_BNC,BC_FORM,BC_VALUE\n1,9,\"Z#4\"\n"},
       {"TASTIERA_PLU.csv", "TP_BNC,TP_SCALE,TP_KEY,TP_VALUE\n1,2,41,777\n"},
       {"TRACEABILITY.csv", "TRC_BNC,TRC_ID,TRC_ID_LOT,TRC_DESC1\n1,30,\"L30\",\"Nuovo\"\n"}});
  std::string out;
  ASSERT_EQ(qkp("import-csv " + folder, &out), 0) << err;
  EXPECT_NE(out.find("BARCODE: 1 inserted, 0 changed, 0 unchanged"), std::string::npos) << out;
  // Department 1 configures lines 1, 2 and 3; barcode flags have four positions.
  EXPECT_EQ(sql("select BC_FLAGTRASM from BARCODE where BC_BNC = 1 and BC_FORM = 9"), "1110\n");
  EXPECT_EQ(sql("select TRC_FLAGTRASM from TRACEABILITY where TRC_ID = 30"), "11100000\n");
  ASSERT_EQ(qkp("pending --line 2 --dept 1", &out), 0);
  EXPECT_NE(out.find("key 41"), std::string::npos) << out;
  EXPECT_NE(out.find("lot 30"), std::string::npos) << out;
  ASSERT_EQ(qkp("sync --line 2 --dept 1 --separator lf --out " + dir.file("second.bin")), 0) << err;
  std::string sent = file_bytes(dir.file("second.bin"));
  EXPECT_NE(sent.find("<MSG OPE=NEW TYP=TAS  ID=41 TIP=0 REP=1 VAL=777 />\n"), std::string::npos);
  EXPECT_NE(sent.find("ID=30 MOD=0 T01=\"L30\" T02=\"Nuovo\""), std::string::npos) << sent;
  EXPECT_EQ(qkp("pending --line 2 --dept 1"), 3);
  // With --no-pending the rows keep the flags they were given.
  folder = csv_folder(dir, "quiet", {{"BARCODE.csv", "BC_BNC,BC_FORM,BC_VALUE\n2,9,\"Z#4\"\n"}});
  ASSERT_EQ(qkp("import-csv --no-pending " + folder), 0) << err;
  EXPECT_EQ(sql("select BC_FLAGTRASM from BARCODE where BC_BNC = 2 and BC_FORM = 9"), "0000\n");
}

TEST_F(Workflow, MarkSendsAgain) {
  ASSERT_EQ(qkp("sync --line 2 --dept 1 --out " + dir.file("first.bin")), 0) << err;
  std::string out;
  ASSERT_EQ(qkp("mark --line 2 --dept 1 --kind lots --id 12", &out), 0) << err;
  EXPECT_EQ(out, "1 row marked pending\n");
  ASSERT_EQ(qkp("pending --line 2 --dept 1", &out), 0);
  EXPECT_NE(out.find("lots      lot 12                   11100000"), std::string::npos) << out;
  ASSERT_EQ(qkp("sync --line 2 --dept 1 --separator lf --out " + dir.file("again.bin")), 0);
  auto sent = lines_of(file_bytes(dir.file("again.bin")));
  ASSERT_EQ(sent.size(), 2u);  // the date, then the lot
  EXPECT_EQ(sent[1].rfind("<MSG OPE=NEW TYP=LOT REP=1 ID=12 ", 0), 0u);
  // A line the department does not configure is not marked, and that is said.
  EXPECT_EQ(qkp("mark --line 7 --dept 1"), 1);
  EXPECT_NE(err.find("department 1 has no line 7: not marked"), std::string::npos) << err;
  // Every configured line of every department.
  ASSERT_EQ(qkp("mark --all-lines --kind barcodes", &out), 0);
  EXPECT_EQ(sql("select distinct BC_FLAGTRASM from BARCODE where BC_BNC = 1"), "1110\n");
  EXPECT_EQ(sql("select distinct BC_FLAGTRASM from BARCODE where BC_BNC = 3"), "1100\n");
}

TEST_F(Workflow, ReplaceDryRunAndExportRoundTrip) {
  std::string folder = csv_folder(
      dir, "fix",
      {{"BARCODE.csv", "BC_BNC,BC_FORM,BC_VALUE\n1,1,\"A#6@B#12\"\n1,2,\"P#5@W#5@C#1\"\n"}});
  std::string before = file_bytes(home + "/Archivi.sqlite");
  // Without --replace an existing key is refused, and nothing is written.
  EXPECT_EQ(qkp("import-csv " + folder), 1);
  EXPECT_NE(err.find("BARCODE.csv line 2: BARCODE already has the row BC_BNC 1, BC_FORM 1; add "
                     "--replace to update it"),
            std::string::npos)
      << err;
  std::string out;
  EXPECT_EQ(qkp("import-csv --replace --dry-run " + folder, &out), 0) << err;
  EXPECT_NE(out.find("BARCODE: 0 inserted, 1 changed, 1 unchanged"), std::string::npos) << out;
  EXPECT_EQ(file_bytes(home + "/Archivi.sqlite"), before);
  EXPECT_EQ(qkp("import-csv --replace " + folder), 0) << err;
  EXPECT_EQ(sql("select BC_VALUE, BC_FLAGTRASM from BARCODE where BC_BNC = 1 order by BC_FORM"),
            "A#6@B#12|1110\nP#5@W#5@C#1|1100\nE#2@P#4@Q#123|0000\n");
  // The keyboard has no key: a replace swaps the rows of each key of the file, so importing
  // the same rows twice does not double them.
  folder =
      csv_folder(dir, "keys",
                 {{"TASTIERA_PLU.csv", "TP_BNC,TP_SCALE,TP_KEY,TP_VALUE\n1,1,2,900\n1,1,2,901\n"}});
  EXPECT_EQ(qkp("import-csv --replace " + folder), 0) << err;
  EXPECT_EQ(qkp("import-csv --replace " + folder, &out), 0) << err;
  EXPECT_NE(out.find("TASTIERA_PLU: 0 inserted, 0 changed, 2 unchanged"), std::string::npos);
  EXPECT_EQ(sql("select TP_VALUE from TASTIERA_PLU where TP_BNC = 1 and TP_SCALE = 1 and "
                "TP_KEY = 2 order by rowid"),
            "900\n901\n");

  // Export, import into an empty archive, export again: the same files.
  ASSERT_EQ(qkp("export-csv " + dir.file("export1")), 0) << err;
  std::string other = dir.file("other");
  ASSERT_EQ(qkp_in(other, "init"), 0) << err;
  ASSERT_EQ(qkp_in(other, "import-csv --no-pending " + dir.file("export1")), 0) << err;
  ASSERT_EQ(qkp_in(other, "export-csv " + dir.file("export2")), 0) << err;
  int compared = 0;
  // The tables, and each image's picture as a file of its own (images/<dept>/<name>).
  for (const auto& e : std::filesystem::recursive_directory_iterator(dir.file("export1"))) {
    if (!e.is_regular_file()) continue;
    auto relative = std::filesystem::relative(e.path(), dir.file("export1"));
    EXPECT_EQ(file_bytes(e.path()), file_bytes(dir.file("export2/") + relative.string()))
        << e.path();
    ++compared;
  }
  EXPECT_EQ(compared, 13 + 6);
  // An export folder that cannot be written is reported; nothing is left behind.
  std::ofstream(dir.file("plainfile")) << "x";
  EXPECT_EQ(qkp("export-csv " + dir.file("plainfile/sub")), 1);
  EXPECT_NE(err.find("export failed"), std::string::npos);
}

TEST_F(Workflow, SeparatorsFrameEveryRecord) {
  struct Case {
    const char* name;
    std::string before, after;
  } cases[] = {
      {"crlf", "", "\r\n"}, {"lf", "", "\n"}, {"none", "", ""}, {"stx-etx", "\x02", "\x03"}};
  for (const auto& c : cases) {
    std::string out = dir.file(std::string("sent-") + c.name);
    ASSERT_EQ(qkp("sync --line 1 --dept 1 --separator " + std::string(c.name) + " --out " + out), 0)
        << err;
    std::string sent = file_bytes(out);
    // The date record (19 characters), then the first barcode form.
    EXPECT_EQ(sent.substr(0, c.before.size() + 7), c.before + "2599990") << c.name;
    EXPECT_EQ(sent.substr(c.before.size() + 19, c.after.size() + c.before.size() + 15),
              c.after + c.before + "189999001A06B13")
        << c.name;
    EXPECT_EQ(sent.substr(sent.size() - c.after.size()), c.after) << c.name;
    ASSERT_EQ(qkp("mark --line 1 --dept 1"), 0);
  }
  EXPECT_EQ(qkp("sync --line 2 --separator tab --out " + dir.file("x")), 2);
  EXPECT_EQ(qkp("sync --line 2 --serial-settings 9600,9,N,1 --out " + dir.file("x")), 2);
  EXPECT_NE(err.find("data bits 9 are not 5, 6, 7 or 8"), std::string::npos) << err;
  EXPECT_FALSE(std::filesystem::exists(dir.file("x")));  // a refused sync writes nothing
  // /dev/null is a device: written, not flushed, and the records count as delivered.
  EXPECT_EQ(qkp("sync --line 1 --dept 1 --out /dev/null"), 0) << err;
  EXPECT_EQ(qkp("pending --line 1 --dept 1"), 3);
}

// A pseudo-terminal pair that qkp does not inherit (a master left open in the child would keep
// the line alive).
void open_line(int* master, int* slave, char* name) {
  ASSERT_EQ(openpty(master, slave, name, nullptr, nullptr), 0);
  fcntl(*master, F_SETFD, FD_CLOEXEC);
  fcntl(*slave, F_SETFD, FD_CLOEXEC);
}

// Reads everything a pseudo-terminal's master receives until `stop` bytes arrived or it closes.
std::string drain(int master, std::size_t stop) {
  std::string got;
  char buf[4096];
  while (got.size() < stop) {
    pollfd p{master, POLLIN, 0};
    if (poll(&p, 1, 5000) <= 0) break;
    ssize_t n = read(master, buf, sizeof buf);
    if (n <= 0) break;
    got.append(buf, static_cast<std::size_t>(n));
  }
  return got;
}

TEST_F(Workflow, SerialLineReceivesEveryByte) {
  int master = -1, slave = -1;
  char name[256];
  // The test keeps the terminal side open too, so that the master never sees a hang-up.
  open_line(&master, &slave, name);
  std::string expected_file = dir.file("expected.bin");
  // The same records to a file first (a full sync resets nothing of a line's date).
  ASSERT_EQ(qkp("sync --full --line 1 --dept 3 --out " + expected_file), 0) << err;
  std::string expected = file_bytes(expected_file);
  ASSERT_GT(expected.size(), 10000u);  // Kestra rows of a 232 x 245 logo among them
  std::string got;
  std::thread reader([&] { got = drain(master, expected.size()); });
  int status =
      qkp("sync --full --line 1 --dept 3 --serial-settings 9600,8,N,1 --out " + std::string(name));
  reader.join();
  close(master);
  close(slave);
  EXPECT_EQ(status, 0) << err;
  ASSERT_EQ(got.size(), expected.size());
  // Only the date may differ, by a second.
  EXPECT_EQ(got.substr(40), expected.substr(40));
}

TEST_F(Workflow, SerialLineThatDisappearsStopsTheSync) {
  // Department 1 of the large network sends far more than a terminal's buffers hold.
  ASSERT_EQ(qkp("init --demo --size large --force --yes"), 0) << err;
  int master = -1, slave = -1;
  char name[256];
  open_line(&master, &slave, name);
  // The line goes away after the first few records.
  std::thread reader([&] {
    drain(master, 200);
    close(master);
    close(slave);
  });
  int status = qkp("sync --line 1 --dept 1 --out " + std::string(name));
  reader.join();
  EXPECT_EQ(status, 1);
  EXPECT_NE(err.find("delivery stopped"), std::string::npos) << err;
  // What was not confirmed stays pending: here, everything after the first batch at most.
  std::string out;
  EXPECT_EQ(qkp("pending --line 1 --dept 1", &out), 0);
  EXPECT_GT(lines_of(out).size(), 100u);
}

TEST_F(Workflow, ExitStatusesScriptsCanTrust) {
  // A 24-bit bitmap is refused with the reason; no record without its picture comes out.
  std::string bmp(54, '\0');
  bmp[0] = 'B', bmp[1] = 'M', bmp[2] = 54 + 12, bmp[10] = 54, bmp[14] = 40, bmp[18] = 2,
  bmp[22] = 2, bmp[26] = 1, bmp[28] = 24;
  dir.write("color.bmp", bmp + std::string(12, '\x7F'));
  std::string out;
  EXPECT_EQ(qkp("image --key 7 --file " + dir.file("color.bmp"), &out), 1);
  EXPECT_EQ(out, "");
  EXPECT_NE(err.find("File non di tipo B/N (not a black-and-white picture; it must be a 1-bit "
                     "uncompressed BMP)"),
            std::string::npos)
      << err;
  EXPECT_EQ(qkp("image --key abc --file " + home + "/images/LOGO.BMP"), 2);
  EXPECT_EQ(qkp("lot --dept 1 --lot 1e30 --family 5000"), 2);
  EXPECT_EQ(qkp("sync --line 1 --dept -7 --out " + dir.file("x")), 2);
  EXPECT_EQ(qkp("pending --line 9"), 2);
  // A layout with an unknown data type, during a sync: named with its department and layout.
  std::filesystem::create_directories(dir.file("bad"));
  dir.write("bad/TICKET_PROPERTY.csv", "TD_BNC,TD_ID,TD_OBJ,Id,value\n1,2,3,4,99\n");
  ASSERT_EQ(qkp("import-csv --replace " + dir.file("bad")), 0) << err;
  EXPECT_EQ(qkp("sync --line 2 --dept 1 --out " + dir.file("full.bin")), 1);
  EXPECT_NE(err.find("department 1, line 2 (5000, scale 2), layout 2: Valore del campo#50 "
                     "sconosciuto! (unknown data type"),
            std::string::npos)
      << err;
  // A layout that lists problems makes --check fail.
  EXPECT_EQ(qkp("layout --dept 1 --layout 2 --family 5000 --check"), 1);
}

TEST_F(Workflow, JsonForPeopleAndPrograms) {
  std::string out;
  ASSERT_EQ(qkp("--format json lines", &out), 0);
  EXPECT_NE(out.find("\"family\": \"KESTRA\""), std::string::npos) << out;
  ASSERT_EQ(qkp("--format json pending --line 2 --dept 1", &out), 0);
  EXPECT_NE(out.find("\"label\": \"lot 12\""), std::string::npos) << out;
  EXPECT_NE(out.find("\"flags\": \"11100000\""), std::string::npos) << out;
  ASSERT_EQ(qkp("--format json status", &out), 0);
  EXPECT_NE(out.find("\"archive\": \"" + home + "/Archivi.sqlite\""), std::string::npos) << out;
}

}  // namespace
