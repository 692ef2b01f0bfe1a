#include "command/Nearest.h"

#include <algorithm>
#include <cctype>
#include <numeric>

namespace chassis {
namespace {

int lower(char c) {
  return std::tolower(static_cast<unsigned char>(c));
}

}  // namespace

std::size_t editDistance(const std::string &a, const std::string &b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const bool same = lower(a[i - 1]) == lower(b[j - 1]);
      const std::size_t substituted = diagonal + (same ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, substituted});
    }
  }
  return row[b.size()];
}

std::string nearest(const std::string &name, const std::vector<std::string> &candidates) {
  const auto nearer = [&name](const std::string &a, const std::string &b) {
    return editDistance(name, a) < editDistance(name, b);
  };
  const auto found = std::min_element(candidates.begin(), candidates.end(), nearer);
  return found == candidates.end() ? "" : *found;
}

}  // namespace chassis
