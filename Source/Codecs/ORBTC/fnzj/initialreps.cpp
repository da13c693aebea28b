#include "Codecs/ORBTC/fnzj/initialreps.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <vector>

namespace orbtexture
{

namespace
{

// n-bit channel values widened to 8 bits by replication (4 and 3 bits via 5).
int Expand5(int x)
{
    return x * 8 | x >> 2;
}
int ExpandBits(int x, int bits)
{
    switch (bits)
    {
    case 5: return Expand5(x);
    case 4: return Expand5(x * 2 | x >> 3);
    default: return Expand5(x * 4 | x >> 1); // 3 bits
    }
}

float Dot(const float* a, const float* b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2] + a[3] * b[3];
}

// Alpha on the word's levels: 0, 34, ... 238 and 255; generation 2's B on 17,
// 51, ... 255. A value at or beyond 255 gives 238 except for that B.
int QuantiseAlpha(float a, bool generation2B)
{
    if (a <= 0.0f)
        return generation2B ? 17 : 0;
    if (a >= 255.0f)
        return generation2B ? 255 : 238;
    int q = int(std::floor(a / 255.0f * 15.0f));
    q = generation2B ? (q | 1) : (q & ~1);
    const int lo = q * 17, hi = lo + 34;
    int pick = std::fabs(a - float(lo)) < std::fabs(float(hi) - a) ? lo : hi;
    if (std::fabs(255.0f - a) <= std::fabs(float(pick) - a))
        pick = 255;
    return pick;
}

// One channel of A and of B on grids of 'bitsA' and 'bitsB' bits. On a tie
// between two levels the colours move apart: A up and B down when B's value
// lies below A's, else A down and B up.
void QuantisePair(float a, float b, int bitsA, int bitsB, unsigned char& outA, unsigned char& outB)
{
    const bool bBelow = b < a;
    auto quantise = [](float v, int bits, bool upOnTie) {
        if (v <= 0.0f)
            return 0;
        if (v >= 255.0f)
            return 255;
        const int m = (1 << bits) - 1;
        int lo = int(std::floor(float(m) * v / 255.0f)), hi = lo + 1;
        if (lo == m)
            hi = m, lo = m - 1;
        const int low = ExpandBits(lo, bits), high = ExpandBits(hi, bits);
        const float toLow = std::fabs(v - float(low)), toHigh = std::fabs(float(high) - v);
        if (toLow != toHigh)
            return toLow < toHigh ? low : high;
        return upOnTie ? high : low;
    };
    outA = static_cast<unsigned char>(quantise(a, bitsA, bBelow));
    outB = static_cast<unsigned char>(quantise(b, bitsB, !bBelow));
}

// ---- Generated best-match tables ----

constexpr int kWeights[8] = {0, 3, 4, 5, 8, 3, 4, 5};

enum class Limit
{
    OrderedWithin, // a <= b, b - a at most the reach
    Within,        // |a - b| at most the reach
    OrderedOrOpaque // a <= b, and b - a at most the reach or b = 255
};

struct TableRule
{
    std::vector<int> valuesA, valuesB;
    Limit nearLimit, wideLimit;
    int nearReach, wideReach;
};

std::vector<int> ChannelValues(int bits)
{
    std::vector<int> values;
    for (int x = 0; x < (1 << bits); ++x)
        values.push_back(ExpandBits(x, bits));
    return values;
}

bool Allowed(Limit limit, int reach, int a, int b)
{
    switch (limit)
    {
    case Limit::OrderedWithin: return a <= b && b - a <= reach;
    case Limit::Within: return std::abs(a - b) <= reach;
    default: return a <= b && (b - a <= reach || b == 255);
    }
}

// For every sub-entry, each reachable blend keeps its closest pair (the first
// in order on a tie); every target then takes the nearest blend (the lower on
// a tie). Any pair of least error would serve.
void BuildTable(const TableRule& rule, BestMatchTable& table)
{
    for (int s = 0; s < 8; ++s)
    {
        const int w = kWeights[s];
        int pairA[256], pairB[256], gap[256];
        std::fill_n(gap, 256, 1 << 30);
        for (int a : rule.valuesA)
            for (int b : rule.valuesB)
            {
                if (s != 0 && s != 4 &&
                    !Allowed(s < 4 ? rule.nearLimit : rule.wideLimit, s < 4 ? rule.nearReach : rule.wideReach, a, b))
                    continue;
                const int mix = ((8 - w) * a + w * b) >> 3;
                if (std::abs(a - b) < gap[mix])
                    gap[mix] = std::abs(a - b), pairA[mix] = a, pairB[mix] = b;
            }
        for (int v = 0; v < 256; ++v)
        {
            int nearest = -1;
            for (int d = 0; d < 256 && nearest < 0; ++d)
                if (v - d >= 0 && gap[v - d] != 1 << 30)
                    nearest = v - d;
                else if (v + d < 256 && gap[v + d] != 1 << 30)
                    nearest = v + d;
            const int difference = v - nearest;
            table[v][s] = {static_cast<uint8_t>(std::min(difference * difference, 255)),
                           static_cast<uint8_t>(pairA[nearest]), static_cast<uint8_t>(pairB[nearest])};
        }
    }
}

const BestMatchTable& Generated(const TableRule& rule, BestMatchTable& table)
{
    BuildTable(rule, table);
    return table;
}

TableRule RGBRule(int bitsA, int bitsB, bool ordered)
{
    const Limit limit = ordered ? Limit::OrderedWithin : Limit::Within;
    return {ChannelValues(bitsA), ChannelValues(bitsB), limit, limit, 9, 25};
}

std::vector<int> AlphaSteps(int first, bool with255)
{
    std::vector<int> values;
    for (int k = 0; k < 8; ++k)
        values.push_back(first + 34 * k);
    if (with255)
        values.push_back(255);
    return values;
}

// Sum of the error bytes of sub-entry s for the colour in the four tables.
int Score(const BestMatchTable* const (&tables)[4], const BestMatch* alpha, const unsigned char* colour, int s)
{
    int score = alpha ? alpha[s].error : (*tables[3])[colour[3]][s].error;
    for (int c = 0; c < 3; ++c)
        score += (*tables[c])[colour[c]][s].error;
    return score;
}

BestMatch Entry(const BestMatchTable* const (&tables)[4], const BestMatch* alpha, const unsigned char* colour, int c,
                int s)
{
    return c == 3 && alpha ? alpha[s] : (*tables[c])[colour[c]][s];
}

// Steps 2 to 6 of the choice: scores, the preferred sub-entry, the pair.
void ChooseAndRead(const BestMatchTable* const (&tables)[4], const BestMatch* alpha, const unsigned char* colour,
                   bool isPunchThroughMode, bool preferSwap, unsigned char* outA, unsigned char* outB)
{
    int score[8];
    for (int s = 0; s < 8; ++s)
        score[s] = Score(tables, alpha, colour, s);
    int best = score[0] < score[4] ? 0 : 4;
    if (isPunchThroughMode)
    {
        if (score[2] < score[best])
            best = 2;
    }
    else if (score[1] < score[best] || score[3] < score[best])
    {
        if (score[1] != score[3])
            best = score[1] < score[3] ? 1 : 3;
        else
        {
            // The pairs lying closer together win the tie.
            auto spread = [&](int s) {
                int sum = 0;
                for (int c = 0; c < 4; ++c)
                {
                    const BestMatch entry = Entry(tables, alpha, colour, c, s);
                    sum += (entry.a - entry.b) * (entry.a - entry.b);
                }
                return sum;
            };
            best = spread(1) < spread(3) ? 1 : 3;
        }
    }
    if (!preferSwap && best >= 1 && best <= 3)
        best += 4; // the wider pairs for the same weight
    for (int c = 0; c < 4; ++c)
    {
        const BestMatch entry = Entry(tables, alpha, colour, c, best);
        outA[c] = entry.a;
        outB[c] = entry.b;
    }
}

} // namespace

