#include "sdk/Expression.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>

#include "TestSupport.h"

namespace {

using PluginSDK::Expression;
using PluginSDK::ScalarExpression;
using PluginSDK::ScalarOperand;
using PluginSDK::StringVector;
using PluginSDK::VectorExpression;
using PluginSDK::VectorOperand;

// An operand as the plug-in writes them: the result comes from a property.
class EchoScalar : public ScalarOperand {
 public:
  explicit EchoScalar(bool* destroyed = nullptr) : m_Destroyed(destroyed) {}
  ~EchoScalar() override {
    if (m_Destroyed != nullptr) *m_Destroyed = true;
  }
  void disposeExpression() override {}
  TErrorCode getScalarResult(PluginSDK::String& result) override {
    result = L"";
    result = getProperty(L"value");
    return 0;
  }

 private:
  bool* m_Destroyed;
};

class ListVector : public VectorOperand {
 public:
  explicit ListVector(bool* destroyed = nullptr) : m_Destroyed(destroyed) {}
  ~ListVector() override {
    if (m_Destroyed != nullptr) *m_Destroyed = true;
  }
  void disposeExpression() override {}
  TErrorCode getVectorResult(StringVector& result) override {
    result.removeAll();
    result.addString(getProperty(L"a"));
    result.addString(getProperty(L"b"));
    return 0;
  }

