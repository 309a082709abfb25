// Guarded resets kept for one write (ArchiveTools::hold_resets). Each is a flag write a reset
// asked for, "update or fail T set F = qk_flags(F, ?1, 1, …)" with its condition, to run only
// on its guard's rows whose version is unchanged. Such a write only clears flags, so the kept
// ones can run together: the writes of one text become one update over a list of values (each
// write's values and its guard's rows), and one count of the rows each condition selects tells
// which rows a write left alone (added since, or changed), as the write on its own would.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "qk/variant.h"

namespace qk::companions {

class Archive;

class HeldResets {
 public:
  // Keeps the writes that follow, until write() or clear().
  void start();
  bool holding() const { return holding_; }
  // The writes kept from now on belong to the next guard.
  void next_guard() { ++guards_; }
  // Keeps one write (`update` is the statement up to its condition, both numbering the values
  // of `params` "?N"); false when it cannot be kept (a value without a literal form), and then
  // it runs at once.
  bool keep(const std::string& table, const std::string& update, const std::string& condition,
            const std::vector<automation::Variant>& params,
            const std::vector<std::pair<int64_t, int64_t>>& rows);
  // Writes what was kept and stops holding. For each guard since start(), the rows its kept
  // writes left alone.
  std::vector<long> write(Archive& a);
  void clear();

 private:
  struct Kept {
    std::size_t guard;
    std::string table, update, condition, form;  // form: the values' kinds, one letter each
    std::vector<automation::Variant> params;
    std::vector<std::pair<int64_t, int64_t>> rows;
  };
  void write_together(Archive& a, const std::vector<std::size_t>& writes, std::vector<long>& left);

  bool holding_ = false;
  std::size_t guards_ = 0;
  std::vector<Kept> kept_;
};

}  // namespace qk::companions
