#include "qk/clsIva.h"

#include "automation/conversions.h"
#include "builders/vat_totals_format.h"
#include "frame/creation.h"
#include "frame/globals.h"
#include "frame/modUtility.h"

namespace qk {

namespace fmt = vat_totals_format;
using modHelpers::p_strFormattaCampo;

namespace {
automation::Recordset& kept(const automation::RecordsetPtr& rs) {
  if (!rs) automation::raise(automation::kObjectNotSet);
  return *rs;
}
}  // namespace

clsIva::clsIva() {
  open_database();
}

automation::Variant clsIva::Initialize() {
  rs_ = db().p_objRetrieveGenericRecordset(
      // Every mode sends every rate: the condition is empty for "C", "G", "V" and the rest.
      "select * from ALIQUOTE ");
  return {};
}

int16_t clsIva::RecordCount() const {
  return automation::Variant(kept(rs_).RecordCount()).to_int16();
}

void clsIva::CursorPosition(int16_t& v) {
  kept(rs_).AbsolutePosition(v);
}

std::string clsIva::Protocol2000() {
  auto& rs = kept(rs_);
  if (rs.Eof()) return "";
  std::string id = rs.Fields("Id").to_string();
  double hundredths = rs.Fields("percentage").to_double() * 100;
  std::string rate = std::to_string(automation::double_to_int16(hundredths));
  return std::string(fmt::kVatType) + std::string(fmt::kFiller) +
         p_strFormattaCampo(id, 1, fmt::kVatIdWidth) +
         p_strFormattaCampo(std::string(fmt::kVatDescription) + id, 0, fmt::kVatDescriptionWidth) +
         std::string(fmt::kVatFlag) + p_strFormattaCampo(rate, 1, fmt::kVatRateWidth);
}

}  // namespace qk
