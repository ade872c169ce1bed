// customscan-host-example: a minimal host of the CustomScan plug-in, doing
// what a monitoring agent does, in the order docs/integrating.md explains.
//
//   customscan-host-example SCANNER_DIR OPERAND [NAME=VALUE ...] [-- OPERAND [NAME=VALUE ...] ...]
//
// Loads the plug-in (CUSTOMSCAN_PLUGIN, else the one installed with the host
// library), evaluates each expression in one plug-in life and prints one line
// per result: "OPERAND: code 0" and the values, or the code's name and meaning.
// Exit status: 0 when every expression answered 0, 1 when one did not, 2 when
// the host could not start.

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ResultCodes.h"          // every code the plug-in returns, with its name and meaning
#include "base/String.h"          // the host's wide string
#include "config/HostSettings.h"  // the host's side of the configuration
#include "sdk/Expression.h"       // operands: properties and results
#include "sdk/Plugin.h"           // the plug-in object and its two entry points
#include "trace/TraceSink.h"      // where trace records go

#ifndef CUSTOMSCAN_PLUGIN_PATH
#error "build with -DCUSTOMSCAN_PLUGIN_PATH=\"/path/to/libCustomScan.so\" (CMakeLists.txt does)"
#endif

namespace {

struct Expression {
  std::string operand;
  std::vector<std::pair<std::string, std::string>> properties;
};

// Narrow text (UTF-8) to the wide text the SDK takes, and back, through the
// host's String so that no locale is involved and no byte is lost.
String wide(const std::string& text) { return String(text.data(), text.size()); }
std::string narrow(const wchar_t* text) { return String(text).toNarrow(); }

void describe(TErrorCode code) {
#define CUSTOMSCAN_EXAMPLE_CODE(name, value, meaning) \
  if (code == (value)) {                              \
    std::printf("  %s: %s\n", #name, meaning);        \
    return;                                           \
  }
  CUSTOM_SCAN_PLUGIN_RESULT_CODES(CUSTOMSCAN_EXAMPLE_CODE)
  CUSTOM_SCAN_HOST_RESULT_CODES(CUSTOMSCAN_EXAMPLE_CODE)
#undef CUSTOMSCAN_EXAMPLE_CODE
  std::printf("  (not a code of the plug-in)\n");
}

// Step 6: create an operand, give it its properties, ask for its result and
// hand it back. Returns the code. Step 7: who owns what is said at each call.
TErrorCode evaluate(PluginSDK::Plugin* plugin, const Expression& request) {
  PluginSDK::Expression* expression = nullptr;
  // The operand belongs to the plug-in: the host gives it back with
  // destroyExpression, never with delete.
  TErrorCode code = plugin->createExpression(wide(request.operand), &expression);
  if (code != 0 || expression == nullptr) {
    std::printf("%s: code %d\n", request.operand.c_str(), static_cast<int>(code));
    describe(code);
    return code != 0 ? code : PluginSDK::PLUGIN_ERROR_INVALID_ARGUMENT;
  }
  // The operand copies every name and value.
  for (const auto& property : request.properties) {
    expression->setProperty(wide(property.first), wide(property.second));
  }
  // The result objects belong to the host; the plug-in fills them.
  if (expression->getType() == PluginSDK::Expression::Vector) {
    PluginSDK::StringVector result;
    code = static_cast<PluginSDK::VectorExpression*>(expression)->getVectorResult(result);
    std::printf("%s: code %d\n", request.operand.c_str(), static_cast<int>(code));
    for (std::size_t i = 0; code == 0 && i < result.size(); ++i) {
      std::printf("  %s\n", narrow(result[i].c_str()).c_str());
    }
  } else {
    PluginSDK::String result;
    code = static_cast<PluginSDK::ScalarExpression*>(expression)->getScalarResult(result);
    std::printf("%s: code %d\n", request.operand.c_str(), static_cast<int>(code));
    if (code == 0) std::printf("  %s\n", narrow(result.c_str()).c_str());
  }
  if (code != 0) describe(code);
  plugin->destroyExpression(expression);
  return code;
}

bool parse(int argc, char** argv, std::vector<Expression>& expressions) {
  for (int i = 2; i < argc; ++i) {
    std::string word = argv[i];
    if (word == "--") continue;
    if (expressions.empty() || std::strcmp(argv[i - 1], "--") == 0) {
      expressions.push_back(Expression{word, {}});
      continue;
    }
    std::string::size_type equals = word.find('=');
    if (equals == std::string::npos) {
      std::fprintf(stderr, "customscan-host-example: %s is not NAME=VALUE\n", word.c_str());
      return false;
    }
    expressions.back().properties.emplace_back(word.substr(0, equals), word.substr(equals + 1));
  }
  return !expressions.empty();
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<Expression> expressions;
  if (argc < 3 || !parse(argc, argv, expressions)) {
    std::fprintf(stderr,
                 "usage: customscan-host-example SCANNER_DIR OPERAND [NAME=VALUE ...] "
                 "[-- OPERAND [NAME=VALUE ...] ...]\n");
    return 2;
  }

  // Step 1: the trace sink. Records of level 2 (warnings) and below go to
  // standard error. The sink is the host's: it must outlive every call that
  // may trace, so it is unset before it goes.
  StreamTraceSink sink(stderr, Trace::Warning);
  TraceControl::setSink(&sink);

  // Step 2: the custom scanner directory. The plug-in reads it through
  // ZelCfg::getCustomScannerDir() on every command, from this same host
  // library: one process, one configuration.
  HostSettings::setCustomScannerDir(String(argv[1]));

  // Step 3: the time limit of a scanner: past it the host ends the scanner's
  // process group, and the operand answers -14202.
  if (!HostSettings::setProcessTimeout(60)) {
    std::fprintf(stderr, "customscan-host-example: the time limit was refused\n");
    return 2;
  }

  // Step 4: load the plug-in. RTLD_NODELETE keeps the plug-in's process-wide
  // buffers mapped after dlclose, as an agent that loads it once keeps them.
  const char* path = std::getenv("CUSTOMSCAN_PLUGIN");
  if (path == nullptr || *path == 0) path = CUSTOMSCAN_PLUGIN_PATH;
  void* library = dlopen(path, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (library == nullptr) {
    std::fprintf(stderr, "customscan-host-example: cannot load %s: %s\n", path, dlerror());
    TraceControl::setSink(nullptr);
    return 2;
  }
  auto create = reinterpret_cast<PluginSDK::CreatePluginFunction>(dlsym(library, "createPlugin"));
  auto destroy =
      reinterpret_cast<PluginSDK::DestroyPluginFunction>(dlsym(library, "destroyPlugin"));
  if (create == nullptr || destroy == nullptr) {
    std::fprintf(stderr, "customscan-host-example: %s is not a plug-in: %s\n", path, dlerror());
    dlclose(library);
    TraceControl::setSink(nullptr);
    return 2;
  }

  // Step 5: one plug-in life. The plug-in object belongs to the library:
  // destroyPlugin gives it back.
  PluginSDK::Plugin* plugin = create();
  if (plugin == nullptr) {
    std::fprintf(stderr, "customscan-host-example: %s created no plug-in\n", path);
    dlclose(library);
    TraceControl::setSink(nullptr);
    return 2;
  }
  plugin->initializePlugin();
  // Plug-in properties come before any expression. "warn" is the default:
  // of two table rows with one key the first answers, and a warning is
  // traced ("error" fails the class instead).
  plugin->setProperty(L"onDuplicatedKeys", L"warn");

  // Step 8: the expressions, one after the other, from this one thread.
  int status = 0;
  for (const Expression& request : expressions) {
    if (evaluate(plugin, request) != 0) status = 1;
  }

  // Step 9: cleanup and unload, in this order.
  plugin->cleanupPlugin();
  destroy(plugin);
  dlclose(library);
  TraceControl::setSink(nullptr);
  return status;
}
