#include "PluginSupport.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "BenchSupport.h"
#include "CustomScanPlugin.h"
#include "config/HostSettings.h"
#include "config/ZelCfg.h"

namespace csbench {

const wchar_t kScannerName[] = L"cs_bench_child";

namespace {

struct ScannerDir {
  ScannerDir() {
    char pattern[] = "/tmp/cs-bench-XXXXXX";
    if (::mkdtemp(pattern) == nullptr) std::abort();
    path = pattern;
    program = path + "/cs_bench_child";
    std::ifstream in(childPath(), std::ios::binary);
    std::ofstream out(program, std::ios::binary);
    out << in.rdbuf();
    out.close();
    ::chmod(program.c_str(), 0755);
    HostSettings::setCustomScannerDir(String(path.c_str()));
  }
  ~ScannerDir() {
    ::unlink(program.c_str());
    ::rmdir(path.c_str());
  }
  std::string path;
  std::string program;
};

ScannerDir& dir() {
  static ScannerDir instance;
  return instance;
}

}  // namespace

const std::string& scannerDir() { return dir().path; }

std::string scannerPath() { return dir().program; }

PluginSDK::Plugin& plugin() {
  scannerDir();
  static PluginSDK::CustomScanPlugin* instance = [] {
    auto* p = new PluginSDK::CustomScanPlugin();
    p->initializePlugin();
    return p;
  }();
  return *instance;
}

PluginSDK::Expression* createOperand(const wchar_t* name) {
  PluginSDK::Expression* expression = nullptr;
  if (plugin().createExpression(name, &expression) != 0 || expression == nullptr) std::abort();
  return expression;
}

}  // namespace csbench
