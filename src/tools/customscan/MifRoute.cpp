#include "MifRoute.h"

#include "UsageError.h"

namespace CustomScanTool {

MifRoute::Kind MifRoute::parse(const std::string& name) {
  if (name == "stdout") return Stdout;
  if (name == "file") return File;
  throw UsageError("unknown route " + name + ": give stdout or file");
}

const char* MifRoute::name(Kind route) { return route == File ? "file" : "stdout"; }

std::string MifRoute::agentBytes(const std::string& raw, Kind route) {
  if (route == File) {
    const std::string::size_type zero = raw.find('\0');
    return zero == std::string::npos ? raw : raw.substr(0, zero);
  }
  std::string kept;
  kept.reserve(raw.size());
  for (char c : raw) {
    if (c != '\0' && c != '\r') kept.push_back(c);
  }
  return kept;
}

}  // namespace CustomScanTool
