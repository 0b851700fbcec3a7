#include "CVolumeConvertion.h"

namespace {
// Below 10 % the curve follows a table; above it, four straight segments (slope, offset in mB).
constexpr int kLowTable[CVolumeConvertion::kLowTableSize] = {-12000, -10850, -9800, -8850, -8100,
                                                              -7600,  -7150,  -6750, -6400, -6100};
constexpr int kMaxPercent = 100;

struct Segment {
    int first_percent;
    int slope;
    int offset;
    int first_mB;  // where the inverse direction switches to this segment
};
// Highest segment first; the inverse breakpoints differ from the forward ones on purpose.
constexpr Segment kSegments[] = {
    {50, 36, -3550, -1800},
    {25, 74, -5450, -3600},
    {16, 122, -6656, -4800},
    {10, 200, -7900, -5900},
};
}  // namespace

CVolumeConvertion::CVolumeConvertion() {
    for (int i = 0; i < kLowTableSize; ++i) m_low_table[i] = kLowTable[i];
}

int CVolumeConvertion::ToMillibel(int percent) const {
    if (percent < 0) return m_low_table[0];
    if (percent > kMaxPercent) return kMaxMillibel;
    if (percent < kLowTableSize) return m_low_table[percent];
    for (const Segment& segment : kSegments)
        if (percent >= segment.first_percent) return segment.slope * percent + segment.offset;
    return m_low_table[0];
}

int CVolumeConvertion::FromMillibel(int mB) const {
    if (mB > kMaxMillibel) return kMaxPercent;
    for (const Segment& segment : kSegments)
        if (mB >= segment.first_mB) return (mB - segment.offset) / segment.slope;
    for (int i = kLowTableSize - 1; i >= 0; --i)
        if (mB >= m_low_table[i]) return i;
    return 0;
}
