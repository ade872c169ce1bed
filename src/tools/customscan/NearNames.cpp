#include "NearNames.h"

#include <algorithm>
#include <unordered_set>

namespace CustomScanTool {

namespace {

std::string folded(const std::string& text) {
  std::string out = text;
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

// Long names are not compared letter by letter: the distance costs their
// product in time and memory.
constexpr std::size_t kLongestCompared = 256;

}  // namespace

std::size_t NearNames::distance(const std::string& a, const std::string& b) {
  const std::size_t n = a.size();
  const std::size_t m = b.size();
  // Three rows of the optimal-string-alignment table.
  std::vector<std::size_t> before(m + 1), previous(m + 1), current(m + 1);
  for (std::size_t j = 0; j <= m; ++j) previous[j] = j;
  for (std::size_t i = 1; i <= n; ++i) {
    current[0] = i;
    for (std::size_t j = 1; j <= m; ++j) {
      const std::size_t cost = a[i - 1] == b[j - 1] ? 0 : 1;
      current[j] = std::min({previous[j] + 1, current[j - 1] + 1, previous[j - 1] + cost});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        current[j] = std::min(current[j], before[j - 2] + 1);
      }
    }
    std::swap(before, previous);
    std::swap(previous, current);
  }
  return previous[m];
}

std::vector<std::string> NearNames::find(const std::string& asked,
                                         const std::vector<std::string>& candidates,
                                         std::size_t max) {
  struct Scored {
    std::size_t rank;
    std::size_t index;
  };
  const std::string askedFolded = folded(asked);
  // A slip or two for short names, a third of the letters for long ones.
  const std::size_t allowed = std::max<std::size_t>(2, asked.size() / 3);
  std::vector<Scored> scored;
  std::unordered_set<std::string> seen;
  for (std::size_t i = 0; i < candidates.size(); ++i) {
    const std::string& name = candidates[i];
    if (name == asked || !seen.insert(name).second) continue;
    const std::string nameFolded = folded(name);
    if (nameFolded == askedFolded) {
      scored.push_back(Scored{0, i});
      continue;
    }
    if (asked.size() <= kLongestCompared && name.size() <= kLongestCompared) {
      const std::size_t d = distance(askedFolded, nameFolded);
      if (d <= allowed) {
        scored.push_back(Scored{d, i});
        continue;
      }
    }
    if (askedFolded.size() >= 3 && nameFolded.find(askedFolded) != std::string::npos) {
      scored.push_back(Scored{kLongestCompared + 1, i});
    }
  }
  std::stable_sort(scored.begin(), scored.end(),
                   [](const Scored& a, const Scored& b) { return a.rank < b.rank; });
  std::vector<std::string> out;
  for (const Scored& s : scored) {
    if (out.size() == max) break;
    out.push_back(candidates[s.index]);
  }
  return out;
}

}  // namespace CustomScanTool
