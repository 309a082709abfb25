#include "qk/host.h"

#include <syslog.h>

#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "qk/host.h"

namespace qk::host {

namespace {

struct Callbacks {
  std::mutex mutex;
  MessageBoxFn box;
  ExitProcessFn exit;
  EventLogFn log;
};

thread_local long g_reports = 0;
thread_local long g_notices = 0;
thread_local Report g_last_report;

Callbacks& callbacks() {
  static Callbacks c;
  return c;
}

// The error reporter's box (Retry/Cancel, critical) is not shown while the setting Debug/Silent
// is "Y", its default, as the reporter itself does once a class has read it; the plain boxes of
// the image reader and the layout encoder are always shown.
int default_box(const std::string& text, const std::string& title, int style) {
  if (style == kErrorBox && setting("Debug", "Silent", "Y") == "Y") return kAnswerRetry;
  std::string shown = title.empty() ? "QK_Protocol" : title;
  std::fprintf(stderr, "[%s] %s\n", cp1252_to_utf8(shown).c_str(), cp1252_to_utf8(text).c_str());
  return (style & 0x0F) == kRetryCancel ? kAnswerRetry : kAnswerOk;
}

void default_exit(unsigned code) {
  std::fflush(nullptr);
  std::exit(static_cast<int>(code));
}

void default_log(int type, const std::string& text) {
  int priority = type == kEventError ? LOG_ERR : type == kEventWarning ? LOG_WARNING : LOG_INFO;
  openlog("QK_Protocol", LOG_PID, LOG_USER);
  syslog(priority, "%s", cp1252_to_utf8(text).c_str());
}

}  // namespace

void set_message_box(MessageBoxFn fn) {
  std::lock_guard lock(callbacks().mutex);
  callbacks().box = std::move(fn);
}
void set_exit_process(ExitProcessFn fn) {
  std::lock_guard lock(callbacks().mutex);
  callbacks().exit = std::move(fn);
}
void set_event_log(EventLogFn fn) {
  std::lock_guard lock(callbacks().mutex);
  callbacks().log = std::move(fn);
}

Report last_report_on_this_thread() {
  return g_last_report;
}
void remember_report(long number, const std::string& description) {
  g_last_report = {number, description};
}

long reports_on_this_thread() {
  return g_reports;
}
long notices_on_this_thread() {
  return g_notices;
}
void count_report() {
  ++g_reports;
}

int message_box(const std::string& text, const std::string& title, int style) {
  if ((style & 0x0F) != kRetryCancel) ++g_notices;
  MessageBoxFn fn;
  {
    std::lock_guard lock(callbacks().mutex);
    fn = callbacks().box;
  }
  return fn ? fn(text, title, style) : default_box(text, title, style);
}

void exit_process(unsigned exit_code) {
  ExitProcessFn fn;
  {
    std::lock_guard lock(callbacks().mutex);
    fn = callbacks().exit;
  }
  if (fn)
    fn(exit_code);
  else
    default_exit(exit_code);
}

void event_log(int type, const std::string& text) {
  EventLogFn fn;
  {
    std::lock_guard lock(callbacks().mutex);
    fn = callbacks().log;
  }
  if (fn)
    fn(type, text);
  else
    default_log(type, text);
}

}  // namespace qk::host
