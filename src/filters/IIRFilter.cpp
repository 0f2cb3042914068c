#include "filters/IIRFilter.h"

#include "filters/BiquadFile.h"

#include <algorithm>
#include <cstring>

namespace
{
constexpr double Pi = 3.141592653589793;

enum RowIndex
{
    A0,
    A1,
    A2,
    B0,
    B1,
    B2
};

// Coefficients of s in the normalised Butterworth sections 1 + b1 s + s^2,
// highest-Q section first. They are 2 sin((2k - 1) pi / 2n) to ten places and
// stay with exactly these digits: computing them exactly would move every
// response in the last places.
constexpr double ButterworthB1[4][4] = {
    {1.4142135624},
    {0.7653668647, 1.847759065},
    {0.5176380902, 1.4142135624, 1.9318516526},
    {0.390180644, 1.111140466, 1.6629392246, 1.9615705608},
};

// The fixed four-section filter, in rows of a0, a1, a2, b0, b1, b2.
constexpr double FixedTable[4][6] = {
    {1.0, -0.855219, 0, 0.6714714826143421, 0, 0},
    {1.0, -1.737374, 0.758104, 1.0, -1.818851873988273, 0.828002905238657},
    {1.0, -1.804714, 0.8264, 1.0, -1.8703147300286238, 0.8823272144197961},
    {1.0, -1.912458, 0.935593, 1.0, -1.9638172195444934, 0.984217182726433},
};

bool InRange(double value, double low, double high)
{
    return value >= low && value <= high;
}

void SetRow(double* row, double a0, double a1, double a2, double b0, double b1, double b2)
{
    row[A0] = a0;
    row[A1] = a1;
    row[A2] = a2;
    row[B0] = b0;
    row[B1] = b1;
    row[B2] = b2;
}

void FirstOrderRow(double* row, int kind, double w0)
{
    const double k = std::tan(w0 / 2.0);
    const double a1 = -(1.0 - k) / (1.0 + k);
    if (kind == IIR_LOWPASS_6)
        SetRow(row, 1.0, a1, 0.0, k / (1.0 + k), k / (1.0 + k), 0.0);
    else
        SetRow(row, 1.0, a1, 0.0, 1.0 / (1.0 + k), -1.0 / (1.0 + k), 0.0);
}

void PeakingRow(double* row, double w0, double gain, double q)
{
    const double a = std::pow(10.0, gain / 40.0);
    const double alpha = std::sin(w0) / (2.0 * q);
    const double a1 = -2.0 * std::cos(w0);
    SetRow(row, 1.0 + alpha / a, a1, 1.0 - alpha / a, 1.0 + alpha * a, a1, 1.0 - alpha * a);
}

void BandPassRow(double* row, double w0, double q)
{
    const double alpha = std::sin(w0) / (2.0 * q);
    SetRow(row, 1.0 + alpha, -2.0 * std::cos(w0), 1.0 - alpha, alpha, 0.0, -alpha);
}

void AllPassRow(double* row, double w0, double q)
{
    const double alpha = std::sin(w0) / (2.0 * q);
    const double a1 = -2.0 * std::cos(w0);
    SetRow(row, 1.0 + alpha, a1, 1.0 - alpha, 1.0 - alpha, a1, 1.0 + alpha);
}

// Shelves do not follow a Q above 5: a steeper shelf overshoots by several dB
// on both sides of the corner, which is not what a shelf is asked for.
void ShelfRow(double* row, int kind, double w0, double gain, double q)
{
    const double shelfQ = std::min(q, 5.0);
    const double a = std::pow(10.0, gain / 40.0);
    const double alpha = std::sin(w0) / (2.0 * shelfQ);
    const double beta = 2.0 * std::sqrt(a) * alpha;
    const double c = std::cos(w0);
    if (kind == IIR_LOWSHELF)
        SetRow(row, (a + 1) + (a - 1) * c + beta, -2.0 * ((a - 1) + (a + 1) * c),
               (a + 1) + (a - 1) * c - beta, a * ((a + 1) - (a - 1) * c + beta),
               2.0 * a * ((a - 1) - (a + 1) * c), a * ((a + 1) - (a - 1) * c - beta));
    else
        SetRow(row, (a + 1) - (a - 1) * c + beta, 2.0 * ((a - 1) - (a + 1) * c),
               (a + 1) - (a - 1) * c - beta, a * ((a + 1) + (a - 1) * c + beta),
               -2.0 * a * ((a - 1) + (a + 1) * c), a * ((a + 1) + (a - 1) * c - beta));
}

// The two stages of the loudness K-weighting for any rate: a high shelf of
// about +4 dB above 1.5 kHz and a second-order high-pass near 38 Hz, both
// recomputed from their analogue corner (the numerators 5284.07... and
// 119.80... are pi times the corner frequencies) so that every rate gets the
// same curve, not only 48 kHz.
void KWeightingRows(double* shelf, double* highPass, double sampleRate)
{
    {
        const double k = std::tan(5284.078578647628 / sampleRate);
        const double vh = std::pow(10.0, 0.19999219269866736);
        const double vb = std::pow(vh, 0.4996667741545416);
        const double q = 0.7071752369554196;
        const double d = 1.0 + k / q + k * k;
        SetRow(shelf, 1.0, 2.0 * (k * k - 1.0) / d, (1.0 - k / q + k * k) / d,
               (vh + vb * k / q + k * k) / d, 2.0 * (k * k - vh) / d,
               (vh - vb * k / q + k * k) / d);
    }
    {
        const double k = std::tan(119.8061151453059 / sampleRate);
        const double q = 0.5003270373238773;
        const double d = 1.0 + k / q + k * k;
        SetRow(highPass, 1.0, 2.0 * (k * k - 1.0) / d, (1.0 - k / q + k * k) / d, 1.0, -2.0, 1.0);
    }
}
}  // namespace

