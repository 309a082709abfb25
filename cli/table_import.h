// Loading rows into the archive: CSV files (header row = column names) are read as a stream,
// every value is checked against the table's description, and each row is inserted or, with
// replace, updates the row of the same key as soon as it is read, so memory does not grow with
// the file. Everything happens in one transaction: an error leaves the archive as it was. Records
// that change become pending on their department's configured lines.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "qk/archive_tools.h"

namespace qkp {

// One CSV file: its records (UTF-8), each field a text or absent (an empty unquoted field).
struct CsvFile {
  std::string path;
  std::vector<std::vector<std::optional<std::string>>> records;  // records[0] is the header
  bool ignore_extra = false;       // columns the table does not have are skipped
  std::vector<std::string> notes;  // what was detected or skipped, for the user
};

enum class CsvEncoding { Detect, Utf8, Cp1252 };
struct CsvFormat {
  char delimiter = 0;  // 0: "," or ";", whichever the header line uses
  // Detect: UTF-8 when the bytes are valid UTF-8, else Windows code page 1252 (a desktop export).
  CsvEncoding encoding = CsvEncoding::Detect;
  bool ignore_extra = false;
};
// Where a CSV's bytes come from, read chunk by chunk: `open` starts reading from the beginning
// (a file is read twice when its encoding must be detected first) and gives a function that
// fills a buffer and returns how many bytes it put there, 0 at the end.
using ChunkReader = std::function<std::size_t(char* buffer, std::size_t capacity)>;
struct CsvInput {
  std::string path;  // for messages; its name without extension names the table
  CsvFormat format;
  std::function<ChunkReader()> open;
};
CsvInput csv_file(const std::string& path, const CsvFormat& format = {});
CsvInput csv_bytes(std::string bytes, const std::string& name, const CsvFormat& format = {});

// Calls `each` for every record (the header first) with its line number, as it is read; `each`
// returns false to stop. A UTF-8 byte-order mark is skipped; what was detected goes to *notes; a
// malformed file raises an error naming the file, the line and the likely cause.
using RecordVisitor =
    std::function<bool(std::vector<std::optional<std::string>>& record, long line)>;
void read_records(const CsvInput& in, const RecordVisitor& each,
                  std::vector<std::string>* notes = nullptr);

// A whole CSV in memory (small files, the fuzzers): the same reading, every record kept.
CsvFile parse_csv(std::string bytes, const std::string& name, const CsvFormat& format = {});
// Checks a file's header and every value against its table's description, as import_tables does;
// raises an error naming the file, line and column. Returns the rows.
std::size_t check_csv(const CsvFile& f);

struct ImportOptions {
  bool replace = false;  // update rows of the same key instead of refusing them
  bool dry_run = false;  // check and count, then roll back
  bool mark = true;      // new and changed records become pending on their configured lines
  bool diff = false;     // describe every new and changed row in ImportResult::diffs
  // Where the imported images' picture files are (qk::sync::picture_file_candidates); empty:
  // none are loaded.
  std::string pictures_folder;
};

struct TableCount {
  std::string table;
  long inserted = 0, changed = 0, unchanged = 0;
};
struct ImportResult {
  std::vector<TableCount> tables;
  std::vector<std::string> notes;  // encodings and separators detected, columns skipped
  long marked = 0;                 // rows marked pending
  // With ImportOptions::diff: "BARCODE line 3 (BC_BNC 1, BC_FORM 2): BC_DESCR "a" -> "b"".
  std::vector<std::string> diffs;
};

// Imports the inputs, each named after its table ("BARCODE.csv"), in the archive's table order.
// Memory stays bounded: rows are written as they are read (for TASTIERA_PLU with replace, the rows
// of one key at a time, and the keys already replaced).
ImportResult import_tables(qk::ArchiveTools& a, const std::vector<CsvInput>& inputs,
                           const ImportOptions& o);

// Writes one "<TABLE>.csv" per table (or only `only`) into the folder, as import_tables reads
// them; every file is complete before any replaces an earlier one. Returns the rows per table.
std::vector<std::pair<std::string, long>> export_tables(qk::ArchiveTools& a,
                                                        const std::string& folder,
                                                        const std::string& only = "");

}  // namespace qkp
