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

// Brings an archive of schema version `from` to the current version, keeping every row: version
// 0/1 archives get ROW_VERSION and its triggers, and every archive the columns added since.
std::string upgrade_schema_sql(int from);
// The same for a PostgreSQL archive (version 2 or later: the first the server held).
std::string pg_upgrade_schema_sql(int from);

}  // namespace qk::companions
