#include "http_api.h"

#include <charconv>
#include <optional>

#include "archive_endpoints.h"
#include "http_replies.h"
#include "qk/sync/record_sources.h"
#include "web_files.h"

namespace qk::service {

namespace {

using nlohmann::json;

// Every kind of record, in sending order, for the page's filters.
json kinds() {
  json out = json::array();
  for (const auto& e : sync::sources()) out.push_back(std::string(kind_name(e.kind)));
  return out;
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
          {"last_success", l.last_success ? json(iso_time(*l.last_success)) : json(nullptr)},
          {"delivered", l.delivered},
          {"bytes", l.bytes}};
}

std::string metrics(const ServiceView& v) {
  std::string s;
  auto family = [&](const char* name, const char* type, const char* help) {
    s += std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
  };
  // One sample per line; a line without a value (never a success yet) has none.
  struct PerLine {
    const char *name, *type, *help;
    std::optional<long long> (*value)(const LineView&);
  };
  static const PerLine per_line[] = {
      {"qk_line_pending", "gauge", "Records pending on the line at the service's last look.",
       [](const LineView& l) -> std::optional<long long> { return l.pending; }},
      {"qk_line_failures", "gauge", "Failed syncs of the line in a row.",
       [](const LineView& l) -> std::optional<long long> { return l.failures; }},
      {"qk_line_failed_syncs_total", "counter", "Failed syncs of the line since the start.",
       [](const LineView& l) -> std::optional<long long> { return l.failed_syncs; }},
      {"qk_line_records_delivered_total", "counter", "Records the line confirmed.",
       [](const LineView& l) -> std::optional<long long> { return l.delivered; }},
      {"qk_line_bytes_delivered_total", "counter", "Bytes of the records the line confirmed.",
       [](const LineView& l) -> std::optional<long long> { return l.bytes; }},
      {"qk_line_last_success_timestamp_seconds", "gauge",
       "When a sync of the line last ended well (Unix time).",
       [](const LineView& l) -> std::optional<long long> {
         if (!l.last_success) return std::nullopt;
         return static_cast<long long>(*l.last_success);
       }},
  };
  for (const auto& m : per_line) {
    family(m.name, m.type, m.help);
    for (const auto& l : v.lines)
      if (auto value = m.value(l))
        s += std::string(m.name) + "{dept=\"" + std::to_string(l.dept) + "\",line=\"" +
             std::to_string(l.line) + "\"} " + std::to_string(*value) + "\n";
  }
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

HttpApi::HttpApi(ServiceBoard& board, ApiOptions options, const ToolRunner* tool)
    : board_(board),
      options_(std::move(options)),
      tool_(tool),
      server_(std::make_unique<httplib::Server>()) {}

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
             {"failing", failing}}},
           {"kinds", kinds()}});
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
  if (tool_) add_archive_endpoints(s, *tool_);
  // The page, from the files built into the program.
  for (const auto& f : web_files()) {
    std::string path = f.path, type = "text/plain; charset=utf-8";
    for (auto [ext, t] : {std::pair{".html", "text/html; charset=utf-8"},
                          {".css", "text/css; charset=utf-8"},
                          {".js", "text/javascript; charset=utf-8"},
                          {".svg", "image/svg+xml"}})
      if (path.ends_with(ext)) type = t;
    auto serve = [text = std::string_view(f.text), type](const httplib::Request&,
                                                         httplib::Response& res) {
      res.set_header("Cache-Control", "no-cache");
      res.set_content(text.data(), text.size(), type);
    };
    s.Get("/" + path, serve);
    if (path == "index.html") s.Get("/", serve);
  }
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
