#include "qk/clsSimple.h"

#include "automation/conversions.h"
#include "frame/date_format.h"
#include "frame/numeric_record.h"
#include "frame/report_error.h"
#include "frame/tagged_message.h"
#include "qk/host.h"

namespace qk {

namespace fmt = date_format;

namespace {
// Both properties report "DataOra": the tagged form's trap carries the numeric form's name.
const TrapLabel kDataOraTrap{"DataOra", "clsSimple"};
}  // namespace

std::string clsSimple::DataOra() const {
  std::string result;
  trap(kDataOraTrap, [&] {
    LocalTime t = clock_now();
    std::string year = std::to_string(t.year);
    auto two = [](int v) { return automation::format_digits(v, fmt::kFieldDigits); };
    result = numeric_record::header(numeric_record::kDateTime) + two(t.day) + two(t.month) +
             year.substr(year.size() >= 2 ? year.size() - 2 : 0) + two(t.hour) + two(t.minute) +
             two(t.second);
  });
  return result;
}

std::string clsSimple::DataOraO5000() const {
  std::string result;
  trap(kDataOraTrap, [&] {
    LocalTime t = clock_now();
    using tagged_message::attribute;
    result =
        std::string(fmt::kOpen) + attribute(fmt::kYear, std::to_string(t.year - fmt::kYearBase)) +
        attribute(fmt::kMonth, std::to_string(t.month)) +
        attribute(fmt::kDay, std::to_string(t.day)) +
        attribute(fmt::kHour, std::to_string(t.hour)) +
        attribute(fmt::kMinute, std::to_string(t.minute)) +
        attribute(fmt::kSecond, std::to_string(t.second)) + std::string(tagged_message::kClose);
  });
  return result;
}

}  // namespace qk
