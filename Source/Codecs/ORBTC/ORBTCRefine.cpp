#include "Codecs/ORBTC/ORBTCRefine.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <vector>

#include "Codecs/ORBTC/ORBTCRefineGrid.h"
#include "Codecs/ORBTC/ORBTCRefineSolve.h"
#include "Codecs/ORBTC/fnzj/wrapper_decoder.h"
#include "Tools/ORBTCallContext.h"

namespace orbtexture
{

namespace
{

constexpr uint32_t kHardFlag = 0x8000u;
constexpr uint32_t kSubModeBits = 0x100001u; // bits 0 and 20 of a 2bpp modulation word

// Lower weighted error first, then lower RGB error.
bool Before(const RefineError& a, const RefineError& b)
{
    return a.weighted != b.weighted ? a.weighted < b.weighted : a.rgb < b.rgb;
}

class CRefiner
{
  public:
    CRefiner(CRefineGrid& grid, const ORBTCRefineSettings& settings)
        : m_grid(grid), m_settings(settings), m_tileErrors(grid.blockCount())
    {
        // Blocks of one class are two or more blocks apart in x or y, so
        // that no two of them reach the same tile or read each other's word:
        // a class is worked on in parallel with the same result as in order.
        const auto axisClass = [](unsigned v, unsigned count) {
            return count > 1 && (count & 1) && v == count - 1 ? 2u : v & 1u;
        };
        m_classes.resize(9);
        for (unsigned block = 0; block < grid.blockCount(); ++block)
            m_classes[axisClass(block / grid.numX(), grid.numY()) * 3 + axisClass(block % grid.numX(), grid.numX())]
                .push_back(block);
        MeasureAll();
    }

    RefineError Total() const
    {
        RefineError total;
        for (const RefineError& e : m_tileErrors)
            total += e;
        return total;
    }

    // Returns false when cancelled.
    bool Run(float progressFrom)
    {
        const ORBTCallContext& context = CurrentCallContext();
        const unsigned rounds = m_grid.twoBpp() ? m_settings.rounds : m_settings.rounds4bpp;
        for (unsigned round = 0; round < rounds; ++round)
        {
            const RefineError before = Total();
            if (before.weighted == 0 && before.rgb == 0)
                break;
            if (context.Cancelled())
                return false;
            JointColours();
            if (context.Cancelled())
                return false;
            ForEachBlock(AllBlocks(), [&](unsigned block) { SearchColours(block); });
            ForEachBlock(AllBlocks(), [&](unsigned block) { ChooseModulation(block); });
            if (context.Cancelled())
                return false;
            TryModes();
            context.Report(progressFrom + (1.f - progressFrom) * float(round + 1) / float(rounds));
            const RefineError after = Total();
            if (double(before.weighted - after.weighted) < m_settings.leastGain * double(before.weighted))
                break;
        }
        return !context.Cancelled();
    }

  private:
    std::vector<unsigned> AllBlocks() const
    {
        std::vector<unsigned> all(m_grid.blockCount());
        std::iota(all.begin(), all.end(), 0u);
        return all;
    }

    void MeasureAll()
    {
        RunRefineParts(m_grid.blockCount(), [&](unsigned first, unsigned end) {
            for (unsigned tile = first; tile < end; ++tile)
                m_tileErrors[tile] = m_grid.TileError(tile);
        });
    }

    // Runs 'work' on the listed blocks, class by class, each class over the
    // call's threads.
    template <class Work>
    void ForEachBlock(const std::vector<unsigned>& blocks, const Work& work)
    {
        std::vector<uint8_t> listed(m_grid.blockCount(), 0);
        for (unsigned block : blocks)
            listed[block] = 1;
        for (const std::vector<unsigned>& members : m_classes)
        {
            std::vector<unsigned> chosen;
            for (unsigned block : members)
                if (listed[block])
                    chosen.push_back(block);
            RunRefineParts(unsigned(chosen.size()), [&](unsigned first, unsigned end) {
                for (unsigned k = first; k < end; ++k)
                    work(chosen[k]);
            });
        }
    }

