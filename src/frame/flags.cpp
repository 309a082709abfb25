#include "frame/flags.h"

#include "qk/error.h"

namespace qk::flags {

std::string merge(automation::Recordset& group, std::string_view column, int width) {
  std::string result(static_cast<std::size_t>(width), '0');
  for (; !group.Eof(); group.MoveNext()) {
    automation::Variant v = group.Fields(column);
    if (v.is_null()) continue;
    std::string record = v.to_string();
    for (std::size_t i = 0; i < record.size(); ++i) {
      if (record[i] != '1') continue;
      if (i >= result.size()) automation::raise(automation::kInvalidProcedureCall);
      result[i] = '1';
    }
  }
  return result;
}

bool is_configured(const automation::Variant& configured, long dept, long index) {
  return !configured.to_array()->at(dept, index).equals_number(0);
}

void mask_unconfigured(std::string& flags, const automation::Variant& configured, long dept,
                       int count) {
  for (int i = 0; i < count; ++i)
    if (!is_configured(configured, dept, i)) {
      if (static_cast<std::size_t>(i) >= flags.size())
        automation::raise(automation::kInvalidProcedureCall);
      flags[static_cast<std::size_t>(i)] = '0';
    }
}

void clear_line(std::string& flags, long line) {
  if (line < 1 || line > static_cast<long>(flags.size()))
    automation::raise(automation::kInvalidProcedureCall);
  flags[static_cast<std::size_t>(line - 1)] = '0';
}

}  // namespace qk::flags
