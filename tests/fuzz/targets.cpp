#include "targets.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "automation/conversions.h"
#include "config/clsConfigurationPrs.h"
#include "config/clsRegistry2Xml.h"
#include "db_access/access_sql.h"
#include "demo.h"
#include "frame/globals.h"
#include "images/bitmap_reader.h"
#include "layout/clsConvertion.h"
#include "layout/layout_receive.h"
#include "qk/sync/network.h"
#include "qk/archive_schema.h"
#include "qk/clsLayout.h"
#include "qk/error.h"
#include "qk/host.h"
#include "qk/pictures.h"
#include "qk/registry_helper.h"
#include "qk/archive.h"
#include "qk/translations.h"
#include "registry/clsRegistry.h"
#include "table_import.h"

namespace qk::fuzz {

namespace {

// What the component reports goes nowhere: the fuzzers look for crashes, not for messages.
class QuietLogger : public Logger {
 public:
  std::string Path() const override { return ""; }
  void WriteLog(int32_t, const std::string&, const std::string&, const std::string&,
                const std::string&, int16_t, int32_t) override {}
};

void quiet_host() {
  static bool once = [] {
    host::set_message_box([](const std::string&, const std::string&, int) { return 1; });
    host::set_event_log([](int, const std::string&) {});
    return true;
  }();
  (void)once;
  globals().booSilent = true;
  globals().objLogger = std::make_shared<QuietLogger>();
}

std::string text_of(const uint8_t* data, std::size_t size) {
  return std::string(reinterpret_cast<const char*>(data), size);
}

std::vector<std::string> lines_of(const std::string& bytes) {
  std::vector<std::string> records;
  std::size_t start = 0;
  for (std::size_t i = 0; i <= bytes.size(); ++i)
    if (i == bytes.size() || bytes[i] == '\n') {
      records.push_back(bytes.substr(start, i - start));
      start = i + 1;
    }
  return records;
}

void require(bool property) {
  if (!property) std::abort();
}

// The installation folder the caller set (the replay's temporary folder), or one of our own.
std::string scratch_home() {
  const char* home = std::getenv("QK_HOME");
  if (home && std::filesystem::is_directory(home)) return home;
  std::string d = (std::filesystem::temp_directory_path() / "qk-fuzz-XXXXXX").string();
  require(mkdtemp(d.data()) != nullptr);
  setenv("QK_HOME", d.c_str(), 1);
  setenv("XDG_CONFIG_HOME", (d + "/cfg").c_str(), 1);
  return d;
}

}  // namespace

int bitmap(const uint8_t* data, std::size_t size) {
  quiet_host();
  std::string bytes = text_of(data, size);
  images::ByteStream s(bytes);
  images::HeaderScan h;
  if (images::m_booScanBitmapHeader(s, static_cast<int32_t>(size), h, size % 2 == 0, "clsImage") &&
      h.width > 0 && h.width < 100000)
    images::m_strBitmap2Scales(s.rest(), h.width, h.inverted);
  std::vector<std::string> records = lines_of(bytes);
  for (int kind = 0; kind < 3; ++kind) {
    try {
      if (kind == 0)
        images::decode_scale_records(records);
      else if (kind == 1)
        images::decode_kestra_records(records);
      else
        images::decode_printer_frames(records, 64);
    } catch (const automation::Error& e) {
      require(!e.description().empty());
    }
  }
  return 0;
}

int sql(const uint8_t* data, std::size_t size) {
  std::string text = text_of(data, size);
  std::string translated = companions::translate_access_sql(text);
  auto p = companions::parameterize(translated);
  // Every value taken out leaves its placeholder behind.
  std::size_t marks = 0;
  for (char c : p.sql) marks += c == '?';
  require(marks >= p.values.size());
  try {
    companions::RegExport().parse("REGEDIT4\n" + text, "fuzz.reg");
  } catch (const std::exception&) {
  }
  return 0;
}

int registry(const uint8_t* data, std::size_t size) {
  try {
    companions::RegExport().parse(text_of(data, size), "fuzz.reg");
  } catch (const automation::Error& e) {
    require(e.number() == automation::kTypeMismatch &&
            e.description().find("fuzz.reg") != std::string::npos);
  }
  return 0;
}

int layout(const uint8_t* data, std::size_t size) {
  std::string folder = scratch_home();
  static bool registered = [] {
    register_archive();
    register_translations();
    register_registry_helper();
    return true;
  }();
  (void)registered;
  quiet_host();
  // A demo archive in the folder, made once per folder.
  if (!std::filesystem::exists(folder + "/Archivi.sqlite")) {
    qkp::write_default_files(folder, true);
    auto tools = sync::new_archive_tools();
    tools->begin_new_archive(kArchiveName, true);
    tools->begin_write();
    qkp::fill_demo_archive(*tools);
    tools->commit();
    tools->publish_new_archive();
  }
  std::string text = text_of(data, size);
  pugi::xml_document configuration;
  configuration.load_file((folder + "/Configurazione.xml").c_str());
  clsConvertion mapping;
  layout::Lookups lookups{configuration, mapping, [](const std::string&) { return int32_t{0}; }};
  for (bool series5000 : {false, true}) {
    try {
      series5000 ? layout::read_5000(text, 1, lookups) : layout::read_3000(text, 1, lookups);
    } catch (const automation::Error& e) {
      require(e.number() == automation::kInvalidProcedureCall && !e.description().empty());
    }
    // Stored as layout 90 of department 1, then taken out again for the next input.
    long reports = host::reports_on_this_thread();
    {
      clsLayout l;
      l.p_lngBnc(1);
      l.p_lngTicketId(1);
      l.p_lngLayoutToImport(90);
      series5000 ? l.p_ParseReceivedMessageO50(text) : l.p_ParseReceivedMessage(text);
    }
    bool refused = host::reports_on_this_thread() != reports;
    auto tools = sync::open_archive_tools();
    for (const char* name : {"TICKET_PROPERTY", "TICKET_DETAIL", "TICKET"}) {
      const archive::Table& t = *archive::find_table(name);
      Where layout90{{std::string(t.department), 1}, {std::string(t.key[1]), 90}};
      require(!refused || tools->select_rows(t, layout90)->Eof());
      tools->delete_rows(t, layout90);
    }
  }
  return 0;
}

int csv(const uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  auto all = archive::tables();
  std::string table(all[data[0] % all.size()].name);
  std::string bytes = text_of(data + 1, size - 1);
  for (char separator : {',', ';'}) {
    try {
      qkp::CsvFile f = qkp::parse_csv(bytes, table + ".csv", {separator});
      qkp::check_csv(f);
    } catch (const automation::Error&) {
    } catch (const std::runtime_error& e) {
      require(std::string(e.what()).find(table + ".csv") != std::string::npos);
    }
  }
  return 0;
}

int xml(const uint8_t* data, std::size_t size) {
  std::string folder = scratch_home();
  static bool registered = [] {
    register_translations();
    register_registry_helper();
    return true;
  }();
  (void)registered;
  quiet_host();
  std::string bytes = text_of(data, size);
  for (const char* name : {"Parameters.xml", "registry.xml", "Configurazione.xml"})
    std::ofstream(folder + "/" + name, std::ios::binary | std::ios::trunc) << bytes;
  try {
    clsConfigurationPrs p;
    std::string name = "SEND_HEADSET";
    p.RetrieveVeltaGeneralParameter(name);
    p.RetrieveOrvaTopGeneralParameter(name);
    p.RetrieveCommonGeneralParameter(name);
    p.RetrieveArchiveInUse("PLU");
    p.RetrieveConvertionTable();
    p.RetrieveBarcodeCommSettings();
    p.RetrieveApplicationIdentifier("01");
    p.RetrieveTimeout("SEND");
    p.TrimValues();
    p.ShowOrva2000();
    p.RetrieveBarcodeNature();
    clsRegistry2Xml store;
    store.GetSetting("Varlen System", "Appl", "Path", "");
    clsConvertion mapping;
    std::string from = "O3", to = "O5", value = "1";
    mapping.ConvertValue(from, to, value);
  } catch (const automation::Error&) {
  }
  return 0;
}

int number(const uint8_t* data, std::size_t size) {
  std::string text = text_of(data, size);
  bool numeric = automation::looks_numeric(text);
  try {
    double v = automation::parse_number(text);
    require(numeric);
    automation::Variant as_text(text);
    try {
      automation::double_to_int16(v);
      as_text.to_int16();
    } catch (const automation::Error& e) {
      require(e.number() == automation::kOverflow);
    }
    try {
      automation::double_to_int32(v);
      as_text.to_int32();
    } catch (const automation::Error& e) {
      require(e.number() == automation::kOverflow);
    }
  } catch (const automation::Error& e) {
    // A number too large for a double ("2e533") has the shape of a number and overflows.
    require(numeric ? e.number() == automation::kOverflow
                    : e.number() == automation::kTypeMismatch);
  }
  try {
    automation::leading_number(text);
  } catch (const automation::Error& e) {
    require(e.number() == automation::kOverflow);  // as the host's Val: "1e400" overflows
  }
  // Every byte has a UTF-8 form, and that form comes back to the same byte.
  auto back = utf8_to_cp1252(cp1252_to_utf8(text));
  require(back && *back == text);
  return 0;
}

const std::vector<NamedTarget>& targets() {
  static const std::vector<NamedTarget> all = {
      {"bitmap", bitmap}, {"sql", sql},           {"csv", csv},      {"xml", xml},
      {"number", number}, {"registry", registry}, {"layout", layout}};
  return all;
}

}  // namespace qk::fuzz
