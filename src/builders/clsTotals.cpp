#include "qk/clsTotals.h"

#include "builders/totals_query.h"
#include "builders/vat_totals_format.h"
#include "frame/creation.h"
#include "frame/globals.h"
#include "frame/modUtility.h"

namespace qk {

namespace fmt = vat_totals_format;

namespace {
automation::Recordset& kept(const automation::RecordsetPtr& rs) {
  if (!rs) automation::raise(automation::kObjectNotSet);
  return *rs;
}
}  // namespace

clsTotals::clsTotals() {
  open_database();
}

std::string totals_query(const std::string& mode, int16_t counter) {
  std::string w;
  if (counter != fmt::kAllCounters) w = "where BNC = " + std::to_string(counter);
  if (mode == "V")
    // The doubled blank before "instr" is harmless and kept.
    w += std::string(w.empty() ? " where " : " and ") + " instr(FLAGTRASM, '1') > 0";
  return "select * from ARTICOLI " + w;
}

automation::Variant clsTotals::Initialize() {
  rs_ = db().p_objRetrieveGenericRecordset(totals_query(mode_, counter_));
  return {};
}

int16_t clsTotals::RecordCount() const {
  return automation::Variant(kept(rs_).RecordCount()).to_int16();
}

void clsTotals::CursorPosition(int16_t& v) {
  kept(rs_).AbsolutePosition(v);
}

std::string clsTotals::Protocol2000() {
  auto& rs = kept(rs_);
  if (rs.Eof()) return "";
  return std::string(fmt::kTotalsType) + std::string(fmt::kFiller) +
         modHelpers::p_strFormattaCampo(rs.Fields("Plu").to_string(), 1, fmt::kPluWidth);
}

}  // namespace qk
