// How long a line that failed waits before it is tried again: doubling from the first delay up to
// a cap, each delay drawn between half and all of it so that lines that failed together (a switch
// went down) do not all come back at the same instant.
#pragma once

#include <random>

namespace qk::service {

class Backoff {
 public:
  Backoff(double first_seconds, double cap_seconds)
      : first_(first_seconds), cap_(cap_seconds), random_(std::random_device{}()) {}
  // The delay after the n-th failure in a row (n >= 1).
  double delay(int failures) {
    double d = first_;
    for (int i = 1; i < failures && d < cap_; ++i) d *= 2;
    d = d < cap_ ? d : cap_;
    return std::uniform_real_distribution<double>(d / 2, d)(random_);
  }

 private:
  double first_, cap_;
  std::mt19937 random_;
};

}  // namespace qk::service
