#include "BaselineMif.h"

#include <cstdlib>
#include <cwctype>
#include <fstream>
#include <sstream>

#include "BenchSupport.h"
#include "base/WideTextExtras.h"

namespace csbench {

namespace {

std::wstring trim(const std::wstring& s) {
  std::size_t begin = 0;
  std::size_t end = s.size();
  while (begin < end && static_cast<unsigned>(s[begin]) <= 0x20) ++begin;
  while (end > begin && static_cast<unsigned>(s[end - 1]) <= 0x20) --end;
  return s.substr(begin, end - begin);
}

std::wstring lower(std::wstring s) {
  for (auto& c : s) c = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c)));
  return s;
}

std::wstring removeQuotes(std::wstring s) {
  if (!s.empty() && s.front() == L'"') s.erase(0, 1);
  if (!s.empty() && s.back() == L'"') s.pop_back();
  return s;
}

std::wstring unescape(const std::wstring& s) {
  std::wstring out;
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] == L'\\' && i + 1 < s.size() && (s[i + 1] == L'\\' || s[i + 1] == L'"')) ++i;
    out += s[i];
  }
  return out;
}

// Splits "{a, "b", ...}" into its items: commas inside quotes or after a
// backslash do not split.
std::vector<std::wstring> splitRow(const std::wstring& line) {
  std::vector<std::wstring> items;
  std::wstring inner = line.substr(1, line.size() - 2);
  std::wstring item;
  bool quoted = false;
  bool escaped = false;
  for (wchar_t c : inner) {
    if (escaped) {
      escaped = false;
    } else if (c == L'\\') {
      escaped = true;
    } else if (c == L'"') {
      quoted = !quoted;
    } else if (c == L',' && !quoted) {
      items.push_back(item);
      item.clear();
      continue;
    }
    item += c;
  }
  items.push_back(item);
  return items;
}

struct Attribute {
  std::wstring id;
  std::wstring name;
  std::wstring value;
};

struct Group {
  std::wstring className;
  std::wstring keyList;
  std::vector<Attribute> attributes;
};

}  // namespace

std::size_t mifFloor(const std::string& path) {
  std::string bytes = readWholeFile(path);
  auto* wide = static_cast<wchar_t*>(std::malloc((bytes.size() + 1) * sizeof(wchar_t)));
  if (wide == nullptr) std::abort();
  // The generated texts are ASCII: widening is the whole conversion.
  const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
  for (std::size_t i = 0; i < bytes.size(); ++i) wide[i] = static_cast<wchar_t>(p[i]);
  wide[bytes.size()] = L'\0';
  std::size_t lines = 0;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (wide[i] == L'\n') {
      wide[i] = L'\0';
      ++lines;
    }
  }
  std::free(wide);
  return lines;
}

bool parseBaselineMif(const std::string& path, const std::wstring& className, BaselineTable& rows) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::ostringstream bytes;
  bytes << in.rdbuf();
  std::string narrow = bytes.str();
  std::wistringstream lines(hostDecodeNarrow(narrow.data(), narrow.size()));

  std::vector<std::wstring> scopes;
  Group group;  // the group being read
  Group found;  // the template of className, once read
  bool haveTemplate = false;
  bool inClassTable = false;
  std::vector<std::size_t> keyColumns;
  std::wstring line;
  while (std::getline(lines, line)) {
    line = trim(line);
    if (line.empty() || line.compare(0, 2, L"//") == 0) continue;
    std::wstring head = lower(line.substr(0, 6));
    if (line.size() > 6 && head == L"start ") {
      std::wstring name = lower(trim(line.substr(6)));
      scopes.push_back(name);
      if (name == L"group") group = Group();
      if (name == L"attribute" && scopes.size() >= 2 && scopes[scopes.size() - 2] == L"group") {
        group.attributes.emplace_back();
      }
      if (name == L"table") inClassTable = false;
      continue;
    }
    if (line.size() > 4 && head.compare(0, 4, L"end ") == 0) {
      std::wstring name = lower(trim(line.substr(4)));
      if (scopes.empty() || scopes.back() != name) return false;
      scopes.pop_back();
      if (name == L"group" && !haveTemplate && group.className == className &&
          !group.keyList.empty()) {
        found = group;
        haveTemplate = true;
        std::wstringstream ids(found.keyList);
        std::wstring id;
        while (std::getline(ids, id, L',')) {
          for (std::size_t a = 0; a < found.attributes.size(); ++a) {
            if (found.attributes[a].id == id) {
              keyColumns.push_back(a);
              break;
            }
          }
        }
      }
      if (name == L"table") inClassTable = false;
      continue;
    }
    if (scopes.empty()) return false;
    if (line.front() == L'{' && line.back() == L'}') {
      if (!inClassTable) continue;
      std::vector<std::wstring> row;
      std::vector<std::wstring> items = splitRow(line);
      if (items.size() != found.attributes.size()) return false;
      for (std::size_t j = 0; j < items.size(); ++j) {
        std::wstring item = trim(items[j]);
        row.push_back(item.empty() ? found.attributes[j].value : unescape(removeQuotes(item)));
      }
      std::wstring key;
      for (std::size_t column : keyColumns) {
        if (!key.empty()) key += L"#";
        key += row[column];
      }
      rows.emplace(key, row);
      continue;
    }
    std::size_t equals = line.find(L'=');
    if (equals == std::wstring::npos) return false;
    std::wstring name = lower(trim(line.substr(0, equals)));
    std::wstring value = removeQuotes(trim(line.substr(equals + 1)));
    const std::wstring& scope = scopes.back();
    if (scope == L"attribute" && !group.attributes.empty()) {
      Attribute& attribute = group.attributes.back();
      if (name == L"id") attribute.id = value;
      if (name == L"name") attribute.name = value;
      if (name == L"value") attribute.value = value;
    } else if (scope == L"group") {
      if (name == L"class") group.className = value;
      if (name == L"key") group.keyList = value;
    } else if (scope == L"table" && name == L"class") {
      inClassTable = haveTemplate && value == className;
    }
  }
  return scopes.empty() && haveTemplate;
}

}  // namespace csbench