    RefineError BlockError(unsigned block) const
    {
        unsigned tiles[4];
        const unsigned count = m_grid.BlockTiles(block, tiles);
        RefineError total;
        for (unsigned k = 0; k < count; ++k)
            total += m_tileErrors[tiles[k]];
        return total;
    }

    // Puts 'candidate' in the block's place if that lowers the error of the
    // tiles it reaches.
    bool TryWord(unsigned block, const ORBTCWord& candidate)
    {
        ORBTCWord& word = m_grid.word(block);
        if (word.modulationData == candidate.modulationData && word.colourData == candidate.colourData)
            return false;
        unsigned tiles[4];
        const unsigned count = m_grid.BlockTiles(block, tiles);
        RefineError old, fresh, errors[4];
        const ORBTCWord saved = word;
        word = candidate;
        for (unsigned k = 0; k < count; ++k)
        {
            old += m_tileErrors[tiles[k]];
            errors[k] = m_grid.TileError(tiles[k]);
            fresh += errors[k];
        }
        if (!fresh.Improves(old))
        {
            word = saved;
            return false;
        }
        for (unsigned k = 0; k < count; ++k)
            m_tileErrors[tiles[k]] = errors[k];
        return true;
    }

    // The fields of a block closest to its solved colours in the error the
    // block's own 2 x 2 system gives: per channel, A and B each rounded down
    // or up, whichever pair costs least.
    ORBTCWord Quantised(unsigned block, const std::vector<float>& colours, const double* matrix) const
    {
        ORBTCWord candidate = m_grid.word(block);
        int values[2][3], bits[2][3];
        for (int which = 0; which < 2; ++which)
            ReadColourFields(candidate.colourData, m_grid.generation2(), which, values[which], bits[which]);
        for (int ch = 0; ch < 3; ++ch)
        {
            int low[2];
            float target[2];
            for (int which = 0; which < 2; ++which)
            {
                target[which] = colours[(size_t(block) * 2 + which) * 3 + ch];
                const int nearest = ScaleToField(target[which], bits[which][ch]);
                low[which] =
                    FieldToScale(nearest, bits[which][ch]) > target[which] && nearest > 0 ? nearest - 1 : nearest;
            }
            double best = -1.0;
            for (int pick = 0; pick < 4; ++pick)
            {
                const int a = std::min(low[0] + (pick & 1), (1 << bits[0][ch]) - 1);
                const int b = std::min(low[1] + (pick >> 1), (1 << bits[1][ch]) - 1);
                const double da = FieldToScale(a, bits[0][ch]) - target[0];
                const double db = FieldToScale(b, bits[1][ch]) - target[1];
                const double cost = matrix[0] * da * da + 2.0 * matrix[1] * da * db + matrix[2] * db * db;
                if (best < 0.0 || cost < best)
                {
                    best = cost;
                    values[0][ch] = a;
                    values[1][ch] = b;
                }
            }
        }
        for (int which = 0; which < 2; ++which)
            WriteColourFields(candidate.colourData, m_grid.generation2(), which, values[which]);
        return candidate;
    }

