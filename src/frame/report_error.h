// The one error reporter every trap calls, and the trap itself.
#pragma once

#include <new>
#include <string>

#include "automation/conversions.h"
#include "qk/error.h"

namespace qk {

// Shows the error box (unless silent), passes the error to the logger hook, and ends the process
// when the user answers Cancel. All five arguments are the caller's variables.
void p_ReportError(automation::Variant& Number, automation::Variant& Description,
                   automation::Variant& Project, automation::Variant& Module,
                   automation::Variant& Procedure);

// The English message of the box, built exactly like the translated one.
std::string english_error_message(long number, const std::string& description,
                                  const std::string& project, const std::string& module,
                                  const std::string& procedure);

// The label a procedure's trap reports: procedure ("Get p_strProtocol", "Let p_varKey" or the
// bare method name), class or module, and project. Labels are data: kept exactly as given.
struct TrapLabel {
  const char* procedure;
  const char* module;
  const char* project = "QK_Protocol";
};

// Reports the error with the label.
void report_trapped(const TrapLabel& label, long number, const std::string& description);

// Runs body under the label's trap: any error is reported and the procedure's result stays as
// the body had assigned it. Returns false when an error was trapped.
template <class Body>
bool trap(const TrapLabel& label, Body&& body) noexcept {
  try {
    body();
    return true;
  } catch (const automation::Error& e) {
    report_trapped(label, e.number(), e.description());
  } catch (const std::bad_alloc&) {
    report_trapped(label, automation::kOutOfMemory,
                   automation::standard_description(automation::kOutOfMemory));
  } catch (const std::exception& e) {
    report_trapped(label, automation::kDatabaseError, e.what());
  }
  return false;
}

}  // namespace qk

namespace qk::host {
// Keeps the last report of this thread for last_report_on_this_thread().
void remember_report(long number, const std::string& description);
}  // namespace qk::host
