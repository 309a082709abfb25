// Ticket and label layouts (tables TICKET, TICKET_DETAIL, TICKET_PROPERTY): p_booRetrieveData
// builds the 3000-series record array and the 5000-series message array of the layout at once;
// p_strProtocol(2) returns the first, any other device the second. A layout that does not exist,
// or a failure of the assembly, leaves both arrays as they were.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "qk/enums.h"
#include "qk/export.h"
#include "qk/recordset.h"
#include "qk/string_array.h"

namespace qk {

// What the last receiving call read: objects per kind, and the values it snapped to a listed one
// or could not find in Configurazione.xml ("message 3: font 7 is not in …; stored as 0").
struct QK_API LayoutReceipt {
  int32_t texts = 0, barcodes = 0, logos = 0;
  std::vector<std::string> notes;
  bool stored = false;  // written to the archive (false after a dry run or an error)
};

class QK_API clsLayout {
 public:
  QK_MOVE_ONLY(clsLayout);
  // Creation sequence, then "Configurazione.xml" from the component's own folder (a missing or
  // malformed file leaves every lookup empty).
  clsLayout();

  // The counter (department) number.
  int32_t p_lngBnc() const { return bnc_; }
  void p_lngBnc(int32_t v) { bnc_ = v; }
  // The layout number (TICKET id) to build or to receive.
  int32_t p_lngTicketId() const { return ticket_; }
  void p_lngTicketId(int32_t v) { ticket_ = v; }
  // A copy of the 3000 record array (intDevice 2, the default) or of the 5000 message array.
  automation::StringArray p_strProtocol(int16_t intDevice = 2) const;
  // The highest index of the 3000 record array.
  int32_t p_lngMaxItem() const { return max_3000_; }
  // The highest index of the 5000 message array.
  int32_t p_lngMaxItemO50() const { return max_5000_; }
  // Builds both arrays for layout p_lngTicketId of department p_lngBnc.
  bool p_booRetrieveData();
  // Receiving: the type "46" record that asks a scale for its layout strLayoutNumber (object
  // strObjectNumber, 0 for all), and the parsers of what a 3000 or 5000 scale sends back for its
  // layout p_lngTicketId (records or messages, separated by line breaks or "@#@"), stored as
  // layout p_lngLayoutToImport of department p_lngBnc in one transaction, replacing it. Nothing
  // is stored unless the whole layout was read; errors name the record and the reason.
  std::string p_strMakeReceiveRequest(const std::string& strLayoutNumber,
                                      const std::string& strObjectNumber);
  // Parses what a 3000 scale sent back for its layout and stores it.
  void p_ParseReceivedMessage(const std::string& strMessage);
  // The layout number the received layout is stored as.
  int32_t p_lngLayoutToImport() const { return import_; }
  void p_lngLayoutToImport(int32_t v) { import_ = v; }
  // The line, used when receiving layouts.
  int32_t p_lngLine() const { return line_; }
  void p_lngLine(int32_t v) { line_ = v; }
  // Parses what a 5000 scale sent back for its layout and stores it.
  void p_ParseReceivedMessageO50(const std::string& strMessage);

  // The last receiving call's summary; with `dry_run`, the parsers read and summarise only.
  const LayoutReceipt& last_receipt() const { return receipt_; }
  // With true, the receiving parsers read and summarise only, storing nothing.
  void receive_without_storing(bool dry_run) { dry_run_ = dry_run; }

 private:
  struct Configuration;  // "Configurazione.xml" as read at creation

  // The image file name of an image number (the number itself when not in the archive).
  std::string m_strRetrieveImageNumber2ImageName(int32_t& image);
  bool m_booOpenXml(const std::string& path);
  std::string m_strHeader() const;
  std::string m_strTicketOrva3000();
  std::string m_strTicketOrva5000();
  automation::StringArray m_strText();
  automation::StringArray m_strTextOrva5000();
  automation::StringArray m_strBarcode();
  automation::StringArray m_strBarcodeOrva5000();
  automation::StringArray m_strLogo();
  automation::StringArray m_strLogoOrva5000();
  std::string ticket(bool series5000);
  std::string record_3000(const std::string& field, int32_t flags, const std::string& element,
                          int32_t x, int32_t y, const std::string& rest) const;
  void receive(const std::string& text, bool series5000, const char* procedure);

  int32_t import_ = 0, line_ = 0, bnc_ = 0, ticket_ = 0;
  int32_t max_3000_ = 0, max_5000_ = 0;
  automation::StringArray array_3000_, array_5000_;
  automation::RecordsetPtr layout_;
  std::shared_ptr<const Configuration> config_;
  int32_t origin_x_ = 0, origin_y_ = 0;
  LayoutReceipt receipt_;
  bool dry_run_ = false;
};

}  // namespace qk
