#include "base/File.h"

#include <sys/stat.h>

#include <vector>

const wchar_t* const File::pathSeparator = L"/";

String File::NormalizePath(const String& path) {
  const std::wstring& in = path.wstr();
  const bool absolute = !in.empty() && in[0] == L'/';
  std::vector<std::wstring> parts;
  std::size_t i = 0;
  while (i < in.size()) {
    while (i < in.size() && in[i] == L'/') ++i;
    std::size_t start = i;
    while (i < in.size() && in[i] != L'/') ++i;
    if (i == start) break;
    std::wstring part = in.substr(start, i - start);
    if (part == L".") continue;
    if (part == L"..") {
      if (!parts.empty() && parts.back() != L"..") {
        parts.pop_back();
      } else if (!absolute) {
        parts.push_back(part);
      }
      // An absolute path stays at the root.
      continue;
    }
    parts.push_back(std::move(part));
  }
  std::wstring out;
  if (absolute) out.push_back(L'/');
  for (std::size_t k = 0; k < parts.size(); ++k) {
    if (k > 0) out.push_back(L'/');
    out.append(parts[k]);
  }
  if (out.empty()) out = L".";
  return String(out);
}

File::File(const String& path, const wchar_t* child) : m_Path(path) {
  if (child != nullptr) {
    m_Path.concat(pathSeparator);
    m_Path.concat(child);
  }
}

namespace {
bool statPath(const String& path, struct stat& st) {
  std::string narrow = path.toNarrow();
  return ::stat(narrow.c_str(), &st) == 0;
}
}  // namespace

bool File::exists() const {
  struct stat st {};
  return statPath(m_Path, st);
}

bool File::isFile() const {
  struct stat st {};
  return statPath(m_Path, st) && S_ISREG(st.st_mode);
}

bool File::isDirectory() const {
  struct stat st {};
  return statPath(m_Path, st) && S_ISDIR(st.st_mode);
}
