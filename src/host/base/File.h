#pragma once
// The host's file and path helpers.

#include "base/String.h"

class File {
 public:
  // The separator between path components: "/".
  static const wchar_t* const pathSeparator;
  static constexpr wchar_t pathSeparatorChar = L'/';

  // Folds "." steps, ".." steps and repeated separators lexically. An absolute
  // path never climbs above "/"; a relative path keeps the ".." steps it cannot
  // fold. A trailing separator is dropped (but "/" stays "/"); an empty path
  // gives ".". Symbolic links are not resolved: the result is trusted as it is.
  static String NormalizePath(const String& path);

  // A file object for path, or for path/child when child is not null.
  File(const String& path, const wchar_t* child);
  // The same, taking over path's text.
  File(String&& path, const wchar_t* child);

  const String& getPath() const { return m_Path; }
  // Whether anything exists at the path (symbolic links followed).
  bool exists() const;
  // Whether the path names a regular file (symbolic links followed).
  bool isFile() const;
  // Whether the path names a directory (symbolic links followed).
  bool isDirectory() const;

 private:
  void appendChild(const wchar_t* child);
  String m_Path;
};
