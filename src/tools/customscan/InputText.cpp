#include "InputText.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <sstream>

#include "UsageError.h"

namespace CustomScanTool {

InputText::InputText(const std::string& name) : m_Name(name.empty() ? "-" : name) {
  if (m_Name == "-") {
    m_Stdin = &std::cin;
    return;
  }
  struct stat st {};
  if (::stat(m_Name.c_str(), &st) != 0) {
    throw UsageError("cannot open " + m_Name + ": " + std::strerror(errno));
  }
  if (S_ISDIR(st.st_mode)) throw UsageError("cannot open " + m_Name + ": it is a directory");
  m_File.reset(new std::ifstream(m_Name, std::ios::in | std::ios::binary));
  if (!*m_File) throw UsageError("cannot open " + m_Name + ": " + std::strerror(errno));
}

std::string InputText::readAll() {
  std::ostringstream text;
  text << stream().rdbuf();
  if (stream().bad()) throw UsageError("cannot read " + m_Name);
  return text.str();
}

}  // namespace CustomScanTool
