#pragma once
// The FILE|- argument of batch and mif: a named file, or standard input.

#include <fstream>
#include <istream>
#include <memory>
#include <string>

namespace CustomScanTool {

class InputText {
 public:
  // "-" (or empty) is standard input; anything else a file, opened now.
  // Throws UsageError when the file cannot be opened.
  explicit InputText(const std::string& name);
  InputText(const InputText&) = delete;
  InputText& operator=(const InputText&) = delete;

  std::istream& stream() { return m_File ? *m_File : *m_Stdin; }
  // The name to use in messages: the file name, or "-".
  const std::string& displayName() const { return m_Name; }
  // Everything that is left to read; throws UsageError on a read error.
  std::string readAll();

 private:
  std::string m_Name;
  std::unique_ptr<std::ifstream> m_File;
  std::istream* m_Stdin = nullptr;
};

}  // namespace CustomScanTool
