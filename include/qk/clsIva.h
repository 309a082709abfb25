// VAT rates (table ALIQUOTE) as 2000-series records. No error trap: errors reach the caller as
// automation::Error, also from the constructor (which opens the database).
#pragma once

#include <cstdint>
#include <string>

#include "qk/export.h"
#include "qk/recordset.h"
#include "qk/variant.h"

namespace qk {

class QK_API clsIva {
 public:
  QK_MOVE_ONLY(clsIva);
  clsIva();
  // The reading mode ("C", "G", "V"); every rate is read whatever it is.
  void Mode(std::string& v) { mode_ = v; }
  // A rate (stored only: the record comes from the rows Initialize read).
  double Iva() const { return iva_; }
  void Iva(double& v) { iva_ = v; }
  // A rate number (stored only).
  int32_t Id() const { return id_; }
  void Id(int32_t& v) { id_ = v; }
  // The record of the current rate, "" past the last one.
  std::string Protocol2000();
  // How many rates Initialize read.
  int16_t RecordCount() const;
  // Moves to the rate at this index (from 0).
  void CursorPosition(int16_t& v);
  // Runs the query (every rate, whatever the mode) and keeps the rows.
  automation::Variant Initialize();

 private:
  std::string mode_;
  double iva_ = 0;
  int32_t id_ = 0;
  automation::RecordsetPtr rs_;
};

}  // namespace qk
