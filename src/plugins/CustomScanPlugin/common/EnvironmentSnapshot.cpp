#include "common/EnvironmentSnapshot.h"

#include <cstring>
#include <mutex>

extern char** environ;

namespace CustomScanPlugin {

std::shared_ptr<const EnvironmentSnapshot> EnvironmentSnapshot::current() {
  static std::mutex lock;
  static std::shared_ptr<const EnvironmentSnapshot> kept;
  std::lock_guard<std::mutex> guard(lock);
  if (kept != nullptr && kept->matches(environ)) return kept;
  // Not make_shared: the constructor is private.
  std::shared_ptr<EnvironmentSnapshot> made(new EnvironmentSnapshot());
  made->make(environ);
  kept = made;
  return made;
}

void EnvironmentSnapshot::make(char** environment) {
  for (char** entry = environment; entry != nullptr && *entry != nullptr; ++entry) {
    if (m_Array.add(String(*entry), nullptr) != 0) {
      m_Whole = false;
      continue;
    }
    m_Texts.append(*entry, std::strlen(*entry) + 1);
  }
}

bool EnvironmentSnapshot::matches(char** environment) const {
  if (!m_Whole) return false;
  std::size_t at = 0;
  int entries = 0;
  for (char** entry = environment; entry != nullptr && *entry != nullptr; ++entry) {
    const std::size_t bytes = std::strlen(*entry) + 1;
    if (entries == m_Array.getLength() || m_Texts.size() - at < bytes ||
        std::memcmp(m_Texts.data() + at, *entry, bytes) != 0) {
      return false;
    }
    at += bytes;
    ++entries;
  }
  return entries == m_Array.getLength() && at == m_Texts.size();
}

}  // namespace CustomScanPlugin
