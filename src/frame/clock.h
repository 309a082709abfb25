// The computer's local clock, replaceable for tests. The scales expect local time; no time-zone
// conversion is made.
#pragma once

#include <functional>

namespace qk {

struct LocalTime {
  int year, month, day, hour, minute, second;
};

using ClockFn = std::function<LocalTime()>;

// One reading of the clock.
LocalTime clock_now();
// Replaces the clock (nullptr restores the system clock).
void set_clock(ClockFn fn);

}  // namespace qk
