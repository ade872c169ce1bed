#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <string>

#include "TestSupport.h"
#include "trace/TraceSink.h"

namespace {

constexpr char kFile[] = "../../../src/plugins/CustomScanPlugin/Example";

class TraceTest : public ::testing::Test {
 protected:
  void SetUp() override { TraceControl::setSink(nullptr); }
  void TearDown() override { TraceControl::setSink(nullptr); }
  static Tracer* tracer() { return Tracer::getInstance(5); }
};

// ------------------------------------------------------------ tracers

TEST_F(TraceTest, GetInstanceGivesOneTracerPerComponent) {
  EXPECT_EQ(Tracer::getInstance(5), Tracer::getInstance(5));
  EXPECT_NE(Tracer::getInstance(5), Tracer::getInstance(6));
  EXPECT_EQ(Tracer::getInstance(5)->getComponent(), 5);
  EXPECT_EQ(Tracer::getInstance(0)->getComponent(), 0);
}

TEST_F(TraceTest, GetInstanceServesLargeAndNegativeComponents) {
  for (int component : {15, 16, 1000, INT_MAX, -1}) {
    Tracer* t = Tracer::getInstance(component);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->getComponent(), component);
    EXPECT_EQ(Tracer::getInstance(component), t);
  }
}

TEST_F(TraceTest, NoSinkByDefault) { EXPECT_EQ(TraceControl::getSink(), nullptr); }

TEST_F(TraceTest, SetSinkAndGetSink) {
  MemoryTraceSink sink;
  TraceControl::setSink(&sink);
  EXPECT_EQ(TraceControl::getSink(), &sink);
  TraceControl::setSink(nullptr);
  EXPECT_EQ(TraceControl::getSink(), nullptr);
}

// ------------------------------------------------------------ without a sink

TEST_F(TraceTest, RecordStartedWithoutSinkStaysSilentWhenSinkAppears) {
  MemoryTraceSink sink(Trace::Scope);
  {
    Trace record(tracer(), "Label", Trace::Error);
    Trace scope(tracer(), "Scope()");
    record << Trace::pos(kFile, 1) << "text";
    TraceControl::setSink(&sink);
    record << "more" << Trace::End;
  }
  TraceControl::setSink(nullptr);
  EXPECT_TRUE(sink.records.empty());
  EXPECT_TRUE(sink.scopes.empty());
}

// ------------------------------------------------------------ records

TEST_F(TraceTest, RecordCarriesComponentLevelLabelFileLineAndText) {
  cstest::TraceCapture capture;
  Trace(tracer(), "Command::run(String&, MemoryBuffer&)", Trace::Error)
      << Trace::pos(kFile, 123) << "Unable to create the process for command "
      << "x" << Trace::End;
  ASSERT_EQ(capture.records().size(), 1u);
  const TraceRecord& r = capture.records()[0];
  EXPECT_EQ(r.component, 5);
  EXPECT_EQ(r.level, 1);
  EXPECT_EQ(r.label, "Command::run(String&, MemoryBuffer&)");
  EXPECT_EQ(r.file, kFile);
  EXPECT_EQ(r.line, 123);
  EXPECT_EQ(r.text, L"Unable to create the process for command x");
}

TEST_F(TraceTest, TextIsThePiecesConcatenated) {
  cstest::TraceCapture capture;
  String s(L"[string]");
  Trace(tracer(), "Label", Trace::Detail)
      << Trace::pos(kFile, 1) << "narrow " << L"wide " << s << " " << 42 << " " << -7 << " "
      << 3000000000u << " " << -9000000000L << " " << 18446744073709551615ULL << " "
      << static_cast<long long>(LLONG_MIN) << " " << static_cast<unsigned long>(0) << Trace::End;
  ASSERT_EQ(capture.records().size(), 1u);
  EXPECT_EQ(capture.records()[0].text,
            L"narrow wide [string] 42 -7 3000000000 -9000000000 18446744073709551615 "
            L"-9223372036854775808 0");
}

