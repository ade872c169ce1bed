#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "base/Runtime.h"

namespace {

// A stream that hands out a fixed text in blocks of the given sizes (the
// last size repeats), as a pipe hands out whatever the child has written.
// It records how many refills it served and where its position stood at
// each one, so the tests see what the reader handed back.
class BlockStream : public ProcessInputStream {
 public:
  BlockStream(std::string text, std::vector<std::size_t> blocks)
      : m_Text(std::move(text)), m_Blocks(std::move(blocks)) {}

  int refills = 0;
  // For each refill: whether the previous block had been used up.
  std::vector<bool> spentAtRefill;

 protected:
  int refill() override {
    ++refills;
    spentAtRefill.push_back(m_Next == m_End);
    if (m_Given == m_Text.size()) return -1;
    std::size_t n = m_Blocks[m_Block < m_Blocks.size() ? m_Block : m_Blocks.size() - 1];
    ++m_Block;
    if (n > m_Text.size() - m_Given) n = m_Text.size() - m_Given;
    const auto* data = reinterpret_cast<const unsigned char*>(m_Text.data());
    m_Next = data + m_Given;
    m_End = m_Next + n;
    m_Given += n;
    return *m_Next++;
  }

 private:
  std::string m_Text;
  std::vector<std::size_t> m_Blocks;
  std::size_t m_Block = 0;
  std::size_t m_Given = 0;
};

// Every value a reader hands out up to and including the first negative one.
std::vector<int> readAllThroughReader(ProcessInputStream& stream) {
  ProcessInputReader reader(stream);
  std::vector<int> values;
  for (;;) {
    const int c = reader.read();
    values.push_back(c);
    if (c < 0) return values;
  }
}

std::vector<int> readAllThroughStream(ProcessInputStream& stream) {
  std::vector<int> values;
  for (;;) {
    const int c = stream.read();
    values.push_back(c);
    if (c < 0) return values;
  }
}

std::string everyByteValue(std::size_t length) {
  std::string text;
  for (std::size_t k = 0; k < length; ++k) text.push_back(static_cast<char>(k % 256));
  return text;
}

struct BlockCase {
  const char* name;
  std::size_t length;
  std::vector<std::size_t> blocks;
};

TEST(ProcessInputReaderTest, HandsOutTheSameValuesAsTheStreamWhateverTheBlocks) {
  const std::vector<BlockCase> cases = {
      {"one byte blocks", 600, {1}},
      {"odd blocks", 1000, {3, 7, 1, 250}},
      {"ends exactly on a block edge", 512, {256}},
      {"one block holds everything", 700, {4096}},
      {"one byte in the last block", 257, {256, 256}},
      {"empty text", 0, {16}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    BlockStream direct(everyByteValue(c.length), c.blocks);
    BlockStream viaReader(everyByteValue(c.length), c.blocks);
    const std::vector<int> expected = readAllThroughStream(direct);
    EXPECT_EQ(readAllThroughReader(viaReader), expected);
    EXPECT_EQ(expected.size(), c.length + 1);
    EXPECT_LT(expected.back(), 0);
    EXPECT_EQ(viaReader.refills, direct.refills);
  }
}

TEST(ProcessInputReaderTest, ByteTwoHundredFiftyFiveIsNotTheEnd) {
  BlockStream stream(std::string("\xff\xff\x00\xff", 4), {2});
  ProcessInputReader reader(stream);
  EXPECT_EQ(reader.read(), 255);
  EXPECT_EQ(reader.read(), 255);
  EXPECT_EQ(reader.read(), 0);
  EXPECT_EQ(reader.read(), 255);
  EXPECT_LT(reader.read(), 0);
}

TEST(ProcessInputReaderTest, EndIsReportedAgainOnEveryLaterRead) {
  BlockStream stream("ab", {2});
  ProcessInputReader reader(stream);
  EXPECT_EQ(reader.read(), 'a');
  EXPECT_EQ(reader.read(), 'b');
  EXPECT_LT(reader.read(), 0);
  EXPECT_LT(reader.read(), 0);
  EXPECT_EQ(reader.buffered(), 0u);
}

TEST(ProcessInputReaderTest, BufferedCountsWhatIsLeftOfTheCurrentBlock) {
  BlockStream stream("abcdefgh", {5});
  ProcessInputReader reader(stream);
  EXPECT_EQ(reader.buffered(), 0u);  // nothing asked for yet
  EXPECT_EQ(reader.read(), 'a');     // the first block arrives: "abcde"
  EXPECT_EQ(reader.buffered(), 4u);
  EXPECT_EQ(reader.readBuffered(), 'b');
  EXPECT_EQ(reader.readBuffered(), 'c');
  EXPECT_EQ(reader.buffered(), 2u);
  EXPECT_EQ(reader.readBuffered(), 'd');
  EXPECT_EQ(reader.readBuffered(), 'e');
  EXPECT_EQ(reader.buffered(), 0u);
  EXPECT_EQ(reader.read(), 'f');  // the second block: "fgh"
  EXPECT_EQ(reader.buffered(), 2u);
  EXPECT_EQ(stream.refills, 2);
}

TEST(ProcessInputReaderTest, StreamRefillsOnlyWhenItsBlockIsSpent) {
  BlockStream stream(everyByteValue(100), {10});
  readAllThroughReader(stream);
  EXPECT_EQ(stream.refills, 11);  // ten blocks, then the end
  for (bool spent : stream.spentAtRefill) EXPECT_TRUE(spent);
}

TEST(ProcessInputReaderTest, PositionIsHandedBackWhenTheReaderEnds) {
  BlockStream stream("abcdefgh", {5});
  EXPECT_EQ(stream.read(), 'a');
  {
    ProcessInputReader reader(stream);
    EXPECT_EQ(reader.read(), 'b');  // from the block the stream already holds
    EXPECT_EQ(reader.read(), 'c');
  }
  // The stream goes on where the reader stopped, within the same block ...
  EXPECT_EQ(stream.read(), 'd');
  {
    ProcessInputReader reader(stream);
    EXPECT_EQ(reader.read(), 'e');
    EXPECT_EQ(reader.read(), 'f');  // ... and after a refill made through the reader.
  }
  EXPECT_EQ(stream.read(), 'g');
  EXPECT_EQ(stream.read(), 'h');
  EXPECT_LT(stream.read(), 0);
  EXPECT_EQ(stream.refills, 3);
}

// The same over a real child's pipe: every byte value, many pipe reads.
TEST(ProcessInputReaderTest, ReadsAChildsOutputWhole) {
  cstest::TempDir dir;
  const std::string child = dir.file("cs_testchild");
  cstest::installTestChild(child);
  const String line(("\"" + child + "\" bytes 300000").c_str());
  std::unique_ptr<Process> process(Runtime::getRuntime()->exec(line, nullptr, 0));
  ASSERT_TRUE(process);
  ASSERT_NE(process->getInputStream(), nullptr);
  std::vector<int> values = readAllThroughReader(*process->getInputStream());
  EXPECT_EQ(process->waitFor(), 0);
  ASSERT_EQ(values.size(), 300001u);
  std::size_t wrong = 0;
  for (std::size_t k = 0; k < 300000; ++k) wrong += values[k] != static_cast<int>(k % 256);
  EXPECT_EQ(wrong, 0u);
  EXPECT_LT(values.back(), 0);
}

}  // namespace
