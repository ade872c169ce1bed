#pragma once
// The process-wide cache of MIF tables. Each distinct request (command line,
// output file, class) runs its scanner and parses its text once; the table
// built for it, or the fact that parsing or building failed, is kept until
// cleanup(). Failures to obtain the text are not kept: they are retried.
// Not locked: the host evaluates the plug-in from one thread at a time.

#include <cstddef>
#include <unordered_map>
#include <vector>

#include "base/String.h"
#include "sdk/PluginTypes.h"

namespace CustomScanPlugin {

class MemoryBuffer;
class MifTable;

class MifCache {
 public:
  struct CacheElementStruct {
    String command;    // the "command" property as given
    String className;  // the "class" property
    String output;     // the "output" property, empty when not set
    MifTable* table;   // owned by the cache; null marks a remembered failure
  };

  // The single cache, created on first use. The cache owns every table it
  // hands out; they live until cleanup().
  static MifCache* getCache();
  // Deletes the cache and every table in it; harmless when there is none.
  static void cleanup();

  MifCache(const MifCache&) = delete;
  MifCache& operator=(const MifCache&) = delete;
  ~MifCache();

  // On 0, table is the cache's table for the request (the caller must not
  // delete it); on any other code table is null. A request whose MIF failed
  // to parse or build before answers
  // CUSTOM_SCAN_PLUGIN_ERROR_COMMAND_PREVIOUSLY_FAILED without running again.
  TErrorCode getMifTable(const String& command, const String& output, const String& className,
                         MifTable*& table);
  // Fills buffer with the request's MIF text as narrow bytes ending in a 0
  // byte: the command's standard output, or the file named by output.
  TErrorCode getMifBuffer(const String& command, const String& output, MemoryBuffer& buffer);
  // Resolves and confines the command line to the custom scanner directory.
  TErrorCode getCommand(const String& command, String& resolved);

  // Test-only: how many requests the cache remembers.
  std::size_t entryCount() const { return m_Entries.size(); }

 private:
  MifCache();
  TErrorCode readOutputFile(const String& output, MemoryBuffer& buffer);

  // The position in m_Entries of the entry of a request, or m_Entries.size().
  std::size_t findEntry(const String& command, const String& output, const String& className) const;
  static std::size_t requestHash(const String& command, const String& output,
                                 const String& className);

  std::vector<CacheElementStruct> m_Entries;
  // Entry positions by a hash of their request, so that a hit does not scan
  // every entry. Entries are unique, so the one found is the first match.
  std::unordered_multimap<std::size_t, std::size_t> m_Index;
  String m_CustomScannerDir;

  static MifCache* m_MifCache;
};

}  // namespace CustomScanPlugin
