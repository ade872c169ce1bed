#include "operands/MifCache.h"

#include <cstdio>

#include "Assert.h"
#include "CustomScanConstants.h"
#include "TraceSupport.h"
#include "base/Memory.h"
#include "base/WideText.h"
#include "common/Command.h"
#include "common/CommandGate.h"
#include "common/MemoryBuffer.h"
#include "config/ZelCfg.h"
#include "mifParser/MifElement.h"
#include "mifParser/MifParser.h"
#include "mifParser/MifTable.h"

namespace {
constexpr char kSourceLabel[] = "../../../../src/plugins/CustomScanPlugin/operands/MifCache";
constexpr unsigned kBufferSize = 1024;
constexpr unsigned kBufferStep = 4096;
constexpr unsigned kFileGrowth = 1024;

// Closes the output file on every path.
class FileCloser {
 public:
  explicit FileCloser(std::FILE* file) : m_File(file) {}
  FileCloser(const FileCloser&) = delete;
  FileCloser& operator=(const FileCloser&) = delete;
  ~FileCloser() {
    if (m_File != nullptr) std::fclose(m_File);
  }

 private:
  std::FILE* m_File;
};

// Frees a wide text from the host allocator on every path.
class WideTextHolder {
 public:
  explicit WideTextHolder(wchar_t* text) : m_Text(text) {}
  WideTextHolder(const WideTextHolder&) = delete;
  WideTextHolder& operator=(const WideTextHolder&) = delete;
  ~WideTextHolder() { zelm_free(m_Text); }
  wchar_t* get() const { return m_Text; }

 private:
  wchar_t* m_Text;
};
}  // namespace

namespace CustomScanPlugin {

MifCache* MifCache::m_MifCache = nullptr;

MifCache* MifCache::getCache() {
  if (m_MifCache == nullptr) m_MifCache = new MifCache;
  return m_MifCache;
}

void MifCache::cleanup() {
  delete m_MifCache;
  m_MifCache = nullptr;
}

MifCache::MifCache() : m_CustomScannerDir(ZelCfg::getCustomScannerDir()) {}

MifCache::~MifCache() {
  for (CacheElementStruct& entry : m_Entries) delete entry.table;
}

TErrorCode MifCache::getMifTable(const String& command, const String& output,
                                 const String& className, MifTable*& table) {
  table = nullptr;
  for (const CacheElementStruct& entry : m_Entries) {
    if (entry.command.compareTo(command, 0) != 0) continue;
    if (entry.className.compareTo(className, 0) != 0) continue;
    if (entry.output.compareTo(output, 0) != 0) continue;
    table = entry.table;
    if (table != nullptr) return 0;
    return CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PREVIOUSLY_FAILED;
  }

  MemoryBuffer buffer(kBufferSize, kBufferStep);
  TErrorCode rc = getMifBuffer(command, output, buffer);
  if (rc != 0) return rc;

  WideTextHolder wideText(i_mbstowcs(reinterpret_cast<const char*>(buffer.getData())));
  MifParser parser;
  MifElement* root = nullptr;
  rc = parser.parse(wideText.get(), root);
  if (rc == 0) {
    rc = MifTable::getMifTable(root, className, table);
    delete root;
  }
  // A text that cannot be made sense of is remembered, as a null table.
  m_Entries.push_back(CacheElementStruct{command, className, output, table});
  return rc;
}

TErrorCode MifCache::getMifBuffer(const String& command, const String& output,
                                  MemoryBuffer& buffer) {
  String resolved;
  TErrorCode rc = getCommand(command, resolved);
  if (rc != 0) return rc;
  rc = Command::run(resolved, buffer);
  if (rc != 0) return rc;
  if (output.length() < 1) return 0;
  return readOutputFile(output, buffer);
}

TErrorCode MifCache::readOutputFile(const String& output, MemoryBuffer& buffer) {
  // The scanner wrote its MIF text to a file; its standard output is dropped.
  // The name is used as given, relative to the current directory.
  buffer.zero();
  std::string name = output.toNarrow();
  std::FILE* file = std::fopen(name.c_str(), "r");
  if (file == nullptr) return CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_READ_OUTPUT_FILE;
  FileCloser closer(file);

  std::size_t read = 0;
  for (;;) {
    if (read == buffer.getSize()) buffer.resize(static_cast<unsigned>(buffer.getSize() + kFileGrowth));
    std::size_t n = std::fread(buffer.getData() + read, 1, buffer.getSize() - read, file);
    if (n == 0) break;
    read += n;
  }
  if (std::ferror(file)) {
    buffer.zero();
    return CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_READ_OUTPUT_FILE;
  }
  if (read == buffer.getSize()) buffer.resize(static_cast<unsigned>(buffer.getSize() + 1));
  buffer.getData()[read] = 0;
  return 0;
}

TErrorCode MifCache::getCommand(const String& command, String& resolved) {
  return CommandGate::resolve(m_CustomScannerDir, "MifCache::getCommand(const String&,String&)",
                              kSourceLabel, command, resolved);
}

}  // namespace CustomScanPlugin
