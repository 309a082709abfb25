// Syncs run as separate processes whose transport logs what each string was, and an importer
// running beside them: the pieces of the tests of writers side by side.
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "tool_fixture.h"

namespace qk::testing {

inline std::string file_bytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// A qkp sync started in the background whose transport appends "DEPT KIND ID " and the record's
// bytes, then a NUL, to `log` for each string, slowly enough for other processes to act meanwhile.
// What it says goes to `log`.err.
inline pid_t start_logged_sync(const std::string& home, const std::string& args,
                               const std::string& log) {
  pid_t pid = fork();
  if (pid == 0) {
    std::string cmd = std::string(QKP_BINARY) + " --home " + home + " sync " + args +
                      " --exec 'printf \"%s %s %s \" $QK_DEPT $QK_KIND $QK_ID >> " + log +
                      "; cat >> " + log + "; printf \"\\\\0\" >> " + log + "; sleep 0.01' 2>" +
                      log + ".err";
    execl("/bin/sh", "sh", "-c", cmd.c_str(), nullptr);
    _exit(127);
  }
  return pid;
}

inline int exit_status_of(pid_t pid) {
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The strings a logged sync delivered, in order.
inline std::vector<std::string> logged_strings(const std::string& log) {
  std::string all = file_bytes(log);
  std::vector<std::string> strings;
  for (std::size_t at = 0, end; (end = all.find('\0', at)) != std::string::npos; at = end + 1)
    strings.push_back(all.substr(at, end - at));
  return strings;
}

// The records a logged sync delivered, in order, as ("DEPT KIND ID", bytes): its strings with the
// same "DEPT KIND ID" in a row are one record (an image's rows repeat identical strings).
inline std::vector<std::pair<std::string, std::string>> logged_records(const std::string& log) {
  std::vector<std::pair<std::string, std::string>> records;
  for (const auto& s : logged_strings(log)) {
    std::size_t third = s.find(' ', s.find(' ', s.find(' ') + 1) + 1);
    std::string who = s.substr(0, third);
    if (records.empty() || records.back().first != who) records.emplace_back(who, "");
    records.back().second += s.substr(third + 1);
  }
  return records;
}

// Another process importing one lot row after the other (department and lot first..first+lots-1
// chosen at random, text "MARK-<n>-END" unique to each import), with keys of a department, until
// stopped. Each import that
// fails appends its messages to failures().
class Importer {
 public:
  Importer(const Tool& t, std::vector<int> depts, int first, int lots, int round)
      : failures_(t.dir.file("import-failures-" + std::to_string(round) + ".txt")) {
    // A process group of its own, set on both sides of the fork: its imports stop with it.
    pid_ = fork();
    if (pid_ != 0) {
      setpgid(pid_, pid_);
      return;
    }
    setpgid(0, 0);
    std::mt19937 random(12345 + round);
    for (int i = 0;; ++i) {
      std::string folder = t.dir.file("imp-" + std::to_string(round) + "-" + std::to_string(i));
      std::filesystem::create_directories(folder);
      std::ofstream csv(folder + "/TRACEABILITY.csv");
      csv << "TRC_BNC,TRC_ID,TRC_ROW,TRC_ID_LOT,TRC_DESC1\n";
      csv << depts[random() % depts.size()] << "," << (first + random() % lots) << ","
          << (2 + random() % 3) << ",\"X\",\"MARK-" << round * 100000 + i << "-END\"\n";
      csv.close();
      // Keys too, replaced from the highest down: the reverse of the order a sync resets them.
      std::ofstream keys(folder + "/TASTIERA_PLU.csv");
      keys << "TP_BNC,TP_SCALE,TP_KEY,TP_VALUE,TP_FLAGTRASM\n";
      int dept = depts[random() % depts.size()];
      for (int key = 30; key >= 1; key -= 1 + static_cast<int>(random() % 4))
        for (int scale = 1; scale <= 3; ++scale)
          keys << dept << "," << scale << "," << key << "," << (100 + key + i % 2) << ",11111111\n";
      keys.close();
      std::system((std::string(QKP_BINARY) + " --home " + t.home + " import-csv --replace " +
                   folder + " >" + folder + "/out.txt 2>&1 || cat " + folder + "/out.txt >> " +
                   failures_)
                      .c_str());
      usleep(2000);
    }
  }
  // Stops the importer and the import it may be running (which rolls back: nothing half-done).
  ~Importer() {
    kill(-pid_, SIGKILL);
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  std::string failures() const { return file_bytes(failures_); }

 private:
  std::string failures_;
  pid_t pid_;
};

}  // namespace qk::testing
