// The archive's tables, as data: every database companion creates them from this description and
// every tool checks rows against it (docs/archive.md shows the same tables). Header-only so that
// a companion written by a host needs nothing else.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "qk/export.h"
#include "qk/families.h"

namespace qk::archive {

// A change to a row of `child` is a change to the row of `parent` it belongs to (the parent's
// ROW_VERSION is renewed): an advertising message's texts are part of the message, a layout's
// objects and properties part of the layout. Both databases' schemas render these rules.
struct QK_API Cascade {
  std::string_view child, parent;
  // parent column = child column, for each pair
  std::array<std::pair<std::string_view, std::string_view>, 2> match;
  int since;  // the schema version that added the rule
};
inline constexpr Cascade kCascades[] = {
    {"MESSAGES", "ADVERTISING", {{{"ADV_BNC", "MSG_BNC"}, {"MSG_LNK_ID", "MSG_LNK_ID"}}}, 2},
    {"TICKET_DETAIL", "TICKET", {{{"TK_BNC", "TD_BNC"}, {"TK_ID", "TD_ID"}}}, 4},
    {"TICKET_PROPERTY", "TICKET", {{{"TK_BNC", "TD_BNC"}, {"TK_ID", "TD_ID"}}}, 4},
};

// The version an archive's schema carries; a companion refuses an older one with a message that
// says how to upgrade it.
inline constexpr int kSchemaVersion = 5;

// Every flag-carrying table has this column: a number that changes with every write to the row
// (content, or a line newly marked pending) and never when a reset only clears lines. A reset
// applies only to rows whose number is what it was when the record was built. The tables of the
// records without flags have it too: their rows' count and highest number say whether a record
// changed since it was last delivered (the numbers only grow).
inline constexpr std::string_view kRowVersionColumn = "ROW_VERSION";

enum class ColumnType { Integer, Real, Text };

// TEXT columns whose text has a form of its own: Date is a validity date as the scales read it,
// DDMMYYYY (eight digits of a calendar date; "01010101" is the component's "no bound"), or empty.
// Store is a store's name: up to 40 letters, digits, "-", "_" or ".", or empty (the only store).
// FileBytes is the content of a file in base64 (a picture held with its row); tables are
// exported and imported with it as a file of its own, beside the table's file. Address is where a
// line's records go (qk/line_address.h), or empty.
enum class TextForm { Any, Date, Store, FileBytes, Address };
inline constexpr std::size_t kStoreNameMax = 40;

// Range of the component's integers: every INTEGER column is read as a 32-bit number.
inline constexpr std::int64_t kIntegerMin = INT32_MIN;
inline constexpr std::int64_t kIntegerMax = INT32_MAX;

// The scale families a line can serve: the catalogue's (qk/families.h).
inline constexpr const auto& kFamilies = kFamilyNames;

// A column's default as a value: none, a whole number or a text. Each database's literal is
// rendered from it, and the importer fills a left-out column with it.
struct QK_API Default {
  enum class Kind { None, Integer, Text };
  Kind kind = Kind::None;
  std::int64_t integer = 0;
  std::string_view text = {};

