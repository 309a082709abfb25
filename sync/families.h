// What each scale family takes, and in which form. The one table the sync, the pending list and
// marking follow (docs/sync.md shows it too).
#pragma once

#include <string>

namespace qk::sync {

// The kinds of record, in the order a sync sends them.
enum class Kind { Date, Vat, Barcodes, Keys, Lots, Ads, ETexts, Layouts, Images };
inline constexpr Kind kKinds[] = {Kind::Date, Kind::Vat,    Kind::Barcodes, Kind::Keys,  Kind::Lots,
                                  Kind::Ads,  Kind::ETexts, Kind::Layouts,  Kind::Images};
const char* kind_name(Kind k);

struct FamilyForms {
  const char* family;
  const char* date;  // "numeric", "5000" or nullptr (not taken)
  bool vat;
  bool barcodes;     // type "18" records (lines 1 to 4 only: the flags have four positions)
  const char* keys;  // "3000" (type "35" blocks), "5000", "2000" or nullptr
  const char* lots;  // "velta", "3000top", "2000", "3000", "5000" or nullptr
  bool ads;
  bool etexts;
  const char* layouts;  // "3000", "5000" or nullptr
  const char* images;   // "scale", "kestra" or nullptr
};

inline constexpr FamilyForms kFamilies[] = {
    // family    date       vat    barcodes keys    lots       ads    etexts layouts images
    {"3000", "numeric", false, true, "3000", "3000", false, false, "3000", "scale"},
    {"3000TOP", "numeric", false, true, "3000", "3000top", false, false, "3000", "scale"},
    {"2000", "numeric", true, true, "2000", "2000", false, false, nullptr, "scale"},
    {"5000", "5000", false, false, "5000", "5000", true, true, "5000", nullptr},
    {"VELTA", nullptr, false, false, nullptr, "velta", false, false, nullptr, nullptr},
    {"KESTRA", "numeric", false, false, nullptr, nullptr, false, false, nullptr, "kestra"},
};

// The forms of a family (any letter case), or nullptr for an unknown one.
const FamilyForms* forms_of(const std::string& family);
// The form in which the family takes the kind, or nullptr when it does not take it.
const char* form_of(const FamilyForms& f, Kind k);

}  // namespace qk::sync
