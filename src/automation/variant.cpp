#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "automation/conversions.h"
#include "qk/error.h"

namespace qk::automation {

namespace {

bool is_blank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

std::string_view trim_blanks(std::string_view s) {
  while (!s.empty() && is_blank(s.front())) s.remove_prefix(1);
  while (!s.empty() && is_blank(s.back())) s.remove_suffix(1);
  return s;
}

// Reads "&H…" or "&O…" digits from the front of s; returns false when s is not such a literal.
// Up to 4 hexadecimal digits are a 16-bit value and wrap into the signed 16-bit range, as the
// host reads them; longer ones wrap into the signed 32-bit range.
bool read_radix_prefix(std::string_view s, std::size_t* used, double* out) {
  if (s.size() < 2 || s[0] != '&') return false;
  char kind = static_cast<char>(s[1] | 0x20);
  int radix = kind == 'h' ? 16 : kind == 'o' ? 8 : 0;
  if (radix == 0) return false;
  std::size_t i = 2;
  uint64_t value = 0;
  int digits = 0;
  for (; i < s.size(); ++i) {
    char c = s[i];
    int d;
    if (c >= '0' && c <= '9')
      d = c - '0';
    else if (radix == 16 && (c | 0x20) >= 'a' && (c | 0x20) <= 'f')
      d = (c | 0x20) - 'a' + 10;
    else
      break;
    if (d >= radix) break;
    value = value * radix + d;
    if (++digits > (radix == 16 ? 8 : 11)) raise(kOverflow);
  }
  *used = i;
  if (radix == 16 ? digits <= 4 : value <= 0177777)
    *out = static_cast<int16_t>(value & 0xFFFF);
  else
    *out = static_cast<int32_t>(static_cast<uint32_t>(value));
  if (value > 0xFFFFFFFFull) raise(kOverflow);
  return true;
}

// Length of the decimal number at the front of s (sign, digits, fraction, exponent), 0 if none.
std::size_t decimal_length(std::string_view s) {
  std::size_t i = 0;
  if (i < s.size() && (s[i] == '+' || s[i] == '-')) ++i;
  std::size_t digits = 0;
  while (i < s.size() && s[i] >= '0' && s[i] <= '9') ++i, ++digits;
  if (i < s.size() && s[i] == '.') {
    ++i;
    while (i < s.size() && s[i] >= '0' && s[i] <= '9') ++i, ++digits;
  }
  if (digits == 0) return 0;
  if (i < s.size() && ((s[i] | 0x20) == 'e' || (s[i] | 0x20) == 'd')) {
    std::size_t j = i + 1;
    if (j < s.size() && (s[j] == '+' || s[j] == '-')) ++j;
    std::size_t exp_start = j;
    while (j < s.size() && s[j] >= '0' && s[j] <= '9') ++j;
    if (j > exp_start) i = j;
  }
  return i;
}

double decimal_value(std::string_view s) {
  std::string text(s);
  for (char& c : text)
    if ((c | 0x20) == 'd') c = 'e';
  double v = std::strtod(text.c_str(), nullptr);
  if (std::isinf(v)) raise(kOverflow);
  return v;
}

}  // namespace

Variant::Variant(long v) {
  if (v >= INT32_MIN && v <= INT32_MAX)
    value_ = static_cast<int32_t>(v);
  else
    value_ = static_cast<double>(v);
}

Variant::Variant(long long v) {
  if (v >= INT32_MIN && v <= INT32_MAX)
    value_ = static_cast<int32_t>(v);
  else
    value_ = static_cast<double>(v);
}

bool Variant::is_numeric_type() const {
  switch (type()) {
    case VarType::Boolean:
    case VarType::Integer:
    case VarType::Long:
    case VarType::Double:
      return true;
    default:
      return false;
  }
}

double Variant::to_double() const {
  switch (type()) {
    case VarType::Empty:
      return 0;
    case VarType::Null:
      raise(kInvalidUseOfNull);
    case VarType::Boolean:
      return std::get<bool>(value_) ? -1 : 0;  // True is -1 to the host
    case VarType::Integer:
      return std::get<int16_t>(value_);
    case VarType::Long:
      return std::get<int32_t>(value_);
    case VarType::Double:
      return std::get<double>(value_);
    case VarType::String: {
      const std::string& s = std::get<std::string>(value_);
      std::string_view t = trim_blanks(s);
      if (t.size() == 4 && (t[0] | 0x20) == 't' && (t[1] | 0x20) == 'r' && (t[2] | 0x20) == 'u' &&
          (t[3] | 0x20) == 'e')
        return -1;
      if (t.size() == 5 && (t[0] | 0x20) == 'f' && (t[1] | 0x20) == 'a' && (t[2] | 0x20) == 'l' &&
          (t[3] | 0x20) == 's' && (t[4] | 0x20) == 'e')
        return 0;
      return parse_number(s);
    }
    default:
      raise(kTypeMismatch);
  }
}

int16_t Variant::to_int16() const {
  if (type() == VarType::Integer) return std::get<int16_t>(value_);
  return double_to_int16(to_double());
}

int32_t Variant::to_int32() const {
  if (type() == VarType::Long) return std::get<int32_t>(value_);
  if (type() == VarType::Integer) return std::get<int16_t>(value_);
  return double_to_int32(to_double());
}

bool Variant::to_bool() const {
  if (type() == VarType::Boolean) return std::get<bool>(value_);
  return to_double() != 0;
}

std::string Variant::to_string() && {
  if (type() == VarType::String) return std::move(std::get<std::string>(value_));
  return static_cast<const Variant&>(*this).to_string();
}

std::string Variant::to_string() const& {
  switch (type()) {
    case VarType::Empty:
      return "";
    case VarType::Null:
      raise(kInvalidUseOfNull);
    case VarType::Boolean:
      return std::get<bool>(value_) ? "True" : "False";
    case VarType::Integer:
      return std::to_string(std::get<int16_t>(value_));
    case VarType::Long:
      return std::to_string(std::get<int32_t>(value_));
    case VarType::Double:
      return double_to_text(std::get<double>(value_));
    case VarType::String:
      return std::get<std::string>(value_);
    default:
      raise(kTypeMismatch);
  }
}

ObjectPtr Variant::to_object() const {
  if (type() == VarType::Object) {
    const ObjectPtr& p = std::get<ObjectPtr>(value_);
    if (!p) raise(kObjectNotSet);
    return p;
  }
  if (type() == VarType::Empty) raise(kObjectRequired);
  raise(kTypeMismatch);
}

std::shared_ptr<VariantArray> Variant::to_array() const {
  if (type() != VarType::Array) raise(kTypeMismatch);
  return std::get<std::shared_ptr<VariantArray>>(value_);
}

bool Variant::equals_number(double n) const {
  switch (type()) {
    case VarType::Empty:
      return n == 0;
    case VarType::Null:
      return false;
    case VarType::String:
      return parse_number(std::get<std::string>(value_)) == n;
    default:
      return to_double() == n;
  }
}

void Variant::throw_member_not_supported() {
  raise(kMemberNotSupported);
}

VariantArray::VariantArray(std::vector<std::pair<long, long>> bounds) : bounds_(std::move(bounds)) {
  if (bounds_.empty() || bounds_.size() > 2) raise(kInvalidProcedureCall);
  std::size_t n = 1;
  for (auto [lo, hi] : bounds_) {
    if (hi < lo) raise(kSubscriptOutOfRange);
    n *= static_cast<std::size_t>(hi - lo + 1);
  }
  items_.resize(n);
}

long VariantArray::lower_bound(int dimension) const {
  if (dimension < 1 || dimension > dimensions()) raise(kSubscriptOutOfRange);
  return bounds_[dimension - 1].first;
}

long VariantArray::upper_bound(int dimension) const {
  if (dimension < 1 || dimension > dimensions()) raise(kSubscriptOutOfRange);
  return bounds_[dimension - 1].second;
}

std::size_t VariantArray::offset(long i, long j) const {
  auto in = [](long v, std::pair<long, long> b) { return v >= b.first && v <= b.second; };
  if (!in(i, bounds_[0])) raise(kSubscriptOutOfRange);
  if (bounds_.size() == 1) return static_cast<std::size_t>(i - bounds_[0].first);
  if (!in(j, bounds_[1])) raise(kSubscriptOutOfRange);
  std::size_t width = static_cast<std::size_t>(bounds_[1].second - bounds_[1].first + 1);
  return static_cast<std::size_t>(i - bounds_[0].first) * width +
         static_cast<std::size_t>(j - bounds_[1].first);
}

Variant& VariantArray::at(long i) {
  if (bounds_.size() != 1) raise(kSubscriptOutOfRange);
  return items_[offset(i, 0)];
}

Variant& VariantArray::at(long i, long j) {
  if (bounds_.size() != 2) raise(kSubscriptOutOfRange);
  return items_[offset(i, j)];
}

double round_half_even(double v) {
  // By hand rather than by nearbyint, which would need the rounding mode saved and set on every
  // call: a magnitude and its whole part differ by an exact fraction.
  double a = std::fabs(v);
  if (!(a < 4503599627370496.0)) return v;  // 2^52 and beyond are whole (or NaN, infinite)
  double whole = std::floor(a), fraction = a - whole;
  double r = fraction < 0.5               ? whole
             : fraction > 0.5             ? whole + 1
             : std::fmod(whole, 2.0) == 0 ? whole
                                          : whole + 1;
  return std::copysign(r, v);
}

int16_t double_to_int16(double v) {
  if (std::isnan(v)) raise(kOverflow);
  double r = round_half_even(v);
  if (r < -32768.0 || r > 32767.0) raise(kOverflow);
  return static_cast<int16_t>(r);
}

int32_t double_to_int32(double v) {
  if (std::isnan(v)) raise(kOverflow);
  double r = round_half_even(v);
  if (r < -2147483648.0 || r > 2147483647.0) raise(kOverflow);
  return static_cast<int32_t>(r);
}

bool looks_numeric(std::string_view s) {
  std::string_view t = trim_blanks(s);
  if (t.empty()) return false;
  std::size_t used = 0;
  double v;
  try {
    if (read_radix_prefix(t, &used, &v)) return used == t.size() && used > 2;
  } catch (const Error&) {
    return true;  // a number, if an overflowing one
  }
  return decimal_length(t) == t.size();
}

double parse_number(std::string_view s) {
  std::string_view t = trim_blanks(s);
  std::size_t used = 0;
  double v = 0;
  if (read_radix_prefix(t, &used, &v)) {
    if (used != t.size() || used == 2) raise(kTypeMismatch);
    return v;
  }
  std::size_t n = decimal_length(t);
  if (n == 0 || n != t.size()) raise(kTypeMismatch);
  return decimal_value(t);
}

double leading_number(std::string_view s) {
  while (!s.empty() && is_blank(s.front())) s.remove_prefix(1);
  std::size_t used = 0;
  double v = 0;
  if (read_radix_prefix(s, &used, &v)) return v;
  std::size_t n = decimal_length(s);
  if (n == 0) return 0;
  return decimal_value(s.substr(0, n));
}

std::string format_digits(long long value, int min_digits) {
  std::string digits = std::to_string(value < 0 ? -static_cast<unsigned long long>(value)
                                                : static_cast<unsigned long long>(value));
  if (static_cast<int>(digits.size()) < min_digits)
    digits.insert(0, static_cast<std::size_t>(min_digits) - digits.size(), '0');
  return value < 0 ? "-" + digits : digits;
}

std::string format_digits(const Variant& value, std::string_view pattern) {
  double v;
  switch (value.type()) {
    case VarType::Empty:
    case VarType::Null:
      return "";
    case VarType::String:
      if (!looks_numeric(value.to_string())) return value.to_string();
      v = parse_number(value.to_string());
      break;
    default:
      v = value.to_double();
  }
  // Format rounds halves away from zero, unlike the integer conversions.
  double r = std::round(v);
  int width = static_cast<int>(pattern.size());
  if (std::fabs(r) < 9.2e18) return format_digits(static_cast<long long>(r), width);
  char buf[400];
  std::snprintf(buf, sizeof buf, "%0*.0f", width, r);
  return buf;
}

std::string double_to_text(double v) {
  if (v == 0) return "0";
  char buf[64];
  // %G switches to exponent form below 1E-4 and from 1E+15, as the host's text form does.
  std::snprintf(buf, sizeof buf, "%.15G", v);
  std::string s = buf;
  std::size_t e = s.find('E');
  if (e != std::string::npos) {
    // "1.5E-06" -> the host writes at least two exponent digits: "1.5E-06" stays, "1E+015" can't
    // happen with %G, so only strip leading zeros beyond two.
    std::string mant = s.substr(0, e), exp = s.substr(e + 2);
    while (exp.size() > 2 && exp[0] == '0') exp.erase(0, 1);
    s = mant + "E" + s[e + 1] + exp;
  }
  return s;
}

Variant Variant::copied() const {
  if (type() != VarType::Array) return *this;
  auto a = std::get<std::shared_ptr<VariantArray>>(value_);
  if (!a) return *this;
  return Variant(std::make_shared<VariantArray>(*a));
}

}  // namespace qk::automation
