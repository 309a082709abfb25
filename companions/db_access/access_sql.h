// Statements written for the original desktop database, run on SQLite with their meaning kept:
//   a / b     divides as floating point         -> a * 1.0 / b
//   a \ b     integer division of rounded values -> qk_intdiv(a, b)
//   a mod b   remainder of rounded values        -> qk_mod(a, b)   (SQLite would take a stray
//                                                   "mod" as a column alias and say nothing)
//   a & b     text concatenation                 -> a || b
//   True, False                                  -> -1, 0
//   "text"    a text literal                     -> 'text'
//   [name]    a quoted identifier                -> "name"
//   int(x)    rounds down                        -> int(x), a function the connection registers
// A statement that uses none of these comes back unchanged.
#pragma once

#include <string>
#include <vector>

#include "qk/variant.h"

struct sqlite3;

namespace qk::companions {

std::string translate_access_sql(const std::string& sql);

// A statement whose literal values after WHERE or SET (and before ORDER BY, GROUP BY or LIMIT)
// are taken out as parameters, so that statements differing only in their values share one
// prepared statement. Numbers that fit 32 bits and text literals are taken out.
struct Parameterized {
  std::string sql;
  std::vector<automation::Variant> values;
};
Parameterized parameterize(const std::string& sqlite_sql);

// The companion's (SQLite) statement in PostgreSQL's dialect: "?N" and "?" placeholders as
// "$N", "A IS B" as "A IS NOT DISTINCT FROM B", "update or fail" as "update", int(x) as
// qk_int(x). `used` gets one entry per placeholder number up to the highest, true where used.
std::string pg_dialect(const std::string& sqlite_sql, std::vector<bool>* used);

// Registers int, qk_mod and qk_intdiv on a connection, and the companion's flag writer
// qk_flags(current, written, clear_only, writable): the flag string `written` put over
// `current` position by position, only where `writable` holds "1" (everywhere when it is Null),
// and with `clear_only` a position becomes "1" only where both hold "1". PostgreSQL has the same
// function (schema.cpp).
void register_access_functions(sqlite3* db);

}  // namespace qk::companions
