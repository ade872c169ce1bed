#pragma once
// Checks that the code under test left no child unreaped and no descriptor
// open: take one at the start of a test, call verify() at its end.

#include <vector>

namespace cstest {

class ProcessHygiene {
 public:
  ProcessHygiene();
  // Adds a test failure for a zombie child or a changed set of open descriptors.
  void verify() const;

 private:
  std::vector<int> m_Descriptors;
};

}  // namespace cstest
