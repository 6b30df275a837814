#pragma once
// How long the agent's event loop is busy with one thing, while nothing else is served. Cheap: two readings of the clock
// and an addition each.
//
//   Turns turns;
//   turns.time(Turns::requests, [&] { snmp_read2(...); });
//   logInfo("{}", turns.text(Turns::requests));      // "requests: 4711, p99 0.2 ms, longest 3.1 ms"

#include <array>
#include <chrono>
#include <cstdint>
#include <string>

namespace Host {

class Turns {
 public:
  using Clock = std::chrono::steady_clock;
  enum Kind {
    requests,  // all messages that had arrived
    tasks,     // what other descriptors asked for: mostly a run of the scheduler, one quantum at most
    alarms     // of net-snmp
  };
  static constexpr std::array<Kind, 3> kinds{requests, tasks, alarms};

  struct Figures {
    std::uint64_t count = 0;
    Clock::duration p99{};  // 99 of 100 were not longer; up to a quarter above the actual value
    Clock::duration longest{};
  };

  template <class Work>
  void time(Kind kind, Work&& work) {
    const auto start = Clock::now();
    work();
    add(kind, Clock::now() - start);
  }
  void add(Kind kind, Clock::duration took);

  Figures figures(Kind kind) const;
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
