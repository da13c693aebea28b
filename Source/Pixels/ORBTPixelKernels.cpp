#include "Pixels/ORBTPixelKernels.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <mutex>
#include <vector>

namespace orbtexture
{

namespace
{

constexpr unsigned kMaxTargetBytes = 16;

// One pixel through the encoders, as the pixel loop converts it.
class CEncoderPair
{
public:
    CEncoderPair(PixelType sourceType, EORBTVariableType sourceChannelType, EORBTColourSpace sourceColourSpace,
                 PixelType targetType, EORBTVariableType targetChannelType, EORBTColourSpace targetColourSpace)
        : m_source(sourceType, sourceChannelType), m_target(targetType, targetChannelType),
          m_sourceSpace(sourceColourSpace), m_targetSpace(targetColourSpace)
    {
    }
    bool Valid() const { return m_source.GetError() == 0 && m_target.GetError() == 0; }
    unsigned SourceBytes() const { return m_source.GetColourDataSize(); }
    unsigned TargetBytes() const { return m_target.GetColourDataSize(); }

    // The target pixel of 'in', zero-extended to 16 bytes.
    void Encode(const uint8_t* in, uint8_t out[kMaxTargetBytes])
    {
        m_source.OverwriteColourData(in);
        m_target.EncodeFrom(m_source);
        m_target.ConvertToColourSpace(m_targetSpace, m_sourceSpace);
        std::memset(out, 0, kMaxTargetBytes);
        std::memcpy(out, m_target.GetColourData(), TargetBytes());
    }

    // The target's colour-space step alone on an 8-bit target whose byte k
    // holds q: what the pixel loop stores after quantising to q.
    uint8_t SpaceStep(unsigned k, uint8_t q)
    {
        std::memset(m_target.GetColourData(), 0, kMaxTargetBytes);
        m_target.GetColourData()[k] = q;
        m_target.ConvertToColourSpace(m_targetSpace, m_sourceSpace);
        return m_target.GetColourData()[k];
    }

private:
    CPixelEncoder m_source, m_target;
    EORBTColourSpace m_sourceSpace, m_targetSpace;
};

// The named channels of a layout, in position order, without gaps.
struct Layout
{
    unsigned count = 0, totalBits = 0;
    char names[4] = {};
    unsigned bits[4] = {};

