// The scales' run-length compression of a bitmap: runs of the group bytes 0x00 and 0xFF become
// the byte and its count (at most 255); any other byte is written as it is.
#pragma once

#include <cstdint>
#include <string>

namespace qk::images {

// The compressor's state, kept by its owner between bytes.
struct RunLengthState {
  int32_t& previous;  // -1: none yet
  int16_t& run_count;
  std::string& out;
};

// Feeds one byte: `first` for an image's first byte (clears the state), `last` for its last.
void compress_byte(RunLengthState s, unsigned char v, bool first, bool last);

}  // namespace qk::images
