// What a request for one row costs as the table grows: a full walk of ipAddrTable's first column, and GETNEXT from
// random places, at a thousand, a hundred thousand and a million rows. The agents run side by side and are asked in
// turns, so that what disturbs the machine disturbs all of them; what counts is the last column, the ratio to the
// smallest table. Ends with status 3 when the largest table's ratio is above the goal.

#include <fmt/format.h>
#include <sched.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstring>
#include <memory>
#include <random>
#include <stdexcept>
#include <vector>

#include "ServedAgent.h"
#include "SnmpClient.h"

namespace {

using Bench::Oid;
using Clock = std::chrono::steady_clock;

const Oid column{1, 3, 6, 1, 2, 1, 4, 20, 1, 1};
constexpr int bulkRepetitions = 40;
constexpr int rounds = 20;
constexpr int requestsPerRound = 500;
constexpr double goal = 1.5;  // largest table against smallest

double microsecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

struct Subject {
  explicit Subject(std::uint32_t rowCount)
      : rows(rowCount), agent(rowCount), client(agent.endpoint(), Bench::ServedAgent::community) {}
  std::uint32_t rows;
  Bench::ServedAgent agent;
  Bench::SnmpClient client;
  std::vector<double> latencies;  // microseconds
  double walkSeconds = 0;
};

Oid indexOid(std::uint32_t address) {
  Oid oid = column;
  for (int shift = 24; shift >= 0; shift -= 8) oid.push_back((address >> shift) & 0xFF);
  return oid;
}

void askAtRandom(Subject& subject, std::mt19937& random) {
  std::uniform_int_distribution<std::uint32_t> anyRow(0, subject.rows - 2);
  for (int i = 0; i < requestsPerRound; ++i) {
    const std::uint32_t row = anyRow(random);
    const Oid from = indexOid(Bench::addressAt(row) + (random() & 1U));  // on a row, or between two
    const auto start = Clock::now();
    const auto answer = subject.client.getNext(from);
    subject.latencies.push_back(microsecondsSince(start));
    if (answer.size() != 1 || answer[0].name != indexOid(Bench::addressAt(row + 1))) {
      throw std::runtime_error("the agent answered with another row than the next one");
    }
  }
}

void walk(Subject& subject) {
  const auto start = Clock::now();
  Oid from = column;
  std::uint32_t seen = 0;
  for (bool inColumn = true; inColumn;) {
    for (const auto& binding : subject.client.getBulk(from, bulkRepetitions)) {
      inColumn = !binding.isEndOfView && std::equal(column.begin(), column.end(), binding.name.begin());
      if (!inColumn) break;
      from = binding.name;
      ++seen;
    }
  }
  subject.walkSeconds = microsecondsSince(start) / 1e6;
  if (seen != subject.rows) throw std::runtime_error(fmt::format("the walk saw {} of {} rows", seen, subject.rows));
}

double quantile(std::vector<double> values, double q) {
  const auto at = values.begin() + static_cast<std::ptrdiff_t>(q * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), at, values.end());
  return *at;
}

// Client and agents share one processor: waking another one that idles costs several times what a request does, and
// depends on where the kernel happened to put which agent.
void shareOneProcessor() {
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(static_cast<unsigned>(sched_getcpu()), &one);
  if (sched_setaffinity(0, sizeof one, &one) != 0) throw std::runtime_error("cannot bind to one processor");
}

int run(const std::vector<std::uint32_t>& sizes) {
  shareOneProcessor();
  std::vector<std::unique_ptr<Subject>> subjects;
  for (const auto rows : sizes) subjects.push_back(std::make_unique<Subject>(rows));
  std::mt19937 random(1);
  for (int round = 0; round < rounds; ++round) {
    for (auto& subject : subjects) askAtRandom(*subject, random);
  }
  for (auto& subject : subjects) walk(*subject);

  fmt::print("{:>10} {:>14} {:>12} {:>14} {:>10} {:>16}\n", "rows", "walk rows/s", "GETNEXT p50", "p99 (us)",
             "RSS (MiB)", "p50 to smallest");
  const double smallest = quantile(subjects.front()->latencies, 0.5);
  for (const auto& subject : subjects) {
    const double median = quantile(subject->latencies, 0.5);
    fmt::print("{:>10} {:>14.0f} {:>12.1f} {:>14.1f} {:>10} {:>15.2f}x\n", subject->rows,
               subject->rows / subject->walkSeconds, median, quantile(subject->latencies, 0.99),
               subject->agent.residentBytes() >> 20, median / smallest);
  }
  const double ratio = quantile(subjects.back()->latencies, 0.5) / smallest;
  fmt::print("{} rows cost {:.2f} times {} rows (goal: at most {}): {}\n", subjects.back()->rows, ratio,
             subjects.front()->rows, goal, ratio <= goal ? "reached" : "missed");
  return ratio <= goal ? 0 : 3;
}

}  // namespace

int main(int argc, char* argv[]) {
  std::vector<std::uint32_t> sizes;
  for (int i = 1; i < argc; ++i) {
    std::uint32_t rows = 0;
    const auto [end, error] = std::from_chars(argv[i], argv[i] + std::strlen(argv[i]), rows);
    if (error != std::errc{} || *end != '\0' || rows < 2 || rows > 100'000'000) {
      fmt::print(stderr, "frame_bench: '{}' is not a number of rows from 2 to 100000000\n", argv[i]);
      return 2;
    }
    sizes.push_back(rows);
  }
  if (sizes.empty()) sizes = {1'000, 100'000, 1'000'000};
  try {
    return run(sizes);
  } catch (const std::exception& error) {
    fmt::print(stderr, "frame_bench: {}\n", error.what());
    return 1;
  }
}
