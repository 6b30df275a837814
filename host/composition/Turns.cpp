#include "host/composition/Turns.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>

namespace Host {

// Below `parts` each number has a bucket of its own. Above, the highest bit and the two after it choose the bucket.
unsigned Turns::bucketOf(std::uint64_t nanoseconds) {
  if (nanoseconds < parts) return static_cast<unsigned>(nanoseconds);
  const auto power = static_cast<unsigned>(std::bit_width(nanoseconds)) - 1;
  return (power - 1) * parts + static_cast<unsigned>(nanoseconds >> (power - 2)) % parts;
}

std::uint64_t Turns::mostOf(unsigned bucket) {
  if (bucket < parts) return bucket;
  const unsigned power = bucket / parts + 1;
  return ((std::uint64_t{parts} + bucket % parts + 1) << (power - 2)) - 1;
}

void Turns::add(Kind kind, Clock::duration took) {
  auto& histogram = histograms_[kind];
  const auto nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(took).count();
  ++histogram.counts[bucketOf(static_cast<std::uint64_t>(std::max<std::int64_t>(nanoseconds, 0)))];
  ++histogram.count;
  histogram.longest = std::max(histogram.longest, took);
}

Turns::Figures Turns::figures(Kind kind) const {
  const auto& histogram = histograms_[kind];
  Figures figures{histogram.count, {}, histogram.longest};
  std::uint64_t above = histogram.count / 100;  // how many may be longer
  for (unsigned bucket = bucketCount; bucket-- > 0;) {
    if (histogram.counts[bucket] > above) {
      figures.p99 = std::min<Clock::duration>(std::chrono::nanoseconds(mostOf(bucket)), histogram.longest);
      break;
    }
    above -= histogram.counts[bucket];
  }
  return figures;
}

std::string Turns::text(Kind kind) const {
  static constexpr std::array<const char*, kinds.size()> names{"requests", "tasks", "alarms"};
  const auto milliseconds = [](Clock::duration time) {
    return std::chrono::duration<double, std::milli>(time).count();
  };
  const auto found = figures(kind);
  return fmt::format("{}: {}, p99 {:.3f} ms, longest {:.3f} ms", names[kind], found.count, milliseconds(found.p99),
                     milliseconds(found.longest));
}

}  // namespace Host
