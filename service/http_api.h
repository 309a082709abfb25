// The service's HTTP API (cpp-httplib): JSON views of the service and its lines, a sync asked for
// a line, what the archive holds (archive_endpoints.h), /metrics in Prometheus's text format, and
// the web page at /; docs/service.md lists the endpoints.
#pragma once

#include <memory>
#include <string>
#include <thread>

#include "service_board.h"

namespace httplib {
class Server;
}

namespace qk::service {

// The port the API listens on unless told otherwise.
inline constexpr int kDefaultApiPort = 8370;

struct ApiOptions {
  std::string host = "127.0.0.1";
  int port = kDefaultApiPort;  // 0: any free port
  std::string token;           // "": none configured
};

// "HOST:PORT" ("[::1]:8370" for IPv6), or nullopt-like false with the reason.
bool parse_listen(const std::string& text, ApiOptions* o, std::string* why);
bool is_loopback(const std::string& host);

class ToolRunner;

class HttpApi {
 public:
  // `tool` runs the tool's commands for what reads or changes the archive (none: those endpoints
  // are absent).
  HttpApi(ServiceBoard& board, ApiOptions options, const ToolRunner* tool);
  ~HttpApi();
  HttpApi(const HttpApi&) = delete;
  HttpApi& operator=(const HttpApi&) = delete;
  // Binds and serves in its own threads; false with the reason when it cannot.
  bool start(std::string* why);
  int port() const { return port_; }

 private:
  ServiceBoard& board_;
  ApiOptions options_;
  const ToolRunner* tool_;
  std::unique_ptr<httplib::Server> server_;
  std::thread thread_;
  int port_ = 0;
};

}  // namespace qk::service
