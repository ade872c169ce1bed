#include "sdk/Expression.h"

namespace PluginSDK {

Expression::Expression() = default;
Expression::~Expression() = default;

const wchar_t* Expression::getProperty(const wchar_t* name) const {
  if (name == nullptr) return nullptr;
  auto it = m_Properties.find(name);
  return it == m_Properties.end() ? nullptr : it->second.c_str();
}

void Expression::setProperty(const wchar_t* name, const wchar_t* value) {
  if (name == nullptr) return;
  if (value == nullptr) {
    m_Properties.erase(name);
  } else {
    m_Properties[name] = value;
  }
}

ScalarExpression::~ScalarExpression() = default;
int ScalarExpression::getType() const { return Scalar; }
bool ScalarOperand::isOperator() const { return false; }
bool ScalarOperand::isReady() const { return true; }

VectorExpression::~VectorExpression() = default;
int VectorExpression::getType() const { return Vector; }
bool VectorOperand::isOperator() const { return false; }
bool VectorOperand::isReady() const { return true; }

}  // namespace PluginSDK

const wchar_t* const PLUGIN_RESULT_TRUE = L"true";
const wchar_t* const PLUGIN_RESULT_FALSE = L"false";
