// The archive's SQLite schema, generated from the table description of qk/archive_schema.h, with
// the triggers that keep each flag-carrying row's ROW_VERSION.
#pragma once

#include <string>
#include <string_view>

namespace qk::companions {

// A SQL text literal: the text between single quotes, a quote in it doubled.
std::string sql_text(std::string_view text);

// CREATE statements of an empty archive of the current schema version.
const std::string& archive_schema_sql();
// The same schema for a PostgreSQL database (run inside one transaction).
const std::string& pg_archive_schema_sql();
// Drops everything pg_archive_schema_sql creates (and QK_SEQUENCE as a sequence, or as the
// one-row table the first server archives had).
std::string pg_drop_schema_sql(bool sequence);

// Brings a version-0/1 archive (tables without ROW_VERSION) to the current version.
const std::string& upgrade_schema_sql();

}  // namespace qk::companions
