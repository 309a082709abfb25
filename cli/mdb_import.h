// A desktop back office's database (".mdb") read through Debian's mdbtools: `mdb-tables` lists
// its tables, `mdb-export` writes each as CSV. The tables the archive knows become CSV inputs for
// import_tables, each read from mdb-export as it writes (nothing is held whole); the others are
// named as skipped.
#pragma once

#include <string>
#include <vector>

#include "table_import.h"

namespace qkp {

struct MdbTables {
  std::vector<CsvInput> files;       // one per table the archive knows, named "<TABLE>.csv"
  std::vector<std::string> skipped;  // the database's other tables
};

// Reads the tables (all the archive knows, or only those named). Raises an error naming the
// missing tool, the file, or the table that could not be exported.
MdbTables read_mdb(const std::string& path, const std::vector<std::string>& only);

}  // namespace qkp
