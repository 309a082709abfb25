// A host-style array of strings: it may be unallocated (no bounds at all) or hold elements from a
// lower bound to an upper bound. Reading the bounds of an unallocated array raises error 9.
#pragma once

#include <string>
#include <vector>

#include "qk/error.h"
#include "qk/export.h"

namespace qk::automation {

class QK_API StringArray {
 public:
  QK_COPYABLE(StringArray);
  StringArray() = default;  // unallocated
  explicit StringArray(std::vector<std::string> items, long lower = 0)
      : allocated_(true), lower_(lower), items_(std::move(items)) {}
  static StringArray sized(long lower, long upper) {
    return StringArray(std::vector<std::string>(static_cast<std::size_t>(upper - lower + 1)),
                       lower);
  }

  bool allocated() const { return allocated_; }
  long lower_bound() const {
    if (!allocated_) raise(kSubscriptOutOfRange);
    return lower_;
  }
  long upper_bound() const {
    if (!allocated_) raise(kSubscriptOutOfRange);
    return lower_ + static_cast<long>(items_.size()) - 1;
  }
  std::size_t size() const { return items_.size(); }

  std::string& operator[](long i) {
    if (!allocated_ || i < lower_ || i > upper_bound()) raise(kSubscriptOutOfRange);
    return items_[static_cast<std::size_t>(i - lower_)];
  }
  const std::string& operator[](long i) const { return const_cast<StringArray&>(*this)[i]; }

  // ReDim Preserve: keeps the lower bound (or sets it on the first call) and the contents.
  void redim_preserve(long upper, long lower_if_new = 0) {
    if (!allocated_) {
      allocated_ = true;
      lower_ = lower_if_new;
    }
    if (upper < lower_ - 1) raise(kSubscriptOutOfRange);
    items_.resize(static_cast<std::size_t>(upper - lower_ + 1));
  }
  void push_back(std::string s) {
    if (!allocated_) {
      allocated_ = true;
      lower_ = 0;
    }
    items_.push_back(std::move(s));
  }

  const std::vector<std::string>& items() const { return items_; }
  bool operator==(const StringArray&) const = default;

 private:
  bool allocated_ = false;
  long lower_ = 0;
  std::vector<std::string> items_;
};

}  // namespace qk::automation
