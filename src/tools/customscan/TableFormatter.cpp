#include "TableFormatter.h"

#include <algorithm>

namespace CustomScanTool {

std::size_t TableFormatter::displayWidth(const std::string& text) {
  std::size_t width = 0;
  for (unsigned char c : text) {
    if ((c & 0xC0) != 0x80) ++width;
  }
  return width;
}

namespace {

void appendLine(std::string& out, const std::vector<std::string>& cells,
                const std::vector<std::size_t>& widths) {
  std::string line;
  for (std::size_t i = 0; i < widths.size(); ++i) {
    const std::string cell = i < cells.size() ? cells[i] : std::string();
    if (i > 0) line += "  ";
    line += cell;
    if (i + 1 < widths.size()) line.append(widths[i] - TableFormatter::displayWidth(cell), ' ');
  }
  while (!line.empty() && line.back() == ' ') line.pop_back();
  out += line;
  out += '\n';
}

}  // namespace

std::string TableFormatter::text(const Row& header, const std::vector<Row>& rows) {
  std::size_t columns = header.size();
  for (const Row& row : rows) columns = std::max(columns, row.size());
  std::vector<std::size_t> widths(columns, 0);
  auto measure = [&widths](const Row& row) {
    for (std::size_t i = 0; i < row.size(); ++i)
      widths[i] = std::max(widths[i], displayWidth(row[i]));
  };
  measure(header);
  for (const Row& row : rows) measure(row);
  for (std::size_t& width : widths) width = std::max<std::size_t>(width, 1);

  std::string out;
  appendLine(out, header, widths);
  Row rule;
  for (std::size_t width : widths) rule.push_back(std::string(width, '-'));
  appendLine(out, rule, widths);
  for (const Row& row : rows) appendLine(out, row, widths);
  return out;
}

std::string TableFormatter::csvField(const std::string& field) {
  bool quote = field.find_first_of(",\"\r\n") != std::string::npos ||
               (!field.empty() && (field.front() == ' ' || field.back() == ' '));
  if (!quote) return field;
  std::string out = "\"";
  for (char c : field) {
    if (c == '"') out += '"';
    out += c;
  }
  out += '"';
  return out;
}

std::string TableFormatter::csv(const Row& header, const std::vector<Row>& rows) {
  std::string out;
  auto appendRecord = [&out](const Row& row) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      if (i > 0) out += ',';
      out += csvField(row[i]);
    }
    out += "\r\n";
  };
  appendRecord(header);
  for (const Row& row : rows) appendRecord(row);
  return out;
}

}  // namespace CustomScanTool
