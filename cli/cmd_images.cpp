// image (encode a bitmap or decode records back to a picture) and request.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>

#include "commands.h"
#include "output.h"
#include "picture_files.h"
#include "qk/archive_schema.h"
#include "qk/clsImage.h"
#include "qk/clsImageKestra.h"
#include "qk/clsKplMakeRequest.h"
#include "qk/clsPrinterImage.h"
#include "qk/column_rules.h"
#include "qk/error.h"
#include "qk/host.h"
#include "qk/pictures.h"
#include "qk/previews.h"
#include "qk/sync/archive_pictures.h"
#include "qk/sync/network.h"
#include "qk/sync/row_checks.h"
#include "session.h"

namespace qkp {

namespace {

struct ImageOptions {
  int32_t key = 1, dept = -1, id = 0;
  std::string file, kind = "scale", description, from, to, decode, out, png;
  int width = 0;
};

std::vector<std::string> read_hex_lines(const std::string& path) {
  std::ifstream in(path);
  if (!in) throw std::runtime_error("cannot read " + path);
  std::vector<std::string> out;
  std::string line;
  int n = 0;
  while (std::getline(in, line)) {
    ++n;
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.pop_back();
    if (line.empty()) continue;
    if (line.size() % 2)
      throw std::runtime_error(path + " line " + std::to_string(n) + ": odd number of hex digits");
    auto bytes = from_hex(line);
    if (!bytes) throw std::runtime_error(path + " line " + std::to_string(n) + ": not hex");
    out.push_back(*bytes);
  }
  return out;
}

void decode(const ImageOptions& o) {
  auto records = read_hex_lines(o.decode);
  qk::images::Picture p;
  if (o.kind == "printer")
    p = qk::images::decode_printer_frames(records, o.width);
  else if (o.kind == "kestra")
    p = qk::images::decode_kestra_records(records);
  else
    p = qk::images::decode_scale_records(records);
  if (!o.png.empty()) {
    write_png(o.png, grey_of(p));
    std::fprintf(stderr, "qkp: %d x %d pixels written to %s\n", p.width, p.height, o.png.c_str());
    if (o.out.empty()) return;
  }
  std::string out = o.out.empty() ? o.decode + ".pbm" : o.out;
  qk::save_file_atomically(out, qk::images::encode_pbm(p));
  std::fprintf(stderr, "qkp: %d x %d pixels written to %s\n", p.width, p.height, out.c_str());
}

std::vector<std::string> encoded(const ImageOptions& o) {
  std::vector<std::string> out;
  if (o.kind == "kestra") {
    qk::clsImageKestra k;
    k.p_varKey(qk::automation::Variant(o.key));
    k.p_strFullPath(o.file);
    out = k.p_strProtocol().items();
  } else if (o.kind == "printer") {
    qk::clsPrinterImage p;
    p.p_varKey(qk::automation::Variant(o.key));
    p.p_strFullPath(o.file);
    out = p.p_strProtocol().items();
  } else {
    qk::clsImage i;
    i.p_varKey(qk::automation::Variant(o.key));
    i.p_strFullPath(o.file);
    i.p_strDescription(to_8bit(o.description, "--description"));
    i.p_strFromDate(o.from);
    i.p_strToDate(o.to);
    out = i.p_strProtocol().items();
  }
  return out;
}

// The records of a bitmap, or none when the component refused it (a notice or an error): a
// header record without its picture is never printed.
std::vector<std::string> accepted(const ImageOptions& o) {
  long notices = qk::host::notices_on_this_thread(), reports = qk::host::reports_on_this_thread();
  auto out = encoded(o);
  if (qk::host::notices_on_this_thread() != notices ||
      qk::host::reports_on_this_thread() != reports)
    out.clear();
  return out;
}

void encode(const Options& g, const ImageOptions& o) {
  auto out = accepted(o);
  if (out.empty()) return fail("no records were built for " + o.file);
  print(g, out);
}

// What the scale will show of a bitmap: encoded for the kind and decoded back (repacking,
// inversion and padding as the encoders apply them). A Kestra takes 384 pixels of each row: the
// rest of the bitmap is drawn in a lighter shade, as what is lost.
void preview(ImageOptions o) {
  // An image of the archive: its picture as the sync sends it.
  std::optional<TemporaryFolder> folder;
  if (o.dept >= 0) {
    auto a = qk::sync::open_archive_tools();
    auto rs =
        a->select_rows(*qk::archive::find_table("IMMAGINI"), {{"IM_BNC", o.dept}, {"IM_ID", o.id}});
    std::string what = "image " + std::to_string(o.id) + " of department " + std::to_string(o.dept);
    if (rs->Eof()) throw std::runtime_error(what + " does not exist");
    auto bytes = qk::sync::picture_bytes(rs->Fields("IM_PICTURE").to_text());
    if (!bytes || bytes->empty()) throw std::runtime_error(what + " has no picture in the archive");
    folder.emplace();
    o.file = qk::sync::materialised_picture(folder->path(), *bytes);
    o.key = o.id;
  }
  std::ifstream in(o.file, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  qk::images::Picture original = qk::images::read_bitmap(bytes);
  std::vector<std::string> records = accepted(o);
  if (records.empty()) throw std::runtime_error(o.file + ": the encoder refused it (see above)");
  qk::images::Picture shown = o.kind == "kestra" ? qk::images::decode_kestra_records(records)
                              : o.kind == "printer"
                                  ? qk::images::decode_printer_frames(records, original.width)
                                  : qk::images::decode_scale_records(records);
  GreyPicture g = grey_of(shown);
  if (o.kind == "kestra" && original.width > shown.width) {
    GreyPicture wide{original.width, std::max(shown.height, original.height), {}};
    wide.pixels.assign(static_cast<std::size_t>(wide.width) * wide.height, kLostBlank);
    for (int y = 0; y < wide.height; ++y)
      for (int x = 0; x < wide.width; ++x) {
        uint8_t& px = wide.pixels[static_cast<std::size_t>(y) * wide.width + x];
        if (x < shown.width && y < shown.height)
          px = g.pixels[static_cast<std::size_t>(y) * shown.width + x];
        else if (y < original.height && original.rows[y][x])
          px = kLostPrinted;
      }
    std::fprintf(stderr,
                 "qkp: a Kestra prints %d of the %d pixels of each row; the rest is "
                 "drawn grey\n",
                 shown.width, original.width);
    g = std::move(wide);
  }
  write_png(o.png, g);
  std::fprintf(stderr, "qkp: %d x %d pixels written to %s\n", g.width, g.height, o.png.c_str());
}

}  // namespace

void add_image_commands(CLI::App& app, Options& g) {
  auto o = std::make_shared<ImageOptions>();
  auto* image = app.add_subcommand(
      "image", "Encode a 1-bit bitmap for a scale, a Kestra or the printer, or --decode records");
  image->add_option("--key", o->key, "image number");
  image->add_option("--file", o->file, "the bitmap (.bmp)")->check(CLI::ExistingFile);
  image->add_option("--kind", o->kind, "scale, kestra or printer")
      ->check(CLI::IsMember({"scale", "kestra", "printer"}));
  image->add_option("--description", o->description, "description (at most 16 characters)");
  auto date = [](const char* column) {
    return CLI::Validator(
        [column](std::string& v) {
          const auto& images = *qk::archive::find_table("IMMAGINI");
          return qk::archive::value_problem(*qk::archive::find_column(images, column),
                                            qk::automation::Variant(v));
        },
        "DDMMYYYY");
  };
  image->add_option("--from", o->from, "validity start, DDMMYYYY")->check(date("IM_FROM"));
  image->add_option("--to", o->to, "validity end, DDMMYYYY")->check(date("IM_TO"));
  image->add_option("--decode", o->decode,
                    "a file of records, one per line in hex (qkp --format hex output)");
  image->add_option("--out", o->out, "decoded picture (PBM), default FILE.pbm");
  image->add_option("--width", o->width, "picture width in pixels (printer frames)");
  image->add_option("--png", o->png, "with --decode: also (or only) a PNG picture");
  image->callback([&g, o, image] {
    if (!image->get_subcommands().empty()) return;
    if (!o->decode.empty()) return decode(*o);
    if (o->file.empty()) throw CLI::ValidationError("image", "give --file F.bmp or --decode FILE");
    encode(g, *o);
  });

  auto po = std::make_shared<ImageOptions>();
  auto* pv = image->add_subcommand("preview", "A PNG of what the scale will show of a bitmap");
  auto* file = pv->add_option("--file", po->file, "the bitmap (.bmp)")->check(CLI::ExistingFile);
  auto* dept = pv->add_option("--dept", po->dept, "an image of the archive: its department")
                   ->check(CLI::NonNegativeNumber);
  pv->add_option("--id", po->id, "… and its number")->needs(dept);
  dept->excludes(file);
  pv->add_option("--kind", po->kind, "scale, kestra or printer")
      ->check(CLI::IsMember({"scale", "kestra", "printer"}));
  pv->add_option("--png", po->png, "the picture to write")->required();
  pv->callback([po] {
    if (po->file.empty() && po->dept < 0)
      throw CLI::ValidationError("preview", "give --file F.bmp, or --dept D --id N");
    try {
      preview(*po);
    } catch (const std::exception& e) {
      fail(e.what());
    }
  });

  static const std::map<std::string, std::string (qk::clsKplMakeRequest::*)()> kRequests = {
      {"plu-totals", &qk::clsKplMakeRequest::p_RX_strTrasmettiRichiestaRicezioneTotaliPlu},
      {"lot-totals", &qk::clsKplMakeRequest::p_RX_strTrasmettiRichiestaRicezioneTotaliLotti},
      {"lot-plu-totals", &qk::clsKplMakeRequest::p_RX_strTrasmettiRichiestaRicezioneTotaliLottiPlu},
      {"plu-structure",
       &qk::clsKplMakeRequest::p_RX_TOTALI_strTrasmettiRichiestaVariazioneStruttura},
      {"lot-plu-structure",
       &qk::clsKplMakeRequest::p_RX_TOTALI_LOTTIPLU_strTrasmettiRichiestaVariazioneStruttura},
      {"next-plu", &qk::clsKplMakeRequest::p_RX_TOTALI_PLU_strTrasmettiRichiestaProssimoStream},
      {"next-lot", &qk::clsKplMakeRequest::p_RX_TOTALI_LOTTI_strTrasmettiRichiestaProssimoStream},
      {"next-lot-plu",
       &qk::clsKplMakeRequest::p_RX_TOTALI_LOTTI_PLU_strTrasmettiRichiestaProssimoStream},
      {"total-control", &qk::clsKplMakeRequest::p_RX_strGetTotalControl},
      {"stop", &qk::clsKplMakeRequest::p_RX_strStopLavorazioniInCorso},
      {"status", &qk::clsKplMakeRequest::p_RX_strRetrieveStatus},
  };
  struct RequestOptions {
    std::string name, mode;
  };
  auto r = std::make_shared<RequestOptions>();
  auto* request = app.add_subcommand("request", "A request block for the totals-collecting device");
  std::vector<std::string> names{"reset-totals"};
  for (const auto& [n, f] : kRequests) names.push_back(n);
  request->add_option("NAME", r->name, "which request")->required()->check(CLI::IsMember(names));
  request->add_option("--mode", r->mode, "the clear mode of reset-totals (for example ALL)");
  request->callback([&g, r] {
    if (r->name == "reset-totals" && r->mode.empty())
      throw CLI::ValidationError("--mode",
                                 "reset-totals needs the clear mode (for example --mode ALL)");
    if (r->name != "reset-totals" && !r->mode.empty())
      throw CLI::ValidationError("--mode", "only reset-totals takes a mode");
    qk::clsKplMakeRequest k;
    std::string block;
    if (r->name == "reset-totals") {
      std::string mode = to_8bit(r->mode, "--mode");  // the member takes it by reference
      block = k.p_RX_strRichiediCancellazioneTotali(mode);
    } else {
      block = (k.*kRequests.at(r->name))();
    }
    print(g, {block});
  });
}

}  // namespace qkp

namespace qkp {

namespace {

struct PictureOptions {
  int32_t dept = 0, id = 0;
  std::string file, description;
};

// Stores a bitmap with its IMMAGINI row (added, or its picture and file name replaced), once the
// component has read it as a picture.
void add_picture(const PictureOptions& o, bool description_given) {
  auto bytes = qk::sync::read_whole_file(o.file);
  if (!bytes) return fail("cannot read " + o.file);
  long reports = qk::host::reports_on_this_thread();
  qk::clsImage probe;
  probe.p_varKey(qk::automation::Variant(o.id));
  probe.p_strFullPath(o.file);
  auto records = probe.p_strProtocol().items();
  if (bytes->compare(0, 2, "BM") != 0 || records.empty() ||
      qk::host::reports_on_this_thread() != reports)
    return fail(o.file +
                " is not a bitmap the scales can be sent (a .bmp file the component reads)");
  const auto& t = *qk::archive::find_table("IMMAGINI");
  std::string name = std::filesystem::path(o.file).filename().string();
  std::vector<std::string> columns = {"IM_FILE_NAME", "IM_PICTURE"};
  std::vector<qk::automation::Variant> values = {to_8bit(name, "FILE"),
                                                 qk::sync::picture_text(*bytes)};
  if (description_given) {
    columns.push_back("IM_DESCRIPTION");
    values.emplace_back(to_8bit(o.description, "--description"));
  }
  for (std::size_t i = 0; i < columns.size(); ++i)
    if (std::string p =
            qk::archive::value_problem(*qk::archive::find_column(t, columns[i]), values[i]);
        !p.empty())
      return fail(columns[i] + " " + p);
  auto a = qk::sync::open_archive_tools();
  qk::Where key{{"IM_BNC", o.dept}, {"IM_ID", o.id}};
  qk::sync::ArchiveWrite write(*a);
  bool added = a->update_rows(t, key, columns, values) == 0;
  if (added) {
    columns.insert(columns.begin(), {"IM_BNC", "IM_ID"});
    values.insert(values.begin(), {o.dept, o.id});
    a->insert_row(t, columns, values);
  }
  write.commit();
  note(std::string(added ? "added" : "replaced the picture of") + " image " + std::to_string(o.id) +
       " of department " + std::to_string(o.dept) + " (" + name + ", " +
       std::to_string(bytes->size()) + " bytes) in the archive");
}

}  // namespace

void add_picture_command(CLI::App& images) {
  auto o = std::make_shared<PictureOptions>();
  auto* add = images.add_subcommand(
      "add", "Store a bitmap in the archive with its image row (every store's sync sends it)");
  add_dept_option(add, o->dept);
  add->add_option("--id", o->id, "image number")->required();
  add->add_option("FILE", o->file, "the bitmap (.bmp)")->required()->check(CLI::ExistingFile);
  auto* description = add->add_option("--description", o->description, "description");
  add->callback([o, description] { add_picture(*o, description->count() > 0); });
}

}  // namespace qkp
