// The web page's files (web/), built into the program: the page needs nothing beside qkp, and
// nothing from outside the store's network.
#pragma once

#include <vector>

namespace qk::service {

struct WebFile {
  const char* path;  // relative to web/
  const char* text;
};

const std::vector<WebFile>& web_files();

}  // namespace qk::service
