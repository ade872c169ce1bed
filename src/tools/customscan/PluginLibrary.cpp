#include "PluginLibrary.h"

#include <dlfcn.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "UsageError.h"

namespace CustomScanTool {

namespace {

std::string toolDirectory() {
  char buffer[PATH_MAX + 1];
  ssize_t n = ::readlink("/proc/self/exe", buffer, PATH_MAX);
  if (n <= 0) return ".";
  std::string exe(buffer, static_cast<std::size_t>(n));
  std::string::size_type slash = exe.rfind('/');
  return slash == std::string::npos ? "." : exe.substr(0, slash == 0 ? 1 : slash);
}

bool isRegularFile(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

std::string lastDlError() {
  const char* reason = ::dlerror();
  return reason != nullptr ? reason : "unknown reason";
}

}  // namespace

PluginLibrary::PluginLibrary(const std::string& path) : m_Path(path) {
  ::dlerror();
  // The plug-in keeps process-wide state that lives until the process ends
  // (the tokenizer's working copy, the MIF dump buffer); RTLD_NODELETE keeps
  // its code and data mapped after dlclose, as a long-running agent keeps them.
  m_Handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (m_Handle == nullptr)
    throw UsageError("cannot load the plug-in " + path + ": " + lastDlError());
  m_Create = reinterpret_cast<PluginSDK::CreatePluginFunction>(::dlsym(m_Handle, "createPlugin"));
  if (m_Create == nullptr) {
    std::string reason = lastDlError();
    ::dlclose(m_Handle);
    throw UsageError("cannot load the plug-in " + path + ": " + reason);
  }
  m_Destroy =
      reinterpret_cast<PluginSDK::DestroyPluginFunction>(::dlsym(m_Handle, "destroyPlugin"));
  if (m_Destroy == nullptr) {
    std::string reason = lastDlError();
    ::dlclose(m_Handle);
    throw UsageError("cannot load the plug-in " + path + ": " + reason);
  }
}

PluginLibrary::~PluginLibrary() {
  if (m_Handle != nullptr) ::dlclose(m_Handle);
}

std::vector<std::string> PluginLibrary::candidatePaths() {
  const std::string dir = toolDirectory();
  const std::string file = CUSTOMSCAN_PLUGIN_FILE;
  std::vector<std::string> paths = {
      dir + "/" + file,
      dir + "/" CUSTOMSCAN_PLUGIN_RELDIR "/" + file,
      dir + "/../lib/customscan/" + file,
      dir + "/../lib64/customscan/" + file,
      dir + "/../lib/" + file,
  };
  std::vector<std::string> unique;
  for (const std::string& p : paths) {
    bool seen = false;
    for (const std::string& u : unique) seen = seen || u == p;
    if (!seen) unique.push_back(p);
  }
  return unique;
}

std::string PluginLibrary::defaultPath() {
  const char* fromEnvironment = std::getenv("CUSTOMSCAN_PLUGIN");
  if (fromEnvironment != nullptr && *fromEnvironment != 0) return fromEnvironment;
  std::vector<std::string> candidates = candidatePaths();
  for (const std::string& candidate : candidates) {
    if (isRegularFile(candidate)) return candidate;
  }
  std::string searched;
  for (const std::string& candidate : candidates) searched += "\n  " + candidate;
  throw UsageError(
      "no plug-in found beside the tool; give --plugin PATH or set CUSTOMSCAN_PLUGIN. Searched:" +
      searched);
}

}  // namespace CustomScanTool