// ---- Oriented bounding boxes ----

void InitOrientedBBox(OrientedBBox& box, const float (*axes)[4])
{
    for (int i = 0; i < 4; ++i)
    {
        for (int j = 0; j < 4; ++j)
            box.axes[i][j] = axes[i][j];
        box.minimum[i] = FLT_MAX;
        box.maximum[i] = -FLT_MAX;
    }
}

void InitOrientedBBoxToSingleColour(OrientedBBox& box, const unsigned char* colour)
{
    for (int i = 0; i < 4; ++i)
    {
        for (int j = 0; j < 4; ++j)
            box.axes[i][j] = i == j ? 1.0f : 0.0f;
        box.minimum[i] = box.maximum[i] = float(colour[i]);
    }
}

bool OrientedBBoxIsEmpty(const OrientedBBox& box)
{
    return box.minimum[0] > box.maximum[0];
}

void AddFColourToOrientedBBox(OrientedBBox& box, const float* colour)
{
    for (int i = 0; i < 4; ++i)
    {
        const float projection = Dot(box.axes[i], colour);
        box.minimum[i] = std::min(box.minimum[i], projection);
        box.maximum[i] = std::max(box.maximum[i], projection);
    }
}

void AddIColourToOrientedBBox(OrientedBBox& box, const unsigned char* colour)
{
    float value[4];
    ConvertIntPixelToFloat(colour, value);
    AddFColourToOrientedBBox(box, value);
}

