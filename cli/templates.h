// The default files of an installation (share/templates, installed to share/qk_protocol), built
// into the tool so that "qkp init" works wherever qkp runs.
#pragma once

#include <vector>

namespace qkp {

struct Template {
  const char* path;  // relative to the installation folder
  const char* text;
};

const std::vector<Template>& templates();

}  // namespace qkp
