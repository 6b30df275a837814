#include "kel/Trace.h"

#include <gtest/gtest.h>

#include <sstream>

#include "kel/Errors.h"
#include "kel/System.h"

namespace {

struct TraceTest : ::testing::Test {
  Kel::TraceHandle handle{"TraceTest"};
  std::vector<std::string> lines;
  Kel::TraceConfig::Sink previous =
      Kel::TraceConfig::sinkIs([this](const Kel::TraceHandle& from, unsigned level, const std::string& text) {
        lines.push_back(from.facility() + "/" + std::to_string(level) + ": " + text);
      });
  ~TraceTest() override {
    Kel::TraceConfig::sinkIs(previous);
    Kel::TraceConfig::reset();
  }
};

TEST_F(TraceTest, disabledTracesEvaluateNothing) {
  int evaluated = 0;
  QTRACE(handle, 2) << ++evaluated;
  QTRACE(handle, 0) << "seen " << ++evaluated;
  EXPECT_EQ(evaluated, 1);
  EXPECT_EQ(lines, std::vector<std::string>{"TraceTest/0: seen 1"});
}

TEST_F(TraceTest, levelsAreSetByFacilityAndPattern) {
  Kel::TraceConfig::levelsAre("TraceT*/0-2,8;Other/1");
  EXPECT_TRUE(handle.enabled(0) && handle.enabled(1) && handle.enabled(2) && handle.enabled(8));
  EXPECT_FALSE(handle.enabled(3) || handle.enabled(7));
  const Kel::TraceHandle later("Other");
  EXPECT_TRUE(later.enabled(1));
  EXPECT_FALSE(later.enabled(0));
  Kel::TraceConfig::levelsAre("TraceTest/");
  EXPECT_FALSE(handle.enabled(0));
}

TEST_F(TraceTest, malformedLevelsChangeNothing) {
  for (const auto* text :
       {"TraceTest", "/3", "TraceTest/10", "TraceTest/a", "TraceTest/1-", "TraceTest/2-1", "TraceTest/2;x"}) {
    EXPECT_THROW(Kel::TraceConfig::levelsAre(text), Kel::RangeException) << text;
    EXPECT_FALSE(handle.enabled(2)) << text;
  }
}

TEST_F(TraceTest, ringKeepsTheLatestEntries) {
  for (std::uintptr_t i = 0; i < Kel::TraceRing::capacity + 3; ++i) QTRACE_ENTRY(handle, i);
  const auto entries = Kel::TraceRing::entries();
  ASSERT_EQ(entries.size(), Kel::TraceRing::capacity);
  EXPECT_EQ(entries.front().argument, 3u);
  EXPECT_EQ(entries.back().argument, Kel::TraceRing::capacity + 2);
  std::ostringstream out;
  Kel::TraceRing::write(out);
  EXPECT_NE(out.str().find(" TraceTest TestBody 0x3\n"), std::string::npos);
}

TEST(System, clockIsInjectableAndOtherwiseSteady) {
  const auto real = Kel::System::currentTime();
  Kel::System::clockIs([] { return 12.5; });
  EXPECT_EQ(Kel::System::currentTime(), 12.5);
  Kel::System::clockIs({});
  EXPECT_GE(Kel::System::currentTime(), real);
}

TEST(ErrorsDeathTest, assertionsAbortWithTheirText) {
  EXPECT_DEATH(KEL_ASSERT_TEXT(false, "reg_ipForwarding"), "assertion failed: reg_ipForwarding");
}

}  // namespace
