// The network description (table SCALE_LINES): which lines exist per department, and the family
// and scale number of each. It is the one source of the configured-lines array.
#pragma once

#include <string>
#include <vector>

#include "automation/variant.h"

namespace qkp {

struct ScaleLine {
  long dept;
  long line;
  std::string family;
  long scale;
};

// Every line of the archive, by department and line.
std::vector<ScaleLine> read_network();

// The configured-lines array for the classes: (department 0..highest, line index 0..7), 1 where
// the line exists.
qk::automation::Variant configured_lines(const std::vector<ScaleLine>& network);

// Prints a warning and counts a failure when text is not a whole number (the scale classes
// read such text as 0).
void check_number(const std::string& option, const std::string& text);

}  // namespace qkp
