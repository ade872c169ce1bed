#pragma once
// The names near one that was asked for and not found: those that differ
// only in case first, then those a few typing slips away, then those that
// contain it, so that "address" finds "Address", "tcp#22" finds "tcp#21" and
// "pretty" finds "PrettyName".

#include <cstddef>
#include <string>
#include <vector>

namespace CustomScanTool {

class NearNames {
 public:
  // At most max names of candidates near asked, nearest first; ties keep the
  // candidates' order. asked itself is never among them.
  static std::vector<std::string> find(const std::string& asked,
                                       const std::vector<std::string>& candidates,
                                       std::size_t max = 5);
  // The edit distance (insertions, deletions, substitutions and swaps of
  // neighbours) between two texts, compared byte by byte.
  static std::size_t distance(const std::string& a, const std::string& b);
};

}  // namespace CustomScanTool
