#include "archive_endpoints.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <regex>

#include "http_replies.h"
#include "qk/sync.h"
#include "qk/sync/archive_pictures.h"
#include "tool_runner.h"

namespace qk::service {

namespace {

using nlohmann::json;

// A query parameter and the tool's option it becomes.
struct Param {
  const char* name;
  const char* option;  // "": read by the endpoint itself
  enum Type { Whole, Kind, MarkKind, Time, Family, ImageKind } type;
  int64_t min = 0, max = 0;
};

const Param kLine{"line", "--line", Param::Whole, 1, 8};
const Param kDept{"dept", "--dept", Param::Whole, 0, INT32_MAX};
const Param kId{"id", "--id", Param::Whole, 0, INT32_MAX};
const Param kLimit{"limit", "", Param::Whole, 1, 1000};
const Param kOffset{"offset", "", Param::Whole, 0, INT32_MAX};

std::vector<std::string> names_of(const std::vector<Kind>& kinds) {
  std::vector<std::string> names;
  for (Kind k : kinds) names.emplace_back(kind_name(k));
  return names;
}
const std::vector<std::string>& allowed(Param::Type t) {
  static const auto kinds = [] {
    std::vector<Kind> all;
    for (const auto& e : sync::sources()) all.push_back(e.kind);
    return names_of(all);
  }();
  static const auto markable = names_of(sync::markable_kinds());
  static const std::vector<std::string> families = {"3000", "5000"},
                                        image_kinds = {"scale", "kestra", "printer"};
  return t == Param::Kind       ? kinds
         : t == Param::MarkKind ? markable
         : t == Param::Family   ? families
                                : image_kinds;
}

// The request's parameters checked against what the endpoint takes, as the tool's options (in
// *args) and the endpoint's own (in *own); false after answering 400 naming the parameter.
bool read_params(const httplib::Request& req, httplib::Response& res,
                 const std::vector<Param>& takes, std::vector<std::string>* args,
                 std::map<std::string, int64_t>* own) {
  for (const auto& [name, value] : req.params) {
    auto p =
        std::find_if(takes.begin(), takes.end(), [&](const Param& p) { return name == p.name; });
    if (p == takes.end()) {
      std::string list;
      for (const auto& t : takes) list += std::string(list.empty() ? "" : ", ") + t.name;
      error(res, 400,
            name + ": no such parameter here" + (list.empty() ? "" : " (it takes " + list + ")"));
      return false;
    }
    if (p->type == Param::Whole) {
      int64_t n = 0;
      if (!whole_number(res, value, p->name, p->min, p->max, &n)) return false;
      if (!*p->option) (*own)[name] = n;
    } else if (p->type == Param::Time) {
      static const std::regex time(R"(\d{4}-\d{2}-\d{2}(T\d{2}:\d{2}(:\d{2})?Z?)?)");
      if (!std::regex_match(value, time)) {
        error(res, 400,
              name + ": \"" + value +
                  "\" is not a UTC time such as 2026-11-20 or 2026-11-20T14:00:00Z");
        return false;
      }
    } else {
      const auto& names = allowed(p->type);
      if (std::find(names.begin(), names.end(), value) == names.end()) {
        std::string list;
        for (const auto& n : names) list += std::string(list.empty() ? "" : ", ") + n;
        error(res, 400, name + ": \"" + value + "\" is not one of " + list);
        return false;
      }
    }
    if (*p->option) {
      args->push_back(p->option);
      args->push_back(value);
    }
  }
  return true;
}

// What the tool said on stderr, without its "qkp: " prefixes, as one message.
// Lines naming `leave_out` (when given) are left out.
std::string said(const ToolAnswer& a, const std::string& leave_out = "") {
  std::string text;
  std::size_t at = 0;
  while (at < a.err.size()) {
    std::size_t end = a.err.find('\n', at);
    std::string line = a.err.substr(at, end == std::string::npos ? std::string::npos : end - at);
    at = end == std::string::npos ? a.err.size() : end + 1;
    if (line.rfind("qkp: ", 0) == 0) line.erase(0, 5);
    if (!leave_out.empty() && line.find(leave_out) != std::string::npos) continue;
    if (!line.empty()) text += (text.empty() ? "" : "; ") + line;
  }
  return text.empty() ? "the tool ended with status " + std::to_string(a.status) : text;
}

// The tool's JSON answer, or false after answering with an error: its usage errors are the
// request's (400), a failure has the endpoint's status, no answer in time is 503.
bool tool_json(httplib::Response& res, const ToolAnswer& a, int failure, json* out) {
  if (a.status == 0 || a.status == 3) {
    *out = json::parse(a.out.empty() ? "null" : a.out, nullptr, false);
    if (!out->is_discarded()) return true;
    error(res, 500, "the tool's answer is not JSON");
    return false;
  }
  error(res, a.status < 0 ? 503 : a.status == 2 ? 400 : failure, said(a));
  return false;
}

// A page of rows counted from the newest: the tool is asked for one more than the page, so the
// answer says whether there are older ones.
void journal_page(const ToolRunner& tool, const char* command, const std::vector<Param>& takes,
                  const httplib::Request& req, httplib::Response& res) {
  std::vector<std::string> args = {command};
  std::map<std::string, int64_t> own = {{"limit", 50}, {"offset", 0}};
  if (!read_params(req, res, takes, &args, &own)) return;
  args.insert(args.end(), {"--last", std::to_string(own["limit"] + 1), "--skip",
                           std::to_string(own["offset"])});
  json rows;
  if (!tool_json(res, tool.run(args), 500, &rows)) return;
  std::reverse(rows.begin(), rows.end());
  bool more = rows.size() > static_cast<std::size_t>(own["limit"]);
  if (more) rows.erase(rows.end() - 1);
  reply(res, 200,
        {{"rows", rows}, {"offset", own["offset"]}, {"limit", own["limit"]}, {"more", more}});
}

// A picture the tool draws into a file of a folder of this request's own.
void picture(const ToolRunner& tool, std::vector<std::string> args, const char* option,
             const std::string& name, const char* type, httplib::Response& res) {
  std::string folder = (std::filesystem::temp_directory_path() / "qkp-serve-XXXXXX").string();
  if (!::mkdtemp(folder.data())) return error(res, 500, "cannot make a temporary folder");
  std::string path = folder + "/" + name;
  args.insert(args.end(), {option, path});
  ToolAnswer a = tool.run(args);
  auto bytes = sync::read_whole_file(path);
  std::error_code ec;
  std::filesystem::remove_all(folder, ec);
  // A drawing with problems (a logo outside the ticket) is still shown; its problems travel along.
  if (!bytes || (a.status != 0 && a.status != 1))
    return error(res, a.status == 2 ? 400 : 404, said(a));
  if (a.status == 1) res.set_header("X-QK-Problems", said(a, folder));  // not where it drew
  res.set_content(*bytes, type);
}

}  // namespace

void add_archive_endpoints(httplib::Server& s, const ToolRunner& tool) {
  s.Get(R"(/api/lines/([^/]+)/([^/]+)/pending)", [&tool](const httplib::Request& req,
                                                         httplib::Response& res) {
    int32_t dept = 0, line = 0;
    std::map<std::string, int64_t> own;
    std::vector<std::string> args = {"pending"};
    if (!line_in_path(req, res, &dept, &line) || !read_params(req, res, {}, &args, &own)) return;
    args.insert(args.end(), {"--line", std::to_string(line), "--dept", std::to_string(dept)});
    json lines;
    if (!tool_json(res, tool.run(args), 404, &lines)) return;
    if (!lines.is_array() || lines.empty())
      return error(res, 404,
                   "department " + std::to_string(dept) + " has no line " + std::to_string(line));
    reply(res, 200, lines[0]);
  });
  s.Get("/api/journal", [&tool](const httplib::Request& req, httplib::Response& res) {
    static const std::vector<Param> takes = {kLine,
                                             kDept,
                                             {"kind", "--kind", Param::Kind},
                                             kId,
                                             {"since", "--since", Param::Time},
                                             {"until", "--until", Param::Time},
                                             kLimit,
                                             kOffset};
    if (req.has_param("id") && !req.has_param("kind"))
      return error(res, 400, "id: needs kind (an id names a key, a form, a lot or a message)");
    journal_page(tool, "journal", takes, req, res);
  });
  s.Get("/api/runs", [&tool](const httplib::Request& req, httplib::Response& res) {
    journal_page(tool, "runs", {kLine, kLimit, kOffset}, req, res);
  });
  s.Post("/api/mark", [&tool](const httplib::Request& req, httplib::Response& res) {
    static const std::vector<Param> takes = {
        kLine, kDept, {"kind", "--kind", Param::MarkKind}, kId};
    if (!req.has_param("line")) return error(res, 400, "line: the line to mark records pending on");
    if (req.has_param("id") && !req.has_param("kind"))
      return error(res, 400, "id: needs kind (an id names a key, a form, a lot or a message)");
    std::vector<std::string> args = {"mark"};
    std::map<std::string, int64_t> own;
    if (!read_params(req, res, takes, &args, &own)) return;
    json marked;
    if (tool_json(res, tool.run(args), 404, &marked)) reply(res, 200, marked);
  });
  for (const char* what : {"layouts", "images"})
    s.Get(std::string("/api/") + what, [&tool, what](const httplib::Request& req,
                                                     httplib::Response& res) {
      std::vector<std::string> args = {what};
      std::map<std::string, int64_t> own;
      if (!req.has_param("dept")) return error(res, 400, "dept: the department to list");
      json rows;
      if (read_params(req, res, {kDept}, &args, &own) && tool_json(res, tool.run(args), 404, &rows))
        reply(res, 200, rows);
    });
  // The pictures: /api/layouts/D/N.svg|png and /api/images/D/N.png, drawn by the tool's previews.
  struct Picture {
    const char *pattern, *number, *command, *number_option, *out_option;
    Param param;
  };
  static const Picture pictures[] = {
      {R"(/api/layouts/([^/]+)/([^/.]+)\.(svg|png))",
       "layout",
       "layout",
       "--layout",
       "--out",
       {"family", "--family", Param::Family}},
      {R"(/api/images/([^/]+)/([^/.]+)\.(png))",
       "image",
       "image",
       "--id",
       "--png",
       {"kind", "--kind", Param::ImageKind}},
  };
  for (const auto& p : pictures)
    s.Get(p.pattern, [&tool, &p](const httplib::Request& req, httplib::Response& res) {
      int64_t dept = 0, number = 0;
      std::vector<std::string> args;
      std::map<std::string, int64_t> own;
      if (!whole_number(res, req.matches[1], "dept", 0, INT32_MAX, &dept) ||
          !whole_number(res, req.matches[2], p.number, 0, INT32_MAX, &number) ||
          !read_params(req, res, {p.param}, &args, &own))
        return;
      args.insert(args.begin(), {p.command, "preview", "--dept", std::to_string(dept),
                                 p.number_option, std::to_string(number)});
      bool svg = req.matches[3] == "svg";
      picture(tool, args, p.out_option, std::string(p.number) + (svg ? ".svg" : ".png"),
              svg ? "image/svg+xml" : "image/png", res);
    });
}

}  // namespace qk::service
