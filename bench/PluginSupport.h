#pragma once
// The plug-in side of the benchmarks: a custom scanner directory holding a
// copy of the child program, and the plug-in object the host would hold.

#include <string>

#include "sdk/Expression.h"
#include "sdk/Plugin.h"

namespace csbench {

// Name of the child program inside the scanner directory.
extern const wchar_t kScannerName[];

// A scanner directory (made once per process, removed at exit) holding a copy
// of cs_bench_child; the host's scanner directory is set to it.
const std::string& scannerDir();
// Absolute path of the copy in the scanner directory.
std::string scannerPath();

// The plug-in object, created and initialised once per process, with its
// operands made through createExpression as the host makes them.
PluginSDK::Plugin& plugin();
PluginSDK::Expression* createOperand(const wchar_t* name);

}  // namespace csbench
