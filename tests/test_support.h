// Helpers shared by the suites: temporary folders, environment overrides, a fake host that
// records boxes, event-log entries and exits, and a logger spy.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "frame/globals.h"
#include "qk/companions.h"
#include "qk/error.h"
#include "qk/host.h"

namespace qk::testing {

// A layout object's properties written compactly: "0=7 3=1A 7=12,5" (Id=value, blank-separated;
// "9=" is an empty value).
inline std::vector<std::pair<int, std::string>> props(const std::string& written) {
  std::vector<std::pair<int, std::string>> out;
  std::size_t at = 0;
  while (at < written.size()) {
    std::size_t end = written.find(' ', at);
    if (end == std::string::npos) end = written.size();
    std::string item = written.substr(at, end - at);
    std::size_t eq = item.find('=');
    if (eq != std::string::npos)
      out.emplace_back(std::stoi(item.substr(0, eq)), item.substr(eq + 1));
    at = end + 1;
  }
  return out;
}

class TempDir {
 public:
  TempDir() {
    std::string tmpl = (std::filesystem::temp_directory_path() / "qk-test-XXXXXX").string();
    path_ = mkdtemp(tmpl.data());
  }
  ~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  void write(const std::string& name, const std::string& bytes) const {
    std::ofstream(file(name), std::ios::binary) << bytes;
  }
  std::string read(const std::string& name) const {
    std::ifstream in(file(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }

 private:
  std::string path_;
};

class ScopedEnv {
 public:
  ScopedEnv(const char* name, const std::string& value) : name_(name) {
    if (const char* v = std::getenv(name)) old_ = v;
    setenv(name, value.c_str(), 1);
  }
  ~ScopedEnv() {
    if (old_)
      setenv(name_, old_->c_str(), 1);
    else
      unsetenv(name_);
  }

 private:
  const char* name_;
  std::optional<std::string> old_;
};

struct Box {
  std::string text, title;
  int style;
};

// Installs recording callbacks; boxes answer `answer` (Retry by default for error boxes).
class FakeHost {
 public:
  explicit FakeHost(int answer = host::kAnswerRetry) : answer_(answer) {
    host::set_message_box([this](const std::string& t, const std::string& ti, int s) {
      boxes.push_back({t, ti, s});
      return (s & 0x0F) == host::kRetryCancel ? answer_ : int(host::kAnswerOk);
    });
    host::set_event_log([this](int type, const std::string& t) { events.push_back({type, t}); });
    host::set_exit_process([this](unsigned code) { exits.push_back(code); });
  }
  ~FakeHost() {
    host::set_message_box(nullptr);
    host::set_event_log(nullptr);
    host::set_exit_process(nullptr);
  }
  std::vector<Box> boxes;
  std::vector<std::pair<int, std::string>> events;
  std::vector<unsigned> exits;

 private:
  int answer_;
};

struct LogCall {
  int32_t level;
  std::string project, module, procedure, description;
  int16_t flag;
  int32_t number;
};

class LoggerSpy : public Logger {
 public:
  std::string Path() const override { return path; }
  void WriteLog(int32_t level, const std::string& project, const std::string& module,
                const std::string& procedure, const std::string& description, int16_t flag,
                int32_t number) override {
    calls.push_back({level, project, module, procedure, description, flag, number});
  }
  std::string path = "spy.log";
  std::vector<LogCall> calls;
};

// The number of the automation error a call raises, or 0.
inline long error_of(const std::function<void()>& f) {
  try {
    f();
  } catch (const automation::Error& e) {
    return e.number();
  }
  return 0;
}

// Fresh shared state for this thread, with a logger spy installed and silent boxes.
inline std::shared_ptr<LoggerSpy> reset_globals(bool silent = true) {
  globals() = Globals{};
  globals().booSilent = silent;
  auto spy = std::make_shared<LoggerSpy>();
  globals().objLogger = spy;
  return spy;
}

}  // namespace qk::testing
