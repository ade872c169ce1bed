#pragma once
// The process environment as the array of String a child is started with,
// kept between commands. Making the array costs two heap blocks an entry and
// their release on every command, while the environment itself rarely
// changes; so one array is kept and made anew only when environ no longer
// holds exactly the texts it was made from.

#include <memory>
#include <string>

#include "base/String.h"
#include "common/ObjectArray.h"

namespace CustomScanPlugin {

class EnvironmentSnapshot {
 public:
  // The array for environ as it stands now: the kept one when every entry of
  // environ is, in order, the same text as when it was made, otherwise a new
  // one, which is kept in its place. Commands on any thread may hold and read
  // a snapshot at the same time; a replaced one lives on until its last
  // holder lets it go. The caller must not change environ meanwhile, as with
  // any reading of it. Never null.
  static std::shared_ptr<const EnvironmentSnapshot> current();

  EnvironmentSnapshot(const EnvironmentSnapshot&) = delete;
  EnvironmentSnapshot& operator=(const EnvironmentSnapshot&) = delete;

  // The entries, for Runtime::exec.
  const String* const* items() const { return m_Array.getItems(); }
  int count() const { return m_Array.getLength(); }

 private:
  EnvironmentSnapshot() = default;
  // Fills the array from environment. An entry that cannot be added is left
  // out, and the snapshot is then never reused.
  void make(char** environment);
  // Whether environment holds exactly the texts this was made from.
  bool matches(char** environment) const;

  ObjectArray<String> m_Array{0};
  // Every entry's bytes with its terminating zero, in order.
  std::string m_Texts;
  bool m_Whole = true;
};

}  // namespace CustomScanPlugin
