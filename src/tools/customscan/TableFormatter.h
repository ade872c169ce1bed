#pragma once
// The text forms of a table of strings: an aligned grid for people and
// RFC 4180 CSV for programs. The first row given is the header.

#include <string>
#include <vector>

namespace CustomScanTool {

class TableFormatter {
 public:
  typedef std::vector<std::string> Row;

  // Columns padded to their widest cell (counted in characters of UTF-8
  // text), separated by two blanks, a rule of dashes under the header, no
  // blanks at line ends; every line ends with a line feed.
  static std::string text(const Row& header, const std::vector<Row>& rows);
  // RFC 4180: records end with CR LF; a field holding a comma, a double
  // quote, a CR or a LF (or a blank at either end) is quoted, its quotes doubled.
  static std::string csv(const Row& header, const std::vector<Row>& rows);
  static std::string csvField(const std::string& field);
  // The number of characters of UTF-8 text (bytes that do not continue a sequence).
  static std::size_t displayWidth(const std::string& text);
};

}  // namespace CustomScanTool
