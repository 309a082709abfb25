#include "http_api.h"

#include <httplib.h>

#include <charconv>
#include <nlohmann/json.hpp>

namespace qk::service {

namespace {

using nlohmann::json;

std::string iso_time(std::time_t t) {
  std::tm utc{};
  ::gmtime_r(&t, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text;
}

void reply(httplib::Response& res, int status, const json& body) {
  res.status = status;
  res.set_content(body.dump(1) + "\n", "application/json");
}
void error(httplib::Response& res, int status, const std::string& message) {
  reply(res, status, {{"error", message}});
}

// A path parameter that must be a whole number in a range; false after answering 400.
bool number(const httplib::Request& req, httplib::Response& res, std::size_t index,
            const char* name, int32_t min, int32_t max, int32_t* out) {
  std::string text = req.matches[static_cast<int>(index)];
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), *out);
  if (ec != std::errc() || end != text.data() + text.size() || *out < min || *out > max) {
    error(res, 400,
          std::string(name) + ": \"" + text + "\" is not a whole number from " +
              std::to_string(min) + " to " + std::to_string(max));
    return false;
  }
  return true;
}

// The department and line a path names (/api/lines/DEPT/LINE…); false after answering 400.
bool line_in_path(const httplib::Request& req, httplib::Response& res, int32_t* dept,
                  int32_t* line) {
  return number(req, res, 1, "dept", 0, INT32_MAX, dept) && number(req, res, 2, "line", 1, 8, line);
}
void no_line(httplib::Response& res, int32_t dept, int32_t line) {
  error(res, 404, "department " + std::to_string(dept) + " has no line " + std::to_string(line));
}

json line_json(const LineView& l) {
  return {{"dept", l.dept},
          {"line", l.line},
          {"family", l.family},
          {"scale", l.scale},
          {"address", l.address},
          {"pending", l.pending},
          {"syncing", l.syncing},
          {"failures", l.failures},
          {"last_error", l.last_error.empty() ? json(nullptr) : json(l.last_error)},
          {"next_retry_seconds", l.failures > 0 ? json(l.next_try_in) : json(nullptr)},
          {"last_success", l.last_success ? json(iso_time(*l.last_success)) : json(nullptr)}};
}

std::string metrics(const ServiceView& v) {
  std::string s;
  auto family = [&](const char* name, const char* type, const char* help) {
    s += std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
  };
  auto labels = [](const LineView& l) {
    return "{dept=\"" + std::to_string(l.dept) + "\",line=\"" + std::to_string(l.line) + "\"}";
  };
  family("qk_line_pending", "gauge", "Records pending on the line at the service's last look.");
  for (const auto& l : v.lines)
    s += "qk_line_pending" + labels(l) + " " + std::to_string(l.pending) + "\n";
  family("qk_line_failures", "gauge", "Failed syncs of the line in a row.");
  for (const auto& l : v.lines)
    s += "qk_line_failures" + labels(l) + " " + std::to_string(l.failures) + "\n";
  family("qk_line_last_success_timestamp_seconds", "gauge",
         "When a sync of the line last ended well (Unix time).");
  for (const auto& l : v.lines)
    if (l.last_success)
      s += "qk_line_last_success_timestamp_seconds" + labels(l) + " " +
           std::to_string(*l.last_success) + "\n";
  family("qk_syncs_total", "counter", "Syncs the service ran, by outcome.");
  s += "qk_syncs_total{outcome=\"done\"} " + std::to_string(v.syncs_done) + "\n";
  s += "qk_syncs_total{outcome=\"failed\"} " + std::to_string(v.syncs_failed) + "\n";
  family("qk_sync_duration_seconds", "summary", "How long the service's syncs took.");
  char sum[32];
  std::snprintf(sum, sizeof sum, "%.3f", v.sync_seconds);
  s += std::string("qk_sync_duration_seconds_sum ") + sum + "\n";
  s += "qk_sync_duration_seconds_count " + std::to_string(v.syncs_done + v.syncs_failed) + "\n";
  return s;
}

}  // namespace

bool is_loopback(const std::string& host) {
  return host == "127.0.0.1" || host == "::1" || host == "localhost";
}

bool parse_listen(const std::string& text, ApiOptions* o, std::string* why) {
  std::size_t colon = text.rfind(':');
  std::string host = colon == std::string::npos ? "" : text.substr(0, colon);
  if (host.size() > 2 && host.front() == '[' && host.back() == ']')
    host = host.substr(1, host.size() - 2);
  std::string port = colon == std::string::npos ? "" : text.substr(colon + 1);
  int p = -1;
  auto [end, ec] = std::from_chars(port.data(), port.data() + port.size(), p);
  if (host.empty() || ec != std::errc() || end != port.data() + port.size() || p < 0 || p > 65535) {
    *why = "--listen: \"" + text +
           "\" is not HOST:PORT (such as 127.0.0.1:" + std::to_string(kDefaultApiPort) + ")";
    return false;
  }
  o->host = host;
  o->port = p;
  return true;
}

