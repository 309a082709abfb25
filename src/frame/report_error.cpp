#include "frame/report_error.h"

#include "frame/globals.h"
#include "qk/host.h"

namespace qk {

namespace {

constexpr const char* kCrLf = "\r\n";

std::string build_message(const std::string t[8], const std::string& number,
                          const std::string& description, const std::string& project,
                          const std::string& module, const std::string& procedure) {
  std::string m;
  m += t[0] + kCrLf;
  m += kCrLf;
  m += t[1] + description + kCrLf;
  m += t[2] + number + kCrLf;
  m += kCrLf;
  m += t[3] + kCrLf;
  m += kCrLf;
  m += t[4] + project + kCrLf;
  m += t[5] + module + kCrLf;
  m += t[6] + procedure + kCrLf;
  m += kCrLf;
  m += t[7];
  return m;
}

const std::string kEnglish[8] = {"Warning! The following error occurred:",
                                 "Description: ",
                                 "Number: ",
                                 "in the procedure:",
                                 "Project: ",
                                 "Module: ",
                                 "Procedure: ",
                                 "Contact system administrator"};

}  // namespace

std::string english_error_message(long number, const std::string& description,
                                  const std::string& project, const std::string& module,
                                  const std::string& procedure) {
  return build_message(kEnglish, std::to_string(number), description, project, module, procedure);
}

void p_ReportError(automation::Variant& Number, automation::Variant& Description,
                   automation::Variant& Project, automation::Variant& Module,
                   automation::Variant& Procedure) {
  host::count_report();
  try {
    host::remember_report(Number.to_int32(), Description.to_string());
  } catch (...) {
    // A number or description that is no number or text is still a report; it is only not kept.
  }
  // Resume-next: a failing statement is skipped and the fallback flag is set.
  bool fallback = false;
  auto step = [&](auto&& f) {
    try {
      f();
    } catch (...) {
      fallback = true;
    }
  };
  auto text = [](const automation::Variant& v) {
    try {
      return v.to_string();
    } catch (...) {
      return std::string();
    }
  };
  Globals& g = globals();
  int answer = 0;

  // Step 1 (mouse pointer back to default) has nothing to do without a desktop.
  if (!g.booSilent) {
    std::string t[8];
    for (int i = 0; i < 8; ++i)
      step([&] {
        t[i] =
            collection_item(g.colStrings, "p_STR_DYNAMICSTRING_" + std::to_string(510 + i) + "_0");
      });
    std::string message;
    step([&] {
      message = build_message(t, Number.to_string(), Description.to_string(), Project.to_string(),
                              Module.to_string(), Procedure.to_string());
    });
    step([&] { answer = host::message_box(message, "Error", host::kErrorBox); });
  }
  step([&] {
    if (g.objLogger && !g.objLogger->Path().empty())
      g.objLogger->WriteLog(2, text(Project), text(Module), text(Procedure), text(Description), 0,
                            Number.to_int32());
  });
  if (fallback && !g.booSilent) {
    std::string number = text(Number);
    answer = host::message_box(build_message(kEnglish, number, text(Description), text(Project),
                                             text(Module), text(Procedure)),
                               "Error", host::kErrorBox);
  }
  if (answer == host::kAnswerCancel) {
    // The process reads its own exit code (still running) and ends with it.
    host::exit_process(host::kStillActive);
  }
}

void report_trapped(const TrapLabel& label, long number, const std::string& description) {
  automation::Variant n(static_cast<long>(number)), d(description), p(label.project),
      m(label.module), pr(label.procedure);
  p_ReportError(n, d, p, m, pr);
}

}  // namespace qk
