// layout: the arrays of a layout for one series, or --check to list what would not travel well.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "commands.h"
#include "output.h"
#include "picture_files.h"
#include "qk/clsLayout.h"
#include "qk/host.h"
#include "qk/layout_check.h"
#include "qk/previews.h"
#include "qk/sync.h"
#include "qk/sync/archive_pictures.h"
#include "qk/sync/record_sources.h"
#include "session.h"

namespace qkp {

namespace {

struct LayoutOptions {
  int32_t dept = -1, layout = 0;
  std::string family = "3000";
  bool check = false;
};

struct ReceiveOptions {
  int32_t dept = 1, layout = 0, from = 0, line = 0;
  std::string family, file;
  bool dry_run = false;
};

// What a scale sent, one record or message per line in the output format (raw: as it is).
std::string read_received(const std::string& file, Format format) {
  std::string bytes;
  if (file == "-") {
    char buf[65536];
    for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, stdin)) > 0;) bytes.append(buf, n);
  } else {
    std::ifstream in(file, std::ios::binary);
    if (!in) throw std::runtime_error(file + ": cannot be read");
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  std::string why;
  auto records = qk::sync::one_per_line(bytes, &why);
  if (!records) throw std::runtime_error(file + ": " + why);
  if (format == Format::Raw) return *records;
  bytes = *records;
  std::string joined;
  std::istringstream lines(bytes);
  long n = 0;
  for (std::string line; std::getline(lines, line);) {
    ++n;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty()) continue;
    auto decoded = format == Format::Hex ? from_hex(line) : from_text(line);
    if (!decoded)
      throw std::runtime_error(file + " line " + std::to_string(n) + ": not in the " +
                               (format == Format::Hex ? "hex" : "text") + " format");
    joined += *decoded + "\n";
  }
  return joined;
}

void receive(const Options& g, const ReceiveOptions& o) {
  qk::sync::ContextScope context("layout " + std::to_string(o.layout) + " of department " +
                                 std::to_string(o.dept));
  std::string text = read_received(o.file, g.format);
  qk::clsLayout layout;
  layout.p_lngBnc(o.dept);
  layout.p_lngTicketId(o.from ? o.from : o.layout);
  layout.p_lngLayoutToImport(o.layout);
  layout.p_lngLine(o.line);
  layout.receive_without_storing(o.dry_run);
  if (o.family == "5000")
    layout.p_ParseReceivedMessageO50(text);
  else
    layout.p_ParseReceivedMessage(text);
  const qk::LayoutReceipt& r = layout.last_receipt();
  for (const auto& n : r.notes) note(qk::cp1252_to_utf8(n));
  if (exit_status() == kExitFailed) {
    fail("nothing was stored");
    return;
  }
  std::printf("%s: a ticket, %s, %s, %s%s\n", o.dry_run ? "would store" : "stored",
              counted(r.texts, "text").c_str(), counted(r.barcodes, "barcode").c_str(),
              counted(r.logos, "logo").c_str(),
              r.notes.empty() ? ""
                              : (", " + std::to_string(r.notes.size()) +
                                 " values snapped or "
                                 "not listed (above)")
                                    .c_str());
}

}  // namespace

