// DurationHistogram: call durations summarised in constant memory, so the figures of a trace of
// any length cost the same. Durations fall into logarithmic buckets 2 % wide; a percentile is the
// mean of the durations in its bucket, so it is within 2 % of the exact figure (exact when the
// bucket's durations are alike, as repeated time-outs are). The count and the largest are exact;
// durations beyond a day count as a day.
#pragma once

#include <cstddef>
#include <vector>

namespace kelvanectl {

class DurationHistogram {
public:
    void add(double milliseconds);

    std::size_t count() const { return count_; }
    double largest() const { return largest_; }
    // The nearest-rank percentile (`fraction` from 0 to 1); 0 without durations.
    double percentile(double fraction) const;

private:
    struct Bucket {
        std::size_t count = 0;
        double sum = 0;
    };
    std::vector<Bucket> buckets_;  // as far as the largest duration's bucket
    std::size_t count_ = 0;
    double largest_ = 0;
};

}  // namespace kelvanectl