    explicit Layout(PixelType type)
    {
        for (unsigned p = 0; p < 4 && type.channelName(p) != 0; ++p, ++count)
        {
            names[p] = char(type.channelName(p));
            bits[p] = type.channelBits(p);
            totalBits += bits[p];
        }
    }
    bool AllBits(unsigned width) const
    {
        for (unsigned p = 0; p < count; ++p)
            if (bits[p] != width)
                return false;
        return count != 0;
    }
    int Find(char name) const
    {
        for (unsigned p = 0; p < count; ++p)
            if (names[p] == name)
                return int(p);
        return -1;
    }
    bool OnlyColoursAndAlpha() const
    {
        for (unsigned p = 0; p < count; ++p)
            if (names[p] != 'r' && names[p] != 'g' && names[p] != 'b' && names[p] != 'a')
                return false;
        return true;
    }
};

bool IsByteType(EORBTVariableType type) { return type <= eVarSignedByte; }
bool IsUnsignedByteType(EORBTVariableType type) { return type == eVarUnsignedByteNorm || type == eVarUnsignedByte; }

template <unsigned S>
inline uint32_t LoadSource(const uint8_t* in)
{
    uint32_t word = 0;
    for (unsigned i = 0; i < S; ++i)
        word |= uint32_t(in[i]) << (8 * i);
    return word;
}

// Target pixels as XOR-able words: the first T bytes of the pixel.
template <unsigned T>
struct EntryOf
{
    using type = std::conditional_t<(T <= 4), uint32_t, uint64_t>;
};
struct Wide
{
    uint64_t low, high;
    Wide& operator^=(const Wide& other)
    {
        low ^= other.low;
        high ^= other.high;
        return *this;
    }
};
template <unsigned T>
using Entry = std::conditional_t<(T > 8), Wide, typename EntryOf<T>::type>;

// ---- Per-channel tables ----

struct Field
{
    unsigned shift, mask;
};

struct FieldTables
{
    unsigned sourceBytes, targetBytes, count;
    Field fields[4];
    std::vector<uint8_t> storage; // entries of each field, 16 bytes apart
    std::vector<size_t> first;    // index of each field's first entry
    uint8_t base[kMaxTargetBytes];
};

using FieldLoop = void (*)(const FieldTables&, const void* entries, const uint8_t*, uint8_t*, size_t);

template <unsigned S, unsigned N, unsigned T>
void RunFields(const FieldTables& t, const void* entries, const uint8_t* in, uint8_t* out, size_t count)
{
    using E = Entry<T>;
    const E* tables[N];
    unsigned shifts[N], masks[N];
    for (unsigned c = 0; c < N; ++c)
    {
        tables[c] = static_cast<const E*>(entries) + t.first[c];
        shifts[c] = t.fields[c].shift;
        masks[c] = t.fields[c].mask;
    }
    E base;
    std::memcpy(&base, t.base, sizeof base);
    for (size_t i = 0; i < count; ++i, in += S, out += T)
    {
        const uint32_t word = LoadSource<S>(in);
        E pixel = base;
        for (unsigned c = 0; c < N; ++c)
            pixel ^= tables[c][(word >> shifts[c]) & masks[c]];
        std::memcpy(out, &pixel, T);
    }
}

template <unsigned T, unsigned S>
FieldLoop FieldLoopForCount(unsigned n)
{
    switch (n)
    {
    case 1: return &RunFields<S, 1, T>;
    case 2: return &RunFields<S, 2, T>;
    case 3: return &RunFields<S, 3, T>;
    default: return &RunFields<S, 4, T>;
    }
}

template <unsigned T>
FieldLoop FieldLoopForSource(unsigned s, unsigned n)
{
    switch (s)
    {
    case 1: return FieldLoopForCount<T, 1>(n);
    case 2: return FieldLoopForCount<T, 2>(n);
    case 3: return FieldLoopForCount<T, 3>(n);
    default: return FieldLoopForCount<T, 4>(n);
    }
}

FieldLoop ChooseFieldLoop(unsigned s, unsigned n, unsigned t)
{
    switch (t)
    {
    case 1: return FieldLoopForSource<1>(s, n);
    case 2: return FieldLoopForSource<2>(s, n);
    case 3: return FieldLoopForSource<3>(s, n);
    case 4: return FieldLoopForSource<4>(s, n);
    case 6: return FieldLoopForSource<6>(s, n);
    case 8: return FieldLoopForSource<8>(s, n);
    case 12: return FieldLoopForSource<12>(s, n);
    case 16: return FieldLoopForSource<16>(s, n);
    default: return nullptr;
    }
}

class CFieldKernel final : public CPixelKernel
{
public:
    CFieldKernel(FieldTables tables, FieldLoop loop) : m_tables(std::move(tables)), m_loop(loop)
    {
        // Entries packed at the loop's entry width.
        const size_t width = m_tables.targetBytes <= 4 ? 4 : m_tables.targetBytes <= 8 ? 8 : 16;
        const size_t entries = m_tables.storage.size() / kMaxTargetBytes;
        m_entries.resize(entries * width / 8 + 1);
        for (size_t e = 0; e < entries; ++e)
            std::memcpy(reinterpret_cast<uint8_t*>(m_entries.data()) + e * width, &m_tables.storage[e * 16], width);
    }
    void Convert(const uint8_t* in, uint8_t* out, size_t count) const override
    {
        m_loop(m_tables, m_entries.data(), in, out, count);
    }
    const char* Kind() const override { return "tables"; }

private:
    FieldTables m_tables;
    FieldLoop m_loop;
    std::vector<uint64_t> m_entries;
};

class CByteKernel final : public CPixelKernel
{
public:
    explicit CByteKernel(const BytePlan& plan) : m_plan(plan) {}
    void Convert(const uint8_t* in, uint8_t* out, size_t count) const override { MoveBytes(m_plan, in, out, count); }
    const char* Kind() const override { return "bytes"; }

private:
    BytePlan m_plan;
};

// The source's channels as fields of its little-endian word: whole bytes for
// 8-bit elements, else packed from the most significant bits down, each of at
// most 12 bits (4096 entries).
bool SourceFields(const Layout& layout, EORBTVariableType type, FieldTables& t)
{
    if (layout.count == 0 || layout.totalBits % 8 != 0 || layout.totalBits > 32)
        return false;
    t.sourceBytes = layout.totalBits / 8;
    t.count = layout.count;
    if (IsByteType(type) && layout.AllBits(8))
    {
        for (unsigned p = 0; p < layout.count; ++p)
            t.fields[p] = {8 * p, 0xFFu};
        return true;
    }
    const unsigned typeBits = type <= eVarSignedByte ? 8 : type <= eVarSignedShort ? 16 : 32;
    unsigned offset = 0;
    for (unsigned p = 0; p < layout.count; ++p)
    {
        if (layout.bits[p] > 12 || layout.bits[p] == typeBits)
            return false;
        t.fields[p] = {layout.totalBits - offset - layout.bits[p], (1u << layout.bits[p]) - 1};
        offset += layout.bits[p];
    }
    return true;
}

// Each field's entries: the target pixel of that field's value alone, XOR the
// target pixel of zeros. Refused when two fields change the same bits.
bool BuildFieldTables(CEncoderPair& encoders, FieldTables& t)
{
    uint8_t zeros[kMaxTargetBytes] = {}, result[kMaxTargetBytes];
    encoders.Encode(zeros, t.base);
    uint8_t used[kMaxTargetBytes] = {};
    for (unsigned c = 0; c < t.count; ++c)
    {
        t.first.push_back(t.storage.size() / kMaxTargetBytes);
        uint8_t changed[kMaxTargetBytes] = {};
        for (uint32_t value = 0; value <= t.fields[c].mask; ++value)
        {
            const uint32_t word = value << t.fields[c].shift;
            uint8_t pixel[4];
            for (unsigned i = 0; i < 4; ++i)
                pixel[i] = uint8_t(word >> (8 * i));
            encoders.Encode(pixel, result);
            for (unsigned i = 0; i < kMaxTargetBytes; ++i)
            {
                result[i] ^= t.base[i];
                changed[i] |= result[i];
            }
            t.storage.insert(t.storage.end(), result, result + kMaxTargetBytes);
        }
        for (unsigned i = 0; i < kMaxTargetBytes; ++i)
        {
            if (changed[i] & used[i])
                return false;
            used[i] |= changed[i];
        }
    }
    return true;
}

// A field table that only moves source bytes: entry v is v in some target
// bytes, 0 in the others, over a base that is 0 in those bytes.
bool AsBytePlan(const FieldTables& t, BytePlan& plan)
{
    if (t.targetBytes > 4)
        return false;
    plan = {t.sourceBytes, t.targetBytes, {-1, -1, -1, -1}, 0};
    for (unsigned c = 0; c < t.count; ++c)
    {
        if (t.fields[c].shift != 8 * c || t.fields[c].mask != 0xFF)
            return false;
        const uint8_t* one = &t.storage[(t.first[c] + 1) * kMaxTargetBytes];
        for (unsigned k = 0; k < t.targetBytes; ++k)
            if (one[k] == 1)
            {
                if (t.base[k] != 0)
                    return false;
                plan.source[k] = int(c);
            }
            else if (one[k] != 0)
                return false;
        for (uint32_t v = 0; v < 256; ++v)
        {
            const uint8_t* entry = &t.storage[(t.first[c] + v) * kMaxTargetBytes];
            for (unsigned k = 0; k < kMaxTargetBytes; ++k)
                if (entry[k] != (k < 4 && plan.source[k] == int(c) ? v : 0))
                    return false;
        }
    }
    for (unsigned k = 0; k < t.targetBytes; ++k)
        plan.base |= uint32_t(t.base[k]) << (8 * k);
    return true;
}

class CLaneKernel final : public CPixelKernel
{
public:
    explicit CLaneKernel(const LanePlan& plan) : m_plan(plan) {}
    void Convert(const uint8_t* in, uint8_t* out, size_t count) const override { RunLanes(m_plan, in, out, count); }
    const char* Kind() const override { return "lanes"; }

private:
    LanePlan m_plan;
};

// The lane arithmetic giving 'values' (one per value of a field of 'mask'):
// the value itself, a multiple, or the rounded quotient by mask of v times
// the target's largest value, the division done as a 16-bit high multiply.
bool FitLaneField(const std::vector<uint32_t>& values, uint32_t mask, unsigned bits, LaneField& field)
{
    const auto fits = [&](const LaneField& f) {
        for (uint32_t v = 0; v <= mask; ++v)
        {
            const uint32_t y = v * f.a + f.b;
            if (y > 0xFFFF || (f.m ? (y * f.m) >> (16 + f.shift) : y >> f.shift) != values[v])
                return false;
        }
        return true;
    };
    field.a = 1, field.b = 0, field.m = 0, field.shift = 0;
    if (fits(field))
        return true;
    field.a = values[1];
    if (fits(field))
        return true;
    field.a = (1u << bits) - 1;
    field.b = mask / 2;
    for (field.shift = 0; field.shift < 16; ++field.shift)
    {
        field.m = uint32_t(((uint64_t(1) << (16 + field.shift)) + mask - 1) / mask);
        if (field.m <= 0xFFFF && fits(field))
            return true;
    }
    return false;
}

// Field tables whose fields each set one run of target bits, over a base
// that is 0 there, by lane arithmetic.
bool AsLanePlan(const FieldTables& t, LanePlan& plan)
{
    if (t.sourceBytes == 3 || t.targetBytes == 3 || t.targetBytes > 4)
        return false;
    plan = {t.sourceBytes, t.targetBytes, 0, {}, 0};
    std::memcpy(&plan.base, t.base, 4);
    for (unsigned c = 0; c < t.count; ++c)
    {
        const uint32_t mask = t.fields[c].mask;
        std::vector<uint32_t> values(mask + 1);
        uint32_t changed = 0;
        for (uint32_t v = 0; v <= mask; ++v)
        {
            const uint8_t* entry = &t.storage[(t.first[c] + v) * kMaxTargetBytes];
            for (unsigned k = 4; k < kMaxTargetBytes; ++k)
                if (entry[k] != 0)
                    return false;
            std::memcpy(&values[v], entry, 4);
            changed |= values[v];
        }
        if (changed == 0)
            continue;
        unsigned to = 0, bits = 0;
        while (!(changed >> to & 1))
            ++to;
        while (to + bits < 32 && (changed >> (to + bits) & 1))
            ++bits;
        if ((changed >> to) != (uint64_t(1) << bits) - 1 || (plan.base & changed) != 0)
            return false;
        for (uint32_t& value : values)
            value >>= to;
        LaneField& field = plan.fields[plan.count++];
        field.from = t.fields[c].shift, field.mask = mask, field.to = to;
        if (!FitLaneField(values, mask, bits, field))
            return false;
    }
    return true;
}

std::shared_ptr<const CPixelKernel> MakeFieldKernel(CEncoderPair& encoders, const Layout& source,
                                                    EORBTVariableType sourceChannelType)
{
    FieldTables t;
    t.targetBytes = encoders.TargetBytes();
    if (!SourceFields(source, sourceChannelType, t) || t.sourceBytes != encoders.SourceBytes() ||
        !BuildFieldTables(encoders, t))
        return nullptr;
    BytePlan plan;
    if (AsBytePlan(t, plan))
        return std::make_shared<CByteKernel>(plan);
    LanePlan lanes;
    if (AsLanePlan(t, lanes))
        return std::make_shared<CLaneKernel>(lanes);
    const FieldLoop loop = ChooseFieldLoop(t.sourceBytes, t.count, t.targetBytes);
    if (!loop)
        return nullptr;
    return std::make_shared<CFieldKernel>(std::move(t), loop);
}

// ---- Luminance of 8-bit red, green and blue ----

// The pixel loop sums weight * channel in long double, rounds the sum to
// float and quantises that to 8 bits. Here the sum times 255 is taken in
// 9.23 fixed point; where it lies within 1e-4 of a rounding edge (far more
// than the float rounding and the fixed point's error of 2e-7) the long
// double sum decides, as the loop does.
class CLuminanceKernel final : public CPixelKernel
{
public:
    CLuminanceKernel(CEncoderPair& encoders, const Layout& source, const Layout& target)
        : m_sourceBytes(source.count), m_targetBytes(target.count)
    {
        static const long double weights[3] = {0.2126L, 0.7152L, 0.0722L};
        const char colours[3] = {'r', 'g', 'b'};
        for (unsigned c = 0; c < 3; ++c)
        {
            m_position[c] = unsigned(source.Find(colours[c]));
            for (unsigned v = 0; v < 256; ++v)
            {
                m_product[c][v] = weights[c] * static_cast<long double>(CPixelEncoder::GrowUNormToFloat(v, 8));
                m_fixed[c][v] = int32_t(m_product[c][v] * 255.0L * 8388608.0L + 0.5L);
            }
        }
        m_luminance = unsigned(target.Find('l'));
        m_sameSpace = true;
        for (unsigned q = 0; q < 256; ++q)
        {
            m_space[q] = encoders.SpaceStep(m_luminance, uint8_t(q));
            m_sameSpace = m_sameSpace && m_space[q] == q;
        }
        // Target alpha: a function of the source alpha, or constant.
        uint8_t zeros[4] = {}, result[kMaxTargetBytes];
        encoders.Encode(zeros, result);
        m_alpha = target.Find('a');
        m_sourceAlpha = source.Find('a');
        for (unsigned v = 0; v < 256; ++v)
        {
            uint8_t pixel[4] = {};
            if (m_sourceAlpha >= 0)
                pixel[m_sourceAlpha] = uint8_t(v);
            encoders.Encode(pixel, result);
            m_alphaOf[v] = m_alpha >= 0 ? result[m_alpha] : 0;
        }
        m_alphaIsCopy = true;
        for (unsigned v = 0; v < 256; ++v)
            m_alphaIsCopy = m_alphaIsCopy && m_alphaOf[v] == v;
        // The lane form: weights in 9.23 fixed point, whose rounding (under 400
        // units of 2^-23) and the float steps' (under 300) stay well inside the guard.
        m_plan = {m_targetBytes, unsigned(m_sourceAlpha >= 0 ? m_sourceAlpha : 0), {0, 0, 0, 0}, 2048, &Exact, this};
        for (unsigned c = 0; c < 3; ++c)
            m_plan.weights[m_position[c]] = int32_t(weights[c] * 8388608.0L + 0.5L);
    }
    void Convert(const uint8_t* in, uint8_t* out, size_t count) const override
    {
        if (m_sourceBytes == 4 && m_sameSpace && (m_alpha < 0 || (m_sourceAlpha >= 0 && m_alphaIsCopy)))
            RunLuminance(m_plan, in, out, count);
        else if (m_sameSpace && m_alpha < 0)
            Run<true, false>(in, out, count);
        else if (m_sameSpace && m_sourceAlpha >= 0 && m_alphaIsCopy)
            Run<true, true>(in, out, count);
        else
            Run<false, false>(in, out, count);
    }
    const char* Kind() const override { return "luminance"; }

private:
    static uint8_t Exact(const void* context, const uint8_t* pixel)
    {
        const CLuminanceKernel& kernel = *static_cast<const CLuminanceKernel*>(context);
        const long double weighted = ((0.0L + kernel.m_product[0][pixel[kernel.m_position[0]]]) +
                                      kernel.m_product[1][pixel[kernel.m_position[1]]]) +
                                     kernel.m_product[2][pixel[kernel.m_position[2]]];
        return kernel.m_space[CPixelEncoder::ShrinkFloatToUNorm(float(weighted), 8) & 0xFF];
    }

