#ifndef KORVEL_CVOLUMECONVERTION_H
#define KORVEL_CVOLUMECONVERTION_H

// Converts between volume in percent and hundredths of a dB (mB) along the player's fixed,
// piecewise-linear loudness curve. The two directions are not exact inverses. Stateless apart from
// a constant table; safe from any thread.
class CVolumeConvertion {
public:
    static constexpr int kLowTableSize = 10;
    static constexpr int kMinMillibel = -12000;
    static constexpr int kMaxMillibel = 50;

    CVolumeConvertion();
    virtual ~CVolumeConvertion() = default;

    int ToMillibel(int percent) const;
    int FromMillibel(int mB) const;

protected:
    int m_low_table[kLowTableSize];
};

#endif
