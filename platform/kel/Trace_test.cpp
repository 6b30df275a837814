// Levels, the ring of function entries, and the limit of repeated lines.

#include <fmt/format.h>
#include <gmock/gmock.h>

#include "kel/Errors.h"
#include "kel/LineLimit.h"
#include "kel/testing/TraceLines.h"

namespace {

using ::testing::ElementsAre;

struct TraceTest : ::testing::Test {
  Kel::TraceHandle handle{"TraceTest"};
  KelTest::TraceLines traces;
};

TEST_F(TraceTest, levelsAreSetByFacilityAndPattern) {
  int evaluated = 0;
  QTRACE(handle, 2) << ++evaluated;
  QTRACE(handle, 0) << "seen " << ++evaluated;
  EXPECT_THAT(traces.lines, ElementsAre("seen 1"));
  for (const auto* malformed :
       {"TraceTest", "/3", "TraceTest/10", "TraceTest/a", "TraceTest/1-", "TraceTest/2-1", "TraceTest/2;x"}) {
    EXPECT_THROW(Kel::TraceConfig::setLevels(malformed), Kel::RangeException) << malformed;
    EXPECT_FALSE(handle.enabled(2)) << malformed;
  }
  Kel::TraceConfig::setLevels("TraceT*/0-2,8;Other/1");
  EXPECT_TRUE(handle.enabled(0) && handle.enabled(1) && handle.enabled(2) && handle.enabled(8));
  EXPECT_FALSE(handle.enabled(3) || handle.enabled(7));
  const Kel::TraceHandle later("Other");
  EXPECT_TRUE(later.enabled(1));
  EXPECT_FALSE(later.enabled(0));
  Kel::TraceConfig::setLevels("TraceTest/");
  EXPECT_FALSE(handle.enabled(0));
}

TEST_F(TraceTest, aListenerHasLevelsOfItsOwnWhileItExists) {
  std::vector<std::string> heard;
  {
    const Kel::TraceListener listener("Trace*/2", [&](const auto&, unsigned level, const std::string& text) {
      heard.push_back(fmt::format("{} {}", level, text));
    });
    Kel::TraceConfig::reset();  // of the configured levels alone
    for (const unsigned level : {0U, 2U, 3U}) QTRACE(handle, level) << "first";
    Kel::TraceConfig::setLevels("TraceTest/");
    QTRACE(handle, 2) << "second";
  }
  EXPECT_THAT(heard, ElementsAre("2 first", "2 second"));
  EXPECT_THAT(traces.lines, ElementsAre("first")) << "at level 0; the configuration was reset";
  Kel::TraceConfig::reset();
  EXPECT_FALSE(handle.enabled(2));
  EXPECT_THROW(Kel::TraceListener("x", {}), Kel::RangeException);
}

TEST_F(TraceTest, ringKeepsTheLatestEntriesAndAssertionsAbortWithTheirText) {
  for (std::uintptr_t i = 0; i < Kel::TraceRing::capacity + 3; ++i) QTRACE_ENTRY(handle, i);
  const auto entries = Kel::TraceRing::entries();
  ASSERT_EQ(entries.size(), Kel::TraceRing::capacity);
  EXPECT_EQ(entries.front().argument, 3U);
  EXPECT_EQ(entries.back().argument, Kel::TraceRing::capacity + 2);
  EXPECT_DEATH(KEL_ASSERT_TEXT(false, "reg_ipForwarding"),
               "assertion failed: reg_ipForwarding\n(.* TraceTest TestBody 0x.*\n){24}$");
}

TEST(LineLimit, linesThatDifferInValuesAreOneKindAndOthersPass) {
  Kel::LineLimit limit;
  // How many of 100 lines are admitted.
  const auto admitted = [&](const std::string& source, auto line) {
    unsigned count = 0;
    for (unsigned i = 0; i < 100; ++i) count += limit.admits(source, line(i));
    return count;
  };
  const auto reported = [&] {
    std::vector<std::string> lines;
    limit.beginPeriod([&](const auto& source, const auto& text) { lines.push_back(source + ": " + text); });
    return lines;
  };
  const auto numbered = [](unsigned i) { return fmt::format("no row {} here", i); };
  const auto addressed = [](unsigned i) { return fmt::format("no row 'fe80::{:x}:0' here", i); };
  EXPECT_EQ(admitted("A", numbered), 100U) << "no period yet";
  EXPECT_THAT(reported(), ElementsAre());
  EXPECT_EQ(admitted("A", numbered), 3U);
  EXPECT_EQ(admitted("A", addressed), 3U);
  EXPECT_TRUE(limit.admits("A", "no row is here"));
  EXPECT_EQ(admitted("B", numbered), 3U);
  EXPECT_THAT(reported(), ElementsAre("A: no row 99 here ... repeated 97 times",
                                      "A: no row 'fe80::63:0' here ... repeated 97 times",
                                      "B: no row 99 here ... repeated 97 times"));
  EXPECT_EQ(admitted("A", [](unsigned i) { return std::string(i + 1, 'x'); }), 35U) << "kinds without end";
  EXPECT_TRUE(limit.admits("B", "x"));
  EXPECT_THAT(reported(), ElementsAre("A: " + std::string(100, 'x') + " ... and 64 other lines"));
}

TEST_F(TraceTest, limitPassesWhatTheConfigurationAsksFor) {
  const Kel::TraceHandle named("LimitTestNamed");
  Kel::TraceConfig::setLevels("LimitTestN*/0");
  Kel::TraceLimit::beginPeriod();
  unsigned passed[3] = {};
  for (unsigned i = 0; i < 10; ++i) {
    passed[0] += Kel::TraceLimit::admits(handle, 0, "7");
    passed[1] += Kel::TraceLimit::admits(handle, 2, "7");
    passed[2] += Kel::TraceLimit::admits(named, 0, "7");
  }
  EXPECT_THAT(passed, ElementsAre(3U, 10U, 10U));
  Kel::TraceLimit::beginPeriod();
  EXPECT_THAT(traces.lines, ElementsAre("7 ... repeated 7 times"));
}

}  // namespace