TEST_F(TraceTest, NarrowPiecesAreDecodedLosslessly) {
  cstest::TraceCapture capture;
  Trace(tracer(), "Label", Trace::Detail) << Trace::pos(kFile, 1) << "caf\xc3\xa9 "
                                          << "raw\xff" << Trace::End;
  ASSERT_EQ(capture.records().size(), 1u);
  EXPECT_EQ(capture.records()[0].text,
            std::wstring(L"caf\u00e9 raw") + static_cast<wchar_t>(0xDCFF));
  EXPECT_EQ(capture.texts()[0], "caf\xc3\xa9 raw\xff");
}

TEST_F(TraceTest, NullPiecesAreSkipped) {
  cstest::TraceCapture capture;
  Trace(tracer(), "Label", Trace::Warning)
      << Trace::pos(kFile, 1) << "name=[" << static_cast<const wchar_t*>(nullptr) << "] "
      << static_cast<const char*>(nullptr) << "end" << Trace::End;
  ASSERT_EQ(capture.records().size(), 1u);
  EXPECT_EQ(capture.records()[0].text, L"name=[] end");
}

TEST_F(TraceTest, EmptyRecordIsDelivered) {
  cstest::TraceCapture capture;
  Trace(tracer(), "Label", Trace::Detail) << Trace::pos(kFile, 9) << Trace::End;
  ASSERT_EQ(capture.records().size(), 1u);
  EXPECT_EQ(capture.records()[0].text, L"");
  EXPECT_EQ(capture.records()[0].line, 9);
}

TEST_F(TraceTest, RecordWithoutEndIsNotDelivered) {
  cstest::TraceCapture capture;
  { Trace(tracer(), "Label", Trace::Error) << Trace::pos(kFile, 1) << "never ended"; }
  EXPECT_TRUE(capture.records().empty());
}

TEST_F(TraceTest, EachEndDeliversTheTextSinceThePreviousOne) {
  cstest::TraceCapture capture;
  Trace record(tracer(), "Label", Trace::Detail);
  record << Trace::pos(kFile, 1) << "first" << Trace::End << "second" << Trace::End;
  ASSERT_EQ(capture.records().size(), 2u);
  EXPECT_EQ(capture.records()[0].text, L"first");
  EXPECT_EQ(capture.records()[1].text, L"second");
}

TEST_F(TraceTest, RecordWithoutPositionHasEmptyFileAndLineZero) {
  cstest::TraceCapture capture;
  Trace(tracer(), "Label", Trace::Detail) << "text" << Trace::End;
  ASSERT_EQ(capture.records().size(), 1u);
  EXPECT_EQ(capture.records()[0].file, "");
  EXPECT_EQ(capture.records()[0].line, 0);
}

TEST_F(TraceTest, NullFileInPositionIsEmpty) {
  cstest::TraceCapture capture;
  Trace(tracer(), "Label", Trace::Detail) << Trace::pos(nullptr, 4) << Trace::End;
  ASSERT_EQ(capture.records().size(), 1u);
  EXPECT_EQ(capture.records()[0].file, "");
  EXPECT_EQ(capture.records()[0].line, 4);
}

TEST_F(TraceTest, WideLabelIsStoredAsUtf8) {
  cstest::TraceCapture capture;
  Trace(tracer(), L"DkrPlugin::setProperty(const wchar_t *, const wchar_t *)", Trace::Warning)
      << Trace::pos(kFile, 99) << "x" << Trace::End;
  Trace(tracer(), L"Caf\u00e9", Trace::Warning) << Trace::End;
  ASSERT_EQ(capture.records().size(), 2u);
  EXPECT_EQ(capture.records()[0].label, "DkrPlugin::setProperty(const wchar_t *, const wchar_t *)");
  EXPECT_EQ(capture.records()[1].label, "Caf\xc3\xa9");
}

