#pragma once
// Everything a MifTable answers, as text: one line a key, "key:|value|value…",
// in the table's key order. Header-only, so that the fuzz targets, which link
// only the core, share it with the tests.

#include <string>
#include <vector>

#include "base/String.h"
#include "base/StringExtras.h"
#include "mifParser/MifTable.h"

namespace cstest {

inline std::vector<std::wstring> tableText(const CustomScanPlugin::MifTable& table) {
  std::vector<std::wstring> out;
  std::vector<String> keys;
  table.getKeys(keys);
  for (const String& key : keys) {
    std::vector<String> row;
    table.getRow(key, row);
    std::wstring line = toWideString(key) + L":";
    for (const String& value : row) line += L"|" + toWideString(value);
    out.push_back(line);
  }
  return out;
}

}  // namespace cstest
