#include "base/File.h"

#include <sys/stat.h>

#include <cstring>
#include <string>
#include <utility>

#include "base/FileExtras.h"
#include "base/StringExtras.h"

const wchar_t* const File::pathSeparator = L"/";

namespace {
// One pass over the text into one output buffer: a "." step is skipped, a
// ".." step cuts the output back to the separator before its last step.
// `root` is the part of the output no ".." may remove: "/" for an absolute
// path, and for a relative one every leading ".." kept so far. Only '/' and
// '.' matter, so narrow ASCII and wide text fold alike.
template <typename Char>
std::basic_string<Char> foldPath(const Char* in, std::size_t n) {
  const Char slash = static_cast<Char>('/');
  const Char dot = static_cast<Char>('.');
  const bool absolute = n != 0 && in[0] == slash;
  std::basic_string<Char> out;
  out.reserve(n + 1);
  if (absolute) out.push_back(slash);
  std::size_t root = out.size();
  std::size_t i = 0;
  while (i < n) {
    while (i < n && in[i] == slash) ++i;
    const std::size_t start = i;
    while (i < n && in[i] != slash) ++i;
    const std::size_t count = i - start;
    if (count == 0) break;
    if (count == 1 && in[start] == dot) continue;
    if (count == 2 && in[start] == dot && in[start + 1] == dot) {
      if (out.size() > root) {
        const std::size_t cut = out.rfind(slash);
        out.resize(cut == std::basic_string<Char>::npos || cut < root ? root : cut);
      } else if (!absolute) {
        if (!out.empty()) out.push_back(slash);
        out.append(2, dot);
        root = out.size();
      }
      // An absolute path stays at the root.
      continue;
    }
    if (out.size() > (absolute ? 1U : 0U)) out.push_back(slash);
    out.append(in + start, count);
  }
  if (out.empty()) out.push_back(dot);
  return out;
}
}  // namespace

String File::NormalizePath(const String& path) {
  // A path held as ASCII bytes is folded as it is, without a wide copy; a
  // zero character inside would end the narrow result early, so such a
  // path takes the wide route.
  const char* ascii = asciiView(path);
  const auto n = static_cast<std::size_t>(path.length());
  if (ascii != nullptr && std::strlen(ascii) == n) {
    const std::string out = foldPath(ascii, n);
    return String(out.data(), out.size());
  }
  const std::wstring in = toWideString(path);
  const std::wstring out = foldPath(in.data(), in.size());
  return String(out.data(), out.size());
}

File::File(const String& path, const wchar_t* child) : m_Path(path) { appendChild(child); }

File FileAccess::make(String&& path, const wchar_t* child) {
  File file(String(), nullptr);
  file.m_Path = std::move(path);
  file.appendChild(child);
  return file;
}

void File::appendChild(const wchar_t* child) {
  if (child == nullptr) return;
  m_Path.concat(pathSeparator);
  m_Path.concat(child);
}

namespace {
bool statPath(const String& path, struct stat& st) {
  // A path held as ASCII bytes already is its narrow text.
  if (const char* text = asciiView(path)) return ::stat(text, &st) == 0;
  const std::string narrow = path.toNarrow();
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

bool FileAccess::isDirectory(const File& file) {
  struct stat st {};
  return statPath(file.m_Path, st) && S_ISDIR(st.st_mode);
}
