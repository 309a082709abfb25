// "Parameters.xml" in the installation folder: general parameters per scale family, archives,
// character conversions, barcode scanner settings, EAN128 application identifiers, time-outs and
// two switches. Every call loads the file afresh; every write saves it whole and atomically, so
// a failing write leaves the file as it was. Errors are reported under fixed labels and give the
// empty result.
#pragma once

#include <cstdint>
#include <string>

#include "qk/string_array.h"

namespace qk {

class clsConfigurationPrs {
 public:
  clsConfigurationPrs();

  // Translated names of the barcode natures 0 to 7 (texts "BARCODE_n" of module FRMBARCODE).
  automation::StringArray RetrieveBarcodeNature();
  // The attribute of "//VELTA" with that exact name ("" when absent; a missing element is an
  // error that is reported).
  std::string RetrieveVeltaGeneralParameter(std::string& strParameterName);
  std::string RetrieveOrvaTopGeneralParameter(std::string& strParameterName);
  // The same for "//ALLDEVICES"; a missing element gives "" without a report.
  std::string RetrieveCommonGeneralParameter(std::string& strParameterName);
  std::string RetrieveArchiveInUse(const std::string& key);
  // "name=value" for each pair of the language's ASCII_CROSS entry ("ITA" when it has none).
  automation::StringArray RetrieveConvertionTable();
  void SaveBarcodeCommSettings(int16_t intCommPort, const std::string& strSettings);
  // [0] port, [1] settings; both "-1" without a scanner element.
  automation::StringArray RetrieveBarcodeCommSettings();
  void SaveApplicationIdentifier(const std::string& strAI, const std::string& strContents,
                                 const std::string& strFormat, const std::string& strCoupling,
                                 bool booOnlyValues);
  // AI, CONTENTS, FORMAT, COUPLING, ONLYVALUES of the item (all "" when absent).
  automation::StringArray RetrieveApplicationIdentifier(const std::string& strAI);
  // The time-out in seconds, 150 when absent or empty; above 255 or not a number is reported.
  uint8_t RetrieveTimeout(const std::string& strTimeout);
  void DeleteApplicationIdentifier(const std::string& strAI);
  // True without an ALLDEVICES element; otherwise whether TRIM_VALUES (SHOW_2000) is "Y" in
  // any case.
  bool TrimValues();
  bool ShowOrva2000();

  const std::string& file_name() const { return file_; }

 private:
  std::string file_;
};

}  // namespace qk