    // Least squares of all colours at once, quantised class by class: after
    // each class is rounded, the colours of the classes still open are solved
    // again around it. The rounded colours are put in whole and polished
    // (blocks that did better as they were go back, colour fields step, codes
    // are chosen again); that stands if the whole image gains, else the
    // rounded colours are tried block by block.
    void JointColours()
    {
        const unsigned blocks = m_grid.blockCount();
        const RefineError before = Total();
        const std::vector<RefineError> savedErrors = m_tileErrors;
        std::vector<ORBTCWord> candidates(blocks), present(blocks);
        for (unsigned block = 0; block < blocks; ++block)
            present[block] = m_grid.word(block);
        std::vector<float> colours;
        PresentColours(m_grid, colours);
        std::vector<uint8_t> fixed(blocks, 0);
        CColourSystem system(m_grid);
        system.Solve(m_settings.solverIterations, colours, fixed);
        std::vector<double> matrices;
        system.Diagonal(matrices);
        for (const std::vector<unsigned>& members : m_classes)
        {
            if (members.empty())
                continue;
            for (unsigned block : members)
            {
                candidates[block] = Quantised(block, colours, &matrices[size_t(block) * 3]);
                fixed[block] = 1;
                for (int which = 0; which < 2; ++which)
                {
                    int values[3], bits[3];
                    ReadColourFields(candidates[block].colourData, m_grid.generation2(), which, values, bits);
                    for (int ch = 0; ch < 3; ++ch)
                        colours[(size_t(block) * 2 + which) * 3 + ch] = FieldToScale(values[ch], bits[ch]);
                }
            }
            if (std::find(fixed.begin(), fixed.end(), 0) != fixed.end())
                system.Solve(m_settings.solverIterations / 4, colours, fixed);
        }

        for (unsigned block = 0; block < blocks; ++block)
            m_grid.word(block) = candidates[block];
        MeasureAll();
        for (unsigned sweep = 0; sweep < m_settings.polishSweeps; ++sweep)
        {
            ForEachBlock(AllBlocks(), [&](unsigned block) { TryWord(block, present[block]); });
            ForEachBlock(AllBlocks(), [&](unsigned block) { SearchColours(block); });
            ForEachBlock(AllBlocks(), [&](unsigned block) { ChooseModulation(block); });
        }
        if (Total().Improves(before))
            return;
        for (unsigned block = 0; block < blocks; ++block)
            m_grid.word(block) = present[block];
        m_tileErrors = savedErrors;
        ForEachBlock(AllBlocks(), [&](unsigned block) { TryWord(block, candidates[block]); });
    }

    // One step up and down on each colour field.
    void SearchColours(unsigned block)
    {
        for (int which = 0; which < 2; ++which)
            for (int ch = 0; ch < 3; ++ch)
                for (int step = -1; step <= 1; step += 2)
                {
                    ORBTCWord candidate = m_grid.word(block);
                    int values[3], bits[3];
                    ReadColourFields(candidate.colourData, m_grid.generation2(), which, values, bits);
                    values[ch] += step;
                    if (values[ch] < 0 || values[ch] >= (1 << bits[ch]))
                        continue;
                    WriteColourFields(candidate.colourData, m_grid.generation2(), which, values);
                    if (TryWord(block, candidate))
                        step = 3; // kept: on to the next field
                }
    }

    // The block's word with each stored code chosen for its own pixel, the
    // colours and the modes of 'base' held.
    ORBTCWord BestCodes(unsigned block, const ORBTCWord& base)
    {
        ModulationSlot slots[32];
        const unsigned count = ModulationSlots(base, m_grid.twoBpp(), slots);
        unsigned tiles[4];
        const unsigned tileCount = m_grid.BlockTiles(block, tiles);
        unsigned where[32];
        for (unsigned s = 0; s < count; ++s)
        {
            unsigned tile;
            m_grid.BlockPixel(block, slots[s].x, slots[s].y, tile, where[s]);
            const unsigned k = unsigned(std::find(tiles, tiles + tileCount, tile) - tiles);
            where[s] += k * 32;
        }

        RefineError best[32];
        unsigned codes[32];
        ORBTCWord& word = m_grid.word(block);
        const ORBTCWord saved = word;
        RefineError errors[4 * 32];
        for (unsigned code = 0; code < 4; ++code)
        {
            word = base;
            for (unsigned s = 0; s < count; ++s)
                WriteSlot(word, slots[s], code);
            for (unsigned k = 0; k < tileCount; ++k)
                m_grid.TilePixelErrors(tiles[k], errors + 32 * k);
            for (unsigned s = 0; s < count; ++s)
            {
                if (slots[s].oneBit && code != 0 && code != 3)
                    continue;
                const RefineError& e = errors[where[s]];
                const bool present = code == ReadSlot(base, slots[s]);
                if (code == 0 || Before(e, best[s]) || (present && !Before(best[s], e)))
                {
                    best[s] = e;
                    codes[s] = code;
                }
            }
        }
        word = saved;
        ORBTCWord result = base;
        for (unsigned s = 0; s < count; ++s)
            WriteSlot(result, slots[s], codes[s]);
        return result;
    }

