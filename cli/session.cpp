#include "session.h"

#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <map>

#include "qk/archive.h"
#include "qk/host.h"
#include "qk/registry_helper.h"
#include "qk/translations.h"
#include "qk/sync.h"

namespace qkp {

std::string default_home() {
  if (const char* xdg = std::getenv("XDG_DATA_HOME"); xdg && *xdg == '/')
    return std::string(xdg) + "/qk_protocol";
  if (::geteuid() == 0) return "/var/lib/qk_protocol";
  const char* home = std::getenv("HOME");
  return std::string(home && *home ? home : ".") + "/.local/share/qk_protocol";
}

namespace {
std::string g_home_source = "QK_HOME";
}

const std::string& home_source() {
  return g_home_source;
}

void set_home_source(std::string source) {
  g_home_source = std::move(source);
}

namespace {

int g_status = kExitOk;
bool g_lost_said = false;

std::string prefixed(const std::string& text) {
  const std::string& context = qk::sync::current_context();
  return "qkp: " + (context.empty() ? "" : context + ": ") + text;
}

// The component's fixed Italian notices, with what they mean for the user.
std::string explained(const std::string& utf8) {
  static const std::map<std::string, std::string> kMeaning = {
      {"Non è un file valido", "not a BMP file; it must be a 1-bit uncompressed BMP"},
      {"Attenzione!\r\nLa dimensione è sbagliata",
       "the file's size does not match its BMP header; it must be a whole 1-bit uncompressed BMP"},
      {"File non di tipo B/N",
       "not a black-and-white picture; it must be a 1-bit uncompressed BMP"},
      {"Le dimensioni dell'immagine eccedono il massimo limite!",
       "the picture has more than 56840 pixels (width × height)"},
  };
  auto it = kMeaning.find(utf8);
  if (it != kMeaning.end()) return it->second;
  if (utf8.rfind("Valore del campo#", 0) == 0)
    return "unknown data type: the text is sent with data type 27 and field value 999";
  return "";
}

class StderrLogger : public qk::Logger {
 public:
  std::string Path() const override { return "stderr"; }
  void WriteLog(int32_t, const std::string& project, const std::string& module,
                const std::string& procedure, const std::string& description, int16_t,
                int32_t number) override {
    g_status = kExitFailed;
    if (g_lost_said && number == qk::automation::kRemoteServerUnavailable) return;
    std::fprintf(stderr, "%s\n",
                 prefixed(qk::automation::error_label(number) + " in " +
                          qk::cp1252_to_utf8(project) + "." + qk::cp1252_to_utf8(module) + "." +
                          qk::cp1252_to_utf8(procedure) + ": " + qk::cp1252_to_utf8(description))
                     .c_str());
  }
};

}  // namespace

void start_session() {
  qk::register_archive();
  qk::register_translations();
  qk::register_registry_helper();
  qk::host::StartOptions o;
  o.logger = std::make_shared<StderrLogger>();
  // Event-log entries go to syslog as usual, and to stderr so the person at the terminal sees
  // them ("Il lotto: … è risultato inesistente").
  o.event_log = [](int type, const std::string& text) {
    std::fprintf(stderr, "%s\n", prefixed("event: " + qk::cp1252_to_utf8(text)).c_str());
    openlog("QK_Protocol", LOG_PID, LOG_USER);
    syslog(type == qk::host::kEventError     ? LOG_ERR
           : type == qk::host::kEventWarning ? LOG_WARNING
                                             : LOG_INFO,
           "%s", qk::cp1252_to_utf8(text).c_str());
  };
  o.message_box = [](const std::string& text, const std::string&, int style) {
    // Error boxes are printed by the logger; the tool answers Retry so the command goes on.
    if ((style & 0x0F) == qk::host::kRetryCancel) return int(qk::host::kAnswerRetry);
    // A notice means the request was not met as asked: it counts as a failure.
    g_status = kExitFailed;
    std::string utf8 = qk::cp1252_to_utf8(text);
    std::string meaning = explained(utf8);
    std::string shown = utf8;
    for (auto at = shown.find("\r\n"); at != std::string::npos; at = shown.find("\r\n"))
      shown.replace(at, 2, " ");
    std::fprintf(stderr, "%s\n",
                 prefixed(shown + (meaning.empty() ? "" : " (" + meaning + ")")).c_str());
    return int(qk::host::kAnswerOk);
  };
  qk::host::start(o);
}

void lost_connection_said_by_command(bool said) {
  g_lost_said = said;
}

int exit_status() {
  return g_status;
}

void set_exit_status(int status) {
  if (g_status != kExitFailed) g_status = status;
}

void fail(const std::string& text) {
  g_status = kExitFailed;
  std::fprintf(stderr, "%s\n", prefixed(text).c_str());
}

void reported(const std::string& failure, const std::function<void()>& work) {
  try {
    work();
  } catch (const qk::automation::Error& e) {
    fail(failure + ": " + qk::cp1252_to_utf8(e.description()));
  } catch (const std::exception& e) {
    fail(failure + ": " + e.what());
  }
}

void note(const std::string& text) {
  std::fprintf(stderr, "%s\n", prefixed(text).c_str());
}

}  // namespace qkp
