// A folder of its own for one test, under the working directory, removed with
// everything in it when the object goes.
#pragma once

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

#include "utility/Platform.h"

namespace velmar {
namespace testing {

class TempDir {
 public:
  explicit TempDir(const std::string& prefix) {
    static std::atomic<int> counter{0};
    // Relative and with '/' only: it stands in log base names everywhere.
    path_ = prefix + "." + std::to_string(platform::processId()) + "." +
            std::to_string(counter.fetch_add(1));
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
    std::filesystem::create_directories(path_);
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

  /// Names of the plain files in the folder, sorted.
  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
      if (entry.is_regular_file()) names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }
  /// Contents of the named file in the folder.
  std::string read(const std::string& name) const { return readFile(*this / name); }

  /// In one read (files of many megabytes), as text: CR LF comes back as '\n'.
  static std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::ate);
    if (!in) return std::string();
    std::string text(static_cast<size_t>(in.tellg()), '\0');
    in.seekg(0);
    in.read(&text[0], static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<size_t>(in.gcount()));
    return text;
  }

 private:
  std::string path_;
};

}  // namespace testing
}  // namespace velmar
