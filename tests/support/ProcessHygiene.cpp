#include "ProcessHygiene.h"

#include <gtest/gtest.h>

#include "TestSupport.h"

namespace cstest {

ProcessHygiene::ProcessHygiene() : m_Descriptors(openDescriptors()) {}

void ProcessHygiene::verify() const {
  EXPECT_FALSE(hasZombieChildren()) << "a child process was left unreaped";
  EXPECT_EQ(openDescriptors(), m_Descriptors) << "open descriptors changed";
}

}  // namespace cstest
