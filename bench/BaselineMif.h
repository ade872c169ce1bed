#pragma once
// What the plug-in's MIF path is measured against: the floor that any parser
// of the text must pay, and a straightforward C++ parser of the same subset.

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace csbench {

using BaselineTable = std::map<std::wstring, std::vector<std::wstring>>;

// Reads the file, converts it to wide text and splits it into lines.
// Returns the number of lines.
std::size_t mifFloor(const std::string& path);

// Parses the MIF text in the file the obvious way (a string stream of lines,
// a scope stack, one map of rows) and fills `rows` with the table of the
// template class `className`, keyed as the plug-in keys it. Returns false
// when the text does not parse or has no such class.
bool parseBaselineMif(const std::string& path, const std::wstring& className, BaselineTable& rows);

}  // namespace csbench
