#include "images/run_length.h"

#include "images/scale_image_format.h"

namespace qk::images {

namespace fmt = scale_image_format;

void compress_byte(RunLengthState s, unsigned char v, bool first, bool last) {
  if (first) {
    s.previous = -1;
    s.out.clear();
  }
  auto put = [&](int c) { s.out += static_cast<char>(c); };
  if (fmt::is_group_byte(v)) {
    if (v != s.previous && s.run_count >= 1) {
      put(s.previous);
      put(s.run_count);
      s.run_count = 0;
    }
    ++s.run_count;
    if (!last && s.run_count < fmt::kMaxRun) {
      s.previous = v;
      return;
    }
    put(v);
    put(s.run_count);
    s.run_count = 0;
    s.previous = v;
    return;
  }
  if (s.run_count < 1) {
    put(v);
    s.previous = v;
    return;
  }
  put(s.previous != -1 ? s.previous : v);
  put(s.run_count);
  put(v);
  s.run_count = 0;
  s.previous = v;
}

}  // namespace qk::images
