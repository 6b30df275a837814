#pragma once
// Measures how long the agent's event loop runs one kind of work without serving anything else: counts, quantiles and
// maxima since the start. A measurement costs two readings of the clock and an addition. Thread: the agent's.
//
//   Turns turns;
//   turns.time(Turns::requests, [&] { snmp_read2(...); });
//   logInfo("{}", turns.text(Turns::requests));      // "requests: 4711, p99 0.246 ms, longest 3.100 ms"

#include <array>
#include <chrono>
#include <cstdint>
#include <string>

namespace Host {

class Turns {
 public:
  using Clock = std::chrono::steady_clock;
  enum Kind {
    requests,  // serving all messages that had arrived
    tasks,     // the callbacks of ready descriptors: mostly a batch of the scheduler, about one quantum at most
    alarms     // net-snmp's timers
  };
  static constexpr std::array<Kind, 3> kinds{requests, tasks, alarms};

  struct Figures {
    std::uint64_t count = 0;
    Clock::duration p99{};  // the 99th percentile, at most 25 % too high
    Clock::duration longest{};
  };

  // Calls `work()` and adds the time that it took.
  template <class Work>
  void time(Kind kind, Work&& work) {
    const auto start = Clock::now();
    work();
    add(kind, Clock::now() - start);
  }
  void add(Kind kind, Clock::duration took);

  Figures figures(Kind kind) const;
  // One line of figures for the log.
  std::string text(Kind kind) const;

 private:
  // Buckets of nanoseconds: four for each power of two.
  static constexpr unsigned parts = 4;
  static constexpr unsigned bucketCount = 64 * parts;
  static unsigned bucketOf(std::uint64_t nanoseconds);
  static std::uint64_t mostOf(unsigned bucket);

  struct Histogram {
    std::array<std::uint64_t, bucketCount> counts{};
    std::uint64_t count = 0;
    Clock::duration longest{};
  };
  std::array<Histogram, kinds.size()> histograms_{};
};

}  // namespace Host
