// Measures the cost of a request for one row as the table grows: at a thousand, a hundred thousand and a million rows.
// The requests are a full walk of ipAddrTable's first column, GETNEXT from random places, and requests without a row to
// start at.
//
// The agents run side by side and are asked in turns, so that disturbances affect all of them. The results are ratios:
// of a random GETNEXT to the smallest table's, and of the other requests to a random GETNEXT. Exits with status 3 if a
// ratio of the largest table is above its goal.

#include <fmt/format.h>
#include <sched.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <memory>
#include <random>
#include <stdexcept>
#include <vector>

#include "Measure.h"
#include "ServedAgent.h"
#include "SnmpClient.h"

namespace {

using Bench::Oid;

const Oid column{1, 3, 6, 1, 2, 1, 4, 20, 1, 1};
constexpr int bulkRepetitions = 50;
constexpr int rounds = 20;
constexpr int requestsPerRound = 500;
constexpr double goal = 1.5;      // largest table against smallest
constexpr double searchGoal = 2;  // a request without a row to start at, against a random GETNEXT

struct Subject {
  explicit Subject(std::uint32_t rowCount)
      : rows(rowCount), agent(rowCount), client(agent.endpoint(), Bench::ServedAgent::community) {}
  std::uint32_t rows;
  Bench::ServedAgent agent;
  Bench::SnmpClient client;
  enum Kind { next, noRow, pastEnd, halfIndex, kinds };
  std::vector<double> latencies[kinds];  // microseconds
  double walkSeconds = 0;
};

Oid indexOid(std::uint32_t address) {
  Oid oid = column;
  for (int shift = 24; shift >= 0; shift -= 8) oid.push_back((address >> shift) & 0xFF);
  return oid;
}

Oid firstOfNextColumn() {
  Oid oid = indexOid(Bench::addressAt(0));
  ++oid[column.size() - 1];
  return oid;
}

// Sends a request and records its latency. Throws if the answer has another name, or is unexpectedly a value or none.
void ask(Subject& subject, Subject::Kind kind, const Oid& from, const Oid& expected) {
  const bool isGet = kind == Subject::noRow;
  const auto start = Bench::Clock::now();
  const auto& answer = isGet ? subject.client.get(from) : subject.client.getNext(from);
  subject.latencies[kind].push_back(Bench::secondsSince(start) * 1e6);
  if (answer.size() != 1 || !std::ranges::equal(answer[0].name, expected) || answer[0].isEndOfView != isGet) {
    throw std::runtime_error("the agent answered with another row than the right one");
  }
}

void askAtRandom(Subject& subject, std::mt19937& random) {
  std::uniform_int_distribution<std::uint32_t> anyRow(0, subject.rows - 2);
  for (int i = 0; i < requestsPerRound; ++i) {
    const std::uint32_t row = anyRow(random);
    const std::uint32_t address = Bench::addressAt(row) + (random() & 1U);  // of a row, or between two rows
    ask(subject, Subject::next, indexOid(address), indexOid(Bench::addressAt(row + 1)));
  }
  for (int i = 0; i < requestsPerRound; ++i) {
    const Oid absent = indexOid(Bench::addressAt(anyRow(random)) + 1);
    ask(subject, Subject::noRow, absent, absent);
    ask(subject, Subject::pastEnd, indexOid(Bench::addressAt(subject.rows) + (random() & 0xFFU)),
        firstOfNextColumn());
    // The first two of four bytes, and the first row with them; gaps are shorter than the missing bytes.
    const std::uint32_t start = Bench::addressAt(anyRow(random)) & 0xFFFF0000U;
    Oid half = indexOid(start);
    half.resize(half.size() - 2);
    std::uint32_t row = 0;
    if (start > Bench::addressAt(0))
      row = (start - Bench::addressAt(0) + Bench::addressStep - 1) / Bench::addressStep;
    ask(subject, Subject::halfIndex, half, indexOid(Bench::addressAt(row)));
  }
}

void walk(Subject& subject) {
  const auto start = Bench::Clock::now();
  Oid from = column;
  std::uint32_t seen = 0;
  for (bool inColumn = true; inColumn;) {
    for (const auto& binding : subject.client.getBulk({&from, 1}, bulkRepetitions)) {
      inColumn = !binding.isEndOfView && std::equal(column.begin(), column.end(), binding.name.begin());
      if (!inColumn) break;
      from.assign(binding.name.begin(), binding.name.end());
      ++seen;
    }
  }
  subject.walkSeconds = Bench::secondsSince(start);
  if (seen != subject.rows) throw std::runtime_error(fmt::format("the walk saw {} of {} rows", seen, subject.rows));
}

// Binds client and agents to one processor: to wake an idle one costs several times what a request does, and depends on
// the kernel's placement of the agents.
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

  fmt::print("{:>10} {:>14} {:>12} {:>10} {:>10} {:>16} {:>12} {:>10} {:>12}\n", "rows", "walk rows/s",
             "GETNEXT p50", "p99 (us)", "RSS (MiB)", "p50 to smallest", "GET no row", "past end", "half index");
  const auto median = [](const Subject& subject, Subject::Kind kind) {
    return Bench::quantile(subject.latencies[kind], 0.5);
  };
  const auto toNext = [&](const Subject& subject, Subject::Kind kind) {
    return median(subject, kind) / median(subject, Subject::next);
  };
  const double smallest = median(*subjects.front(), Subject::next);
  for (const auto& subject : subjects) {
    fmt::print("{:>10} {:>14.0f} {:>12.1f} {:>10.1f} {:>10} {:>15.2f}x {:>11.2f}x {:>9.2f}x {:>11.2f}x\n",
               subject->rows, subject->rows / subject->walkSeconds, median(*subject, Subject::next),
               Bench::quantile(subject->latencies[Subject::next], 0.99), subject->agent.residentBytes() >> 20,
               median(*subject, Subject::next) / smallest, toNext(*subject, Subject::noRow),
               toNext(*subject, Subject::pastEnd), toNext(*subject, Subject::halfIndex));
  }
  const auto& largest = *subjects.back();
  const double ratio = median(largest, Subject::next) / smallest;
  const double search = std::max(
      {toNext(largest, Subject::noRow), toNext(largest, Subject::pastEnd), toNext(largest, Subject::halfIndex)});
  fmt::print("{} rows cost {:.2f} times {} rows (goal: at most {}): {}\n", largest.rows, ratio,
             subjects.front()->rows, goal, ratio <= goal ? "reached" : "missed");
  fmt::print("a request without a row to start at costs {:.2f} times a GETNEXT (goal: at most {}): {}\n", search,
             searchGoal, search <= searchGoal ? "reached" : "missed");
  return ratio <= goal && search <= searchGoal ? 0 : 3;
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
