#include "common/ObjectArray.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <type_traits>

#include "base/String.h"
#include "base/StringExtras.h"
#include "base/WideTextExtras.h"

using CustomScanPlugin::OAItem;
using CustomScanPlugin::ObjectArray;

namespace {

// Items that count how many of them are alive.
struct Counted {
  static int alive;
  int value;
  explicit Counted(int v) : value(v) { ++alive; }
  Counted(const Counted& other) : value(other.value) { ++alive; }
  ~Counted() { --alive; }
};
int Counted::alive = 0;

struct FailingAllocator {
  static int failAt;
  static void* allocate(std::size_t bytes) { return fail() ? nullptr : std::malloc(bytes); }
  static void* reallocate(void* block, std::size_t bytes) {
    return fail() ? nullptr : std::realloc(block, bytes);
  }
  static void release(void* block) { std::free(block); }
  static bool fail() { return failAt > 0 && --failAt == 0; }
};
int FailingAllocator::failAt = 0;

// The storage is a plain array of pointers, so it goes to the host's process
// creation (const String* const*) as it is.
static_assert(std::is_same<OAItem<String>, String*>::value, "an item is a plain owning pointer");
static_assert(std::is_convertible<decltype(std::declval<ObjectArray<String>&>().getItems()),
                                  const String* const*>::value,
              "the item storage converts to the host's environment array");

TEST(ObjectArrayTest, AddAppendsCopiesInOrder) {
  ObjectArray<String> a(0);
  String first(L"A=1");
  EXPECT_EQ(a.add(first, nullptr), 0);
  EXPECT_EQ(a.add(String(L"B=2"), nullptr), 0);
  ASSERT_EQ(a.getLength(), 2);
  EXPECT_EQ(toWideString(*a[0]), L"A=1");
  EXPECT_EQ(toWideString(*a[1]), L"B=2");
  EXPECT_NE(a[0], &first);  // a copy, not the caller's object
}

// Left to the implementer: the position of the new item is written when a
// position is given.
TEST(ObjectArrayTest, AddWritesTheNewIndexThroughANonNullPosition) {
  ObjectArray<String> a(0);
  int position = -7;
  EXPECT_EQ(a.add(String(L"x"), &position), 0);
  EXPECT_EQ(position, 0);
  EXPECT_EQ(a.add(String(L"y"), &position), 0);
  EXPECT_EQ(position, 1);
}

TEST(ObjectArrayTest, AddAfterInitialEmptySlotsAppendsBehindThem) {
  ObjectArray<String> a(2);
  EXPECT_EQ(a[0], nullptr);
  EXPECT_EQ(a[1], nullptr);
  int position = -1;
  EXPECT_EQ(a.add(String(L"z"), &position), 0);
  EXPECT_EQ(position, 2);
  EXPECT_EQ(a.getLength(), 3);
  EXPECT_EQ(toWideString(*a[2]), L"z");
}

TEST(ObjectArrayTest, SlotsPastTheLengthAreNull) {
  ObjectArray<String> a(0);
  a.add(String(L"a"), nullptr);
  a.add(String(L"b"), nullptr);
  a.add(String(L"c"), nullptr);
  EXPECT_EQ(a.getAllocated(), 4);
  EXPECT_EQ(a[3], nullptr);
}

TEST(ObjectArrayTest, DestructionDeletesEveryObject) {
  Counted::alive = 0;
  {
    ObjectArray<Counted> a(0);
    for (int k = 0; k < 100; ++k) EXPECT_EQ(a.add(Counted(k), nullptr), 0);
    EXPECT_EQ(Counted::alive, 100);
    EXPECT_EQ(a[99]->value, 99);
  }
  EXPECT_EQ(Counted::alive, 0);
}

// Items that count how they were made.
struct Made {
  static int copies;
  static int moves;
  int value;
  explicit Made(int v) : value(v) {}
  Made(const Made& other) : value(other.value) { ++copies; }
  Made(Made&& other) noexcept : value(other.value) { ++moves; }
};
int Made::copies = 0;
int Made::moves = 0;

// A named object is copied and left as it was; a temporary's contents move
// into the heap object.
TEST(ObjectArrayTest, AddCopiesANamedObjectAndMovesATemporary) {
  Made::copies = 0;
  Made::moves = 0;
  ObjectArray<Made> a(0);
  Made named(1);
  EXPECT_EQ(a.add(named, nullptr), 0);
  EXPECT_EQ(Made::copies, 1);
  EXPECT_EQ(Made::moves, 0);
  EXPECT_EQ(a.add(Made(2), nullptr), 0);
  EXPECT_EQ(Made::copies, 1);
  EXPECT_EQ(Made::moves, 1);
  ASSERT_EQ(a.getLength(), 2);
  EXPECT_EQ(a[0]->value, 1);
  EXPECT_EQ(a[1]->value, 2);
  EXPECT_EQ(named.value, 1);
}

TEST(ObjectArrayTest, TemporaryStringIsStoredWhole) {
  ObjectArray<String> a(0);
  const std::wstring longText(300, L'q');
  EXPECT_EQ(a.add(fromWideString(longText), nullptr), 0);
  ASSERT_EQ(a.getLength(), 1);
  EXPECT_EQ(toWideString(*a[0]), longText);
}

TEST(ObjectArrayTest, FailedGrowthPassesTheCodeOnAndLeavesTheLength) {
  Counted::alive = 0;
  {
    ObjectArray<Counted, FailingAllocator> a(0);
    EXPECT_EQ(a.add(Counted(1), nullptr), 0);
    FailingAllocator::failAt = 1;
    int position = -3;
    EXPECT_EQ(a.add(Counted(2), &position), -100);
    EXPECT_EQ(position, -3);
    EXPECT_EQ(a.getLength(), 1);
    EXPECT_EQ(Counted::alive, 1);
    EXPECT_EQ(a.add(Counted(3), nullptr), 0);
    EXPECT_EQ(a[1]->value, 3);
  }
  EXPECT_EQ(Counted::alive, 0);
}

}  // namespace
