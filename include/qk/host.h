// The host API: what a program that embeds the component does around the public classes.
//
//   qk::register_archive();   // and the other companions, or the host's own
//   qk::register_translations();
//   qk::register_registry_helper();
//   qk::host::start({.installation_folder = "/srv/shop"});
//   qk::clsBarCode barcodes; …
//
// The component shows message boxes, writes event-log entries and may end the process (when the
// user answers Cancel in an error box); here these are callbacks with headless defaults (boxes
// on stderr answering Retry or OK, the event log in syslog). All state the classes share is per
// thread, as in the component's apartment model; the callbacks and the factory are per process.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "qk/companions.h"
#include "qk/error.h"
#include "qk/export.h"
#include "qk/variant.h"

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

// Texts are 8-bit strings as the component holds them (to_utf8 converts them for display).
using MessageBoxFn =
    std::function<int(const std::string& text, const std::string& title, int style)>;
using ExitProcessFn = std::function<void(unsigned exit_code)>;
using EventLogFn = std::function<void(int type, const std::string& text)>;

struct QK_API StartOptions {
  // The component's own folder (its files and, by default, the installation). Empty: $QK_HOME,
  // or else the folder of the qk_protocol library.
  std::string installation_folder;
  // Empty: the headless default, which prints "[title] text" on stderr, except the error
  // reporter's box (style kErrorBox) while the setting Debug/Silent is "Y" (its default).
  MessageBoxFn message_box;
  EventLogFn event_log;
  ExitProcessFn exit_process;
  // The logger hook of the error reporter for the calling thread (nothing in the component sets
  // one; with none, reports go only to the boxes).
  std::shared_ptr<Logger> logger;
};

// Starts the component for this process and the calling thread: the folder, the callbacks, the
// logger, and this thread's settings store (which classes that load only translations, such as
// clsKplMakeRequest, need). REQUIRES: the companions are registered (a class created without them
// reports error 429, as the component does). Another thread calls start_thread() before using
// the classes.
QK_API void start(const StartOptions& options = {});
QK_API void start_thread(std::shared_ptr<Logger> logger = nullptr);
// Whether start() has been called in this process.
QK_API bool started();

QK_API void set_message_box(MessageBoxFn fn);  // nullptr restores the default
QK_API void set_exit_process(ExitProcessFn fn);
QK_API void set_event_log(EventLogFn fn);
// The calling thread's logger hook (nullptr removes it).
QK_API void set_logger(std::shared_ptr<Logger> logger);

QK_API int message_box(const std::string& text, const std::string& title, int style);
// Ends the process with the given code through the callback (the default calls exit()).
QK_API void exit_process(unsigned exit_code);
QK_API void event_log(int type, const std::string& text);

// How many errors the component reported and how many notice boxes it showed on this thread so
// far: a host compares them around a call to learn whether it went cleanly, since the component
// returns partial results rather than failing.
QK_API long reports_on_this_thread();
QK_API long notices_on_this_thread();
QK_API void count_report();
// The last error the component reported on this thread (number 0 before any): a host that saw
// reports_on_this_thread() change learns which error it was.
struct QK_API Report {
  long number = 0;
  std::string description;
};
QK_API Report last_report_on_this_thread();

// The exit code a running process reads for itself (STILL_ACTIVE).
inline constexpr unsigned kStillActive = 259;

// The settings store ("registry.xml"): a value by key name (the store looks names up whatever
// their section, as the component does), or `fallback` when absent or empty.
QK_API std::string setting(const std::string& section, const std::string& key,
                           const std::string& fallback = "");
// Every setting of the store in file order: its section ("Appl"; the last part of the key's
// path), name and value. Empty when the store is missing or unreadable.
struct QK_API Setting {
  std::string section, name, value;
};
QK_API std::vector<Setting> settings();
// Writes a setting, saving the store atomically; false when it could not (the component reported
// why, and the store is as it was).
QK_API bool save_setting(const std::string& section, const std::string& key,
                         const std::string& value);
// The store's file, wherever the rules put it (the per-user "UseThisPath" or the component's
// folder).
QK_API std::string settings_file();
// Writes an empty store, imports a Windows registry export found in the component's folder when
// `import_registry_export`, and fills the defaults of "Path" and "PathLanguages".
QK_API void create_settings_store(bool import_registry_export);

}  // namespace qk::host

namespace qk {

// The component's own folder, without a trailing separator.
QK_API std::string component_folder();
// The installation folder: setting "Path" of "Appl" (relative to the component's folder when
// relative), or the component's folder.
QK_API std::string installation_folder();

// A path from the settings: an absolute one as it is, a relative one inside `base` ("." is
// `base` itself).
QK_API std::string path_in(const std::string& base, const std::string& path);

// Text inside the component is 8-bit (Windows code page 1252, the scales' character set); files,
// the archive and hosts use UTF-8. cp1252_to_utf8 always succeeds (the five codes 1252 leaves
// undefined map to the same code points); utf8_to_cp1252 fails on a character with no 8-bit form
// or malformed UTF-8, giving the offending byte offset.
QK_API std::string cp1252_to_utf8(std::string_view s);
QK_API std::optional<std::string> utf8_to_cp1252(std::string_view s,
                                                 std::size_t* bad_offset = nullptr);
// Whether utf8_to_cp1252 would succeed, without converting.
QK_API bool has_8bit_form(std::string_view utf8);
// As above, raising a clear error that names the text's origin ("table X, column Y, row N").
QK_API std::string utf8_to_cp1252_or_raise(std::string_view s, const std::string& origin);

// The computer's local clock, replaceable (the scales expect local time).
struct QK_API LocalTime {
  int year, month, day, hour, minute, second;
};
using ClockFn = std::function<LocalTime()>;
QK_API LocalTime clock_now();
QK_API void set_clock(ClockFn fn);  // nullptr restores the system clock

// Writes bytes over path atomically: a temporary file beside it, flushed to disk and renamed over
// it, so a crash never leaves a half-written file. Raises error 75 naming the file.
QK_API void save_file_atomically(const std::string& path, const std::string& bytes);

}  // namespace qk

namespace qk::automation {

// Creation of late-bound components by their string identifier ("QK_Db_Access.clsDbAccess").
// Implementations register a creator; the component creates by name and never links them.
// Identifiers compare case-insensitively, as program identifiers do.
using Creator = std::function<ObjectPtr()>;
QK_API void register_component(const std::string& identifier, Creator creator);
QK_API void unregister_component(const std::string& identifier);
// A new instance; an unregistered identifier raises error 429.
QK_API ObjectPtr create_object(const std::string& identifier);

template <class T>
std::shared_ptr<T> create_as(const std::string& identifier) {
  auto p = std::dynamic_pointer_cast<T>(create_object(identifier));
  if (!p) raise(kMemberNotSupported);
  return p;
}

}  // namespace qk::automation
