#include "operands/MifCache.h"

#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "Assert.h"
#include "CustomScanConstants.h"
#include "TraceSupport.h"
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

// The size a buffer of initialSize bytes reaches when bytes bytes are read
// into it, growing by kFileGrowth (rounded up to its step) whenever full.
std::uint32_t grownSize(std::uint32_t initialSize, std::uint32_t step, std::size_t bytes) {
  std::uint64_t size = initialSize;
  while (size <= bytes) {
    const std::uint64_t wanted = size + kFileGrowth;
    size = (wanted + step - 1) / step * step;
  }
  return static_cast<std::uint32_t>(size);
}

// Grows buffer by n bytes; false, with the buffer as it was, when it cannot.
bool grow(CustomScanPlugin::MemoryBuffer& buffer, unsigned n) {
  if (buffer.getSize() > CustomScanPlugin::MemoryBuffer::kMaxSize - n) return false;
  return buffer.resize(buffer.getSize() + n) != nullptr;
}
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
  const std::size_t found = findEntry(command, output, className);
  if (found < m_Entries.size()) {
    table = m_Entries[found].table;
    if (table != nullptr) return 0;
    return CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PREVIOUSLY_FAILED;
  }

  MemoryBuffer buffer(kBufferSize, kBufferStep);
  TErrorCode rc = getMifBuffer(command, output, buffer);
  if (rc != 0) return rc;

  // The text is parsed from its narrow bytes a line at a time, so that it is
  // never held wide as a whole, and released before the table is built.
  MifParser parser;
  MifElement* root = nullptr;
  rc = parser.parseNarrow(reinterpret_cast<const char*>(buffer.getData()), root);
  buffer.resize(0);
  // Running out of room here or below throws (std::bad_alloc): that is the
  // allocator's failure, not the scanner's, and like every failure to obtain
  // the text it is not remembered. Nothing half-made is kept: the tree and
  // the table are held until the entry that owns the table is complete.
  std::unique_ptr<MifTable> built;
  if (rc == 0) {
    // The tree is deleted right below: its values move into the table.
    const std::unique_ptr<MifElement> tree(root);
    MifTable* made = nullptr;
    rc = MifTable::takeMifTable(root, className, made);
    built.reset(made);
  }
  // A text that cannot be made sense of is remembered, as a null table.
  const auto indexed = m_Index.emplace(requestHash(command, output, className), m_Entries.size());
  try {
    m_Entries.push_back(CacheElementStruct{command, className, output, built.get()});
  } catch (...) {
    m_Index.erase(indexed);
    throw;
  }
  table = built.release();
  return rc;
}

namespace {
// FNV-1a over the characters of text, continuing from h.
std::uint64_t hashText(std::uint64_t h, const String& text) {
  const int n = text.length();
  for (int i = 0; i < n; ++i) {
    h ^= static_cast<std::uint32_t>(text.charAt(i));
    h *= 1099511628211ULL;
  }
  return h;
}
}  // namespace

std::size_t MifCache::requestHash(const String& command, const String& output,
                                  const String& className) {
  std::uint64_t h = hashText(14695981039346656037ULL, command);
  // A separator between the parts, so that moving text from one part to the
  // next changes the hash.
  h = hashText(h ^ 0xffU, className);
  return static_cast<std::size_t>(hashText(h ^ 0xfeU, output));
}

std::size_t MifCache::findEntry(const String& command, const String& output,
                                const String& className) const {
  const auto candidates = m_Index.equal_range(requestHash(command, output, className));
  for (auto it = candidates.first; it != candidates.second; ++it) {
    const CacheElementStruct& entry = m_Entries[it->second];
    if (entry.command.compareTo(command, 0) != 0) continue;
    if (entry.className.compareTo(className, 0) != 0) continue;
    if (entry.output.compareTo(output, 0) != 0) continue;
    return it->second;
  }
  return m_Entries.size();
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

  // The buffer grows by kFileGrowth whenever the bytes read fill it. For a
  // regular file the size it will end at is known beforehand, so it is made
  // that size at once instead of in thousands of small steps; the loop below
  // still grows it should the file turn out longer.
  const std::uint32_t initialSize = buffer.getSize();
  struct stat status;
  if (::fstat(::fileno(file), &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0 &&
      static_cast<unsigned long long>(status.st_size) < MemoryBuffer::kMaxSize / 2) {
    const std::uint32_t target =
        grownSize(initialSize, buffer.getStep(), static_cast<std::size_t>(status.st_size));
    if (target > initialSize) buffer.resize(target);
  }
  // A file the buffer cannot hold whole (the allocator refuses, or the
  // buffer's size bound is reached, as with an endless file) fails like a
  // read error: a cut text must not pass for the scanner's whole output.
  std::size_t read = 0;
  for (;;) {
    if (read == buffer.getSize() && !grow(buffer, kFileGrowth)) {
      buffer.zero();
      return CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_READ_OUTPUT_FILE;
    }
    std::size_t n = std::fread(buffer.getData() + read, 1, buffer.getSize() - read, file);
    if (n == 0) break;
    read += n;
  }
  // A file that shrank while it was read leaves the size that its bytes
  // would have grown the buffer to.
  if (buffer.getSize() > initialSize && read < MemoryBuffer::kMaxSize / 2) {
    const std::uint32_t expected = grownSize(initialSize, buffer.getStep(), read);
    if (buffer.getSize() > expected) buffer.resize(expected);
  }
  if (std::ferror(file) || (read == buffer.getSize() && !grow(buffer, 1))) {
    buffer.zero();
    return CUSTOM_SCAN_PLUGIN_ERROR_UNABLE_TO_READ_OUTPUT_FILE;
  }
  buffer.getData()[read] = 0;
  return 0;
}

TErrorCode MifCache::getCommand(const String& command, String& resolved) {
  return CommandGate::resolve(m_CustomScannerDir, "MifCache::getCommand(const String&,String&)",
                              kSourceLabel, command, resolved);
}

}  // namespace CustomScanPlugin
