#include "ToolOptions.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "PluginLibrary.h"
#include "UsageError.h"

namespace CustomScanTool {

std::vector<NameValue> ToolOptions::parsedPluginProperties() const {
  std::vector<NameValue> parsed;
  for (const std::string& text : pluginProperties)
    parsed.push_back(NameValue::parse(text, "plug-in property"));
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
    throw UsageError(
        "no custom scanner directory: give --scanner-dir DIR or set CUSTOMSCAN_SCANNER_DIR");
  }
  const std::string unusable = "the custom scanner directory " + dir + " cannot be used: ";
  // The plug-in confines commands by a lexical prefix test against the
  // directory's text, while the kernel follows symbolic links and ".." when
  // it starts a program: the plug-in gets the directory as the kernel sees it.
  char* resolved = ::realpath(dir.c_str(), nullptr);
  if (resolved == nullptr) throw UsageError(unusable + std::strerror(errno));
  std::string path(resolved);
  std::free(resolved);
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) throw UsageError(unusable + std::strerror(errno));
  if (!S_ISDIR(st.st_mode))
    throw UsageError("the custom scanner directory " + dir + " is not a directory");
  if (::faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) != 0) {
    throw UsageError(unusable + "it cannot be searched (" + std::strerror(errno) + ")");
  }
  // A trailing separator ends the prefix test at a separator, so that a
  // sibling whose name extends the directory's is no longer let through.
  if (dir.back() == '/' && path.back() != '/') path += '/';
  return path;
}

}  // namespace CustomScanTool
