// SHA-256 of bytes, in hexadecimal: what the journal records of a delivered record, and the name
// of a picture written from the archive.
#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace qk::sync {

class ContentHash {
 public:
  ContentHash();
  ~ContentHash();
  ContentHash(const ContentHash&) = delete;
  ContentHash& operator=(const ContentHash&) = delete;
  void add(std::string_view bytes);
  // The digest of everything added; the hash starts again empty.
  std::string hex();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

std::string sha256_hex(std::string_view bytes);

}  // namespace qk::sync
