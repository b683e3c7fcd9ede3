#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace Corvane {
namespace Bench {

/// Counts durations in buckets that are at most 1/64 of their value wide, so that a percentile is right to 1.6 %
/// while recording costs no memory and next to no time.
class Histogram {
 public:
    void record(std::uint64_t nanoseconds) {
        ++counts[bucketOf(nanoseconds)];
        ++total;
    }

    void add(const Histogram& other) {
        for (std::size_t bucket = 0; bucket < counts.size(); ++bucket) {
            counts[bucket] += other.counts[bucket];
        }
        total += other.total;
    }

    std::uint64_t count() const { return total; }

    /// The duration that `share` of all (0 to 1) do not exceed, in nanoseconds; 0 when nothing was recorded.
    std::uint64_t percentile(double share) const {
        const auto wanted =
            std::max<std::uint64_t>(1, static_cast<std::uint64_t>(share * static_cast<double>(total) + 0.5));
        std::uint64_t seen = 0;
        for (std::size_t bucket = 0; bucket < counts.size(); ++bucket) {
            seen += counts[bucket];
            if (seen >= wanted) {
                return middleOf(bucket);
            }
        }
        return 0;
    }

 private:
    static constexpr unsigned BITS = 6;
    static constexpr std::size_t PER_POWER = std::size_t{1} << BITS;

    /// Up to 128 ns one bucket for each; above that 64 for each power of two.
    static std::size_t bucketOf(std::uint64_t value) {
        unsigned shift = 0;
        while ((value >> shift) >= 2 * PER_POWER) {
            ++shift;
        }
        return shift * PER_POWER + static_cast<std::size_t>(value >> shift);
    }

    static std::uint64_t middleOf(std::size_t bucket) {
        if (bucket < 2 * PER_POWER) {
            return bucket;
        }
        const std::size_t shift = bucket / PER_POWER - 1;
        const std::uint64_t low = static_cast<std::uint64_t>(bucket - shift * PER_POWER) << shift;
        return low + (std::uint64_t{1} << shift) / 2;
    }

    std::array<std::uint64_t, (64 - BITS + 1) * PER_POWER> counts{};
    std::uint64_t total = 0;
};

}  // namespace Bench
}  // namespace Corvane
