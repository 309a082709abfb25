// The archive's tables. Column names are the ones the builders read; docs/archive.md shows them.
#pragma once

#include <string>

namespace qk::companions {

// The scale families a line can serve.
inline constexpr const char* kFamilies[] = {"3000", "3000TOP", "2000", "5000", "VELTA", "KESTRA"};

// CREATE TABLE and CREATE INDEX statements of an empty archive.
const std::string& archive_schema_sql();

}  // namespace qk::companions
