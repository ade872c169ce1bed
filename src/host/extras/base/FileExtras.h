#pragma once
// What the stand-in's File offers the host's own code, the tool and the tests
// beyond the operations a plug-in may use.

#include <utility>

#include "base/File.h"

struct FileAccess {
  // A file object that takes path's text over.
  static File make(String&& path, const wchar_t* child);
  static const String& path(const File& file) { return file.m_Path; }
  // Whether the path names a directory (symbolic links followed).
  static bool isDirectory(const File& file);
};