bool CIIRFilter::InDesignRange(double frequency, double gain, double q)
{
    // Written as ranges that hold, so that NaN falls outside them all.
    return InRange(frequency, 0.0, 10000000.0) && InRange(gain, -1000.0, 1000.0) &&
           InRange(q, 0.01, 10000.0);
}

bool CIIRFilter::SameParameters(int newKind, double newSampleRate, double newFrequency,
                                double newGain, double newQ, const QVString& newCustomFile) const
{
    return kind == newKind && sampleRate == newSampleRate && frequency == newFrequency &&
           gain == newGain && q == newQ && customFile.CompareNoCase(newCustomFile) == 0;
}

bool CIIRFilter::Design(int newKind, double newSampleRate, double newFrequency, double newGain,
                        double newQ, bool /*flag*/, const QVString& newCustomFile)
{
    // Owners call this every block: unchanged parameters must keep the state,
    // or every block boundary would click.
    if (designed &&
        SameParameters(newKind, newSampleRate, newFrequency, newGain, newQ, newCustomFile))
        return true;
    designed = false;
    if (!InRange(newSampleRate, 1000.0, 10000000.0) || !InDesignRange(newFrequency, newGain, newQ))
        return false;

    kind = newKind;
    sampleRate = newSampleRate;
    frequency = newFrequency;
    gain = newGain;
    q = newQ;
    customFile = newCustomFile;
    analogPrototype = true;
    sectionCount = 0;
    double runningGain = 1.0;
    WorkingRow rows[MaxSections] = {};

    // Above 99% of Nyquist there is nothing left to filter; the fixed table
    // alone does not depend on the frequency.
    const bool transparent = kind != IIR_FIXED_TABLE && frequency > sampleRate * 0.5 * 0.99;
    if (!transparent && !FillRows(rows))
        return false;

    std::memset(coefficients, 0, sizeof coefficients);
    std::memset(state, 0, sizeof state);
    if (sectionCount == 0)
    {
        inputGain = 1.0;
        designed = true;
        return true;
    }
    for (uint32_t k = 0; k < sectionCount; ++k)
    {
        if (analogPrototype)
            PackAnalogSection(rows[k], coefficients + k * AnalogCoefficientsPerSection,
                              runningGain);
        else
            PackDirectSection(rows[k], coefficients + k * DirectCoefficientsPerSection);
    }
    inputGain = runningGain;
    designed = true;
    return true;
}

