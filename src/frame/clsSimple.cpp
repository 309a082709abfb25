#include "qk/clsSimple.h"

#include "automation/conversions.h"
#include "frame/numeric_record.h"
#include "frame/report_error.h"
#include "qk/host.h"

namespace qk {

namespace {
// Both properties report "DataOra": the tagged form's trap carries the numeric form's name.
const TrapLabel kDataOraTrap{"DataOra", "clsSimple"};
}  // namespace

std::string clsSimple::DataOra() const {
  std::string result;
  trap(kDataOraTrap, [&] {
    LocalTime t = clock_now();
    std::string year = std::to_string(t.year);
    result = numeric_record::header(numeric_record::kDateTime) +
             automation::format_digits(t.day, 2) + automation::format_digits(t.month, 2) +
             year.substr(year.size() >= 2 ? year.size() - 2 : 0) +
             automation::format_digits(t.hour, 2) + automation::format_digits(t.minute, 2) +
             automation::format_digits(t.second, 2);
  });
  return result;
}

std::string clsSimple::DataOraO5000() const {
  std::string result;
  trap(kDataOraTrap, [&] {
    LocalTime t = clock_now();
    result = "<MSG OPE=FUN NPM=1 NCM=1 TYP=DATA";
    result += " YYY=" + std::to_string(t.year - 1900);
    result += " MMM=" + std::to_string(t.month);
    result += " DAY=" + std::to_string(t.day);
    result += " HHH=" + std::to_string(t.hour);
    result += " MIN=" + std::to_string(t.minute);
    result += " SSS=" + std::to_string(t.second);
    result += " />";
  });
  return result;
}

}  // namespace qk
