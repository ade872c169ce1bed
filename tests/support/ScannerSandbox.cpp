#include "ScannerSandbox.h"

namespace cstest {

ScannerSandbox::ScannerSandbox()
    : m_Dir(m_Root.file("scan")), m_Canary(m_Root.file("canary")), m_Marker(m_Root.file("marker")) {
  makeDirectory(m_Dir);
  writeScript(m_Canary, "touch '" + m_Marker + "'");
  m_Scope = std::make_unique<ScannerDirScope>(m_Dir);
}

ScannerSandbox::~ScannerSandbox() = default;

std::string ScannerSandbox::installChild(const std::string& name) const {
  std::string path = inDir(name);
  installTestChild(path);
  return path;
}

std::string ScannerSandbox::installScript(const std::string& name, const std::string& body) const {
  std::string path = inDir(name);
  writeScript(path, body);
  return path;
}

}  // namespace cstest
