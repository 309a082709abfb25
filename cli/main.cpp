// qkp: the command-line face of the component. Exit status 0 on success, 1 when any error was
// reported during the command, 2 on a usage error.
#include <cstdlib>

#include "commands.h"
#include "qk/archive.h"
#include "qk/error.h"
#include "qk/host.h"
#include "qk/version.h"
#include "session.h"

int main(int argc, char** argv) {
  qkp::Options options;
  CLI::App app{"qkp: protocol strings for weighing scales from the back-office archive"};
  app.require_subcommand(1);
  app.set_version_flag("--version", std::string("qkp ") + QK_VERSION);
  app.parse_complete_callback([&] {
    if (!options.home.empty()) {
      setenv("QK_HOME", options.home.c_str(), 1);
      qkp::set_home_source("--home");
    } else if (const char* h = std::getenv("QK_HOME"); !h || !*h) {
      setenv("QK_HOME", qkp::default_home().c_str(), 1);
      qkp::set_home_source("the data folder: neither --home nor QK_HOME names one");
    }
    qkp::parse_format(options.format_name, &options.format);
    if (qkp::only_reads(qkp::command_path(app))) qk::open_archives_read_only(true);
    qkp::start_session();
  });
  qkp::add_commands(app, options);
  // The first word that is not an option (or an option's value) names the command.
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    if (a == "--home" || a == "--format") {
      ++i;
      continue;
    }
    if (a.empty() || a[0] == '-') continue;
    std::string names;
    bool known = false;
    for (const CLI::App* c : app.get_subcommands([](CLI::App*) { return true; })) {
      known = known || c->get_name() == a;
      names += (names.empty() ? "" : ", ") + c->get_name();
    }
    if (!known) {
      std::fprintf(stderr, "qkp: unknown command \"%s\"; the commands are: %s (qkp --help)\n",
                   a.c_str(), names.c_str());
      return 2;
    }
    break;
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    app.exit(e);
    return 2;
  } catch (const qk::automation::Error& e) {
    qkp::fail(qk::automation::error_label(e.number()) + ": " + qk::cp1252_to_utf8(e.description()));
  } catch (const std::exception& e) {
    qkp::fail(e.what());
  }
  return qkp::exit_status();
}