void OffsetOrientedBBox(OrientedBBox& box, const unsigned char* colour)
{
    float value[4];
    ConvertIntPixelToFloat(colour, value);
    for (int i = 0; i < 4; ++i)
    {
        const float projection = Dot(box.axes[i], value);
        box.minimum[i] += projection;
        box.maximum[i] += projection;
    }
}

float SizeOfOrientedBBox(const OrientedBBox& box)
{
    float size = 0.0f;
    for (int i = 0; i < 4; ++i)
        size += box.maximum[i] - box.minimum[i];
    return size;
}

void ClampToOrientedBBox(const OrientedBBox& box, float* colour)
{
    float projections[4];
    bool changed = false;
    for (int i = 0; i < 4; ++i)
    {
        const float projection = Dot(box.axes[i], colour);
        projections[i] = std::min(std::max(projection, box.minimum[i]), box.maximum[i]);
        changed |= projections[i] != projection;
    }
    if (!changed)
        return;
    for (int j = 0; j < 4; ++j)
        colour[j] = projections[0] * box.axes[0][j] + projections[1] * box.axes[1][j] +
                    projections[2] * box.axes[2][j] + projections[3] * box.axes[3][j];
}

void ConvertIntPixelToFloat(const unsigned char* colour, float* out)
{
    for (int i = 0; i < 4; ++i)
        out[i] = float(colour[i]);
}

// ---- The word's colour grid ----

void MapToRepresentableColours(bool isGeneration2, const float* a, const float* b, unsigned char* outA,
                               unsigned char* outB)
{
    int alphaA = 255, alphaB = 255;
    bool translucentA = false, translucentB = false;
    if (!isGeneration2)
    {
        if (!(a[3] >= 246.0f && b[3] >= 246.0f))
        {
            alphaA = QuantiseAlpha(a[3], false);
            alphaB = QuantiseAlpha(b[3], false);
            translucentA = alphaA != 255;
            translucentB = alphaB != 255;
        }
    }
    else if (!(a[3] >= 246.0f && b[3] >= 238.0f))
    {
        alphaA = QuantiseAlpha(a[3], false);
        alphaB = QuantiseAlpha(b[3], true);
        if (alphaA != 255 || alphaB != 255)
        {
            translucentA = translucentB = true;
            alphaA &= 238; // A's 255 becomes 238
        }
    }
    const int bitsA[3] = {translucentA ? 4 : 5, translucentA ? 4 : 5, translucentA ? 3 : 4};
    const int bitsB = translucentB ? 4 : 5;
    for (int c = 0; c < 3; ++c)
        QuantisePair(a[c], b[c], bitsA[c], bitsB, outA[c], outB[c]);
    outA[3] = static_cast<unsigned char>(alphaA);
    outB[3] = static_cast<unsigned char>(alphaB);
}

