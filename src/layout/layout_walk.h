// The one walk of a layout's hierarchical recordset (layouts, their objects, each object's
// property rows), shared by the encoders of both series and the checker: what they read of an
// object is what is sent.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <string>
#include <type_traits>

#include "layout/layout_format.h"
#include "qk/recordset.h"

namespace qk::layout {

// A number as the archive writes it (a decimal comma is taken as a point), and in dots.
double number(const std::string& s);
int32_t dots(const std::string& s);

// The property values a builder has read. They persist from one object to the next, as the
// builders keep them: an object that lacks a property repeats the previous object's value.
struct ObjectValues {
  static constexpr int kProperties = 16;
  std::array<std::string, kProperties> text;
  std::array<double, kProperties> num{};

  const std::string& t(int id) const { return text[static_cast<std::size_t>(id)]; }
  double n(int id) const { return num[static_cast<std::size_t>(id)]; }
  int32_t i(int id) const { return static_cast<int32_t>(n(id)); }

  // Reads a property row's value the way the series' table says (a bad value raises here).
  void read(int id, const std::string& v, layout_format::Read how);
};

// The one walk of the layout hierarchy: every object of the kind, from the first row, its
// property rows read into `values` by the series' table (other rows skipped), then on_object.
// on_object may take the object's row too (TD_OBJ, OBJ_TYPE). on_row, when given, sees each
// property row as soon as it is read.
template <std::size_t N, class OnObject>
void walk(automation::Recordset& layouts, int kind, const layout_format::PropertyRead (&reads)[N],
          ObjectValues& values, OnObject&& on_object, const std::function<void(int)>& on_row = {}) {
  layouts.MoveFirst();
  while (!layouts.Eof()) {
    auto objects = layouts.Fields("object").as<automation::Recordset>();
    objects->MoveFirst();
    while (!objects->Eof()) {
      if (objects->Fields("OBJ_TYPE").to_int32() == kind) {
        auto props = objects->Fields("Property").as<automation::Recordset>();
        for (props->MoveFirst(); !props->Eof(); props->MoveNext()) {
          int id = props->Fields("Id").to_int32();
          for (const auto& r : reads)
            if (r.id == id) {
              values.read(id, props->Fields("value").to_text(), r.how);
              if (on_row) on_row(id);
            }
        }
        if constexpr (std::is_invocable_v<OnObject&, ObjectValues&, automation::Recordset&>)
          on_object(values, *objects);
        else
          on_object(values);
      }
      objects->MoveNext();
    }
    layouts.MoveNext();
  }
}

}  // namespace qk::layout