TEST_F(TraceTest, NullLabelsAreEmpty) {
  cstest::TraceCapture capture;
  Trace(tracer(), static_cast<const char*>(nullptr), Trace::Error) << Trace::End;
  Trace(tracer(), static_cast<const wchar_t*>(nullptr), Trace::Error) << Trace::End;
  ASSERT_EQ(capture.records().size(), 2u);
  EXPECT_EQ(capture.records()[0].label, "");
  EXPECT_EQ(capture.records()[1].label, "");
}

TEST_F(TraceTest, NullTracerGivesComponentZero) {
  cstest::TraceCapture capture;
  Trace(nullptr, "Label", Trace::Error) << Trace::End;
  ASSERT_EQ(capture.records().size(), 1u);
  EXPECT_EQ(capture.records()[0].component, 0);
}

TEST_F(TraceTest, ComponentComesFromTheTracer) {
  cstest::TraceCapture capture;
  Trace(Tracer::getInstance(77), "Label", Trace::Error) << Trace::End;
  ASSERT_EQ(capture.records().size(), 1u);
  EXPECT_EQ(capture.records()[0].component, 77);
}

// ------------------------------------------------------------ level filter

TEST_F(TraceTest, LevelFilterDropsRecordsAboveMaxLevel) {
  for (int maxLevel : {0, 1, 2, 3}) {
    SCOPED_TRACE(maxLevel);
    cstest::TraceCapture capture(maxLevel);
    for (int level : {Trace::Error, Trace::Warning, Trace::Detail}) {
      Trace(tracer(), "Label", level) << level << Trace::End;
    }
    std::vector<std::string> expected;
    for (int level = 1; level <= maxLevel; ++level) expected.push_back(std::to_string(level));
    EXPECT_EQ(capture.texts(), expected);
  }
}

TEST_F(TraceTest, TextsFiltersByLevel) {
  cstest::TraceCapture capture;
  Trace(tracer(), "Label", Trace::Error) << "e" << Trace::End;
  Trace(tracer(), "Label", Trace::Detail) << "d" << Trace::End;
  EXPECT_EQ(capture.texts(Trace::Error), std::vector<std::string>{"e"});
  EXPECT_EQ(capture.texts(Trace::Detail), std::vector<std::string>{"d"});
  EXPECT_EQ(capture.texts(0), (std::vector<std::string>{"e", "d"}));
}

// ------------------------------------------------------------ scopes

TEST_F(TraceTest, ScopesAreDeliveredOnlyAtMaxLevelFour) {
  {
    cstest::TraceCapture capture(Trace::Detail);
    { Trace scope(tracer(), "Quiet()"); }
    EXPECT_TRUE(capture.scopes().empty());
  }
  cstest::TraceCapture capture(Trace::Scope);
  {
    Trace outer(tracer(), "Outer()");
    Trace inner(tracer(), L"Inner\u00e9()");
  }
  ASSERT_EQ(capture.scopes().size(), 4u);
  EXPECT_EQ(capture.scopes()[0].label, "Outer()");
  EXPECT_TRUE(capture.scopes()[0].entering);
  EXPECT_EQ(capture.scopes()[1].label, "Inner\xc3\xa9()");
  EXPECT_TRUE(capture.scopes()[1].entering);
  EXPECT_EQ(capture.scopes()[2].label, "Inner\xc3\xa9()");
  EXPECT_FALSE(capture.scopes()[2].entering);
  EXPECT_EQ(capture.scopes()[3].label, "Outer()");
  EXPECT_FALSE(capture.scopes()[3].entering);
  EXPECT_TRUE(capture.records().empty());
}

TEST_F(TraceTest, ScopeIgnoresTextPieces) {
  cstest::TraceCapture capture(Trace::Scope);
  {
    Trace scope(tracer(), "Scope()");
    scope << Trace::pos(kFile, 1) << "ignored" << 1 << Trace::End;
  }
  EXPECT_TRUE(capture.records().empty());
  EXPECT_EQ(capture.scopes().size(), 2u);
}

TEST_F(TraceTest, RecordsAtMaxLevelFourIncludeAllLevels) {
  cstest::TraceCapture capture(Trace::Scope);
  Trace(tracer(), "Label", Trace::Detail) << "d" << Trace::End;
  EXPECT_EQ(capture.texts(), std::vector<std::string>{"d"});
}

