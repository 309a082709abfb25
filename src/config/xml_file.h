// Loading and saving the component's XML files. Files hold UTF-8; the component's strings are
// 8-bit, so text crosses here. Every save is atomic: a temporary file beside the target is
// written, flushed to disk and renamed over it, so a crash never leaves a half-written file.
#pragma once

#include <memory>
#include <pugixml.hpp>
#include <string>

namespace qk::config {

// Loads the file into doc; on a missing or malformed file doc is left empty and false returned.
bool load_document(pugi::xml_document& doc, const std::string& path);

// The file's document for reading only, parsed once for as long as the file is unchanged (see
// small_file_bytes); an empty document when the file is missing or malformed.
std::shared_ptr<const pugi::xml_document> shared_document(const std::string& path);

// Saves doc over path atomically; raises error 75 naming the file when it cannot be written.
void save_document_atomically(const pugi::xml_document& doc, const std::string& path,
                              unsigned mode = 0644);

// Text from the file (UTF-8) to the component's 8-bit form, and back.
std::string from_xml(const char* utf8);
std::string to_xml(const std::string& text);

// Selects the first node matching the query (given in 8-bit form), or an empty node.
pugi::xpath_node select_single(const pugi::xml_node& context, const std::string& query);

}  // namespace qk::config
