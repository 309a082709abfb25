// What in a ticket layout would not reach a scale as stored: unknown data types (mapped to a
// negative value: the 5000 series gets data type 27 and field value 999), data types with no
// mapping (sent unchanged to the 5000 series), data types holding a quote (the component's
// lookup pastes values into its query, so such a value cannot be found safely) and field numbers
// over 50 (left out of the 3000 series). Reads the layout through the database component; its
// errors are raised.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qk/export.h"

namespace qk {

struct QK_API LayoutCheck {
  bool exists = false;
  std::vector<std::string> findings;  // one line each, 8-bit text, "object 2 (text, field 7): …"
};

QK_API LayoutCheck check_layout(int32_t dept, int32_t layout);

}  // namespace qk
