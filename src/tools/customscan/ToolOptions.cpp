#include "ToolOptions.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "PluginLibrary.h"
#include "UsageError.h"
#include "base/File.h"
#include "base/String.h"

namespace CustomScanTool {

std::vector<NameValue> ToolOptions::parsedPluginProperties() const {
  std::vector<NameValue> parsed;
  for (const std::string& text : pluginProperties) parsed.push_back(NameValue::parse(text, "plug-in property"));
  return parsed;
}

std::string ToolOptions::resolvedPluginPath() const {
  return pluginPath.empty() ? PluginLibrary::defaultPath() : pluginPath;
}

std::string ToolOptions::resolvedScannerDir() const {
  std::string dir = scannerDir;
  if (dir.empty()) {
    const char* fromEnvironment = std::getenv("CUSTOMSCAN_SCANNER_DIR");
    if (fromEnvironment != nullptr) dir = fromEnvironment;
  }
  if (dir.empty()) {
    throw UsageError("no custom scanner directory: give --scanner-dir DIR or set CUSTOMSCAN_SCANNER_DIR");
  }
  struct stat st {};
  if (::stat(dir.c_str(), &st) != 0) {
    throw UsageError("the custom scanner directory " + dir + " cannot be used: " + std::strerror(errno));
  }
  if (!S_ISDIR(st.st_mode)) throw UsageError("the custom scanner directory " + dir + " is not a directory");
  // The plug-in confines commands by a prefix test against the directory as
  // configured, so it gets the absolute, normalised form.
  if (dir[0] != '/') {
    char* cwd = ::getcwd(nullptr, 0);
    if (cwd == nullptr) throw UsageError(std::string("cannot read the current directory: ") + std::strerror(errno));
    dir = std::string(cwd) + "/" + dir;
    std::free(cwd);
  }
  return File::NormalizePath(String(dir.c_str())).toNarrow();
}

}  // namespace CustomScanTool