// Fills the working rows and sets sectionCount and analogPrototype for the
// stored parameters. False for a kind that does not exist.
bool CIIRFilter::FillRows(WorkingRow* rows)
{
    const double w0 = 2.0 * Pi * frequency / sampleRate;
    switch (kind)
    {
    case IIR_LOWPASS_12:
    case IIR_LOWPASS_24:
    case IIR_LOWPASS_36:
    case IIR_LOWPASS_48:
    case IIR_HIGHPASS_12:
    case IIR_HIGHPASS_24:
    case IIR_HIGHPASS_36:
    case IIR_HIGHPASS_48:
    {
        const bool highPass = kind >= IIR_HIGHPASS_12;
        const int order = highPass ? kind - IIR_HIGHPASS_12 : kind - IIR_LOWPASS_12;
        sectionCount = static_cast<uint32_t>(order + 1);
        for (uint32_t k = 0; k < sectionCount; ++k)
        {
            SetRow(rows[k], 1.0, 0.0, 0.0, 1.0, ButterworthB1[order][k], 1.0);
            // s -> 1/s: the low-pass prototype becomes the high-pass one.
            if (highPass)
            {
                std::swap(rows[k][A0], rows[k][A2]);
                std::swap(rows[k][B0], rows[k][B2]);
            }
        }
        return true;
    }
    case IIR_LOWPASS_6:
    case IIR_HIGHPASS_6:
        FirstOrderRow(rows[0], kind, w0);
        sectionCount = 1;
        break;
    case IIR_PEAKING:
        PeakingRow(rows[0], w0, gain, q);
        sectionCount = 1;
        break;
    case IIR_BANDPASS:
        BandPassRow(rows[0], w0, q);
        sectionCount = 1;
        break;
    case IIR_LOWSHELF:
    case IIR_HIGHSHELF:
        ShelfRow(rows[0], kind, w0, gain, q);
        sectionCount = 1;
        break;
    case IIR_FIXED_TABLE:
        std::memcpy(rows, FixedTable, sizeof FixedTable);
        sectionCount = 4;
        break;
    case IIR_KWEIGHTING:
        KWeightingRows(rows[0], rows[1], sampleRate);
        sectionCount = 2;
        break;
    case IIR_ALLPASS:
        AllPassRow(rows[0], w0, q);
        sectionCount = 1;
        break;
    case IIR_CUSTOM_FILE:
        sectionCount = static_cast<uint32_t>(BiquadFile::ReadFile(customFile, rows));
        break;
    default: return false;
    }
    analogPrototype = false;
    return true;
}

// The bilinear transform of an analogue section with its corner pre-warped to
// land exactly on `frequency`. The row holds H(s) = (a0 + a1 s + a2 s^2) /
// (b0 + b1 s + b2 s^2) for a corner of 1 rad/s. Each section's numerator and
// denominator are normalised to a leading 1 and the scale collects in the
// filter's input gain, so the sample loop needs four multiplies per section.
void CIIRFilter::PackAnalogSection(const WorkingRow& row, double* packed, double& runningGain) const
{
    const double fs = sampleRate;
    // Q' scales every section alike: 0.7071 leaves the Butterworth shape
    // all but unchanged, and a higher Q peaks the whole cascade.
    const double scaledQ = q * std::sqrt(2.0);
    const double w = 2.0 * fs * std::tan(4.0 * std::atan(1.0) * frequency / fs);
    const double w2 = w * w;
    const double fs2 = fs * fs;
    const double numerator2 = row[A2] / w2;
    const double numerator1 = row[A1] / w;
    const double denominator2 = row[B2] / w2;
    const double denominator1 = row[B1] / scaledQ / w;
    const double n0 = 4.0 * numerator2 * fs2 + 2.0 * numerator1 * fs + row[A0];
    const double d0 = 4.0 * denominator2 * fs2 + 2.0 * denominator1 * fs + row[B0];
    runningGain = runningGain * n0 / d0;
    packed[0] = (2.0 * row[B0] - 8.0 * denominator2 * fs2) / d0;
    packed[1] = (4.0 * denominator2 * fs2 - 2.0 * denominator1 * fs + row[B0]) / d0;
    packed[2] = (2.0 * row[A0] - 8.0 * numerator2 * fs2) / n0;
    packed[3] = (4.0 * numerator2 * fs2 - 2.0 * numerator1 * fs + row[A0]) / n0;
}

void CIIRFilter::PackDirectSection(const WorkingRow& row, double* packed) noexcept
{
    const double a0 = row[A0];
    packed[0] = row[B0] / a0;
    packed[1] = row[B1] / a0;
    packed[2] = row[B2] / a0;
    packed[3] = row[A1] / a0;
    packed[4] = row[A2] / a0;
}
