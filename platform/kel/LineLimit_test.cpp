#include "kel/LineLimit.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct LineLimitTest : ::testing::Test {
  Kel::LineLimit limit;

  // How many of 100 lines are admitted.
  unsigned admitted(const std::string& source, const std::function<std::string(unsigned)>& line) {
    unsigned count = 0;
    for (unsigned i = 0; i < 100; ++i) count += limit.admits(source, line(i));
    return count;
  }
  std::vector<std::string> reported() {
    std::vector<std::string> lines;
    limit.beginPeriod([&](const auto& source, const auto& text) { lines.push_back(source + ": " + text); });
    return lines;
  }
};

TEST_F(LineLimitTest, linesThatDifferInValuesAreOneKindAndOthersPass) {
  const auto numbered = [](unsigned i) { return fmt::format("no row {} here", i); };
  const auto addressed = [](unsigned i) { return fmt::format("no row 'fe80::{:x}:0' here", i); };
  EXPECT_EQ(admitted("A", numbered), 100U) << "no period yet";
  EXPECT_THAT(reported(), IsEmpty());
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

TEST_F(LineLimitTest, tracesThatTheConfigurationAsksForPass) {
  const Kel::TraceHandle usual("LimitTestUsual");
  const Kel::TraceHandle named("LimitTestNamed");
  std::vector<std::string> reports;
  const auto previous = Kel::TraceConfig::sinkIs(
      [&](const Kel::TraceHandle&, unsigned, const std::string& text) { reports.push_back(text); });
  Kel::TraceConfig::levelsAre("LimitTestN*/0");
  Kel::TraceLimit::beginPeriod();
  const auto passed = [&](const Kel::TraceHandle& handle, unsigned level) {
    unsigned count = 0;
    for (unsigned i = 0; i < 10; ++i) count += Kel::TraceLimit::admits(handle, level, "7");
    return count;
  };
  EXPECT_EQ(passed(usual, 0), 3U);
  EXPECT_EQ(passed(usual, 2), 10U);
  EXPECT_EQ(passed(named, 0), 10U);
  Kel::TraceLimit::beginPeriod();
  Kel::TraceConfig::sinkIs(previous);
  Kel::TraceConfig::reset();
  EXPECT_THAT(reports, ElementsAre("7 ... repeated 7 times"));
}

}  // namespace
