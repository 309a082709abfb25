#include "content_hash.h"

#include <openssl/evp.h>

namespace qk::sync {

struct ContentHash::State {
  EVP_MD_CTX* ctx = EVP_MD_CTX_new();
  ~State() { EVP_MD_CTX_free(ctx); }
};

ContentHash::ContentHash() : state_(std::make_unique<State>()) {
  EVP_DigestInit_ex(state_->ctx, EVP_sha256(), nullptr);
}

ContentHash::~ContentHash() = default;

void ContentHash::add(std::string_view bytes) {
  EVP_DigestUpdate(state_->ctx, bytes.data(), bytes.size());
}

std::string ContentHash::hex() {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  EVP_DigestFinal_ex(state_->ctx, digest, &size);
  EVP_DigestInit_ex(state_->ctx, EVP_sha256(), nullptr);
  static const char* digits = "0123456789abcdef";
  std::string out;
  for (unsigned int i = 0; i < size; ++i) {
    out += digits[digest[i] >> 4];
    out += digits[digest[i] & 15];
  }
  return out;
}

std::string sha256_hex(std::string_view bytes) {
  ContentHash h;
  h.add(bytes);
  return h.hex();
}

}  // namespace qk::sync
