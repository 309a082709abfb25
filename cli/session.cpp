#include "session.h"

#include <syslog.h>

#include <cstdio>

#include "config/clsRegistry2Xml.h"
#include "db_access/clsDbAccess.h"
#include "frame/encoding.h"
#include "frame/globals.h"
#include "frame/host.h"
#include "registry/clsRegistry.h"
#include "translate/clsTranslate.h"

namespace qkp {

namespace {

bool g_errors = false;

class StderrLogger : public qk::Logger {
 public:
  std::string Path() const override { return "stderr"; }
  void WriteLog(int32_t, const std::string& project, const std::string& module,
                const std::string& procedure, const std::string& description, int16_t,
                int32_t number) override {
    g_errors = true;
    std::fprintf(stderr, "error %d in %s.%s.%s: %s\n", number, qk::cp1252_to_utf8(project).c_str(),
                 qk::cp1252_to_utf8(module).c_str(), qk::cp1252_to_utf8(procedure).c_str(),
                 qk::cp1252_to_utf8(description).c_str());
  }
};

}  // namespace

void start_session() {
  qk::companions::register_db_access();
  qk::companions::register_translate();
  qk::companions::register_registry_helper();
  qk::globals().objLogger = std::make_shared<StderrLogger>();
  // A host creates the settings store before classes that only load translations (requests,
  // printer images) would need it.
  qk::globals().objRegistry = std::make_shared<qk::clsRegistry2Xml>();
  // Event-log entries go to syslog as usual, and to stderr so the person at the terminal sees
  // them ("Il lotto: … è risultato inesistente").
  qk::host::set_event_log([](int type, const std::string& text) {
    std::fprintf(stderr, "event: %s\n", qk::cp1252_to_utf8(text).c_str());
    openlog("QK_Protocol", LOG_PID, LOG_USER);
    syslog(type == qk::host::kEventError ? LOG_ERR : LOG_INFO, "%s",
           qk::cp1252_to_utf8(text).c_str());
  });
  qk::host::set_message_box([](const std::string& text, const std::string& title, int style) {
    // Error boxes are printed by the logger; the tool answers Retry so the command goes on.
    if ((style & 0x0F) == qk::host::kRetryCancel) return int(qk::host::kAnswerRetry);
    std::string t = title.empty() ? "QK_Protocol" : title;
    std::fprintf(stderr, "%s: %s\n", qk::cp1252_to_utf8(t).c_str(),
                 qk::cp1252_to_utf8(text).c_str());
    return int(qk::host::kAnswerOk);
  });
}

bool errors_reported() {
  return g_errors;
}

void fail(const std::string& text) {
  g_errors = true;
  std::fprintf(stderr, "qkp: %s\n", text.c_str());
}

}  // namespace qkp