    // Plain: the same colour space and the alpha, if any, copied.
    template <bool Plain, bool CopyAlpha>
    void Run(const uint8_t* in, uint8_t* out, size_t count) const
    {
        constexpr int32_t kHalf = int32_t(1) << 22;
        constexpr uint32_t kFraction = (1u << 23) - 1, kGuard = 839; // 1e-4 of 2^23
        for (size_t i = 0; i < count; ++i, in += m_sourceBytes, out += m_targetBytes)
        {
            const uint8_t r = in[m_position[0]], g = in[m_position[1]], b = in[m_position[2]];
            const int32_t sum = m_fixed[0][r] + m_fixed[1][g] + m_fixed[2][b] + kHalf;
            const uint32_t fraction = uint32_t(sum) & kFraction;
            uint32_t q = uint32_t(sum) >> 23;
            if (fraction < kGuard || fraction > kFraction - kGuard)
            {
                const long double weighted = ((0.0L + m_product[0][r]) + m_product[1][g]) + m_product[2][b];
                q = CPixelEncoder::ShrinkFloatToUNorm(float(weighted), 8) & 0xFF;
            }
            out[m_luminance] = Plain ? uint8_t(q) : m_space[q];
            if (CopyAlpha)
                out[m_alpha] = in[m_sourceAlpha];
            else if (!Plain && m_alpha >= 0)
                out[m_alpha] = m_alphaOf[m_sourceAlpha >= 0 ? in[m_sourceAlpha] : 0];
        }
    }

