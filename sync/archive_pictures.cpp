#include "qk/sync/archive_pictures.h"

#include <openssl/evp.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "content_hash.h"
#include "qk/host.h"

namespace qk::sync {

std::string picture_text(const std::string& bytes) {
  std::string out(4 * ((bytes.size() + 2) / 3) + 1, '\0');
  int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                          reinterpret_cast<const unsigned char*>(bytes.data()),
                          static_cast<int>(bytes.size()));
  out.resize(static_cast<std::size_t>(n));
  return out;
}

std::optional<std::string> picture_bytes(const std::string& text) {
  if (text.size() % 4 != 0) return std::nullopt;
  std::string out(text.size() / 4 * 3 + 1, '\0');
  int n = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                          reinterpret_cast<const unsigned char*>(text.data()),
                          static_cast<int>(text.size()));
  if (n < 0) return std::nullopt;
  // The decoder counts the padding as zero bytes: they are not the file's.
  std::size_t pad = 0;
  for (std::size_t i = text.size(); i > 0 && text[i - 1] == '=' && pad < 2; --i) ++pad;
  out.resize(static_cast<std::size_t>(n) - pad);
  return out;
}

std::optional<std::string> read_whole_file(const std::string& path) {
  std::error_code ec;
  if (!std::filesystem::is_regular_file(path, ec)) return std::nullopt;
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) return std::nullopt;
  return bytes;
}

std::string materialised_picture(const std::string& folder, const std::string& bytes) {
  std::string name = sha256_hex(bytes);
  std::string dir =
      (folder.ends_with("/") ? folder.substr(0, folder.size() - 1) : folder) + "/.archive";
  std::string path = dir + "/" + name + ".bmp";
  if (read_whole_file(path) != bytes) {
    std::filesystem::create_directories(dir);
    save_file_atomically(path, bytes);
  }
  return path;
}

void write_department_pictures(ArchiveTools& a, const std::string& folder, int32_t dept) {
  const archive::Table& t = *archive::find_table("IMMAGINI");
  for (auto rs = a.select_rows(t, {{"IM_BNC", dept}}); !rs->Eof(); rs->MoveNext()) {
    std::string name = rs->Fields("IM_FILE_NAME").to_text();
    auto bytes = picture_bytes(rs->Fields("IM_PICTURE").to_text());
    // Names are the archive's: one with a folder in it is not written.
    if (name.empty() || name.find('/') != std::string::npos || !bytes || bytes->empty()) continue;
    save_file_atomically(folder + "/" + name, *bytes);
  }
}

std::vector<std::string> picture_file_candidates(const std::string& folder, int32_t dept,
                                                 const std::string& name) {
  return {folder + "/images/" + std::to_string(dept) + "/" + name, folder + "/images/" + name,
          folder + "/" + name};
}

PictureLoad load_missing_pictures(ArchiveTools& a, const std::string& folder) {
  const archive::Table& t = *archive::find_table("IMMAGINI");
  struct Row {
    int32_t dept, id;
    std::string name;
  };
  std::vector<Row> rows;
  for (auto rs = a.select_rows(t, {{"IM_PICTURE", std::string()}}); !rs->Eof(); rs->MoveNext())
    rows.push_back({rs->Fields("IM_BNC").to_int32(), rs->Fields("IM_ID").to_int32(),
                    rs->Fields("IM_FILE_NAME").to_text()});
  PictureLoad load;
  for (const auto& r : rows) {
    std::optional<std::string> bytes;
    for (const auto& path : picture_file_candidates(folder, r.dept, r.name))
      if (!r.name.empty() && (bytes = read_whole_file(path))) break;
    if (!bytes) {
      load.missing.push_back("image " + std::to_string(r.id) + " of department " +
                             std::to_string(r.dept) + " (" + r.name + ")");
      continue;
    }
    a.update_rows(t, {{"IM_BNC", r.dept}, {"IM_ID", r.id}}, {"IM_PICTURE"}, {picture_text(*bytes)});
    ++load.loaded;
  }
  return load;
}

}  // namespace qk::sync
