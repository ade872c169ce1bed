#pragma once
// What the three MIF operands share: checking their required properties,
// reading the optional ones, and asking the cache for the table of the
// request (command, output, class) that their properties name.

#include <initializer_list>

#include "sdk/Expression.h"

namespace CustomScanPlugin {

class MifCache;
class MifTable;

class MifRequest {
 public:
  struct RequiredProperty {
    const wchar_t* const* name;  // one of the exported property names
    TErrorCode missingCode;      // returned when it is not set
  };

  // The code of the first property in order that is not set, else 0. Only
  // presence counts: an empty value is set.
  static TErrorCode validate(const PluginSDK::Expression& expression,
                             std::initializer_list<RequiredProperty> required);
  // The property's value, or the very defaultValue pointer when it is not set.
  static const wchar_t* optionalProperty(const PluginSDK::Expression& expression,
                                         const wchar_t* name, const wchar_t* defaultValue);
  // Asks the cache for the table of the expression's "command", "output"
  // (default empty) and "class". On 0 the table belongs to the cache.
  static TErrorCode getTable(MifCache& cache, const PluginSDK::Expression& expression,
                             MifTable*& table);
};

}  // namespace CustomScanPlugin