    unsigned m_sourceBytes, m_targetBytes, m_position[3], m_luminance;
    int m_alpha, m_sourceAlpha;
    bool m_sameSpace, m_alphaIsCopy;
    LuminancePlan m_plan;
    long double m_product[3][256];
    int32_t m_fixed[3][256];
    uint8_t m_space[256], m_alphaOf[256];
};

std::shared_ptr<const CPixelKernel> MakeLuminanceKernel(CEncoderPair& encoders, const Layout& source,
                                                        EORBTVariableType sourceChannelType, const Layout& target,
                                                        EORBTVariableType targetChannelType)
{
    if (!IsUnsignedByteType(sourceChannelType) || !source.AllBits(8) || !source.OnlyColoursAndAlpha() ||
        source.Find('r') < 0 || source.Find('g') < 0 || source.Find('b') < 0)
        return nullptr;
    if (!IsUnsignedByteType(targetChannelType) || !target.AllBits(8) || target.Find('l') < 0 ||
        target.count != (target.Find('a') >= 0 ? 2u : 1u))
        return nullptr;
    return std::make_shared<CLuminanceKernel>(encoders, source, target);
}

// ---- 16-bit and float channels to bytes ----

// The 8-bit value of each 16-bit unsigned normalised value.
const uint8_t* Narrow16Table()
{
    static const std::vector<uint8_t> table = [] {
        std::vector<uint8_t> values(65536);
        for (uint32_t v = 0; v < 65536; ++v)
            values[v] = uint8_t(CPixelEncoder::ShrinkFloatToUNorm(CPixelEncoder::GrowUNormToFloat(v, 16), 8));
        return values;
    }();
    return table.data();
}


// ---- Element by element ----

class CElementKernel final : public CPixelKernel
{
public:
    CElementKernel(EElementStep step, unsigned channels) : m_step(step), m_channels(channels) {}
    void Convert(const uint8_t* in, uint8_t* out, size_t count) const override
    {
        ConvertElements(m_step, in, out, count * m_channels);
    }
    const char* Kind() const override { return "elements"; }

private:
    EElementStep m_step;
    unsigned m_channels;
};

// Whether the step gives the encoders' channel value on every byte or 16-bit
// value (the float step is their own formula).
bool StepIsTheEncoders(EElementStep step)
{
    static const bool matches[3] = {
        [] {
            for (uint32_t v = 0; v < 256; ++v)
                if (ElementStep(eBytesToShorts, v) !=
                    CPixelEncoder::ShrinkFloatToUNorm(CPixelEncoder::GrowUNormToFloat(v, 8), 16))
                    return false;
            return true;
        }(),
        [] {
            for (uint32_t v = 0; v < 65536; ++v)
                if (ElementStep(eShortsToBytes, v) != Narrow16Table()[v])
                    return false;
            return true;
        }(),
        [] {
            for (uint32_t v = 0; v < 256; ++v)
            {
                const float expected = CPixelEncoder::GrowUNormToFloat(v, 8);
                uint32_t bits;
                std::memcpy(&bits, &expected, 4);
                if (ElementStep(eBytesToFloats, v) != bits)
                    return false;
            }
            return true;
        }(),
    };
    return step == eFloatsToBytes || matches[step];
}

enum class EElement
{
    None,
    Byte,
    Short,
    Float
};

EElement ElementOf(const Layout& layout, EORBTVariableType type)
{
    if (IsUnsignedByteType(type) && layout.AllBits(8))
        return EElement::Byte;
    if ((type == eVarUnsignedShortNorm || type == eVarUnsignedShort) && layout.AllBits(16))
        return EElement::Short;
    if (type == eVarSignedFloat && layout.AllBits(32))
        return EElement::Float;
    return EElement::None;
}

std::shared_ptr<const CPixelKernel> MakeElementKernel(const Layout& source, EORBTVariableType sourceChannelType,
                                                      EORBTColourSpace sourceColourSpace, const Layout& target,
                                                      EORBTVariableType targetChannelType,
                                                      EORBTColourSpace targetColourSpace)
{
    if (sourceColourSpace != targetColourSpace || source.count != target.count || !source.OnlyColoursAndAlpha() ||
        std::memcmp(source.names, target.names, sizeof source.names) != 0)
        return nullptr;
    const EElement from = ElementOf(source, sourceChannelType), to = ElementOf(target, targetChannelType);
    EElementStep step;
    if (from == EElement::Byte && to == EElement::Short)
        step = eBytesToShorts;
    else if (from == EElement::Short && to == EElement::Byte)
        step = eShortsToBytes;
    else if (from == EElement::Byte && to == EElement::Float)
        step = eBytesToFloats;
    else if (from == EElement::Float && to == EElement::Byte)
        step = eFloatsToBytes;
    else
        return nullptr;
    if (!StepIsTheEncoders(step))
        return nullptr;
    return std::make_shared<CElementKernel>(step, source.count);
}

class CWideKernel final : public CPixelKernel
{
public:
    CWideKernel(CEncoderPair& encoders, const Layout& source, bool floats, const Layout& target)
        : m_floats(floats), m_sourceBytes(source.totalBits / 8), m_sourceChannels(source.count),
          m_targetBytes(target.count)
    {
        uint8_t zeros[kMaxTargetBytes] = {}, base[kMaxTargetBytes];
        encoders.Encode(zeros, base);
        for (unsigned k = 0; k < m_targetBytes; ++k)
        {
            m_from[k] = source.Find(target.names[k]);
            m_base[k] = base[k];
            for (unsigned q = 0; q < 256; ++q)
                m_space[k][q] = encoders.SpaceStep(k, uint8_t(q));
        }
        m_inOrder = m_sourceChannels == 4 && m_targetBytes == 4;
        for (unsigned k = 0; k < m_targetBytes; ++k)
            m_inOrder = m_inOrder && m_from[k] == int(k);
    }
    // Channels to bytes in chunks by the element step, then each target byte
    // through its colour-space table.
    void Convert(const uint8_t* in, uint8_t* out, size_t count) const override
    {
        constexpr size_t kChunk = 256;
        uint8_t bytes[kChunk * 4];
        const EElementStep step = m_floats ? eFloatsToBytes : eShortsToBytes;
        for (size_t first = 0; first < count; first += kChunk)
        {
            const size_t n = std::min(kChunk, count - first);
            ConvertElements(step, in + first * m_sourceBytes, bytes, n * m_sourceChannels);
            uint8_t* target = out + first * m_targetBytes;
            if (m_inOrder)
            {
                for (size_t j = 0; j < n * 4; j += 4)
                    for (unsigned k = 0; k < 4; ++k)
                        target[j + k] = m_space[k][bytes[j + k]];
                continue;
            }
            for (size_t i = 0; i < n; ++i, target += m_targetBytes)
                for (unsigned k = 0; k < m_targetBytes; ++k)
                    target[k] = m_from[k] < 0 ? m_base[k] : m_space[k][bytes[i * m_sourceChannels + m_from[k]]];
        }
    }
    const char* Kind() const override { return "wide"; }

private:
    bool m_floats, m_inOrder;
    unsigned m_sourceBytes, m_sourceChannels, m_targetBytes;
    int m_from[4];
    uint8_t m_base[4];
    uint8_t m_space[4][256];
};

std::shared_ptr<const CPixelKernel> MakeWideKernel(CEncoderPair& encoders, const Layout& source,
                                                   EORBTVariableType sourceChannelType, const Layout& target,
                                                   EORBTVariableType targetChannelType)
{
    const bool shorts = (sourceChannelType == eVarUnsignedShortNorm || sourceChannelType == eVarUnsignedShort) &&
                        source.AllBits(16);
    const bool floats = sourceChannelType == eVarSignedFloat && source.AllBits(32);
    if ((!shorts && !floats) || !source.OnlyColoursAndAlpha() || !IsUnsignedByteType(targetChannelType) ||
        !target.AllBits(8) || !target.OnlyColoursAndAlpha() || !StepIsTheEncoders(eShortsToBytes))
        return nullptr;
    return std::make_shared<CWideKernel>(encoders, source, floats, target);
}

// ---- rgba8 and r11g11b10 floats ----

class CPackedFloatKernel final : public CPixelKernel
{
public:
    explicit CPackedFloatKernel(bool pack) : m_pack(pack) {}
    void Convert(const uint8_t* in, uint8_t* out, size_t count) const override
    {
        (m_pack ? PackFloats1110 : UnpackFloats1110)(in, out, count);
    }
    const char* Kind() const override { return "floats"; }

private:
    bool m_pack;
};

// The pair's kernel when it agrees with the encoders on every value of each
// channel alone: the channels are converted apart, so that covers every pixel.
std::shared_ptr<const CPixelKernel> MakePackedFloatKernel(CEncoderPair& encoders, const Layout& source,
                                                          EORBTVariableType sourceChannelType,
                                                          EORBTColourSpace sourceColourSpace, const Layout& target,
                                                          EORBTVariableType targetChannelType,
                                                          EORBTColourSpace targetColourSpace)
{
    static const PixelType kFloats('r', 'g', 'b', 0, 11, 11, 10, 0), kBytes('r', 'g', 'b', 'a', 8, 8, 8, 8);
    const auto is = [](const Layout& layout, EORBTVariableType type, PixelType wanted, EORBTVariableType wantedType) {
        const Layout other(wanted);
        return type == wantedType && std::memcmp(layout.names, other.names, 4) == 0 &&
               std::memcmp(layout.bits, other.bits, sizeof layout.bits) == 0;
    };
    const bool pack = is(source, sourceChannelType, kBytes, eVarUnsignedByteNorm) &&
                      is(target, targetChannelType, kFloats, eVarUnsignedFloat);
    const bool unpack = is(source, sourceChannelType, kFloats, eVarUnsignedFloat) &&
                        is(target, targetChannelType, kBytes, eVarUnsignedByteNorm);
    if ((!pack && !unpack) || sourceColourSpace != targetColourSpace)
        return nullptr;
    const auto kernel = std::make_shared<CPackedFloatKernel>(pack);
    const unsigned shifts[3] = {pack ? 0u : 21u, pack ? 8u : 10u, pack ? 16u : 0u};
    const uint32_t masks[3] = {pack ? 0xFFu : 0x7FFu, pack ? 0xFFu : 0x7FFu, pack ? 0xFFu : 0x3FFu};
    uint8_t expected[kMaxTargetBytes], got[4];
    for (unsigned c = 0; c < 3; ++c)
        for (uint32_t v = 0; v <= masks[c]; ++v)
        {
            const uint32_t word = v << shifts[c];
            uint8_t pixel[4];
            std::memcpy(pixel, &word, 4);
            encoders.Encode(pixel, expected);
            kernel->Convert(pixel, got, 1);
            if (std::memcmp(expected, got, 4) != 0)
                return nullptr;
        }
    return kernel;
}

// ---- Checks and the shared kernels ----

// Whether the kernel gives the encoders' bytes on sample pixels: random words,
// and for floats random values in and around [0, 1] and special ones.
bool AgreesWithEncoders(const CPixelKernel& kernel, CEncoderPair& encoders, EORBTVariableType sourceChannelType)
{
    constexpr unsigned kSamples = 512;
    const unsigned sourceBytes = encoders.SourceBytes(), targetBytes = encoders.TargetBytes();
    std::vector<uint8_t> in(size_t(kSamples) * sourceBytes), out(size_t(kSamples) * targetBytes);
    uint32_t state = 0x2545F491u;
    const float specials[] = {0.0f, -0.0f, 1.0f, 0.5f, -1.0f, 65536.0f, 70000.5f, 1e30f, -1e30f, 1.0f / 510};
    for (unsigned i = 0; i < kSamples; ++i)
        for (unsigned b = 0; b < sourceBytes; b += 4)
        {
            state = state * 1664525u + 1013904223u;
            uint32_t word = state;
            if (sourceChannelType == eVarSignedFloat)
            {
                const float value = i % 4 == 0 ? specials[(state >> 8) % 10] : float(state >> 8) / 8388608.0f - 0.5f;
                std::memcpy(&word, &value, 4);
            }
            if (i == 1)
                word = ~0u;
            std::memcpy(&in[size_t(i) * sourceBytes + b], &word, std::min(4u, sourceBytes - b));
        }
    kernel.Convert(in.data(), out.data(), kSamples);
    uint8_t expected[kMaxTargetBytes];
    for (unsigned i = 0; i < kSamples; ++i)
    {
        encoders.Encode(&in[size_t(i) * sourceBytes], expected);
        if (std::memcmp(expected, &out[size_t(i) * targetBytes], targetBytes) != 0)
            return false;
    }
    return true;
}

std::shared_ptr<const CPixelKernel> MakeKernel(PixelType sourceType, EORBTVariableType sourceChannelType,
                                               EORBTColourSpace sourceColourSpace, PixelType targetType,
                                               EORBTVariableType targetChannelType,
                                               EORBTColourSpace targetColourSpace)
{
    if (sourceType.isNamedFormat() || targetType.isNamedFormat())
        return nullptr;
    CEncoderPair encoders(sourceType, sourceChannelType, sourceColourSpace, targetType, targetChannelType,
                          targetColourSpace);
    if (!encoders.Valid() || encoders.TargetBytes() == 0 || encoders.TargetBytes() > kMaxTargetBytes ||
        encoders.SourceBytes() == 0 || encoders.SourceBytes() > kMaxTargetBytes)
        return nullptr;
    const Layout source(sourceType), target(targetType);
    std::shared_ptr<const CPixelKernel> kernel = MakeElementKernel(source, sourceChannelType, sourceColourSpace,
                                                                   target, targetChannelType, targetColourSpace);
    if (!kernel)
        kernel = MakePackedFloatKernel(encoders, source, sourceChannelType, sourceColourSpace, target,
                                       targetChannelType, targetColourSpace);
    if (!kernel)
        kernel = MakeFieldKernel(encoders, source, sourceChannelType);
    if (!kernel)
        kernel = MakeLuminanceKernel(encoders, source, sourceChannelType, target, targetChannelType);
    if (!kernel)
        kernel = MakeWideKernel(encoders, source, sourceChannelType, target, targetChannelType);
    if (kernel && !AgreesWithEncoders(*kernel, encoders, sourceChannelType))
        return nullptr;
    return kernel;
}

} // namespace

std::shared_ptr<const CPixelKernel> FindPixelKernel(PixelType sourceType, EORBTVariableType sourceChannelType,
                                                    EORBTColourSpace sourceColourSpace, PixelType targetType,
                                                    EORBTVariableType targetChannelType,
                                                    EORBTColourSpace targetColourSpace)
{
    using Key = std::array<uint64_t, 6>;
    static std::mutex mutex;
    static std::map<Key, std::shared_ptr<const CPixelKernel>> made;
    const Key key = {sourceType.PixelTypeID, sourceChannelType, sourceColourSpace,
                     targetType.PixelTypeID, targetChannelType, targetColourSpace};
    const std::lock_guard<std::mutex> lock(mutex);
    const auto found = made.find(key);
    if (found != made.end())
        return found->second;
    // A bounded memory: the pairs of a process are few.
    if (made.size() >= 256)
        made.clear();
    return made[key] = MakeKernel(sourceType, sourceChannelType, sourceColourSpace, targetType, targetChannelType,
                                  targetColourSpace);
}

} // namespace orbtexture
