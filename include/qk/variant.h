// The automation Variant: one value of the host's dynamic type system, with its conversion rules.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "qk/export.h"

namespace qk::automation {

// Base of every late-bound object (companion components, recordsets, loggers).
class QK_API Object {
 public:
  Object() = default;
  QK_NOT_COPIED(Object);
  virtual ~Object() = default;
};
using ObjectPtr = std::shared_ptr<Object>;

class VariantArray;

enum class VarType { Empty, Null, Boolean, Integer, Long, Double, String, Object, Array };

class QK_API Variant {
 public:
  QK_COPYABLE(Variant);
  struct NullTag {
    bool operator==(const NullTag&) const = default;
  };

  Variant() = default;
  Variant(bool v) : value_(v) {}
  Variant(int16_t v) : value_(v) {}
  Variant(int32_t v) : value_(v) {}
  Variant(long v);  // kept as a Long when it fits, otherwise as a Double
  Variant(long long v);
  Variant(double v) : value_(v) {}
  Variant(const char* v) : value_(std::string(v)) {}
  Variant(std::string v) : value_(std::move(v)) {}
  Variant(std::string_view v) : value_(std::string(v)) {}
  Variant(ObjectPtr v) : value_(std::move(v)) {}
  Variant(std::shared_ptr<VariantArray> v) : value_(std::move(v)) {}

  static Variant null() {
    Variant v;
    v.value_ = NullTag{};
    return v;
  }

  VarType type() const { return static_cast<VarType>(value_.index()); }
  bool is_empty() const { return type() == VarType::Empty; }
  bool is_null() const { return type() == VarType::Null; }
  bool is_numeric_type() const;  // Boolean, Integer, Long or Double
  bool is_string() const { return type() == VarType::String; }

  // Conversions with the host's rules: ties to even, error 6 on overflow, 13 on a value that is
  // not a number, 94 on Null. Empty converts to 0 or "".
  int16_t to_int16() const;
  int32_t to_int32() const;
  double to_double() const;
  bool to_bool() const;
  std::string to_string() const&;
  // A value about to go gives its text away rather than copying it.
  std::string to_string() &&;
  // The text of the value with Null read as "", as the host's `v & ""` does.
  std::string to_text() const& { return is_null() ? std::string() : to_string(); }
  std::string to_text() && { return is_null() ? std::string() : std::move(*this).to_string(); }

  // The object held, or error 424 (object required) / 13 for a value of another type.
  ObjectPtr to_object() const;
  template <class T>
  std::shared_ptr<T> as() const {
    auto p = std::dynamic_pointer_cast<T>(to_object());
    if (!p) throw_member_not_supported();
    return p;
  }
  std::shared_ptr<VariantArray> to_array() const;

  // The value with an array copied rather than shared, as the host's assignment of an array to a
  // variable copies it: a class that keeps a caller's array keeps this.
  Variant copied() const;

  // Comparison with a number, as the host's "=" does for "If v = 0": Empty is 0, Null is never
  // equal, a numeric string compares as its number, any other string is a type mismatch.
  bool equals_number(double n) const;

 private:
  [[noreturn]] static void throw_member_not_supported();
  std::variant<std::monostate, NullTag, bool, int16_t, int32_t, double, std::string, ObjectPtr,
               std::shared_ptr<VariantArray>>
      value_;
};

// A rectangular array with explicit bounds per dimension; access outside them raises error 9.
class QK_API VariantArray {
 public:
  QK_COPYABLE(VariantArray);
  // One- or two-dimensional, each dimension given as (lower, upper).
  explicit VariantArray(std::vector<std::pair<long, long>> bounds);

  int dimensions() const { return static_cast<int>(bounds_.size()); }
  long lower_bound(int dimension = 1) const;
  long upper_bound(int dimension = 1) const;

  Variant& at(long i);
  Variant& at(long i, long j);
  const Variant& at(long i) const { return const_cast<VariantArray*>(this)->at(i); }
  const Variant& at(long i, long j) const { return const_cast<VariantArray*>(this)->at(i, j); }

 private:
  std::size_t offset(long i, long j) const;
  std::vector<std::pair<long, long>> bounds_;
  std::vector<Variant> items_;
};

}  // namespace qk::automation
