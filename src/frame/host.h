// The desktop services the component uses, as callbacks the host may replace. Headless defaults:
// boxes go to stderr and answer Retry (Retry/Cancel boxes) or OK; the event log is syslog.
#pragma once

#include <functional>
#include <string>

namespace qk::host {

// Message box styles and answers, with the platform's values.
enum BoxStyle : int {
  kOkOnly = 0,
  kRetryCancel = 5,
  kCritical = 16,
  kExclamation = 48,
  kErrorBox = kRetryCancel | kCritical,  // 21
  kNoticeBox = kOkOnly | kExclamation,   // 48
};
enum BoxAnswer : int { kAnswerOk = 1, kAnswerCancel = 2, kAnswerRetry = 4 };

// Event log entry types.
enum EventType : int { kEventError = 1, kEventWarning = 2, kEventInformation = 4 };

// Texts are 8-bit strings as the component holds them; the defaults convert them for display.
using MessageBoxFn =
    std::function<int(const std::string& text, const std::string& title, int style)>;
using ExitProcessFn = std::function<void(unsigned exit_code)>;
using EventLogFn = std::function<void(int type, const std::string& text)>;

void set_message_box(MessageBoxFn fn);  // nullptr restores the default
void set_exit_process(ExitProcessFn fn);
void set_event_log(EventLogFn fn);

int message_box(const std::string& text, const std::string& title, int style);
// Ends the process with the given code through the host callback (the default calls exit()).
void exit_process(unsigned exit_code);
void event_log(int type, const std::string& text);

// How many errors the component reported (p_ReportError) and how many notice boxes it showed
// on this thread since it started: a host compares them around a call to learn whether the call
// went cleanly, since the component returns partial results rather than failing.
long reports_on_this_thread();
long notices_on_this_thread();
void count_report();

// The exit code a running process reads for itself (STILL_ACTIVE).
inline constexpr unsigned kStillActive = 259;

}  // namespace qk::host
