#ifndef ORBTEXTUREVULKANFORMATS_H
#define ORBTEXTUREVULKANFORMATS_H

// Internal: pixel formats to and from Vulkan format codes, and the basic data
// format descriptor block that describes each of them in a KTX 2.0 file.

#include <cstdint>
#include <vector>

#include "ORBTextureFormat.h"

namespace orbtexture
{

// The Vulkan format of a pixel format, channel type and colour space; sRGB
// picks the sRGB code where there is one. False when there is none.
bool VulkanFormatOf(uint64_t pixelFormat, EORBTVariableType channelType, EORBTColourSpace colourSpace,
                    uint32_t& vkFormat);

// The inverse: false for a code without a pixel format. Codes shared by two
// formats give one of them (DXT3 for BC2, ETC2_RGB for ETC1's code, the RGBA
// form of ORBTC).
bool PixelFormatOfVulkan(uint32_t vkFormat, uint64_t& pixelFormat, EORBTVariableType& channelType,
                         EORBTColourSpace& colourSpace);

// Size of the format's data type for the header's typeSize: 1 for block
// formats and bytes, 2 or 4 for wider elements and packed words.
uint32_t VulkanTypeSize(uint64_t pixelFormat, EORBTVariableType channelType);

// The whole descriptor (total size word, then one basic block) of a format
// VulkanFormatOf maps; 'premultiplied' sets the alpha flag.
std::vector<uint32_t> BasicDescriptor(uint64_t pixelFormat, EORBTVariableType channelType, EORBTColourSpace colourSpace,
                                      bool premultiplied);

// Descriptor block fields the reader shows and uses.
constexpr uint32_t kDescriptorFlagPremultiplied = 1;
constexpr uint32_t kDescriptorTransferLinear = 1;
constexpr uint32_t kDescriptorTransferSRGB = 2;

} // namespace orbtexture

#endif
