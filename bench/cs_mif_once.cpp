// Turns one MIF file into a table once, so that the benchmark script can take
// the peak resident memory of each way of doing it with /usr/bin/time.
//
//   cs_mif_once floor|baseline|plugin FILE CLASS
// Prints "rows=N" ("lines=N" for floor).

#include <cstdio>
#include <cstring>
#include <string>

#include "BaselineMif.h"
#include "PluginSupport.h"
#include "base/String.h"
#include "base/StringExtras.h"
#include "mifParser/MifTable.h"
#include "operands/MifCache.h"

int main(int argc, char** argv) {
  // Whether this build has the plug-in's MIF path to measure.
  if (argc == 2 && std::strcmp(argv[1], "--has-plugin") == 0) return 0;
  if (argc != 4) {
    std::fprintf(stderr, "usage: cs_mif_once floor|baseline|plugin FILE CLASS\n");
    return 2;
  }
  std::string mode = argv[1];
  std::string path = argv[2];
  String className(argv[3]);
  if (mode == "floor") {
    std::printf("lines=%zu\n", csbench::mifFloor(path));
    return 0;
  }
  if (mode == "baseline") {
    csbench::BaselineTable rows;
    if (!csbench::parseBaselineMif(path, toWideString(className), rows)) return 1;
    std::printf("rows=%zu\n", rows.size());
    return 0;
  }
  if (mode == "plugin") {
    // The scanner writes nothing; its MIF text is the output file.
    csbench::plugin();
    CustomScanPlugin::MifTable* table = nullptr;
    TErrorCode rc = CustomScanPlugin::MifCache::getCache()->getMifTable(
        String("cs_bench_child none"), String(path.c_str()), className, table);
    if (rc != 0) {
      std::fprintf(stderr, "getMifTable: %d\n", rc);
      return 1;
    }
    std::printf("rows=%u\n", table->getRowNumber());
    CustomScanPlugin::MifCache::cleanup();
    return 0;
  }
  std::fprintf(stderr, "unknown mode %s\n", mode.c_str());
  return 2;
}
