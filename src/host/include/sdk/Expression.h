#pragma once
// Operand bases of the plug-in SDK. The host holds every operand as an
// Expression and calls through this virtual table, in this slot order:
// destructor, isOperator, getType, isReady, disposeExpression, then
// getScalarResult (scalar) or getVectorResult (vector).

#include <functional>
#include <map>
#include <string>

#include "sdk/PluginTypes.h"
#include "sdk/SdkString.h"

namespace PluginSDK {

class Expression {
 public:
  enum Type { Scalar = 0, Vector = 1 };

  Expression();
  Expression(const Expression&) = delete;
  Expression& operator=(const Expression&) = delete;
  virtual ~Expression();

  virtual bool isOperator() const = 0;
  virtual int getType() const = 0;
  virtual bool isReady() const = 0;
  virtual void disposeExpression() = 0;

  // The property's value, or null when it is not set. The pointer stays valid
  // until the property is set again or the expression is destroyed. Needs no
  // memory: the name is looked up as it is.
  const wchar_t* getProperty(const wchar_t* name) const;
  // Set by the host; a null value removes the property.
  void setProperty(const wchar_t* name, const wchar_t* value);

 private:
  // Ordered by std::less<> so that a name is found without a copy of it.
  std::map<std::wstring, std::wstring, std::less<>> m_Properties;
};

class ScalarExpression : public Expression {
 public:
  ~ScalarExpression() override;
  bool isOperator() const override = 0;
  int getType() const override;
  bool isReady() const override = 0;
  void disposeExpression() override = 0;
  virtual TErrorCode getScalarResult(String& result) = 0;
};

class ScalarOperand : public ScalarExpression {
 public:
  bool isOperator() const override;
  bool isReady() const override;
};

class VectorExpression : public Expression {
 public:
  ~VectorExpression() override;
  bool isOperator() const override = 0;
  int getType() const override;
  bool isReady() const override = 0;
  void disposeExpression() override = 0;
  virtual TErrorCode getVectorResult(StringVector& result) = 0;
};

class VectorOperand : public VectorExpression {
 public:
  bool isOperator() const override;
  bool isReady() const override;
};

}  // namespace PluginSDK