    // 2bpp: the codes of 'start' improved one at a time against every pixel
    // of the tiles the block reaches, pixels without a code (which take the
    // mean of their neighbours' weights) included. Tables of each pixel's
    // error at every weight make a trial a matter of look-ups.
    ORBTCWord ImproveCodes(unsigned block, const ORBTCWord& start)
    {
        struct TileState
        {
            unsigned tile;
            bool hard;
            int codes[16][8], modes[16][8];
            RefineError errors[32][9];
            unsigned roles; // bit k: the block is word k of the tile
        };
        unsigned tiles[4];
        const unsigned count = m_grid.BlockTiles(block, tiles);
        TileState states[4];
        ORBTCWord& word = m_grid.word(block);
        const ORBTCWord saved = word;
        word = start;
        for (unsigned t = 0; t < count; ++t)
        {
            TileState& s = states[t];
            s.tile = tiles[t];
            Pixel128S a[32], b[32];
            s.hard = m_grid.TileColours(s.tile, a, b);
            unsigned blocks[4];
            m_grid.TileBlocks(s.tile, blocks);
            s.roles = 0;
            for (unsigned k = 0; k < 4; ++k)
            {
                UnpackExtendedModulations(m_grid.word(blocks[k]), int(k & 1) * 8, int(k >> 1) * 4, 2, s.codes, s.modes);
                s.roles |= blocks[k] == block ? 1u << k : 0u;
            }
            for (unsigned p = 0; p < 32; ++p)
            {
                unsigned x, y;
                m_grid.TilePixel(s.tile, p % 8, p / 8, x, y);
                const bool counted = m_grid.Counted(x, y);
                for (int w = 0; w <= 8; ++w)
                {
                    const uint8_t decoded[4] = {uint8_t((a[p].red * (8 - w) + b[p].red * w) >> 3),
                                                uint8_t((a[p].green * (8 - w) + b[p].green * w) >> 3),
                                                uint8_t((a[p].blue * (8 - w) + b[p].blue * w) >> 3),
                                                uint8_t((a[p].alpha * (8 - w) + b[p].alpha * w) >> 3)};
                    s.errors[p][w] = counted ? PixelError(m_grid.SourcePixel(x, y), decoded) : RefineError{};
                }
            }
        }
        word = saved;
        const auto total = [&](const ORBTCWord& candidate) {
            RefineError sum;
            for (unsigned t = 0; t < count; ++t)
            {
                TileState& s = states[t];
                for (unsigned k = 0; k < 4; ++k)
                    if (s.roles & (1u << k))
                        UnpackExtendedModulations(candidate, int(k & 1) * 8, int(k >> 1) * 4, 2, s.codes, s.modes);
                for (unsigned p = 0; p < 32; ++p)
                {
                    const int w = GetModulationValue(s.codes, s.modes, int(p % 8) + 4, int(p / 8) + 2, 2, s.hard);
                    sum += s.errors[p][w < 0 ? 0 : w > 8 ? 8 : w];
                }
            }
            return sum;
        };

        ModulationSlot slots[32];
        const unsigned slotCount = ModulationSlots(start, true, slots);
        ORBTCWord best = start;
        RefineError bestError = total(best);
        for (int sweep = 0; sweep < 2; ++sweep)
        {
            bool changed = false;
            for (unsigned k = 0; k < slotCount; ++k)
            {
                const unsigned present = ReadSlot(best, slots[k]);
                for (unsigned code = 0; code < 4; ++code)
                {
                    if (code == present || (slots[k].oneBit && code != 0 && code != 3))
                        continue;
                    ORBTCWord candidate = best;
                    WriteSlot(candidate, slots[k], code);
                    const RefineError error = total(candidate);
                    if (Before(error, bestError))
                    {
                        best = candidate;
                        bestError = error;
                        changed = true;
                    }
                }
            }
            if (!changed)
                break;
        }
        return best;
    }

    // The block's codes chosen again for its colours.
    ORBTCWord NewCodes(unsigned block, const ORBTCWord& base)
    {
        const ORBTCWord chosen = BestCodes(block, base);
        return m_grid.twoBpp() ? ImproveCodes(block, chosen) : chosen;
    }

    void ChooseModulation(unsigned block)
    {
        TryWord(block, NewCodes(block, m_grid.word(block)));
    }