  constexpr Default() = default;
  constexpr Default(int v) : kind(Kind::Integer), integer(v) {}
  constexpr Default(const char* t) : kind(Kind::Text), text(t) {}
  constexpr bool none() const { return kind == Kind::None; }
};

struct QK_API Column {
  std::string_view name;
  ColumnType type;
  bool not_null = false;
  Default default_value = {};
  int flag_width = 0;  // > 0: a transmission flag string of that many 0/1
  // The rules below are what the tools check and what each database's CHECK constraint says
  // (rendered from these fields, never written twice).
  std::int64_t min = kIntegerMin;  // INTEGER columns: the values allowed
  std::int64_t max = kIntegerMax;
  std::span<const std::string_view> allowed = {};  // TEXT columns: the only values allowed
  TextForm form = TextForm::Any;
};

struct QK_API Table {
  std::string_view name;
  std::string_view comment;
  std::span<const Column> columns;
  // The primary key. A table without one names the columns whose values identify the rows that
  // an import with replace swaps as a group.
  std::span<const std::string_view> key;
  std::span<const std::string_view> replace_group;
  std::string_view department;  // the department column, empty when the table has none
  std::string_view flags;       // the flag column of the sync's flag-carrying kinds, or empty
  std::string_view record_id;   // with flags: the column that numbers the records
  std::span<const std::string_view> indexes;  // extra index column lists, "A, B, C"
  // Written only by the tools themselves (the delivery journal): not exported, not imported.
  bool own = false;
};

namespace detail {

using C = Column;
using T = ColumnType;
using Names = std::string_view;

inline constexpr Column kScaleLines[] = {
    {.name = "SL_BNC", .type = T::Integer, .not_null = true, .min = 0},
    {.name = "SL_LINE", .type = T::Integer, .not_null = true, .min = 1, .max = 8},
    {.name = "SL_FAMILY", .type = T::Text, .not_null = true, .allowed = kFamilies},
    {"SL_SCALE", T::Integer, true},
    {.name = "SL_STORE",
     .type = T::Text,
     .not_null = true,
     .default_value = "",
     .form = TextForm::Store},
    {.name = "SL_ADDRESS",
     .type = T::Text,
     .not_null = true,
     .default_value = "",
     .form = TextForm::Address},
};
inline constexpr Names kScaleLinesKey[] = {"SL_BNC", "SL_LINE"};

inline constexpr Column kKeys[] = {
    {"TP_BNC", T::Integer, true},
    {"TP_SCALE", T::Integer, true},
    {"TP_KEY", T::Integer, true},
    {"TP_VALUE", T::Integer, true, 0},
    {"TP_MODE", T::Text, true, "P"},
    {"TP_LINES", T::Integer, true, 255},
    {"TP_FLAGTRASM", T::Text, true, "00000000", 8},
    {"ROW_VERSION", T::Integer, true, 0},
};
inline constexpr Names kKeysGroup[] = {"TP_BNC", "TP_SCALE", "TP_KEY"};
inline constexpr Names kKeysIndexes[] = {"TP_BNC, TP_SCALE, TP_KEY", "TP_BNC, TP_KEY"};

inline constexpr Column kBarcodes[] = {
    {"BC_BNC", T::Integer, true},         {"BC_FORM", T::Integer, true},
    {"BC_VALUE", T::Text, true, ""},      {"BC_FLAGTRASM", T::Text, true, "0000", 4},
    {"ROW_VERSION", T::Integer, true, 0},
};
inline constexpr Names kBarcodesKey[] = {"BC_BNC", "BC_FORM"};

inline constexpr Column kLots[] = {
    {"TRC_BNC", T::Integer, true},
    {"TRC_ID", T::Integer, true},
    {"TRC_ROW", T::Integer, true, 1},
    {"TRC_ID_LOT", T::Text},
    {"TRC_DESC1", T::Text},
    {"TRC_DESC2", T::Text},
    {"TRC_DESC3", T::Text},
    {"TRC_DESC4", T::Text},
    {"TRC_DESC5", T::Text},
    {"TRC_DESC6", T::Text},
    {"TRC_DESC7", T::Text},
    {"TRC_DESC8", T::Text},
    {"TRC_DESC9", T::Text},
    {"TRC_DESC10", T::Text},
    {"TRC_DESC11", T::Text},
    {"TRC_DESC12", T::Text},
    {"TRC_DESC13", T::Text},
    {"TRC_DESC14", T::Text},
    {"TRC_DESC15", T::Text},
    {"TRC_DESC16", T::Text},
    {"TRC_DESC17", T::Text},
    {"TRC_DESC18", T::Text},
    {"TRC_DESC19", T::Text},
    {"TRC_DESC20", T::Text},
    {"TRC_MODE", T::Integer, false, 0},
    {"TRC_OPTIONAL", T::Integer, false, 0},
    {"WCHARGED", T::Text},
    {"TRC_FLAGTRASM", T::Text, true, "00000000", 8},
    {"ROW_VERSION", T::Integer, true, 0},
};
inline constexpr Names kLotsKey[] = {"TRC_BNC", "TRC_ID", "TRC_ROW"};

inline constexpr Column kAds[] = {
    {"ADV_BNC", T::Integer, true},
    {"Id", T::Integer, true},
    {"Mode", T::Integer, false, 0},
    {"IM_FILE_NAME", T::Text, false, ""},
    {"PERSISTENCE", T::Integer, false, 0},
    {"REPEAT", T::Integer, false, 0},
    {"Rate", T::Integer, false, 0},
    {"MSG_LNK_ID", T::Integer},
    {"FLAGTRASM", T::Text, true, "00000000", 8},
    {"ROW_VERSION", T::Integer, true, 0},
};
inline constexpr Names kAdsKey[] = {"ADV_BNC", "Id"};

inline constexpr Column kMessages[] = {
    {"MSG_BNC", T::Integer, true},
    {"MSG_LNK_ID", T::Integer, true},
    {"MSG_ROW", T::Integer, true},
    {"MESSAGE", T::Text, true, ""},
};
inline constexpr Names kMessagesKey[] = {"MSG_BNC", "MSG_LNK_ID", "MSG_ROW"};

inline constexpr Column kTexts[] = {
    {"ET_BNC", T::Integer, true},
    {"Id", T::Integer, true},
    {"Row", T::Integer, true},
    {"Descr", T::Text, true, ""},
    {"ROW_VERSION", T::Integer, true, 0},
};
inline constexpr Names kTextsKey[] = {"ET_BNC", "Id", "Row"};

inline constexpr Column kImages[] = {
    {"IM_BNC", T::Integer, true},
    {"IM_ID", T::Integer, true},
    {"IM_FILE_NAME", T::Text, true, ""},
    {"IM_DESCRIPTION", T::Text, true, ""},
    {.name = "IM_FROM",
     .type = T::Text,
     .not_null = true,
     .default_value = "01010101",
     .form = TextForm::Date},
    {.name = "IM_TO",
     .type = T::Text,
     .not_null = true,
     .default_value = "",
     .form = TextForm::Date},
    {"IM_TYPE", T::Integer, true, 0},
    {.name = "IM_PICTURE",
     .type = T::Text,
     .not_null = true,
     .default_value = "",
     .form = TextForm::FileBytes},
    {"ROW_VERSION", T::Integer, true, 0},
};
inline constexpr Names kImagesKey[] = {"IM_BNC", "IM_ID"};
inline constexpr Names kImagesIndexes[] = {"IM_BNC, IM_FILE_NAME"};

inline constexpr Column kTickets[] = {
    {"TK_BNC", T::Integer, true},
    {"TK_ID", T::Integer, true},
    {"TK_DESCRIPTION", T::Text, true, ""},
    {"ROW_VERSION", T::Integer, true, 0},
};
inline constexpr Names kTicketsKey[] = {"TK_BNC", "TK_ID"};

inline constexpr Column kTicketObjects[] = {
    {"TD_BNC", T::Integer, true},
    {"TD_ID", T::Integer, true},
    {"TD_OBJ", T::Integer, true},
    {.name = "OBJ_TYPE", .type = T::Integer, .not_null = true, .min = 1, .max = 4},
};
inline constexpr Names kTicketObjectsKey[] = {"TD_BNC", "TD_ID", "TD_OBJ"};

inline constexpr Column kTicketProperties[] = {
    {"TD_BNC", T::Integer, true}, {"TD_ID", T::Integer, true}, {"TD_OBJ", T::Integer, true},
    {"Id", T::Integer, true},     {"value", T::Text},
};
inline constexpr Names kTicketPropertiesKey[] = {"TD_BNC", "TD_ID", "TD_OBJ", "Id"};

inline constexpr Column kVat[] = {
    {"Id", T::Integer, true},
    {"percentage", T::Real, true, 0},
    {"ROW_VERSION", T::Integer, true, 0},
};
inline constexpr Names kVatKey[] = {"Id"};

inline constexpr Column kArticles[] = {
    {"BNC", T::Integer, true},
    {"Plu", T::Integer, true},
    {"DESCRIPTION", T::Text, true, ""},
    {"FLAGTRASM", T::Text, true, "00000000", 8},
};
inline constexpr Names kArticlesKey[] = {"BNC", "Plu"};

// Times are UTC, "2026-11-20T14:02:05Z"; a run's id is its start time, host, process and the
// process's count of runs.
inline constexpr Column kRuns[] = {
    {"RUN_ID", T::Text, true},
    {"RUN_START", T::Text, true},
    {"RUN_END", T::Text},  // Null while it runs, or when it was killed
    {"RUN_BY", T::Text, true, ""},
    {"RUN_STORE", T::Text, true, ""},
    {"RUN_LINE", T::Integer, true, 0},
    {"RUN_TRANSPORT", T::Text, true, ""},
    {"RUN_RECORDS", T::Integer, true, 0},
    {"RUN_BYTES", T::Integer, true, 0},
    {"RUN_RETRIES", T::Integer, true, 0},
    {"RUN_OUTCOME", T::Text, true, "running"},
    {"RUN_ERROR", T::Text, true, ""},
};
inline constexpr Names kRunsKey[] = {"RUN_ID"};
inline constexpr Names kRunsIndexes[] = {"RUN_START"};

inline constexpr Column kJournal[] =
    {
        {"J_TIME", T::Text, true},      {"J_RUN", T::Text, true},
        {"J_STORE", T::Text, true, ""}, {"J_BNC", T::Integer, true},
        {"J_LINE", T::Integer, true},   {"J_SCALE", T::Integer, true},
        {"J_FAMILY", T::Text, true},    {"J_KIND", T::Text, true},
        {"J_ID", T::Integer, true},     {"J_LENGTH", T::Integer, true},
        {"J_HASH", T::Text, true},  // SHA-256 of the record's bytes as delivered, in hexadecimal
};
inline constexpr Names kJournalIndexes[] = {"J_BNC, J_LINE, J_KIND, J_ID", "J_RUN", "J_TIME"};

// The last confirmed delivery of each record without flags to each line: what the pending list
// compares with the record's rows now. Kept when the journal is pruned.
inline constexpr Column kDelivered[] = {
    {"D_BNC", T::Integer, true}, {"D_LINE", T::Integer, true},   {"D_KIND", T::Text, true},
    {"D_ID", T::Integer, true},  {"D_STORE", T::Text, true, ""}, {"D_SCALE", T::Integer, true},
    {"D_FAMILY", T::Text, true}, {"D_ROWS", T::Text, true},  // "count:highest ROW_VERSION"
    {"D_HASH", T::Text, true},   {"D_TIME", T::Text, true},      {"D_RUN", T::Text, true, ""},
};
inline constexpr Names kDeliveredKey[] = {"D_BNC", "D_LINE", "D_KIND", "D_ID"};

inline constexpr Table kTables[] = {
    {"SCALE_LINES",
     "The network: which lines exist per department, the family and scale number of each.",
     kScaleLines,
     kScaleLinesKey,
     {},
     "SL_BNC",
     {},
     {},
     {}},
    {"TASTIERA_PLU",
     "Keyboard keys: one row binds a key of one scale to a value on the lines of TP_LINES.",
     kKeys,
     {},
     kKeysGroup,
     "TP_BNC",
     "TP_FLAGTRASM",
     "TP_KEY",
     kKeysIndexes},
    {"BARCODE",
     "Barcode formats: forms of a department, each a field list \"code#len@code#len\".",
     kBarcodes,
     kBarcodesKey,
     {},
     "BC_BNC",
     "BC_FLAGTRASM",
     "BC_FORM",
     {}},
    {"TRACEABILITY",
     "Traceability lots: one or more rows per lot, up to twenty description lines.",
     kLots,
     kLotsKey,
     {},
     "TRC_BNC",
     "TRC_FLAGTRASM",
     "TRC_ID",
     {}},
    {"ADVERTISING",
     "Advertising messages; their texts are the MESSAGES of MSG_LNK_ID.",
     kAds,
     kAdsKey,
     {},
     "ADV_BNC",
     "FLAGTRASM",
     "Id",
     {}},
    {"MESSAGES",
     "The texts of advertising messages.",
     kMessages,
     kMessagesKey,
     {},
     "MSG_BNC",
     {},
     {},
     {}},
    {"ETEXT",
     "Electronic texts: rows of numbered texts per counter.",
     kTexts,
     kTextsKey,
     {},
     "ET_BNC",
     {},
     {},
     {}},
    {"IMMAGINI",
     "Images (logos) by counter and number.",
     kImages,
     kImagesKey,
     {},
     "IM_BNC",
     {},
     {},
     kImagesIndexes},
    {"TICKET", "Ticket layouts.", kTickets, kTicketsKey, {}, "TK_BNC", {}, {}, {}},
    {"TICKET_DETAIL",
     "Layout objects: OBJ_TYPE 1 logo, 2 barcode, 3 text, 4 ticket.",
     kTicketObjects,
     kTicketObjectsKey,
     {},
     "TD_BNC",
     {},
     {},
     {}},
    {"TICKET_PROPERTY",
     "The objects' numbered properties.",
     kTicketProperties,
     kTicketPropertiesKey,
     {},
     "TD_BNC",
     {},
     {},
     {}},
    {"ALIQUOTE", "VAT rates.", kVat, kVatKey, {}, {}, {}, {}, {}},
    {"ARTICOLI",
     "Articles (their flags select the totals of mode V).",
     kArticles,
     kArticlesKey,
     {},
     "BNC",
     {},
     {},
     {}},
    {"QK_RUNS",
     "The delivery journal: one row per sync run.",
     kRuns,
     kRunsKey,
     {},
     "",
     {},
     {},
     kRunsIndexes,
     true},
    {"QK_JOURNAL",
     "The delivery journal: one row per record a line confirmed, written with its reset.",
     kJournal,
     {},
     {},
     "",
     {},
     {},
     kJournalIndexes,
     true},
    {"QK_DELIVERED",
     "The last confirmed delivery of each record without flags to each line.",
     kDelivered,
     kDeliveredKey,
     {},
     "",
     {},
     {},
     {},
     true},
};

}  // namespace detail

// Columns added to an existing table by a schema version: an upgrade from an older version adds
// them (with their declared type, default and check) on either database.
struct QK_API AddedColumn {
  int version;
  std::string_view table, column;
};
inline constexpr AddedColumn kAddedColumns[] = {
    {3, "SCALE_LINES", "SL_STORE"}, {3, "IMMAGINI", "IM_PICTURE"}, {4, "ETEXT", "ROW_VERSION"},
    {4, "IMMAGINI", "ROW_VERSION"}, {4, "TICKET", "ROW_VERSION"},  {4, "ALIQUOTE", "ROW_VERSION"},
    {5, "SCALE_LINES", "SL_ADDRESS"},
};
// Tables a schema version added: an upgrade from an older version creates them.
struct QK_API AddedTable {
  int version;
  std::string_view table;
};
inline constexpr AddedTable kAddedTables[] = {
    {3, "QK_RUNS"}, {3, "QK_JOURNAL"}, {4, "QK_DELIVERED"}};

// Every table, in the order they are created, imported and exported.
inline constexpr std::span<const Table> tables() {
  return detail::kTables;
}

// The schema version that gave a table's column, 0 for one it always had.
inline constexpr int added_in(std::string_view table, std::string_view column) {
  for (const AddedColumn& a : kAddedColumns)
    if (a.table == table && a.column == column) return a.version;
  return 0;
}

// The table of that name (exact spelling), or nullptr.
inline constexpr const Table* find_table(std::string_view name) {
  for (const Table& t : detail::kTables)
    if (t.name == name) return &t;
  return nullptr;
}

inline constexpr const Column* find_column(const Table& t, std::string_view name) {
  for (const Column& c : t.columns)
    if (c.name == name) return &c;
  return nullptr;
}

// Names as files and desktop databases spell them: ASCII letters in any case.
inline constexpr bool same_name(std::string_view a, std::string_view b) {
  return same_letters(a, b);
}

// The table, or the column, whose name is `name` in any letter case; nullptr when none.
inline constexpr const Table* find_table_any_case(std::string_view name) {
  for (const Table& t : detail::kTables)
    if (same_name(t.name, name)) return &t;
  return nullptr;
}
inline constexpr const Column* find_column_any_case(const Table& t, std::string_view name) {
  for (const Column& c : t.columns)
    if (same_name(c.name, name)) return &c;
  return nullptr;
}

// The columns that identify a row for replacing: the key, or the replace group.
inline constexpr std::span<const std::string_view> identity(const Table& t) {
  return t.key.empty() ? t.replace_group : t.key;
}

// The columns a row's writer gives, in table order: all but ROW_VERSION, which the archive keeps.
inline std::vector<std::string> written_columns(const Table& t) {
  std::vector<std::string> names;
  for (const Column& c : t.columns)
    if (c.name != kRowVersionColumn) names.emplace_back(c.name);
  return names;
}

}  // namespace qk::archive
