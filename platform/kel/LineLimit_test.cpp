#include "kel/LineLimit.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct LineLimitTest : ::testing::Test {
  Kel::LineLimit limit;

  unsigned admitted(const std::string& source, const std::vector<std::string>& lines) {
    return static_cast<unsigned>(
        std::count_if(lines.begin(), lines.end(), [&](const auto& line) { return limit.admits(source, line); }));
  }
  std::vector<std::string> reported() {
    std::vector<std::string> lines;
    limit.beginPeriod([&](const auto& source, const auto& text) { lines.push_back(source + ": " + text); });
    return lines;
  }
  // `pattern` with each of `count` values in it.
  static std::vector<std::string> lines(const char* pattern, unsigned count,
                                        const std::function<std::string(unsigned)>& value) {
    std::vector<std::string> result;
    for (unsigned i = 0; i < count; ++i) result.push_back(fmt::format(fmt::runtime(pattern), value(i)));
    return result;
  }
};

TEST_F(LineLimitTest, linesThatDifferInValuesAreOneKindAndOthersPass) {
  const auto numbers = lines("no row {} here", 100, [](unsigned i) { return std::to_string(i); });
  EXPECT_EQ(admitted("A", numbers), 100U) << "no period yet";
  EXPECT_THAT(reported(), IsEmpty());
  EXPECT_EQ(admitted("A", numbers), 3U);
  EXPECT_EQ(
      admitted("A", lines("no row '{}' here", 100, [](unsigned i) { return fmt::format("fe80::{:x}:0", i); })), 3U);
  EXPECT_EQ(admitted("A", {"no row left here", "no row left here", "no row at all"}), 3U);
  EXPECT_EQ(admitted("B", numbers), 3U);
  EXPECT_THAT(reported(), ElementsAre("A: no row 99 here ... repeated 97 times",
                                      "A: no row 'fe80::63:0' here ... repeated 97 times",
                                      "B: no row 99 here ... repeated 97 times"));
  EXPECT_THAT(reported(), IsEmpty());
  EXPECT_EQ(admitted("A", numbers), 3U);
}

TEST_F(LineLimitTest, kindsWithoutEndAreBounded) {
  reported();
  const auto words = lines("name {}", 1000, [](unsigned i) { return std::string(i + 1, 'x'); });
  EXPECT_EQ(admitted("A", words), Kel::LineLimit::kindsPerSource + Kel::LineLimit::linesPerKind);
  EXPECT_EQ(admitted("B", {"another source"}), 1U);
  EXPECT_THAT(reported(), ElementsAre("A: " + words.back() + " ... and 964 other lines"));
}

TEST(TraceLimit, boundsWhatNobodyAskedFor) {
  const Kel::TraceHandle usual("TraceLimitTest");
  const Kel::TraceHandle named("TraceLimitNamed");
  std::vector<std::string> reports;
  const auto previous =
      Kel::TraceConfig::sinkIs([&](const Kel::TraceHandle& handle, unsigned, const std::string& text) {
        reports.push_back(handle.facility() + text);
      });
  Kel::TraceConfig::levelsAre("TraceLimitN*/0");
  Kel::TraceLimit::beginPeriod();
  unsigned usualLines = 0, namedLines = 0, detail = 0;
  for (int i = 0; i < 10; ++i) {
    usualLines += Kel::TraceLimit::admits(usual, 0, "7");
    namedLines += Kel::TraceLimit::admits(named, 0, "7");
    detail += Kel::TraceLimit::admits(usual, 2, "7");
  }
  Kel::TraceLimit::beginPeriod();
  Kel::TraceConfig::sinkIs(previous);
  Kel::TraceConfig::reset();
  EXPECT_THAT((std::vector{usualLines, namedLines, detail}), ElementsAre(3U, 10U, 10U));
  EXPECT_THAT(reports, ElementsAre("TraceLimitTest7 ... repeated 7 times"));
}

}  // namespace