    // The other modes of a word: its flags (and 2bpp sub-mode bits) changed,
    // its codes chosen again.
    void TryBlockModes(unsigned block)
    {
        const ORBTCWord start = m_grid.word(block);
        const bool generation2 = m_grid.generation2();
        const unsigned hardModes = generation2 ? 2 : 1;
        const unsigned modulationModes = m_grid.twoBpp() ? 4 : 2;
        ORBTCWord best = start;
        RefineError bestError = BlockError(block);
        for (unsigned hard = 0; hard < hardModes; ++hard)
            for (unsigned mode = 0; mode < modulationModes; ++mode)
            {
                ORBTCWord candidate = start;
                if (generation2)
                    candidate.colourData = (candidate.colourData & ~kHardFlag) | (hard ? kHardFlag : 0u);
                candidate.colourData = (candidate.colourData & ~1u) | (mode ? 1u : 0u);
                if (m_grid.twoBpp() && mode != ((start.colourData & 1u) ? 1 + SubMode(start) : 0))
                {
                    candidate.modulationData &= ~kSubModeBits;
                    if (mode >= 2)
                        candidate.modulationData |= mode == 2 ? 1u : kSubModeBits;
                }
                if (candidate.colourData == start.colourData && candidate.modulationData == start.modulationData)
                    continue;
                candidate = NewCodes(block, candidate);
                if (TryWord(block, candidate))
                {
                    const RefineError error = BlockError(block);
                    if (Before(error, bestError))
                    {
                        best = candidate;
                        bestError = error;
                    }
                    TryWordForce(block, start);
                }
            }
        if (best.colourData != start.colourData || best.modulationData != start.modulationData)
            TryWord(block, best);
    }

    // 2bpp sub-mode less 1 of a word with its modulation flag set: 0 both
    // axes, 1 horizontal, 2 vertical.
    static unsigned SubMode(const ORBTCWord& word)
    {
        if (!(word.modulationData & 1u))
            return 0;
        return (word.modulationData & 0x100000u) ? 2 : 1;
    }

    // Puts the word back whatever the error.
    void TryWordForce(unsigned block, const ORBTCWord& word)
    {
        m_grid.word(block) = word;
        unsigned tiles[4];
        const unsigned count = m_grid.BlockTiles(block, tiles);
        for (unsigned k = 0; k < count; ++k)
            m_tileErrors[tiles[k]] = m_grid.TileError(tiles[k]);
    }

    // The modes of the blocks of highest error, tried again.
    void TryModes()
    {
        const unsigned blocks = m_grid.blockCount();
        std::vector<std::pair<int64_t, unsigned>> ranked(blocks);
        for (unsigned block = 0; block < blocks; ++block)
            ranked[block] = {-BlockError(block).weighted, block};
        std::sort(ranked.begin(), ranked.end());
        const unsigned count = std::min(blocks, std::max(1u, unsigned(double(blocks) * m_settings.modeShare + 0.5)));
        std::vector<unsigned> chosen(count);
        for (unsigned k = 0; k < count; ++k)
            chosen[k] = ranked[k].second;
        ForEachBlock(chosen, [&](unsigned block) { TryBlockModes(block); });
    }

    CRefineGrid& m_grid;
    const ORBTCRefineSettings& m_settings;
    std::vector<RefineError> m_tileErrors;
    std::vector<std::vector<unsigned>> m_classes;
};

} // namespace

bool ORBTCRefineWords(const uint8_t* source, unsigned width, unsigned height, unsigned realWidth, unsigned realHeight,
                      bool twoBpp, unsigned generation, uint8_t* words, float progressFrom,
                      const ORBTCRefineSettings& settings)
{
    const unsigned bw = twoBpp ? 8 : 4;
    const size_t count = size_t(width / bw) * (height / 4);
    if (count == 0)
        return true;
    std::vector<ORBTCWord> start(count);
    std::memcpy(start.data(), words, count * sizeof(ORBTCWord));
    CRefineGrid grid(source, width, height, realWidth, realHeight, twoBpp, generation == 1, start.data());
    CRefiner refiner(grid, settings);
    const RefineError before = refiner.Total();
    if (!refiner.Run(progressFrom))
        return false;
    if (refiner.Total().Improves(before))
        std::memcpy(words, grid.words().data(), count * sizeof(ORBTCWord));
    return true;
}

} // namespace orbtexture
