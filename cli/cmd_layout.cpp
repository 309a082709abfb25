// layout: the arrays of a layout for one series, or --check to list what would not travel well.
#include "commands.h"
#include "qk/clsLayout.h"
#include "qk/host.h"
#include "qk/layout_check.h"
#include "session.h"
#include "sync.h"

namespace qkp {

namespace {

struct LayoutOptions {
  int32_t dept = 1, layout = 1;
  std::string family = "3000";
  bool check = false;
};

}  // namespace

void add_layout_command(CLI::App& app, Options& g) {
  auto o = std::make_shared<LayoutOptions>();
  auto* cmd = app.add_subcommand("layout", "A ticket layout for the 3000 or 5000 series");
  add_dept_option(cmd, o->dept);
  cmd->add_option("--layout", o->layout, "layout number")->required();
  cmd->add_option("--family", o->family, "3000 or 5000")->check(CLI::IsMember({"3000", "5000"}));
  cmd->add_flag("--check", o->check,
                "list unknown data types, unmapped values and field numbers over 50");
  cmd->callback([&g, o] {
    qk::sync::ContextScope context("layout " + std::to_string(o->layout) + " of department " +
                                   std::to_string(o->dept));
    if (o->check) {
      qk::LayoutCheck c = qk::check_layout(o->dept, o->layout);
      if (!c.exists) {
        fail("does not exist");
        return;
      }
      for (const auto& f : c.findings) std::printf("%s\n", qk::cp1252_to_utf8(f).c_str());
      if (c.findings.empty())
        std::fprintf(stderr, "qkp: layout %d is clean\n", o->layout);
      else
        set_exit_status(kExitFailed);
      return;
    }
    qk::clsLayout layout;
    layout.p_lngBnc(o->dept);
    layout.p_lngTicketId(o->layout);
    if (!layout.p_booRetrieveData()) {
      fail("does not exist or could not be built");
      return;
    }
    auto a = layout.p_strProtocol(o->family == "3000" ? 2 : 1);
    print(g, a.items());
  });
}

}  // namespace qkp
