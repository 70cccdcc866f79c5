#include "publish/common/nearest_word.h"

#include <algorithm>
#include <cstddef>
#include <numeric>

#include "base/ascii.h"

namespace velmora::publish {
namespace {

// How many characters have to be inserted, removed or replaced to make one word of the other
// (Levenshtein). Two neighbours in the wrong order count as two.
std::size_t Distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i + 1;
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t replaced = diagonal + (LowerCase(a[i]) == LowerCase(b[j]) ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

}  // namespace

std::string NearestWord(std::string_view word, const std::vector<std::string>& known) {
  std::string nearest;
  std::size_t least = word.size() / 4 + 2;  // one mistake in a short word, more in a long one
  for (const std::string& candidate : known) {
    const std::size_t distance = Distance(word, candidate);
    if (distance >= least) continue;
    least = distance;
    nearest = candidate;
  }
  return nearest;
}

}  // namespace velmora::publish
