#pragma once
// The FILE|- argument of batch and mif: a named file, or standard input.
// Read with read(2), so that a failure (a directory as standard input, a
// closed standard input, an I/O error) is reported with its reason rather
// than taken for the end of the text.

#include <cstddef>
#include <string>
#include <vector>

namespace CustomScanTool {

class InputText {
 public:
  // "-" (or empty) is standard input; anything else a file, opened now.
  // Throws UsageError when the file cannot be opened or is a directory.
  explicit InputText(const std::string& name);
  InputText(const InputText&) = delete;
  InputText& operator=(const InputText&) = delete;
  // Closes the file (standard input stays open).
  ~InputText();

  // The name to use in messages: the file name, or "-".
  const std::string& displayName() const { return m_Name; }
  // Everything that is left to read; throws UsageError on a read error.
  std::string readAll();
  // The next line, without its line feed; false at the end of the text.
  // A line of more than maxLength bytes is not kept: line is left empty and
  // tooLong set, and the rest of it is skipped. Throws UsageError on a read
  // error.
  bool readLine(std::string& line, std::size_t maxLength, bool& tooLong);

 private:
  // Refills the buffer; false at the end. Throws UsageError on a read error.
  bool fill();
  [[noreturn]] void throwReadError(int error) const;

  std::string m_Name;
  int m_Fd = 0;
  bool m_OwnsFd = false;
  std::vector<char> m_Buffer;
  std::size_t m_Begin = 0;  // unread bytes are [m_Begin, m_End)
  std::size_t m_End = 0;
  bool m_AtEnd = false;
};

}  // namespace CustomScanTool
