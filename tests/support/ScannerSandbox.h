#pragma once
// A temporary custom scanner directory, set as the host's while the sandbox
// lives, inside a temporary root that also holds things outside the directory:
// a canary program that leaves a marker file when anything runs it.
//
//   root/           the sandbox root
//     scan/         the custom scanner directory
//     canary        a script outside the directory; running it creates root/marker

#include <memory>
#include <string>

#include "TestSupport.h"

namespace cstest {

class ScannerSandbox {
 public:
  ScannerSandbox();
  ScannerSandbox(const ScannerSandbox&) = delete;
  ScannerSandbox& operator=(const ScannerSandbox&) = delete;
  ~ScannerSandbox();

  const std::string& root() const { return m_Root.path(); }
  // The custom scanner directory, as configured (no trailing separator).
  const std::string& dir() const { return m_Dir; }
  // dir() + "/" + name
  std::string inDir(const std::string& name) const { return m_Dir + "/" + name; }
  // Copies the cs_testchild program to dir()/name; returns its path.
  std::string installChild(const std::string& name) const;
  // Writes a /bin/sh script to dir()/name; returns its path.
  std::string installScript(const std::string& name, const std::string& body) const;

  const std::string& canaryPath() const { return m_Canary; }
  const std::string& markerPath() const { return m_Marker; }
  // Whether the canary has run since the sandbox was made.
  bool canaryRan() const { return fileExists(m_Marker); }

 private:
  TempDir m_Root;
  std::string m_Dir;
  std::string m_Canary;
  std::string m_Marker;
  std::unique_ptr<ScannerDirScope> m_Scope;
};

}  // namespace cstest
