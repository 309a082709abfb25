// serve: the unattended service over the installation's store, with its HTTP API.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <fstream>
#include <memory>

#include "commands.h"
#include "http_api.h"
#include "qk/host.h"
#include "service.h"
#include "session.h"
#include "tool_runner.h"

namespace qkp {

namespace {

std::string token_file() {
  return qk::path_in(qk::installation_folder(), "service.token");
}

// A new token, readable by its owner only, put in place atomically.
void init_token() {
  std::string token, path = token_file(), tmp = path + ".new";
  std::ifstream random("/dev/urandom", std::ios::binary);
  for (int i = 0; i < 32; ++i) {
    char hex[3];
    std::snprintf(hex, sizeof hex, "%02x", static_cast<unsigned char>(random.get()));
    token += hex;
  }
  if (!random) return fail("cannot read /dev/urandom for a token");
  ::unlink(tmp.c_str());
  int fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  std::string text = token + "\n";
  bool ok = fd >= 0 && ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
            ::fsync(fd) == 0;
  if (fd >= 0) ::close(fd);
  if (!ok || ::rename(tmp.c_str(), path.c_str()) != 0) {
    ::unlink(tmp.c_str());
    return fail("cannot write " + path);
  }
  std::printf("%s\n", token.c_str());
  note("the service's token is in " + path +
       " (mode 0600); clients send it as \"Authorization: "
       "Bearer TOKEN\"");
}

// The configured token, "" when there is none; a file others may read is refused.
bool read_token(std::string* token, std::string* why) {
  std::string path = token_file();
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return true;
  if ((st.st_mode & 077) != 0) {
    *why =
        path + " may be read by others: chmod 600 it, or write a new one (qkp serve --init-token)";
    return false;
  }
  std::ifstream in(path);
  std::getline(in, *token);
  if (token->size() < 32) {
    *why = path + " holds no token (qkp serve --init-token writes one)";
    return false;
  }
  return true;
}

}  // namespace

void add_serve_command(CLI::App& app, Options&) {
  auto* serve = app.add_subcommand(
      "serve",
      "Keep every line of the installation's store up to date, unattended: sync a line as soon "
      "as something is pending there, set the clocks on a schedule, retry failed lines "
      "(settings of section Service, read again on SIGHUP; docs/sync.md); with an HTTP API and "
      "page (docs/service.md)");
  auto listen =
      std::make_shared<std::string>("127.0.0.1:" + std::to_string(qk::service::kDefaultApiPort));
  auto init = std::make_shared<bool>(false);
  serve->add_option("--listen", *listen,
                    "HOST:PORT of the HTTP API (default 127.0.0.1:8370; another host than "
                    "127.0.0.1 or ::1 needs a token; \"off\": none)");
  serve->add_flag("--init-token", *init,
                  "write a new token for the API into the installation folder (service.token, "
                  "mode 0600), print it and exit");
  serve->callback([listen, init] {
    if (*init) return init_token();
    qk::service::ApiOptions api;
    std::string why;
    bool with_api = *listen != "off";
    if (with_api && !qk::service::parse_listen(*listen, &api, &why))
      throw CLI::ValidationError("--listen", why);
    if (with_api && !read_token(&api.token, &why)) return fail(why);
    char self[PATH_MAX];
    ssize_t n = ::readlink("/proc/self/exe", self, sizeof self - 1);
    if (n <= 0) return fail("cannot find the qkp program to run each sync");
    self[n] = '\0';
    auto say = [](const std::string& text) {
      std::fprintf(stderr, "qkp serve: %s\n", text.c_str());
      std::fflush(stderr);
    };
    std::unique_ptr<qk::service::HttpApi> server;
    qk::service::ToolRunner tool(self, qk::installation_folder());
    qk::service::ServiceEnvironment env{self, qk::installation_folder(), say, nullptr};
    if (with_api)
      env.start_api = [&](qk::service::ServiceBoard& board, std::string* why) {
        server = std::make_unique<qk::service::HttpApi>(board, api, &tool);
        if (!server->start(why)) return false;
        say("the API and page: http://" +
            (api.host.find(':') != std::string::npos ? "[" + api.host + "]" : api.host) + ":" +
            std::to_string(server->port()) + "/" + (api.token.empty() ? "" : " (with a token)"));
        return true;
      };
    qk::service::Service service(env);
    set_exit_status(service.run());
  });
}

}  // namespace qkp
