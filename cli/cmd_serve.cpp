// serve: the unattended service over the installation's store.
#include <unistd.h>

#include <climits>
#include <cstdio>

#include "commands.h"
#include "qk/host.h"
#include "service.h"
#include "session.h"

namespace qkp {

void add_serve_command(CLI::App& app, Options&) {
  auto* serve = app.add_subcommand(
      "serve",
      "Keep every line of the installation's store up to date, unattended: sync a line as soon "
      "as something is pending there, set the clocks on a schedule, retry failed lines "
      "(settings of section Service, read again on SIGHUP; docs/sync.md)");
  serve->callback([] {
    char self[PATH_MAX];
    ssize_t n = ::readlink("/proc/self/exe", self, sizeof self - 1);
    if (n <= 0) return fail("cannot find the qkp program to run each sync");
    self[n] = '\0';
    qk::service::Service service({self, qk::installation_folder(), [](const std::string& text) {
                                    std::fprintf(stderr, "qkp serve: %s\n", text.c_str());
                                    std::fflush(stderr);
                                  }});
    set_exit_status(service.run());
  });
}

}  // namespace qkp