void add_layout_command(CLI::App& app, Options& g) {
  auto o = std::make_shared<LayoutOptions>();
  auto* cmd = app.add_subcommand("layout", "A ticket layout for the 3000 or 5000 series");
  cmd->add_option("--dept,--counter", o->dept, "department (--counter is the same)")
      ->check(CLI::NonNegativeNumber);
  cmd->add_option("--layout", o->layout, "layout number");
  cmd->add_option("--family", o->family, "3000 or 5000")
      ->check(CLI::IsMember(form_choices<qk::Kind::Layouts>()));
  cmd->add_flag("--check", o->check,
                "list unknown data types, unmapped values and field numbers over 50");
  cmd->callback([&g, o, cmd] {
    if (!cmd->get_subcommands().empty()) return;
    if (o->dept < 0 || o->layout == 0)
      throw CLI::RequiredError(
          "layout needs --dept and --layout (or: layout receive, request, preview)");
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
    // A layout depends on its department only, not on a line of it.
    qk::sync::LineContext line;
    line.where.dept = o->dept;
    auto records = qk::sync::source_of(qk::Kind::Layouts)
                       .open(line, qk::parse_form<qk::Kind::Layouts>(o->family))
                       ->build(o->layout);
    if (records.empty()) {
      fail("does not exist or could not be built");
      return;
    }
    print(g, records);
  });

  auto ro = std::make_shared<ReceiveOptions>();
  auto* rec = cmd->add_subcommand(
      "receive", "Store what a scale sent back for one of its layouts as layout N");
  add_dept_option(rec, ro->dept);
  rec->add_option("--layout", ro->layout, "the layout to store it as")->required();
  rec->add_option("--from", ro->from, "the scale's layout number (default: the same)");
  rec->add_option("--family", ro->family, "3000 or 5000")
      ->required()
      ->transform(CLI::IsMember({"3000", "5000"}));
  rec->add_option("--file", ro->file, "the records or messages received, one per line; - for stdin")
      ->required();
  rec->add_option("--line", ro->line, "the line it came from (noted in the layout's description)");
  rec->add_flag("--dry-run", ro->dry_run, "read and summarise, store nothing");
  rec->callback([&g, ro] {
    try {
      receive(g, *ro);
    } catch (const std::exception& e) {
      fail(e.what());
    }
  });

  auto vo = std::make_shared<ReceiveOptions>();
  vo->family = "3000";
  auto* pv = cmd->add_subcommand("preview", "Draw a layout as the scale receives it (SVG or PNG)");
  add_dept_option(pv, vo->dept);
  pv->add_option("--layout", vo->layout, "layout number")->required();
  pv->add_option("--family", vo->family, "3000 (default) or 5000")
      ->transform(CLI::IsMember({"3000", "5000"}));
  pv->add_option("--out", vo->file, "FILE.svg or FILE.png (default layout-D-N.svg)");
  pv->callback([vo] {
    qk::sync::ContextScope context("layout " + std::to_string(vo->layout) + " of department " +
                                   std::to_string(vo->dept));
    // Logos as the archive holds them, as the sync sends them.
    std::optional<TemporaryFolder> pictures;
    try {
      pictures.emplace();
    } catch (const std::exception& e) {
      return fail(e.what());
    }
    qk::sync::write_department_pictures(*qk::sync::open_archive_tools(), pictures->path(),
                                        vo->dept);
    qk::LayoutPreview p = qk::preview_layout(vo->dept, vo->layout, vo->family, pictures->path());
    if (!p.exists) return fail("does not exist");
    std::string out = vo->file.empty() ? "layout-" + std::to_string(vo->dept) + "-" +
                                             std::to_string(vo->layout) + ".svg"
                                       : vo->file;
    try {
      write_drawing(out, p.svg);
    } catch (const std::exception& e) {
      return fail(e.what());
    }
    for (const auto& problem : p.problems) note(qk::cp1252_to_utf8(problem));
    if (!p.problems.empty()) set_exit_status(kExitFailed);
    std::fprintf(stderr, "qkp: drawn to %s\n", out.c_str());
  });

  auto qo = std::make_shared<std::pair<int32_t, int32_t>>(0, 0);
  auto* req = cmd->add_subcommand("request", "The type \"46\" record asking a scale for a layout");
  req->add_option("--layout", qo->first, "the scale's layout number")->required();
  req->add_option("--object", qo->second, "one object (field number); default 0, the whole layout");
  req->callback([&g, qo] {
    qk::clsLayout layout;
    print(g,
          {layout.p_strMakeReceiveRequest(std::to_string(qo->first), std::to_string(qo->second))});
  });
}

}  // namespace qkp
