// "Parameters.xml" of the installation folder, for hosts and tools: the component's own reader
// and writer behind a small interface. Every call loads the file afresh; every write saves it
// whole and atomically. Errors are reported as the component reports them and give the empty
// result.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "qk/export.h"

namespace qk {

class clsConfigurationPrs;

class QK_API ParametersFile {
 public:
  QK_MOVE_ONLY(ParametersFile);
  ParametersFile();
  ~ParametersFile();

  std::string file_name() const;
  // The attribute of that name on the VELTA, ORVATOP or ALLDEVICES element ("" when absent).
  std::string velta(const std::string& name);
  std::string orvatop(const std::string& name);
  std::string common(const std::string& name);
  // The archive table configured for a key ("PLU", "LOTTI").
  std::string archive(const std::string& key);
  // "name=value" pairs of the language's ASCII_CROSS entry.
  std::vector<std::string> conversion_table();
  // The translated names of the barcode natures 0 to 7.
  std::vector<std::string> barcode_natures();
  // The barcode scanner: port and settings ("-1" each when not configured).
  std::vector<std::string> scanner();
  void set_scanner(int16_t port, const std::string& settings);
  // AI, CONTENTS, FORMAT, COUPLING, ONLYVALUES of an EAN128 application identifier.
  std::vector<std::string> application_identifier(const std::string& ai);
  void set_application_identifier(const std::string& ai, const std::string& contents,
                                  const std::string& format, const std::string& coupling,
                                  bool only_values);
  void delete_application_identifier(const std::string& ai);
  // A time-out in seconds (150 when absent).
  int timeout(const std::string& name);
  bool trim_values();
  bool show_2000();

 private:
  std::unique_ptr<clsConfigurationPrs> impl_;
};

}  // namespace qk
