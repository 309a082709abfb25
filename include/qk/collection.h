// The host's keyed collection: items in insertion order, each with an optional unique text key;
// Item by 1-based index or by key (error 5 when absent), a duplicate key raises error 457.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "qk/error.h"
#include "qk/export.h"
#include "qk/variant.h"

namespace qk::automation {

class QK_API Collection : public Object {
 public:
  Collection() = default;
  QK_NOT_COPIED(Collection);
  void Add(const Variant& item, const std::string& key) {
    for (const auto& [k, v] : items_)
      if (k == key) raise(kKeyAlreadyAssociated);
    items_.emplace_back(key, item);
  }
  long Count() const { return static_cast<long>(items_.size()); }
  const Variant& Item(long index) const {
    if (index < 1 || index > Count()) raise(kInvalidProcedureCall);
    return items_[static_cast<std::size_t>(index - 1)].second;
  }
  const Variant& Item(const std::string& key) const {
    for (const auto& [k, v] : items_)
      if (k == key) return v;
    raise(kInvalidProcedureCall);
  }

 private:
  std::vector<std::pair<std::string, Variant>> items_;
};

}  // namespace qk::automation
