#pragma once
// The base of every plug-in object. The host calls through this virtual
// table, in this slot order: destructor, setProperty, getVersion, getName,
// getUnknownSoftware, initializePlugin, cleanupPlugin, createExpression,
// destroyExpression.
//
// A plug-in library exports two unmangled functions:
//   PluginSDK::Plugin* createPlugin();
//   void destroyPlugin(PluginSDK::Plugin*);

#include <string>
#include <vector>

#include "sdk/Expression.h"
#include "sdk/PluginTypes.h"

namespace PluginSDK {

class Plugin {
 public:
  Plugin();
  Plugin(const Plugin&) = delete;
  Plugin& operator=(const Plugin&) = delete;
  virtual ~Plugin();

  virtual void setProperty(const wchar_t* name, const wchar_t* value) = 0;
  virtual Version getVersion() const = 0;
  virtual const wchar_t* getName() const = 0;
  virtual UnknownSoftware* getUnknownSoftware() = 0;
  virtual void initializePlugin() = 0;
  virtual TErrorCode cleanupPlugin() = 0;
  virtual TErrorCode createExpression(const wchar_t* name, Expression** expression) = 0;
  virtual TErrorCode destroyExpression(Expression* expression) = 0;

  // Registers an expression (operand) name the plug-in offers. Returns 0, or
  // PLUGIN_ERROR_INVALID_ARGUMENT for a null name.
  TErrorCode addExpression(const wchar_t* name);
  // The names registered so far, in order.
  const std::vector<std::wstring>& getExpressionNames() const { return m_ExpressionNames; }

 private:
  std::vector<std::wstring> m_ExpressionNames;
};

typedef Plugin* (*CreatePluginFunction)();
typedef void (*DestroyPluginFunction)(Plugin*);

}  // namespace PluginSDK
