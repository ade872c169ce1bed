#pragma once
// Shared vocabulary of the plug-in SDK: result codes, the version value and
// the result strings.

#include <cstdint>

// A signed 32-bit result code; 0 is success.
typedef std::int32_t TErrorCode;

namespace PluginSDK {

// Success.
const TErrorCode PLUGIN_OK = 0;
// Storage could not be allocated.
const TErrorCode PLUGIN_ERROR_OUT_OF_MEMORY = -100;
// A null or invalid argument: null name or out pointer, null text, negative length.
const TErrorCode PLUGIN_ERROR_INVALID_ARGUMENT = -101;
// No expression (operand) of that name.
const TErrorCode PLUGIN_ERROR_UNKNOWN_EXPRESSION = -10008;

// A plug-in's version: four 32-bit numbers, major first.
struct Version {
  std::uint32_t major;
  std::uint32_t minor;
  std::uint32_t release;
  std::uint32_t build;
};

// What a plug-in reports of software it does not recognise; opaque to plug-ins
// that report none.
struct UnknownSoftware;

}  // namespace PluginSDK

// The host's result strings for true and false.
extern const wchar_t* const PLUGIN_RESULT_TRUE;
extern const wchar_t* const PLUGIN_RESULT_FALSE;
