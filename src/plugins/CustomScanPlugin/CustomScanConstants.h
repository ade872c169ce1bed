#pragma once
// The plug-in's exported constants: result codes, operand names, property
// names and values, and the plug-in's own name. Defined once, in
// CustomScanPlugin.cpp; the host may read them by name from the library.

#include "ResultCodes.h"

// Constants are exported from the plug-in library even though the rest of it is hidden.
#define CUSTOM_SCAN_EXPORTED __attribute__((visibility("default")))

#define CUSTOM_SCAN_DECLARE_CODE(name, value, meaning) extern CUSTOM_SCAN_EXPORTED const int name;
CUSTOM_SCAN_PLUGIN_RESULT_CODES(CUSTOM_SCAN_DECLARE_CODE)
#undef CUSTOM_SCAN_DECLARE_CODE

// X(name, text)
// The table is aligned by hand, one entry per line.
// clang-format off
#define CUSTOM_SCAN_PLUGIN_TEXT_CONSTANTS(X)                                     \
  X(CUSTOM_SCAN_PLUGIN_NAME, L"CustomScan")                                      \
  X(CUSTOM_SCAN_PLUGIN_EXPRESSION_CUSTOMSCANLIST, L"CustomScanList")             \
  X(CUSTOM_SCAN_PLUGIN_EXPRESSION_CUSTOMSCANINFO, L"CustomScanInfo")             \
  X(CUSTOM_SCAN_PLUGIN_EXPRESSION_CUSTOMSCANEXISTS, L"CustomScanExists")         \
  X(CUSTOM_SCAN_PLUGIN_EXPRESSION_RUNCOMMAND, L"RunCommand")                     \
  X(CUSTOM_SCAN_PLUGIN_EXPRESSION_RUNCOMMANDEX, L"RunCommandEx")                 \
  X(CUSTOM_SCAN_PLUGIN_PROPERTY_COMMAND, L"command")                             \
  X(CUSTOM_SCAN_PLUGIN_PROPERTY_OUTPUT, L"output")                               \
  X(CUSTOM_SCAN_PLUGIN_PROPERTY_CLASS, L"class")                                 \
  X(CUSTOM_SCAN_PLUGIN_PROPERTY_CODE, L"code")                                   \
  X(CUSTOM_SCAN_PLUGIN_PROPERTY_FIELD, L"field")                                 \
  X(CUSTOM_SCAN_PLUGIN_PROPERTY_PATH, L"path")                                   \
  X(CUSTOM_SCAN_PLUGIN_PROPERTY_TRIM, L"trim")                                   \
  X(CUSTOM_SCAN_PLUGIN_PROPERTY_LIMIT_CHARS, L"limitChars")                      \
  X(CUSTOM_SCAN_PLUGIN_PROPERTY_ON_DUPLICATED_KEYS, L"onDuplicatedKeys")         \
  X(CUSTOM_SCAN_PLUGIN_PROPERTY_ON_DUPLICATED_KEYS_ERROR, L"error")              \
  X(CUSTOM_SCAN_PLUGIN_PROPERTY_ON_DUPLICATED_KEYS_WARN, L"warn")
// clang-format on

#define CUSTOM_SCAN_DECLARE_TEXT(name, text) extern CUSTOM_SCAN_EXPORTED const wchar_t* const name;
CUSTOM_SCAN_PLUGIN_TEXT_CONSTANTS(CUSTOM_SCAN_DECLARE_TEXT)
#undef CUSTOM_SCAN_DECLARE_TEXT
