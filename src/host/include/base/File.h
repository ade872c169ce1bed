#pragma once
// The host's file and path helpers.

#include "base/String.h"

class File {
 public:
  // The separator between path components: "/".
  static const wchar_t* const pathSeparator;

  // Folds "." steps, ".." steps and repeated separators lexically. An absolute
  // path never climbs above "/"; a relative path keeps the ".." steps it cannot
  // fold. A trailing separator is dropped (but "/" stays "/"); an empty path
  // gives ".". Symbolic links are not resolved: the result is trusted as it is.
  static String NormalizePath(const String& path);

  // A file object for path, or for path/child when child is not null.
  File(const String& path, const wchar_t* child);

  // Whether anything exists at the path (symbolic links followed).
  bool exists() const;
  // Whether the path names a regular file (symbolic links followed).
  bool isFile() const;

 private:
  // The stand-in's extras (FileAccess) read the path and ask more of it.
  friend struct FileAccess;

  void appendChild(const wchar_t* child);
  String m_Path;
};