 private:
  bool* m_Destroyed;
};

class ExpressionTest : public ::testing::Test {};

// ------------------------------------------------------------ property store

TEST_F(ExpressionTest, UnsetPropertyIsNull) {
  EchoScalar e;
  EXPECT_EQ(e.getProperty(L"path"), nullptr);
  EXPECT_EQ(e.getProperty(L""), nullptr);
}

TEST_F(ExpressionTest, NullNameIsNull) {
  EchoScalar e;
  e.setProperty(L"", L"x");
  EXPECT_EQ(e.getProperty(nullptr), nullptr);
}

TEST_F(ExpressionTest, SetPropertyThenGetProperty) {
  EchoScalar e;
  e.setProperty(L"command", L"scan.sh -a");
  ASSERT_NE(e.getProperty(L"command"), nullptr);
  EXPECT_STREQ(e.getProperty(L"command"), L"scan.sh -a");
}

TEST_F(ExpressionTest, EmptyValueIsSetNotNull) {
  EchoScalar e;
  e.setProperty(L"output", L"");
  ASSERT_NE(e.getProperty(L"output"), nullptr);
  EXPECT_STREQ(e.getProperty(L"output"), L"");
}

TEST_F(ExpressionTest, PropertyNamesAreExact) {
  EchoScalar e;
  e.setProperty(L"class", L"x");
  EXPECT_EQ(e.getProperty(L"Class"), nullptr);
  EXPECT_EQ(e.getProperty(L"class "), nullptr);
}

TEST_F(ExpressionTest, SettingAgainReplacesValue) {
  EchoScalar e;
  e.setProperty(L"trim", L"true");
  e.setProperty(L"trim", L"false");
  EXPECT_STREQ(e.getProperty(L"trim"), L"false");
}

TEST_F(ExpressionTest, NullValueRemovesProperty) {
  EchoScalar e;
  e.setProperty(L"trim", L"true");
  e.setProperty(L"trim", nullptr);
  EXPECT_EQ(e.getProperty(L"trim"), nullptr);
  e.setProperty(L"never", nullptr);
  EXPECT_EQ(e.getProperty(L"never"), nullptr);
}

TEST_F(ExpressionTest, NullNameIsIgnoredWhenSetting) {
  EchoScalar e;
  e.setProperty(nullptr, L"x");
  EXPECT_EQ(e.getProperty(L""), nullptr);
}

TEST_F(ExpressionTest, ValueIsCopied) {
  EchoScalar e;
  wchar_t value[] = L"abc";
  e.setProperty(L"k", value);
  value[0] = L'X';
  EXPECT_STREQ(e.getProperty(L"k"), L"abc");
}

TEST_F(ExpressionTest, ValuePointerSurvivesSettingOtherProperties) {
  EchoScalar e;
  e.setProperty(L"command", L"scan.sh");
  const wchar_t* command = e.getProperty(L"command");
  for (int k = 0; k < 100; ++k) e.setProperty(std::to_wstring(k).c_str(), L"v");
  EXPECT_STREQ(command, L"scan.sh");
  EXPECT_EQ(command, e.getProperty(L"command"));
}

TEST_F(ExpressionTest, StoresAreKeptPerExpression) {
  EchoScalar a;
  EchoScalar b;
  a.setProperty(L"k", L"a");
  EXPECT_EQ(b.getProperty(L"k"), nullptr);
}

// ------------------------------------------------------------ operand bases

TEST_F(ExpressionTest, ScalarOperandBase) {
  EchoScalar e;
  const Expression& base = e;
  EXPECT_EQ(base.getType(), 0);
  EXPECT_EQ(base.getType(), Expression::Scalar);
  EXPECT_FALSE(base.isOperator());
  EXPECT_TRUE(base.isReady());
}

TEST_F(ExpressionTest, VectorOperandBase) {
  ListVector e;
  const Expression& base = e;
  EXPECT_EQ(base.getType(), 1);
  EXPECT_EQ(base.getType(), Expression::Vector);
  EXPECT_FALSE(base.isOperator());
  EXPECT_TRUE(base.isReady());
}

TEST_F(ExpressionTest, HostReachesScalarResultThroughTheBase) {
  std::unique_ptr<Expression> e(new EchoScalar());
  e->setProperty(L"value", L"answer");
  ASSERT_EQ(e->getType(), Expression::Scalar);
  auto* scalar = static_cast<ScalarExpression*>(e.get());
  PluginSDK::String result(L"stale");
  EXPECT_EQ(scalar->getScalarResult(result), 0);
  EXPECT_EQ(toWideString(result), L"answer");
  e->setProperty(L"value", nullptr);
  EXPECT_EQ(scalar->getScalarResult(result), 0);
  EXPECT_EQ(toWideString(result), L"");
}

TEST_F(ExpressionTest, HostReachesVectorResultThroughTheBase) {
  std::unique_ptr<Expression> e(new ListVector());
  e->setProperty(L"a", L"1");
  ASSERT_EQ(e->getType(), Expression::Vector);
  auto* vector = static_cast<VectorExpression*>(e.get());
  StringVector result;
  result.addString(L"stale");
  EXPECT_EQ(vector->getVectorResult(result), 0);
  ASSERT_EQ(result.size(), 2u);
  EXPECT_EQ(toWideString(result[0]), L"1");
  EXPECT_EQ(toWideString(result[1]), L"");
}

TEST_F(ExpressionTest, DeletingThroughTheBaseRunsTheOperandsDestructor) {
  bool scalarGone = false;
  bool vectorGone = false;
  Expression* scalar = new EchoScalar(&scalarGone);
  Expression* vector = new ListVector(&vectorGone);
  scalar->disposeExpression();
  delete scalar;
  delete vector;
  EXPECT_TRUE(scalarGone);
  EXPECT_TRUE(vectorGone);
}

// ------------------------------------------------------------ slot order

// Itanium C++ ABI: a pointer to a virtual member function holds 1 plus the
// byte offset of its slot in the virtual table.
template <typename Member>
long slotOf(Member member) {
  struct Representation {
    std::uintptr_t ptr;
    std::ptrdiff_t adj;
  };
  static_assert(sizeof(Member) == sizeof(Representation), "Itanium member pointer");
  Representation r;
  std::memcpy(&r, &member, sizeof r);
  if ((r.ptr & 1) == 0) return -1;
  return static_cast<long>((r.ptr - 1) / sizeof(void*));
}

TEST_F(ExpressionTest, VirtualTableSlotOrderIsTheHosts) {
  // Slots 0 and 1 are the complete and deleting destructors.
  EXPECT_EQ(slotOf(&Expression::isOperator), 2);
  EXPECT_EQ(slotOf(&Expression::getType), 3);
  EXPECT_EQ(slotOf(&Expression::isReady), 4);
  EXPECT_EQ(slotOf(&Expression::disposeExpression), 5);
  EXPECT_EQ(slotOf(&ScalarExpression::getScalarResult), 6);
  EXPECT_EQ(slotOf(&VectorExpression::getVectorResult), 6);
  EXPECT_EQ(slotOf(&ScalarOperand::isReady), 4);
  EXPECT_EQ(slotOf(&VectorOperand::isOperator), 2);
}

}  // namespace
