#include "Run.h"

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace e2e {
namespace {

namespace fs = std::filesystem;

std::string textOf(const std::string &path) {
  const Bytes bytes = readFile(path);
  return std::string(bytes.begin(), bytes.end());
}

std::string trimmed(const std::string &cell) {
  const std::size_t end = cell.find_last_not_of(' ');
  return end == std::string::npos ? "" : cell.substr(0, end + 1);
}

bool has(const std::string &line, const std::string &part) {
  return line.find(part) != std::string::npos;
}

template <typename Wanted>
Lines linesThat(const std::string &text, Wanted wanted) {
  std::istringstream stream(text);
  Lines lines;
  for (std::string line; std::getline(stream, line);) {
    if (wanted(line)) {
      lines.push_back(line);
    }
  }
  return lines;
}

// Columns stand where the dashes of the rule below the header do.
Lines cellsOf(const std::string &line, const std::string &rule) {
  Lines cells;
  for (std::size_t begin = 0; begin < rule.size();) {
    const std::size_t end = std::min(rule.find(' ', begin), rule.size());
    cells.push_back(begin < line.size() ? trimmed(line.substr(begin, end - begin)) : "");
    begin = std::min(rule.find('-', end), rule.size());
  }
  if (!cells.empty()) {
    cells.back() = trimmed(line.substr(std::min(line.size(), rule.rfind(' ') + 1)));
  }
  return cells;
}

}  // namespace

void Run::SetUp() {
  std::string pattern = (fs::temp_directory_path() / "ci-chassis-XXXXXX").string();
  ASSERT_NE(mkdtemp(pattern.data()), nullptr);
  folder_ = pattern;
  fs::create_directory_symlink(E2E_BUILD, folder_ + "/build");
  fs::create_directory(folder_ + "/samples");
  fs::copy_file(samples + "/demo", folder_ + "/samples/demo");
}

void Run::TearDown() {
  fs::remove_all(folder_);
}

Result Run::run(const std::string &arguments, const std::string &input) const {
  return command("'" + program + "' " + arguments + (input.empty() ? "" : " <" + input));
}

Result Run::command(const std::string &line) const {
  const std::string command = "cd " + folder_ + " && (" + line + ") >out.txt 2>err.txt </dev/null";
  const auto begin = std::chrono::steady_clock::now();
  const int status = std::system(command.c_str());
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, textOf(folder_ + "/out.txt"),
          textOf(folder_ + "/err.txt"), took.count()};
}

Result Run::runScript(const std::string &script, const std::string &arguments) const {
  write("script", script);
  return run("--script script --speed max " + arguments);
}

std::string Run::write(const std::string &name, const std::string &text) const {
  std::ofstream(folder_ + "/" + name, std::ios::binary) << text;
  return name;
}

void Run::write(const std::string &name, const Bytes &bytes) const {
  write(name, std::string(bytes.begin(), bytes.end()));
}

Bytes Run::read(const std::string &name) const {
  return readFile(folder_ + "/" + name);
}

Bytes readFile(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file) << path;
  return Bytes(std::istreambuf_iterator<char>(file), {});
}

Lines linesOf(const std::string &text) {
  return linesWith(text, "");
}

Lines linesWith(const std::string &text, const std::string &part) {
  return linesThat(text, [&part](const std::string &line) { return has(line, part); });
}

Lines linesWithout(const std::string &text, const std::string &part) {
  return linesThat(text, [&part](const std::string &line) { return !has(line, part); });
}

std::vector<TableRow> tableRows(const std::string &text) {
  std::vector<TableRow> rows;
  std::string rule;
  for (const std::string &line : linesOf(text)) {
    if (line.rfind("-------", 0) == 0) {
      rule = line;
    } else if (!rule.empty() && !line.empty() &&
               std::isdigit(static_cast<unsigned char>(line[0]))) {
      const Lines c = cellsOf(line, rule);
      rows.push_back({c.at(0), c.at(1), c.at(2), c.at(4), c.at(5), c.at(6), c.at(7), c.at(8),
                      c.at(9), c.at(10), c.at(11)});
    }
  }
  return rows;
}

}  // namespace e2e
