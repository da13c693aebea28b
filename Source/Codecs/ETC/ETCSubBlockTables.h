#ifndef ETCSUBBLOCKTABLES_H
#define ETCSUBBLOCKTABLES_H
// Per-pixel errors of the four ETC1 sub-blocks (left, right, top, bottom) of
// one block, shared by the exhaustive individual and differential searches.
//
// Layout of a sub-block's table: channel, value, pixel (8), modifier (4),
// table (8). A value has the slot of its top five bits, which differ for
// every expanded 4-bit and 5-bit code; the eight tables of one pixel and
// modifier lie side by side, so one vector holds them.
#include <cstddef>
#include <vector>

namespace orbtexture
{

constexpr size_t kSubBlockPerPixel = 4 * 8;
constexpr size_t kSubBlockPerValue = 8 * kSubBlockPerPixel;
constexpr size_t kSubBlockPerChannel = 32 * kSubBlockPerValue;
constexpr size_t kSubBlockTableSize = 3 * kSubBlockPerChannel;

// Where the errors of the channel's value start (pixel 0, modifier 0, table 0).
inline size_t SubBlockOffset(int channel, int value)
{
    return size_t(channel) * kSubBlockPerChannel + size_t(value >> 3) * kSubBlockPerValue;
}

inline const unsigned int* SubBlockValue(const unsigned int* table, int channel, int value)
{
    return table + SubBlockOffset(channel, value);
}

// Per-thread work space: the four sub-blocks' tables and the best error of
// every colour for each sub-block. Allocated once a thread.
struct SubBlockWork
{
    std::vector<unsigned int> precalc[4];
    std::vector<unsigned int> errors[4];
    SubBlockWork();
};

SubBlockWork& ThreadSubBlockWork();

// Fills the tables of the 'levels' base values (expanded by 'expand') of the
// block at (x, y) of an RGB image, each channel's error weighed by 'squares'.
void PrecalculateSubBlocks(const unsigned char* img, int width, int x, int y, int levels, int (*expand)(int),
                           const unsigned int* const* squares, SubBlockWork& work);

// Where a sub-block search found its least errors. Individual: each
// sub-block's first least colour (red outermost) and error, or the bound when
// none is below it. Differential: the first least pair of the first and
// second sub-block of either orientation in the same order.
struct SubBlockBest
{
    size_t colour[4];
    unsigned int error[4];
};

// The fast searches over the filled tables; the same results as the plain
// ones. 'limit' bounds as in the plain searches. Individual: each sub-block's
// first least colour with its error, the left and top below 'limit', the
// right and bottom below 'limit' less their partner's least. Differential:
// the first least pair below 'limit' (false when none) with its sum, its
// orientation (1: flipped) and colours.
void IndividualSubBlocks(int levels, int (*expand)(int), unsigned int limit, SubBlockWork& work, SubBlockBest& best);
bool DifferentialPair(unsigned int limit, SubBlockWork& work, unsigned int& sum, bool& flipped, size_t& first,
                      size_t& second);

} // namespace orbtexture

#endif