void MapToRepresentableColoursInt(bool isGeneration2, const unsigned char* a, const unsigned char* b,
                                  unsigned char* outA, unsigned char* outB)
{
    float fa[4], fb[4];
    ConvertIntPixelToFloat(a, fa);
    ConvertIntPixelToFloat(b, fb);
    MapToRepresentableColours(isGeneration2, fa, fb, outA, outB);
}

// ---- Best matches ----

const BestMatch FullAlphaBlends[8] = {{0, 255, 255}, {0, 255, 255}, {0, 255, 255}, {0, 255, 255},
                                      {0, 255, 255}, {0, 255, 255}, {0, 255, 255}, {0, 255, 255}};

const BestMatchTable& BestMatches_RGB_5_5()
{
    static BestMatchTable table;
    static const BestMatchTable& built = Generated(RGBRule(5, 5, true), table);
    return built;
}
const BestMatchTable& BestMatches_RGB_4_5()
{
    static BestMatchTable table;
    static const BestMatchTable& built = Generated(RGBRule(4, 5, false), table);
    return built;
}
const BestMatchTable& BestMatches_RGB_4_4()
{
    static BestMatchTable table;
    static const BestMatchTable& built = Generated(RGBRule(4, 4, true), table);
    return built;
}
const BestMatchTable& BestMatches_RGB_3_5()
{
    static BestMatchTable table;
    static const BestMatchTable& built = Generated(RGBRule(3, 5, false), table);
    return built;
}
const BestMatchTable& BestMatches_RGB_3_4()
{
    static BestMatchTable table;
    static const BestMatchTable& built = Generated(RGBRule(3, 4, false), table);
    return built;
}
const BestMatchTable& BestMatches_Alpha_TC1_3_3()
{
    static BestMatchTable table;
    static const BestMatchTable& built = Generated(
        {AlphaSteps(0, false), AlphaSteps(0, true), Limit::Within, Limit::OrderedOrOpaque, 17, 34}, table);
    return built;
}
const BestMatchTable& BestMatches_Alpha_TC2_3_3()
{
    static BestMatchTable table;
    static const BestMatchTable& built =
        Generated({AlphaSteps(0, false), AlphaSteps(17, false), Limit::Within, Limit::Within, 34, 51}, table);
    return built;
}

void GetSingleColourBestMatchReps(const unsigned char* colour, bool isPunchThroughMode, bool isGeneration2,
                                  bool preferSwap, unsigned char* outA, unsigned char* outB, void* /*scratch*/)
{
    if (colour[3] >= 248)
    {
        const BestMatchTable* const tables[4] = {&BestMatches_RGB_5_5(), &BestMatches_RGB_5_5(), &BestMatches_RGB_4_5(),
                                                 nullptr};
        ChooseAndRead(tables, FullAlphaBlends, colour, isPunchThroughMode, preferSwap, outA, outB);
        return;
    }
    const BestMatchTable* const tables[4] = {&BestMatches_RGB_4_4(), &BestMatches_RGB_4_4(), &BestMatches_RGB_3_4(),
                                             isGeneration2 ? &BestMatches_Alpha_TC2_3_3()
                                                           : &BestMatches_Alpha_TC1_3_3()};
    ChooseAndRead(tables, nullptr, colour, isPunchThroughMode, preferSwap, outA, outB);
    if (!isGeneration2 && outB[3] == 255)
    {
        // An opaque B keeps 5 bits a channel: choose again in those forms.
        const BestMatchTable* const opaqueB[4] = {&BestMatches_RGB_4_5(), &BestMatches_RGB_4_5(),
                                                  &BestMatches_RGB_3_5(), &BestMatches_Alpha_TC1_3_3()};
        ChooseAndRead(opaqueB, nullptr, colour, isPunchThroughMode, preferSwap, outA, outB);
        outB[3] = 255;
    }
}

} // namespace orbtexture
