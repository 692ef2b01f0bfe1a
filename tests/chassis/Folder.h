// A folder of its own for one test case, gone when it ends.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace testing_files {

class Folder {
 public:
  Folder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "ci-files-XXXXXX").string();
    EXPECT_NE(mkdtemp(pattern.data()), nullptr);
    path_ = pattern;
  }
  ~Folder() { std::filesystem::remove_all(path_); }
  Folder(const Folder &) = delete;
  Folder &operator=(const Folder &) = delete;

  std::string at(const std::string &name) const { return path_ + "/" + name; }
  std::string write(const std::string &name, const std::string &text) const {
    std::ofstream(at(name), std::ios::binary) << text;
    return at(name);
  }
  std::string read(const std::string &name) const {
    std::ifstream file(at(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  std::string fifo(const std::string &name) const {
    EXPECT_EQ(mkfifo(at(name).c_str(), 0600), 0);
    return at(name);
  }
  std::size_t entries() const {
    const std::filesystem::directory_iterator all(path_);
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
  }

 private:
  std::string path_;
};

}  // namespace testing_files
