#include "families.h"

#include <strings.h>

namespace qk::sync {

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

const FamilyForms* forms_of(const std::string& family) {
  for (const auto& f : kFamilies)
    if (strcasecmp(family.c_str(), f.family) == 0) return &f;
  return nullptr;
}

const char* form_of(const FamilyForms& f, Kind k) {
  switch (k) {
    case Kind::Date:
      return f.date;
    case Kind::Vat:
      return f.vat ? "2000" : nullptr;
    case Kind::Barcodes:
      return f.barcodes ? "numeric" : nullptr;
    case Kind::Keys:
      return f.keys;
    case Kind::Lots:
      return f.lots;
    case Kind::Ads:
      return f.ads ? "5000" : nullptr;
    case Kind::ETexts:
      return f.etexts ? "5000" : nullptr;
    case Kind::Layouts:
      return f.layouts;
    case Kind::Images:
      return f.images;
  }
  return nullptr;
}

}  // namespace qk::sync
