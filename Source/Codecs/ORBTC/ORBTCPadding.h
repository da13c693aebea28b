#ifndef ORBTCPADDING_H
#define ORBTCPADDING_H

#include <cstdint>
#include <vector>

namespace orbtexture
{

// Pads width x height rgba8 pixels to paddedWidth x paddedHeight: column
// width + k repeats column width + k - pad, then row height + k repeats row
// height + k - pad across the padded width. Where the image is narrower or
// lower than its pad, the source wraps within the real columns or rows.
void ORBTCPadToBlocks(const uint8_t* input, unsigned width, unsigned height, unsigned paddedWidth,
                      unsigned paddedHeight, std::vector<uint8_t>& work);

} // namespace orbtexture

#endif