HttpApi::HttpApi(ServiceBoard& board, ApiOptions options)
    : board_(board), options_(std::move(options)), server_(std::make_unique<httplib::Server>()) {}

HttpApi::~HttpApi() {
  server_->stop();
  if (thread_.joinable()) thread_.join();
}

bool HttpApi::start(std::string* why) {
  bool loopback = is_loopback(options_.host);
  if (!loopback && options_.token.empty()) {
    *why = "listening on " + options_.host +
           " needs a token (qkp serve --init-token writes one); only 127.0.0.1 and ::1 are "
           "served without";
    return false;
  }
  auto& s = *server_;
  // Away from this machine everything needs the token; here, whatever changes something does.
  s.set_pre_routing_handler([this, loopback](const httplib::Request& req, httplib::Response& res) {
    bool writes = req.method != "GET" && req.method != "HEAD";
    if (options_.token.empty() || (loopback && !writes))
      return httplib::Server::HandlerResponse::Unhandled;
    if (req.get_header_value("Authorization") == "Bearer " + options_.token)
      return httplib::Server::HandlerResponse::Unhandled;
    error(res, 401, "this request needs the service's token (Authorization: Bearer …)");
    return httplib::Server::HandlerResponse::Handled;
  });
  s.Get("/api/status", [this](const httplib::Request&, httplib::Response& res) {
    ServiceView v = board_.snapshot();
    long pending = 0, syncing = 0, failing = 0;
    for (const auto& l : v.lines) {
      pending += l.pending;
      syncing += l.syncing;
      failing += l.failures > 0;
    }
    reply(res, 200,
          {{"installation", v.installation},
           {"archive", v.archive},
           {"store", v.store},
           {"service",
            {{"state", v.state},
             {"started", iso_time(v.started)},
             {"lines", v.lines.size()},
             {"pending", pending},
             {"syncing", syncing},
             {"failing", failing}}}});
  });
  s.Get("/api/lines", [this](const httplib::Request&, httplib::Response& res) {
    json out = json::array();
    for (const auto& l : board_.snapshot().lines) out.push_back(line_json(l));
    reply(res, 200, out);
  });
  s.Get(R"(/api/lines/([^/]+)/([^/]+))",
        [this](const httplib::Request& req, httplib::Response& res) {
          int32_t dept = 0, line = 0;
          if (!line_in_path(req, res, &dept, &line)) return;
          for (const auto& l : board_.snapshot().lines)
            if (l.dept == dept && l.line == line) return reply(res, 200, line_json(l));
          no_line(res, dept, line);
        });
  s.Post(R"(/api/lines/([^/]+)/([^/]+)/sync)",
         [this](const httplib::Request& req, httplib::Response& res) {
           int32_t dept = 0, line = 0;
           if (!line_in_path(req, res, &dept, &line)) return;
           if (!board_.request_sync(dept, line)) return no_line(res, dept, line);
           reply(res, 202, {{"queued", true}, {"dept", dept}, {"line", line}});
         });
  s.Get("/metrics", [this](const httplib::Request&, httplib::Response& res) {
    res.set_content(metrics(board_.snapshot()), "text/plain; version=0.0.4");
  });
  s.set_error_handler([](const httplib::Request& req, httplib::Response& res) {
    if (res.body.empty())
      error(
          res, res.status,
          res.status == 404 ? "no such endpoint: " + req.path : "the request could not be served");
  });
  s.set_exception_handler(
      [](const httplib::Request&, httplib::Response& res, std::exception_ptr e) {
        std::string what = "internal error";
        try {
          std::rethrow_exception(e);
        } catch (const std::exception& x) {
          what = x.what();
        } catch (...) {
        }
        error(res, 500, what);
      });
  port_ = options_.port == 0 ? s.bind_to_any_port(options_.host)
                             : (s.bind_to_port(options_.host, options_.port) ? options_.port : -1);
  if (port_ <= 0) {
    *why = "cannot listen on " + options_.host + ":" + std::to_string(options_.port) +
           " (in use, or not an address of this machine)";
    return false;
  }
  thread_ = std::thread([this] { server_->listen_after_bind(); });
  return true;
}

}  // namespace qk::service
