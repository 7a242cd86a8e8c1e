#include "duration_histogram.hpp"

#include <algorithm>
#include <cmath>

namespace kelvanectl {
namespace {

constexpr double bucketRatio = 1.02;
// Shorter durations share the first bucket; they show as 0.0 ms anyway.
constexpr double shortestMs = 0.01;
// A day: longer recorded durations (or nonsense ones) count as a day, which keeps the buckets of
// one method below 1200.
constexpr double longestMs = 86'400'000;

std::size_t bucketOf(double milliseconds) {
    if (milliseconds <= shortestMs) return 0;
    return 1 + static_cast<std::size_t>(std::log(milliseconds / shortestMs) / std::log(bucketRatio));
}

}  // namespace

void DurationHistogram::add(double milliseconds) {
    milliseconds = std::isnan(milliseconds) ? 0 : std::clamp(milliseconds, 0.0, longestMs);
    std::size_t index = bucketOf(milliseconds);
    if (index >= buckets_.size()) buckets_.resize(index + 1);
    ++buckets_[index].count;
    buckets_[index].sum += milliseconds;
    largest_ = count_++ == 0 ? milliseconds : std::max(largest_, milliseconds);
}

double DurationHistogram::percentile(double fraction) const {
    if (count_ == 0) return 0;
    auto rank = static_cast<std::size_t>(std::ceil(fraction * static_cast<double>(count_)));
    rank = std::clamp<std::size_t>(rank, 1, count_);
    std::size_t seen = 0;
    for (const auto& bucket : buckets_) {
        seen += bucket.count;
        if (seen >= rank) return bucket.sum / static_cast<double>(bucket.count);
    }
    return largest_;
}

}  // namespace kelvanectl