TEST_F(TraceTest, CaptureRestoresPreviousSink) {
  MemoryTraceSink outer;
  TraceControl::setSink(&outer);
  {
    cstest::TraceCapture capture;
    EXPECT_NE(TraceControl::getSink(), &outer);
  }
  EXPECT_EQ(TraceControl::getSink(), &outer);
}

TEST_F(TraceTest, ClearEmptiesTheMemorySink) {
  cstest::TraceCapture capture(Trace::Scope);
  { Trace scope(tracer(), "S()"); }
  Trace(tracer(), "Label", Trace::Error) << Trace::End;
  capture.clear();
  EXPECT_TRUE(capture.records().empty());
  EXPECT_TRUE(capture.scopes().empty());
}

// ------------------------------------------------------------ stream sink

std::string contents(std::FILE* f) {
  std::fflush(f);
  std::rewind(f);
  std::string out;
  char buf[256];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) out.append(buf, n);
  return out;
}

TEST_F(TraceTest, StreamSinkWritesOneLinePerRecord) {
  std::FILE* f = std::tmpfile();
  ASSERT_NE(f, nullptr);
  StreamTraceSink sink(f, Trace::Detail);
  TraceControl::setSink(&sink);
  Trace(tracer(), "Command::run(String&, MemoryBuffer&)", Trace::Error)
      << Trace::pos(kFile, 5) << "Command x terminated with error " << 3 << Trace::End;
  Trace(tracer(), L"Wide", Trace::Detail) << "caf\xc3\xa9 " << L"\u20ac" << Trace::End;
  TraceControl::setSink(nullptr);
  EXPECT_EQ(contents(f),
            "1 Command::run(String&, MemoryBuffer&): Command x terminated with error 3\n"
            "3 Wide: caf\xc3\xa9 \xe2\x82\xac\n");
  std::fclose(f);
}

TEST_F(TraceTest, StreamSinkFiltersLevelsAndScopes) {
  std::FILE* f = std::tmpfile();
  ASSERT_NE(f, nullptr);
  StreamTraceSink sink(f, Trace::Warning);
  TraceControl::setSink(&sink);
  {
    Trace scope(tracer(), "Hidden()");
    Trace(tracer(), "L", Trace::Error) << "e" << Trace::End;
    Trace(tracer(), "L", Trace::Warning) << "w" << Trace::End;
    Trace(tracer(), "L", Trace::Detail) << "d" << Trace::End;
  }
  TraceControl::setSink(nullptr);
  EXPECT_EQ(contents(f), "1 L: e\n2 L: w\n");
  std::fclose(f);
}

TEST_F(TraceTest, StreamSinkWritesScopesAtLevelFour) {
  std::FILE* f = std::tmpfile();
  ASSERT_NE(f, nullptr);
  StreamTraceSink sink(f, Trace::Scope);
  TraceControl::setSink(&sink);
  {
    Trace scope(tracer(), "CustomScanPlugin::initializePlugin()");
    Trace(tracer(), "L", Trace::Detail) << "inside" << Trace::End;
  }
  TraceControl::setSink(nullptr);
  EXPECT_EQ(contents(f),
            "4 CustomScanPlugin::initializePlugin(): enter\n"
            "3 L: inside\n"
            "4 CustomScanPlugin::initializePlugin(): leave\n");
  std::fclose(f);
}

TEST_F(TraceTest, StreamSinkRestoresEscapedBytes) {
  std::FILE* f = std::tmpfile();
  ASSERT_NE(f, nullptr);
  StreamTraceSink sink(f, Trace::Detail);
  TraceControl::setSink(&sink);
  Trace(tracer(), "L", Trace::Detail) << "raw\xff" << Trace::End;
  TraceControl::setSink(nullptr);
  EXPECT_EQ(contents(f), "3 L: raw\xff\n");
  std::fclose(f);
}

}  // namespace
