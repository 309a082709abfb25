// The fuzz targets, one function per target. The libFuzzer programs call them, and the test suite
// replays the kept corpus through the very same functions, so a replay drives what the fuzzer
// drove. Each returns 0; a broken property aborts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace qk::fuzz {

using Target = int (*)(const uint8_t* data, std::size_t size);

struct NamedTarget {
  const char* name;  // also the corpus folder: tests/fuzz/corpus/<name>
  Target run;
};

// Bitmap reader and repacker (the whole input as a .bmp), and the three record decoders (the
// input cut into records at each LF).
int bitmap(const uint8_t* data, std::size_t size);
// The SQL dialect translator and parameterizer, and the registry export reader.
int sql(const uint8_t* data, std::size_t size);
// A registry export file as it is (8-bit, UTF-8 or UTF-16 with their marks): read whole or
// refused with error 13 naming the file and line, never another failure.
int registry(const uint8_t* data, std::size_t size);
// Layouts sent back by scales: read as 3000 records and as 5000 messages (refused with error 5
// naming a position), then stored through the component as layout receive stores them, in a demo
// archive; a refused input leaves no row of the layout behind.
int layout(const uint8_t* data, std::size_t size);
// CSV import: parsing with either separator and the checks of every value against the table the
// first byte chooses.
int csv(const uint8_t* data, std::size_t size);
// Parameters.xml, registry.xml and Configurazione.xml: loading and every query, on the input.
int xml(const uint8_t* data, std::size_t size);
// Reading numbers from text (whole-string and Val-style), narrowing, and the code-page-1252 map
// in both directions.
int number(const uint8_t* data, std::size_t size);

const std::vector<NamedTarget>& targets();

}  // namespace qk::fuzz
