#include "common/EnvironmentSnapshot.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

using CustomScanPlugin::EnvironmentSnapshot;

namespace {

// The entries of environ as they are now.
std::vector<std::string> environText() {
  std::vector<std::string> texts;
  for (char** e = environ; e != nullptr && *e != nullptr; ++e) texts.emplace_back(*e);
  return texts;
}

std::vector<std::string> snapshotText(const EnvironmentSnapshot& snapshot) {
  std::vector<std::string> texts;
  texts.reserve(static_cast<std::size_t>(snapshot.count()));
  for (int i = 0; i < snapshot.count(); ++i) texts.push_back(snapshot.items()[i]->toNarrow());
  return texts;
}

bool holds(const EnvironmentSnapshot& snapshot, const std::string& entry) {
  for (const std::string& text : snapshotText(snapshot)) {
    if (text == entry) return true;
  }
  return false;
}

TEST(EnvironmentSnapshotTest, HoldsEveryEntryOfEnvironInOrder) {
  // Bytes that are not UTF-8 come back as they were.
  ASSERT_EQ(::setenv("CS_SNAPSHOT_BYTES", "caf\xc3\xa9 \xff\xfe=x", 1), 0);
  const auto snapshot = EnvironmentSnapshot::current();
  EXPECT_EQ(snapshotText(*snapshot), environText());
  EXPECT_TRUE(holds(*snapshot, "CS_SNAPSHOT_BYTES=caf\xc3\xa9 \xff\xfe=x"));
  ::unsetenv("CS_SNAPSHOT_BYTES");
}

TEST(EnvironmentSnapshotTest, AnUnchangedEnvironmentGivesTheSameSnapshot) {
  const auto first = EnvironmentSnapshot::current();
  const auto second = EnvironmentSnapshot::current();
  EXPECT_EQ(first.get(), second.get());
}

TEST(EnvironmentSnapshotTest, AddedChangedAndRemovedEntriesGiveANewSnapshot) {
  const auto before = EnvironmentSnapshot::current();
  const std::vector<std::string> beforeText = snapshotText(*before);

  ASSERT_EQ(::setenv("CS_SNAPSHOT_PROBE", "1", 1), 0);
  const auto added = EnvironmentSnapshot::current();
  EXPECT_NE(added.get(), before.get());
  EXPECT_TRUE(holds(*added, "CS_SNAPSHOT_PROBE=1"));
  EXPECT_EQ(snapshotText(*added), environText());

  ASSERT_EQ(::setenv("CS_SNAPSHOT_PROBE", "2", 1), 0);
  const auto changed = EnvironmentSnapshot::current();
  EXPECT_NE(changed.get(), added.get());
  EXPECT_TRUE(holds(*changed, "CS_SNAPSHOT_PROBE=2"));
  EXPECT_FALSE(holds(*changed, "CS_SNAPSHOT_PROBE=1"));

  ASSERT_EQ(::unsetenv("CS_SNAPSHOT_PROBE"), 0);
  const auto removed = EnvironmentSnapshot::current();
  EXPECT_NE(removed.get(), changed.get());
  EXPECT_EQ(snapshotText(*removed), beforeText);

  // A replaced snapshot stays whole for whoever still holds it.
  EXPECT_EQ(snapshotText(*before), beforeText);
  EXPECT_TRUE(holds(*added, "CS_SNAPSHOT_PROBE=1"));
}

TEST(EnvironmentSnapshotTest, AnEntryChangedInPlaceIsSeen) {
  // putenv puts the caller's own buffer into environ: the entry's address
  // stays, its text changes.
  static char entry[] = "CS_SNAPSHOT_IN_PLACE=one";
  ASSERT_EQ(::putenv(entry), 0);
  const auto first = EnvironmentSnapshot::current();
  EXPECT_TRUE(holds(*first, "CS_SNAPSHOT_IN_PLACE=one"));
  // Overwrites the value's three letters; the terminator stays.
  std::copy_n("two", 3, entry + std::strlen("CS_SNAPSHOT_IN_PLACE="));
  const auto second = EnvironmentSnapshot::current();
  EXPECT_NE(second.get(), first.get());
  EXPECT_TRUE(holds(*second, "CS_SNAPSHOT_IN_PLACE=two"));
  EXPECT_FALSE(holds(*second, "CS_SNAPSHOT_IN_PLACE=one"));
  ::unsetenv("CS_SNAPSHOT_IN_PLACE");
}

TEST(EnvironmentSnapshotTest, TheSameTextAtAnotherAddressKeepsTheSnapshot) {
  // What decides is the text, not where it is kept.
  static char one[] = "CS_SNAPSHOT_SAME=x";
  static char other[] = "CS_SNAPSHOT_SAME=x";
  ASSERT_EQ(::putenv(one), 0);
  const auto first = EnvironmentSnapshot::current();
  ASSERT_EQ(::putenv(other), 0);
  const auto second = EnvironmentSnapshot::current();
  EXPECT_EQ(second.get(), first.get());
  ::unsetenv("CS_SNAPSHOT_SAME");
}

TEST(EnvironmentSnapshotTest, AnEntryCutShortOrLengthenedIsSeen) {
  // Texts that are prefixes of each other, at the end of environ and before
  // other entries.
  static char entry[] = "CS_SNAPSHOT_LENGTH=abcdef";
  ASSERT_EQ(::putenv(entry), 0);
  const auto whole = EnvironmentSnapshot::current();
  entry[std::strlen(entry) - 2] = '\0';
  const auto shorter = EnvironmentSnapshot::current();
  EXPECT_NE(shorter.get(), whole.get());
  EXPECT_TRUE(holds(*shorter, "CS_SNAPSHOT_LENGTH=abcd"));
  entry[std::strlen(entry)] = 'e';
  const auto longer = EnvironmentSnapshot::current();
  EXPECT_NE(longer.get(), shorter.get());
  EXPECT_TRUE(holds(*longer, "CS_SNAPSHOT_LENGTH=abcdef"));
  ::unsetenv("CS_SNAPSHOT_LENGTH");
}

TEST(EnvironmentSnapshotTest, AnEmptyOrMissingEnvironmentGivesNoEntries) {
  char** const saved = environ;
  char* none[] = {nullptr};
  environ = none;
  const auto empty = EnvironmentSnapshot::current();
  EXPECT_EQ(empty->count(), 0);
  environ = nullptr;
  const auto missing = EnvironmentSnapshot::current();
  EXPECT_EQ(missing->count(), 0);
  EXPECT_EQ(missing.get(), empty.get());
  environ = saved;
  const auto restored = EnvironmentSnapshot::current();
  EXPECT_EQ(snapshotText(*restored), environText());
}

TEST(EnvironmentSnapshotTest, ThreadsShareAndReadOneSnapshot) {
  const auto expected = EnvironmentSnapshot::current();
  const std::vector<std::string> text = snapshotText(*expected);
  std::vector<std::thread> threads;
  threads.reserve(8);
  std::vector<int> mismatches(8, 0);
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 200; ++i) {
        const auto snapshot = EnvironmentSnapshot::current();
        if (snapshot.get() != expected.get() || snapshotText(*snapshot) != text) ++mismatches[t];
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (int t = 0; t < 8; ++t) EXPECT_EQ(mismatches[t], 0) << t;
}

}  // namespace
