#include "families.h"

namespace qkp {

const char* kind_name(Kind k) {
  switch (k) {
    case Kind::Date:
      return "date";
    case Kind::Vat:
      return "vat";
    case Kind::Barcodes:
      return "barcodes";
    case Kind::Keys:
      return "keys";
    case Kind::Lots:
      return "lots";
    case Kind::Ads:
      return "ads";
    case Kind::ETexts:
      return "etexts";
    case Kind::Layouts:
      return "layouts";
    case Kind::Images:
      return "images";
  }
  return "?";
}

bool has_flags(Kind k) {
  return k == Kind::Barcodes || k == Kind::Keys || k == Kind::Lots || k == Kind::Ads;
}

const FamilyForms* forms_of(const std::string& family) {
  for (const auto& f : kFamilies)
    if (family == f.family) return &f;
  return nullptr;
}

bool takes(const FamilyForms& f, Kind k) {
  switch (k) {
    case Kind::Date:
      return f.date != nullptr;
    case Kind::Vat:
      return f.vat;
    case Kind::Barcodes:
      return f.barcodes;
    case Kind::Keys:
      return f.keys != nullptr;
    case Kind::Lots:
      return f.lots != nullptr;
    case Kind::Ads:
      return f.ads;
    case Kind::ETexts:
      return f.etexts;
    case Kind::Layouts:
      return f.layouts != nullptr;
    case Kind::Images:
      return f.images != nullptr;
  }
  return false;
}

}  // namespace qkp
