// The scale families and the form in which each takes each kind of record: the one catalogue the
// archive's schema (the families a line may serve), the tool's choices and the sync's sources
// follow. Adding a family is one row of kFamilies (and a builder, for a form that is new).
// Header-only, so that a host or a companion needs nothing else.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>
#include <utility>

#include "qk/export.h"

namespace qk {

// The kinds of record, in the order a sync sends them.
enum class Kind { Date, Vat, Barcodes, Keys, Lots, Ads, ETexts, Layouts, Images };
inline constexpr Kind kKinds[] = {Kind::Date, Kind::Vat,    Kind::Barcodes, Kind::Keys,  Kind::Lots,
                                  Kind::Ads,  Kind::ETexts, Kind::Layouts,  Kind::Images};

inline constexpr std::string_view kind_name(Kind k) {
  constexpr std::string_view names[] = {"date", "vat",    "barcodes", "keys",  "lots",
                                        "ads",  "etexts", "layouts",  "images"};
  return names[static_cast<std::size_t>(k)];
}

// The forms the builders make: None is "not taken".
enum class Form {
  None,
  Numeric,     // the 3000/2000 numeric records (date and time, type "18" barcodes)
  Series2000,  // 2000 records (VAT, keys, lots)
  Series3000,  // type "35" key blocks, 3000 lot records, 3000 layouts
  Series3000Top,
  Series5000,  // tagged messages
  Velta,       // bracketed blocks
  Scale,       // scale images
  Kestra,      // Kestra images
};

// The form's name as the tool's options spell it ("3000TOP"), in upper case.
inline constexpr std::string_view form_name(Form f) {
  constexpr std::string_view names[] = {"",     "NUMERIC", "2000",  "3000",  "3000TOP",
                                        "5000", "VELTA",   "SCALE", "KESTRA"};
  return names[static_cast<std::size_t>(f)];
}

struct QK_API Family {
  std::string_view name;  // as SCALE_LINES.SL_FAMILY holds it
  Form date, vat, barcodes, keys, lots, ads, etexts, layouts, images;

  constexpr Form form(Kind k) const {
    const Form forms[] = {date, vat, barcodes, keys, lots, ads, etexts, layouts, images};
    return forms[static_cast<std::size_t>(k)];
  }
};

namespace families_detail {
using enum Form;
inline constexpr Family kRows[] = {
    // name    date        vat         barcodes  keys        lots           ads         etexts
    // layouts     images
    {"3000", Numeric, None, Numeric, Series3000, Series3000, None, None, Series3000, Scale},
    {"3000TOP", Numeric, None, Numeric, Series3000, Series3000Top, None, None, Series3000, Scale},
    {"2000", Numeric, Series2000, Numeric, Series2000, Series2000, None, None, None, Scale},
    {"5000", Series5000, None, None, Series5000, Series5000, Series5000, Series5000, Series5000,
     None},
    {"VELTA", None, None, None, None, Velta, None, None, None, None},
    {"KESTRA", Numeric, None, None, None, None, None, None, None, Kestra},
};
}  // namespace families_detail

inline constexpr auto& kFamilies = families_detail::kRows;

// The families' names, in the catalogue's order.
inline constexpr auto kFamilyNames = [] {
  std::array<std::string_view, std::size(kFamilies)> names{};
  for (std::size_t i = 0; i < names.size(); ++i) names[i] = kFamilies[i].name;
  return names;
}();

// ASCII letters in any case.
inline constexpr bool same_letters(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    char x = a[i] >= 'a' && a[i] <= 'z' ? static_cast<char>(a[i] - 'a' + 'A') : a[i];
    char y = b[i] >= 'a' && b[i] <= 'z' ? static_cast<char>(b[i] - 'a' + 'A') : b[i];
    if (x != y) return false;
  }
  return true;
}

// The family of that name (any letter case), or nullptr.
inline constexpr const Family* find_family(std::string_view name) {
  for (const Family& f : kFamilies)
    if (same_letters(f.name, name)) return &f;
  return nullptr;
}

// The forms in which some family takes the kind, each once, in the catalogue's order: the
// choices of a command that builds one record "for a family".
template <Kind K>
inline constexpr auto kFormsOf = [] {
  std::array<Form, std::size(kFamilies)> forms{};
  std::size_t n = 0;
  for (const Family& f : kFamilies) {
    Form form = f.form(K);
    bool seen = form == Form::None;
    for (std::size_t i = 0; i < n; ++i) seen = seen || forms[i] == form;
    if (!seen) forms[n++] = form;
  }
  return std::pair{forms, n};
}();

// The form named `name` (any letter case) among the forms of kind K, or Form::None.
template <Kind K>
inline constexpr Form parse_form(std::string_view name) {
  for (std::size_t i = 0; i < kFormsOf<K>.second; ++i)
    if (same_letters(form_name(kFormsOf<K>.first[i]), name)) return kFormsOf<K>.first[i];
  return Form::None;
}

}  // namespace qk
