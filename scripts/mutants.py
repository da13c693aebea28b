#!/usr/bin/env python3
# Measures how well the test suite catches planted faults. Each fault is one
# text replacement in one source file; for each, the script applies it in a
# scratch clone of the committed HEAD, rebuilds incrementally, runs ctest and
# records whether any test failed (killed) or none did (survived), then puts
# the file back byte for byte. The working tree of the repository is never
# touched.
#
# Not part of CI: the whole list takes about an hour on two cores.
#
#   python3 scripts/mutants.py                   every fault, then the score
#   python3 scripts/mutants.py --only etc-       faults whose id or area holds "etc-"
#   python3 scripts/mutants.py --list            the faults, nothing run
#   python3 scripts/mutants.py --check           every fault applies to HEAD, nothing built
#   python3 scripts/mutants.py --fresh           clone and build the scratch copy anew
#
# The scratch clone (default build-mutants/ in the repository) and its build
# are kept between runs and brought to HEAD at the start of each.

import argparse
import collections
import os
import re
import shutil
import subprocess
import sys
import time


class Fault:
    def __init__(self, id, file, old, new, area, equivalent=None):
        self.id = id
        self.file = file
        self.old = old
        self.new = new
        self.area = area
        # Why the fault cannot change any output; such faults are run and
        # reported but left out of the score.
        self.equivalent = equivalent


F = Fault

FAULTS = [
    # ---- format table
    F("table-dxt1-bits", "Source/Model/ORBTextureFormatFacts.cpp",
      'Format("DXT1", eFamilyDXT, 4, 4, 4,', 'Format("DXT1", eFamilyDXT, 8, 4, 4,', "format-table"),
    F("table-orbtcii2-block", "Source/Model/ORBTextureFormatFacts.cpp",
      'ORBTC("ORBTCII_2bpp", eFamilyORBTCII, 2, 8, 4,', 'ORBTC("ORBTCII_2bpp", eFamilyORBTCII, 2, 8, 8,', "format-table"),
    F("table-etc-qualities", "Source/Pixels/ORBTextureCodecRegistry.cpp",
      "constexpr int8_t kEveryETCQuality = 5;", "constexpr int8_t kEveryETCQuality = 4;", "format-table"),

    # ---- native .orb
    F("native-padding-size", "Source/Model/ORBTexture.cpp",
      "const uint32_t size = (0u - 64u - getMetaDataSize()) % alignment;",
      "const uint32_t size = (0u - 52u - getMetaDataSize()) % alignment;", "native-file"),
    F("native-member-stride", "Source/Model/ORBTexture.cpp",
      "offset += uint64_t(arrayMember) * getDataSize(int(mip), false, true);",
      "offset += uint64_t(arrayMember) * getDataSize(int(mip), false, false);", "native-file"),
    F("native-empty-item", "Source/Files/ORBTextureNativeParser.cpp",
      "if (fileWalk && block.dataSize == 0)", "if (block.dataSize == 0)", "native-file"),
    F("native-walk-end", "Source/Files/ORBTextureNativeParser.cpp",
      "        if (consumed >= declared)\n            break;",
      "        if (consumed > declared)\n            break;", "native-file"),

    # ---- legacy headers and files
    F("legacy-mip-count", "Source/Files/ORBTextureLegacy.cpp",
      "result.mipMapCount = header.getNumMIPLevels() - 1;",
      "result.mipMapCount = header.getNumMIPLevels();", "legacy"),
    F("legacy-api7-first-row", "Source/Files/ORBTextureLegacy.cpp",
      "row.legacy >= kGroupDFirstForwardRow", "row.legacy > kGroupDFirstForwardRow", "legacy"),
    F("legacy-surface-order", "Source/Files/ORBTextureLegacyFile.cpp",
      "surface = block + m_levelStart[mip] + (uint64_t(member) * m_faces + face) * size;",
      "surface = block + m_levelStart[mip] + (uint64_t(face) * m_members + member) * size;", "legacy"),

    # ---- DDS
    F("dds-array-header", "Source/Files/ORBTextureDDS.cpp",
      "bool dx10 = members > 1;", "bool dx10 = members > 2;", "dds"),
    F("dds-rgb-alpha-flag", "Source/Files/ORBTextureDDS.cpp",
      "if (group == kPixelRGB && rowAlpha != alphaPixels)",
      "if (group == kPixelRGB && rowAlpha && !alphaPixels)", "dds"),
    F("dds-mip-count-flag", "Source/Files/ORBTextureDDS.cpp",
      "result.setNumMIPLevels((flags & kFlagMIPMapCount) ? GetWord(bytes, kAtMIPCount) : 1);",
      "result.setNumMIPLevels(GetWord(bytes, kAtMIPCount) ? GetWord(bytes, kAtMIPCount) : 1);", "dds"),

    # ---- KTX
    F("ktx-orientation-t", "Source/Files/ORBTextureKTX.cpp",
      "            if (letters[0] != 1)\n                orientation |= eOrientUp;",
      "            if (letters[0] == 1)\n                orientation |= eOrientUp;", "ktx"),
    F("ktx-cube-array", "Source/Files/ORBTextureKTX.cpp",
      "return header.getNumFaces() == 6 && header.getNumArrayMembers() == 1;",
      "return header.getNumFaces() == 6;", "ktx"),
    F("ktx-volume-rows", "Source/Files/ORBTextureKTX.cpp",
      "level.rows = uint64_t(header.getHeight(mip)) * header.getDepth(mip);",
      "level.rows = uint64_t(header.getHeight(mip));", "ktx"),

    # ---- .astc files and C headers
    F("astc-block-range", "Source/Files/ORBTextureASTCFile.cpp",
      "return size >= 3 && size <= 12;", "return size >= 4 && size <= 12;", "astc-file"),
    F("astc-last-format", "Source/Files/ORBTextureASTCFile.cpp",
      "if (IsASTCFormat(format))",
      "if (IsASTCFormat(format) && format != ePF_ASTC_6x6x6)", "astc-file"),
    F("cheader-item-lines", "Source/Files/ORBTextureCHeader.cpp",
      "                if (n % 32 == 31)", "                if (i % 32 == 31)", "c-header"),
    F("cheader-symbol-name", "Source/Files/ORBTextureFiles.cpp",
      "CORBTString name = filePath.substr(0, filePath.find_first_of('.'));",
      "CORBTString name = filePath.substr(0, filePath.find_last_of('.'));", "c-header"),

    # ---- format code maps
    F("maps-dxt2-premultiplied", "Source/Files/ORBTextureFormatMaps.cpp",
      "{FourCC('D', 'X', 'T', '2'), orbtexture::ePF_DXT2, kNoFormat, true},",
      "{FourCC('D', 'X', 'T', '2'), orbtexture::ePF_DXT2, kNoFormat, false},", "format-maps"),
    F("maps-gl-srgb-inverse", "Source/Files/ORBTextureFormatMaps.cpp",
      "        if (row.internalSRGB == glInternalFormat && row.internalSRGB != 0)\n"
      "            return Answer(pixelFormat, channelType, colourSpace, row.format, EORBTVariableType(row.inverseType),\n"
      "                          eColourSpaceSRGB);",
      "        if (row.internalSRGB == glInternalFormat && row.internalSRGB != 0)\n"
      "            return Answer(pixelFormat, channelType, colourSpace, row.format, EORBTVariableType(row.inverseType),\n"
      "                          eColourSpaceLinear);", "format-maps"),
    F("maps-d3d-a1r5g5b5", "Source/Files/ORBTextureFormatMaps.cpp",
      '{ChannelLayout("argb", 1, 5, 5, 5), kUIN, kUSN, kD3DFMT_A1R5G5B5},',
      '{ChannelLayout("argb", 1, 5, 5, 5), kUIN, kUSN, kD3DFMT_X1R5G5B5},', "format-maps"),

    # ---- transcoding pipeline
    F("transcode-colour-space-only", "Source/Pixels/ORBTextureUtilities.cpp",
      "if (currentType == pixelType && currentColourSpace == colourSpace && currentChannelType == channelType)",
      "if (currentType == pixelType && currentChannelType == channelType)", "transcode"),
    F("transcode-dither-32bit", "Source/Pixels/ORBTextureUtilities.cpp",
      "if (dither && ORBTGetBitsPerPixel(pixelType.PixelTypeID) < 32)",
      "if (dither && ORBTGetBitsPerPixel(pixelType.PixelTypeID) <= 32)", "transcode"),
    F("transcode-table-threshold", "Source/Pixels/ORBTextureUtilities.cpp",
      "constexpr uint32_t kMinPixelsForTables = 4096;", "constexpr uint32_t kMinPixelsForTables = 1024;",
      "transcode", equivalent="the byte tables give the encoders' bytes for every source value; only speed changes"),
    F("transcode-dither-diagonal", "Source/Pixels/ORBTextureCodecDispatch.cpp",
      "spread(pixel + 4 + rowPitch, 4);", "spread(pixel + 4 + rowPitch, 8);", "transcode"),

    # ---- pixel encoder
    F("pixel-unorm-rounding", "Source/Pixels/ORBTPixelConversion.cpp",
      "return uint32_t(double(value) * double(MaxOfWidth(bits)) + 0.5);",
      "return uint32_t(double(value) * double(MaxOfWidth(bits)));", "pixel-encoder"),
    F("pixel-luminance-weights", "Source/Pixels/ORBTPixelConversion.cpp",
      "const long double weights[3] = {0.2126L, 0.7152L, 0.0722L};",
      "const long double weights[3] = {0.2126L, 0.7152L, 0.0772L};", "pixel-encoder"),
    F("pixel-missing-alpha", "Source/Pixels/ORBTPixelConversion.cpp",
      "case eChannelAlpha: value = sourceOr(eChannelAlpha, eChannelUnspecified, 1.0f); break;",
      "case eChannelAlpha: value = sourceOr(eChannelAlpha, eChannelUnspecified, 0.0f); break;", "pixel-encoder"),
    F("pixel-table-overlap", "Source/Pixels/ORBTPixelByteTables.cpp",
      "if ((changed.low & used.low) != 0 || (changed.high & used.high) != 0)",
      "if ((changed.high & used.high) != 0)", "pixel-encoder"),

    # ---- DXT
    F("dxt-three-colour-rounding", "Source/Codecs/DXTCodec.cpp",
      "table[2][c] = fourColours ? (21 * a + 11 * b) >> 5 : (a + b) >> 1;",
      "table[2][c] = fourColours ? (21 * a + 11 * b) >> 5 : (a + b + 1) >> 1;", "dxt"),
    F("dxt-alpha-half-step", "Source/Codecs/DXTCodec.cpp",
      "int step = whole + (t - static_cast<float>(whole) >= 0.5f ? 1 : 0);",
      "int step = whole + (t - static_cast<float>(whole) > 0.5f ? 1 : 0);", "dxt"),
    F("dxt-punch-threshold", "Source/Codecs/DXTCodec.cpp",
      "below |= alphas[i] < 128;", "below |= alphas[i] <= 128;", "dxt"),

    # ---- YUV, RGBG, 1bpp, RGB9E5
    F("yuv-second-luma-rounding", "Source/Codecs/YUVCodec.cpp",
      "y1 = ClampToByte(0.257f * second.red + 0.504f * second.green + 0.098f * second.blue + 16.5f);",
      "y1 = ClampToByte(0.257f * second.red + 0.504f * second.green + 0.098f * second.blue + 16.0f);",
      "small-codecs"),
    F("rgbg-second-green", "Source/Codecs/RGBGCodec.cpp",
      "out[order.g1] = a[5];", "out[order.g1] = a[1];", "small-codecs"),
    F("onebpp-threshold", "Source/Codecs/OneBPPCodec.cpp",
      "if ((unsigned(in[0]) + in[1] + in[2]) / 3 >= 128)",
      "if ((unsigned(in[0]) + in[1] + in[2]) / 3 > 128)", "small-codecs"),
    F("rgb9e5-exponent-bump", "Source/Codecs/RGB9E5Codec.cpp",
      "if (RoundHalfUp(m * scale) == 512.0)", "if (RoundHalfUp(m * scale) > 512.0)", "small-codecs"),

    # ---- ETC decoding
    F("etc-decode-delta-sign", "Source/Codecs/ETC/ETCDecompress.cpp",
      "return field >= 4 ? static_cast<int>(field) - 8 : static_cast<int>(field);",
      "return field > 4 ? static_cast<int>(field) - 8 : static_cast<int>(field);", "etc-decode"),
    F("etc-decode-h-order", "Source/Codecs/ETC/ETCDecompress.cpp",
      "(first >= second ? 1u : 0u)", "(first > second ? 1u : 0u)", "etc-decode"),
    F("etc-decode-flip-halves", "Source/Codecs/ETC/ETCDecompress.cpp",
      "return (word1 & 1) ? j >= 2 : i >= 2;", "return (word1 & 1) ? i >= 2 : j >= 2;", "etc-decode"),

    # ---- ETC fast searches (qualities 0 and 1)
    F("etc-fast-diff-range", "Source/Codecs/ETC/ETCAverageSearch.cpp",
      "if (diff < -4 || diff > 3)", "if (diff < -4 || diff > 2)", "etc-fast"),
    F("etc-fast-flip-tie", "Source/Codecs/ETC/ETCAverageSearch.cpp",
      "    if (flipped < plain)\n    {\n        word1 = b1;",
      "    if (flipped <= plain)\n    {\n        word1 = b1;", "etc-fast"),
    F("etc-fast-punch-opaque", "Source/Codecs/ETC/ETCModes.cpp",
      "    if (hasAlpha(alpha, x, y, width))\n        return;",
      "    if (!hasAlpha(alpha, x, y, width))\n        return;", "etc-fast"),

    # ---- ETC exhaustive searches (qualities 2 to 5)
    F("etc-exhaustive-diff-red-short", "Source/Codecs/ETC/ETCExhaustive.cpp",
      "for (int dr = std::max(-4, -code[0]); dr <= std::min(3, 31 - code[0]); ++dr)",
      "for (int dr = std::max(-4, -code[0]); dr <= std::min(2, 31 - code[0]); ++dr)", "etc-exhaustive"),
    F("etc-exhaustive-individual-flip-tie", "Source/Codecs/ETC/ETCExhaustive.cpp",
      "const bool flip = flipped < plain;", "const bool flip = flipped <= plain;", "etc-exhaustive"),
    F("etc-exhaustive-planar-rounding", "Source/Codecs/ETC/ETCExhaustivePlanar.cpp",
      "return std::clamp((4 * o + i * (h - o) + j * (v - o) + 2) >> 2, 0, 255);",
      "return std::clamp((4 * o + i * (h - o) + j * (v - o) + 1) >> 2, 0, 255);", "etc-exhaustive"),
    F("etc-exhaustive-corner-tie", "Source/Codecs/ETC/ETCExhaustivePlanar.cpp",
      "target - decoded(above - 1) <= decoded(above) - target",
      "target - decoded(above - 1) < decoded(above) - target", "etc-exhaustive"),
    F("etc-exhaustive-seed-tie", "Source/Codecs/ETC/ETCSubBlockSearch.cpp",
      "        bound = seeded + 1;", "        bound = seeded;", "etc-exhaustive"),
    F("etc-exhaustive-pair-reach", "Source/Codecs/ETC/ETCSubBlockSearch.cpp",
      "if (dr < 8 && dg < 8 && db < 8 && uint64_t(e1) + e2 < bestSum)",
      "if (dr < 8 && dg < 7 && db < 8 && uint64_t(e1) + e2 < bestSum)", "etc-exhaustive"),
    F("etc-exhaustive-near-reach", "Source/Codecs/ETC/ETCSubBlockSearch.cpp",
      "for (int r = std::max(0, r2 - 3); r <= std::min(31, r2 + 4); ++r)",
      "for (int r = std::max(0, r2 - 3); r <= std::min(31, r2 + 3); ++r)", "etc-exhaustive"),
    F("etc-exhaustive-th-bounding", "Source/Codecs/ETC/ETCTHKernels.cpp",
      "            Store8(greenOut + code * 272 + i, _mm256_add_epi32(Load8(green + code * 272 + i), leastBlue));",
      "            Store8(greenOut + code * 272 + i, _mm256_add_epi32(Load8(green + code * 272 + i), rest));",
      "etc-exhaustive"),
    F("etc-exhaustive-corner-ceiling", "Source/Codecs/ETC/ETCExhaustivePlanar.cpp",
      "expanded = need <= 0 ? 0 : (need + 2) / 3;", "expanded = need <= 0 ? 0 : (need + 1) / 3;",
      "etc-exhaustive"),

    # ---- EAC
    F("eac-decode-base-term", "Source/Codecs/ETC/ETCDecompress.cpp",
      "return base * 8 + 4;", "return base * 8;", "eac"),
    F("eac-alpha-index-tie", "Source/Codecs/ETC/EACCompress.cpp",
      "            if (d * d < least)", "            if (d * d <= least)", "eac"),
    F("eac-alpha-mean-rounding", "Source/Codecs/ETC/EACCompress.cpp",
      "const int avg = static_cast<int>(sum * 0.0625 + 0.5);",
      "const int avg = static_cast<int>(sum * 0.0625);", "eac"),

    # ---- ORBTC decoding
    F("orbtc-decode-expand3", "Source/Codecs/ORBTC/ORBTCDecompress.cpp",
      "uint8_t expand3(uint32_t v) { return static_cast<uint8_t>((v << 2) | (v >> 1)); }",
      "uint8_t expand3(uint32_t v) { return static_cast<uint8_t>((v << 2) | (v >> 2)); }", "orbtc-decode"),
    F("orbtc-decode-average-rounding", "Source/Codecs/ORBTC/ORBTCDecompress.cpp",
      "weights[values[x + 1][y]] + 2) / 4;", "weights[values[x + 1][y]] + 1) / 4;", "orbtc-decode"),
    F("orbtc-decode-axis-modes", "Source/Codecs/ORBTC/ORBTCDecompress.cpp",
      "mode = (bits & (1u << 20)) ? 3 : 2;", "mode = (bits & (1u << 20)) ? 2 : 3;", "orbtc-decode"),

    # ---- ORBTC block compressors (qualities 0 and 1)
    F("orbtc-block-4bpp-mode-tie", "Source/Codecs/ORBTC/ORBTC4bppCompressor.cpp",
      "info.mode = uint64_t(error0) * info.modeWeights[0] > uint64_t(error1) * info.modeWeights[1]",
      "info.mode = uint64_t(error0) * info.modeWeights[0] >= uint64_t(error1) * info.modeWeights[1]",
      "orbtc-block"),
    F("orbtc-block-2bpp-mode-tie", "Source/Codecs/ORBTC/ORBTC2bppCompressor.cpp",
      "if (best > weighted)", "if (best >= weighted)", "orbtc-block"),
    F("orbtc-block-section-levels", "Source/Codecs/ORBTC/ORBTC2SectionCompress.cpp",
      "int level = int(2.0f * t + 0.5f);", "int level = int(2.0f * t);", "orbtc-block"),

    # ---- ORBTCII decoding
    F("orbtcii-decode-palette-origin", "Source/Codecs/ORBTC/fnzj/wrapper_decoder.cpp",
      "if (palettes && (c | r) != 0 && modes[x][y])", "if (palettes && modes[x][y])", "orbtcii-decode"),
    F("orbtcii-decode-hard-quadrant", "Source/Codecs/ORBTC/fnzj/wrapper_decoder.cpp",
      "colours[(c >= half ? 1 : 0) + (r >= 2 ? 2 : 0)]", "colours[(c > half ? 1 : 0) + (r >= 2 ? 2 : 0)]",
      "orbtcii-decode"),

    # ---- quality 9 refinement
    F("refine-field-green-shift", "Source/Codecs/ORBTC/ORBTCRefineGrid.cpp",
      "{{8, 4, 1}, {10, 5, 1}}", "{{8, 4, 1}, {10, 6, 1}}", "refine"),
    F("refine-punch-through-black", "Source/Codecs/ORBTC/fnzj/wrapper_decoder.cpp",
      "                    o[0] = o[1] = o[2] = 0;", "                    o[1] = o[2] = 0;", "refine"),
    F("refine-one-axis-slot", "Source/Codecs/ORBTC/ORBTCRefineGrid.cpp",
      "if (shift == 0 || (shift == 20 && oneAxis))", "if (shift == 0 || shift == 20)", "refine"),

    # ---- optimiser (qualities 2 and up)
    F("optimiser-pair-refine-tie", "Source/Codecs/ORBTC/fnzj/fnzj_localised_region.cpp",
      "(total == best.totalError && errors.central > best.centralError)",
      "(total == best.totalError && errors.central >= best.centralError)", "optimiser"),
    F("optimiser-results-sort-stable", "Source/Codecs/ORBTC/fnzj/fnzj_localised_region.cpp",
      "const bool takeRight = compare(from + j * itemSize, from + i * itemSize) < 0;",
      "const bool takeRight = compare(from + j * itemSize, from + i * itemSize) <= 0;", "optimiser"),
    F("optimiser-region-selected-tie", "Source/Codecs/ORBTC/fnzj/fnzj_localised_region.cpp",
      "if (error < bestError || (error == bestError && isSelected))", "if (error < bestError)", "optimiser"),
    F("optimiser-region-revisit", "Source/Codecs/ORBTC/fnzj/fnzj_localised_region.cpp",
      "if (!params.forceAllRegions && latestChange < region.lastVisitedStamp)",
      "if (!params.forceAllRegions && latestChange <= region.lastVisitedStamp)", "optimiser"),
    F("optimiser-pair-fit-dominance", "Source/Codecs/ORBTC/fnzj/fnzj_localised.cpp",
      "if (std::fabs(p) > 100.0f * std::fabs(r))", "if (std::fabs(p) > 10.0f * std::fabs(r))", "optimiser"),
    F("optimiser-stats-residual-box", "Source/Codecs/ORBTC/fnzj/threadsupport_stats.cpp",
      "SizeOfOrientedBBox(region.ResidualBox.box) < SizeOfOrientedBBox(region.AllBox.box)",
      "SizeOfOrientedBBox(region.ResidualBox.box) <= SizeOfOrientedBBox(region.AllBox.box)", "optimiser"),
    F("optimiser-stats-interior", "Source/Codecs/ORBTC/fnzj/threadsupport_stats.cpp",
      "if (u != 0 && u != innerRight && v != 0 && v != innerBottom)",
      "if (u != 0 && u != innerRight && v != 0)", "optimiser"),
    F("optimiser-swap-second-slot", "Source/Codecs/ORBTC/fnzj/threadsupport_search.cpp",
      "                if (r0 != r1)\n                    SwapFirst(*second, generation2);",
      "                if (r1)\n                    SwapFirst(*second, generation2);", "optimiser"),
    F("optimiser-swap-generation2-rule", "Source/Codecs/ORBTC/fnzj/threadsupport_search.cpp",
      "if (isGeneration2 && (c.repA[3] == 0 || (c.repA[3] != 255 && c.repB[3] == 255)))",
      "if (isGeneration2 && c.repA[3] == 0)", "optimiser"),
    F("optimiser-schedule-halfway", "Source/Codecs/ORBTC/fnzj/threadsupport_search.cpp",
      "params.clampToBox = params.useIslands = pass < halfway ? 1 : 0;",
      "params.clampToBox = params.useIslands = pass <= halfway ? 1 : 0;", "optimiser"),
    F("optimiser-stage-odd-column", "Source/Codecs/ORBTC/fnzj/threadsupport.cpp",
      "const bool oddLast = blocksWide > 1 && blocksWide % 2 == 1;",
      "const bool oddLast = blocksWide > 1 && blocksWide % 2 == 3;", "optimiser"),
    F("optimiser-settled-outer", "Source/Codecs/ORBTC/fnzj/fnzj_localised_blend.cpp",
      "for (int locality = includeOuterRing ? 0 : 1; locality < 3; ++locality)\n        sums[locality] += cache.settledErrors[locality];",
      "for (int locality = 1; locality < 3; ++locality)\n        sums[locality] += cache.settledErrors[locality];",
      "optimiser"),
    F("optimiser-schedule-hard-variants", "Source/Codecs/ORBTC/fnzj/threadsupport_search.cpp",
      "params.tryHardVariants = pass + 1 < passes &&", "params.tryHardVariants = pass < passes &&",
      "optimiser"),
    F("ktx2-level-alignment", "Source/Files/ORBTextureKTX2.cpp",
      "for (alignment = blockBytes; alignment % 4; alignment += blockBytes)",
      "for (alignment = blockBytes; alignment % 2; alignment += blockBytes)", "ktx2"),
    F("ktx2-uncompressed-length", "Source/Files/ORBTextureKTX2.cpp",
      "if (e.uncompressedByteLength != size)", "if (e.uncompressedByteLength < size)", "ktx2"),
    F("ktx2-srgb-transfer", "Source/Files/ORBTextureVulkanFormats.cpp",
      "(srgb ? kDescriptorTransferSRGB : kDescriptorTransferLinear)", "kDescriptorTransferLinear", "ktx2"),
    F("python-view-strides", "python/src/Views.cpp",
      "strides{w * c * item, c * item, item}", "strides{w * c * item, c * item, 1}", "python"),
    F("python-view-bounds", "python/src/Views.cpp",
      "if (asked[i] >= counts[i])", "if (asked[i] > counts[i])", "python"),
    F("python-cancel-context", "python/src/CallScope.cpp",
      "        m_context.cancel = &m_cancelled;", "        m_context.cancel = nullptr;", "python"),
    F("optimiser-lanes-integer-fit", "Source/Codecs/ORBTC/fnzj/fnzj_window_lanes.cpp",
      "p = float(sums[0]) * 0.0625f;", "p = float(sums[0]) * 0.125f;", "optimiser"),
    F("optimiser-lanes-low-gain", "Source/Codecs/ORBTC/fnzj/fnzj_window_lanes.cpp",
      "l.integerFit = residuals && _mm256_movemask_epi8(lowGainSeen) == 0;", "l.integerFit = residuals;",
      "optimiser"),
    F("optimiser-lanes-neighbour-form", "Source/Codecs/ORBTC/fnzj/fnzj_localised_blend.cpp",
      "punchThrough |= (mode & 1) << p;", "punchThrough |= (p == 4 ? mode & 1 : 0) << p;", "optimiser"),
    F("optimiser-lanes-palette-risk", "Source/Codecs/ORBTC/fnzj/fnzj_localised_blend.cpp",
      "const uint32_t palettePlaces = geometry->paletteRisk & punchThrough;",
      "const uint32_t palettePlaces = geometry->paletteRisk;", "optimiser"),
    F("optimiser-quantise-tie", "Source/Codecs/ORBTC/fnzj/initialreps.cpp",
      "_mm_andnot_si128(upOnTie, tie)", "_mm_and_si128(upOnTie, tie)", "optimiser"),
    F("optimiser-partition-memo-key", "Source/Codecs/ORBTC/fnzj/initialreps.cpp",
      "if (slot.lower == lowerBits && slot.upper == upperBits)", "if (slot.lower == lowerBits)", "optimiser"),
    F("optimiser-palette-level-table", "Source/Codecs/ORBTC/fnzj/initialreps.cpp",
      "uint8_t(SearchNearestLevel(x, 4 + b, u != 0))", "uint8_t(SearchNearestLevel(x, 4 + b, u == 0))", "optimiser"),
    F("optimiser-island-lanes-group", "Source/Codecs/ORBTC/fnzj/fnzj_localised_blend.cpp",
      "groups += k > 0 && work.islandLabels[work.islandOrder[k]] != work.islandLabels[work.islandOrder[k - 1]];",
      "groups += k > 0 && work.islandOrder[k] != work.islandOrder[k - 1] + 1;", "optimiser"),
    F("optimiser-island-lanes-part", "Source/Codecs/ORBTC/fnzj/fnzj_localised_blend.cpp",
      "part = L.lowGain[2][j] != 0 ? 1 : 0; // the transparent choice's gain", "part = 0;", "optimiser"),
    F("optimiser-visited-table-round", "Source/Codecs/ORBTC/fnzj/fnzj_localised_region.cpp",
      "        if (hashed && ++work.visitedRound == 0)", "        if (hashed && work.visitedRound == 0)", "optimiser"),
    F("optimiser-pick-key-order", "Source/Codecs/ORBTC/fnzj/initialreps.cpp",
      "bits = bits & 0x80000000u ? ~bits : bits | 0x80000000u;", "bits = bits & 0x80000000u ? ~bits : bits;",
      "optimiser"),
    F("optimiser-low-frequency-lanes", "Source/Codecs/ORBTC/fnzj/threadsupport_stats.cpp",
      "lerp(upper, lerp(colours[p + 3], colours[p + 4], fx), fy)", "lerp(upper, lerp(colours[p + 4], colours[p + 3], fx), fy)",
      "optimiser"),
    F("optimiser-palette-nearest-tie", "Source/Codecs/ORBTC/fnzj/initialreps.cpp",
      "const __m128 nearer = _mm_cmplt_ps(d, best);", "const __m128 nearer = _mm_cmple_ps(d, best);", "optimiser"),
    F("optimiser-palette-gather-weight", "Source/Codecs/ORBTC/fnzj/initialreps.cpp",
      "                weighted[4][count] = weight;", "                weighted[4][count] = 1;", "optimiser"),
    F("optimiser-partition-zone-sums", "Source/Codecs/ORBTC/fnzj/initialreps.cpp",
      "        m.second = second[end] - second[from];", "        m.second = second[end];", "optimiser"),
    F("optimiser-partition-avx2-square-lane", "Source/Codecs/ORBTC/fnzj/initialreps.cpp",
      "_mm256_mul_pd(scaled, _mm256_setr_pd(sk, tk, tk, 1.0))", "_mm256_mul_pd(scaled, _mm256_setr_pd(sk, sk, tk, 1.0))",
      "optimiser"),
    F("optimiser-partition-avx2-clamp", "Source/Codecs/ORBTC/fnzj/initialreps.cpp",
      "middles = _mm_min_ps(_mm_set1_ps(maximum), _mm_max_ps(_mm_set1_ps(minimum), middles));",
      "middles = _mm_max_ps(_mm_set1_ps(minimum), middles);", "optimiser"),
    F("optimiser-partition-avx2-error-sum", "Source/Codecs/ORBTC/fnzj/initialreps.cpp",
      "    for (int k = 0; k < 4; ++k)\n        error += term[k];", "    for (int k = 1; k < 4; ++k)\n        error += term[k];",
      "optimiser"),
    F("optimiser-stats-moments-lane", "Source/Codecs/ORBTC/fnzj/threadsupport_stats.cpp",
      "sum23 = _mm_add_pd(sum23, _mm_mul_pd(w, c23));", "sum23 = _mm_add_pd(sum23, _mm_mul_pd(w, c01));", "optimiser"),
    F("optimiser-stats-box-rows", "Source/Codecs/ORBTC/fnzj/threadsupport_stats.cpp",
      "residual.AddAll(residualOf + 4 * (v * width + 1), innerRight - 1, 4);",
      "residual.AddAll(residualOf + 4 * (v * width + 1), innerRight, 4);", "optimiser"),
    F("optimiser-stats-box-bound", "Source/Codecs/ORBTC/fnzj/initialreps.cpp",
      "        high = _mm_max_ps(projection, high);", "        high = _mm_max_ps(low, high);", "optimiser"),
    F("optimiser-central-box-modes", "Source/Codecs/ORBTC/fnzj/threadsupport_stats.cpp",
      "const bool fromCentre = modes[i] == 2 || modes[i] == 6 || modes[i] == 12;",
      "const bool fromCentre = modes[i] == 6 || modes[i] == 12;",
      "optimiser"),
    F("optimiser-central-box-hard", "Source/Codecs/ORBTC/fnzj/threadsupport_stats.cpp",
      "if (fromCentre && !(args.hardModesUnread && IsHardMode(params, modes[i])))",
      "if (fromCentre && !IsHardMode(params, modes[i]))", "optimiser"),
    F("optimiser-layout-slot-key", "Source/Codecs/ORBTC/fnzj/fnzj_localised_blend.cpp",
      "if (slot.geometry == geometry && slot.punchThrough == punchThrough)",
      "if (slot.geometry == geometry)", "optimiser"),
    F("optimiser-layout-slot-whole", "Source/Codecs/ORBTC/fnzj/fnzj_localised_blend.cpp",
      "const bool whole = slot.geometry != geometry;", "const bool whole = slot.geometry == nullptr;", "optimiser"),
    F("optimiser-layout-slot-version", "Source/Codecs/ORBTC/fnzj/fnzj_localised_blend.cpp",
      "    slot.measured.version = geometry->measuredVersion;", "    slot.measured.version = 1;", "optimiser"),
    F("optimiser-partition-avx2-count", "Source/Codecs/ORBTC/fnzj/initialreps.cpp",
      "_mm256_cmp_ps(v, b1, _CMP_LT_OQ)", "_mm256_cmp_ps(v, b1, _CMP_LE_OQ)", "optimiser"),
    F("optimiser-raw-opaque-skip", "Source/Codecs/ORBTC/fnzj/threadsupport_stats.cpp",
      "opaqueSeparate = transparent != 0 && transparent != count;",
      "opaqueSeparate = transparent != 0 && transparent > count / 2;", "optimiser"),
    F("optimiser-residual-opaque-skip", "Source/Codecs/ORBTC/fnzj/threadsupport_stats.cpp",
      "        opaqueSeparate = false;\n        for (int v = 1; v < innerBottom; ++v)",
      "        opaqueSeparate = false;\n        for (int v = 2; v < innerBottom; ++v)", "optimiser"),
    F("optimiser-lane-load-window", "Source/Codecs/ORBTC/fnzj/fnzj_window_lanes.cpp",
      "lanes.loadedVersion == layout.version &&\n                      lanes.loadedStamp == window.stamp;",
      "lanes.loadedVersion == layout.version;", "optimiser"),
    F("optimiser-best-of-four-tie", "Source/Codecs/ORBTC/fnzj/fnzj_localised_blend.cpp",
      "const bool second = e[2] <= e[1], first = e[0] <= e[3];", "const bool second = e[2] < e[1], first = e[0] <= e[3];",
      "optimiser"),
    F("optimiser-palette-kept-ring", "Source/Codecs/ORBTC/fnzj/fnzj_window_lanes.cpp",
      "const __m128i kept = includeOuterRing ? zero : masks[0];", "const __m128i kept = zero;", "optimiser"),
    F("optimiser-palette-portable-kept", "Source/Codecs/ORBTC/fnzj/fnzj_window_lanes.cpp",
      "        if (s.outer[j] && !includeOuterRing)", "        if (false)", "optimiser"),
    F("optimiser-palette-fit-range", "Source/Codecs/ORBTC/fnzj/fnzj_localised_blend.cpp",
      "const int fitted = i >= 10 && i <= 70 ? 1 : 0;", "const int fitted = i >= 9 && i <= 71 ? 1 : 0;", "optimiser"),
    F("optimiser-palette-merge-order", "Source/Codecs/ORBTC/fnzj/fnzj_window_lanes.cpp",
      "(j < count && l.layout->index[j] < palette->layout->index[k])",
      "(j < count && l.layout->index[j] > palette->layout->index[k])", "optimiser"),
    F("optimiser-palette-kept-avx2", "Source/Codecs/ORBTC/fnzj/fnzj_window_lanes.cpp",
      "_mm256_blendv_epi8(_mm256_sub_epi16(Load256(l.pixel[c] + j), colour), Load256(l.residual[c] + j), kept);",
      "_mm256_sub_epi16(Load256(l.pixel[c] + j), colour);", "optimiser"),
    F("optimiser-whole-fit-lane", "Source/Codecs/ORBTC/fnzj/fnzj_localised.cpp",
      "_mm_mul_ps(_mm_shuffle_ps(a, a, 0x55), _mm_loadu_ps(e + 4))", "_mm_mul_ps(_mm_shuffle_ps(a, a, 0x00), _mm_loadu_ps(e + 4))",
      "optimiser"),
    F("optimiser-hard-slots-quality", "Source/Codecs/ORBTC/fnzj/threadsupport_search.cpp",
      "!(params.isGeneration2 && passes > kFirstHardPass)", "!(params.isGeneration2 && passes > kFirstHardPass + 1)",
      "optimiser"),
    F("optimiser-hard-slots-2bpp", "Source/Codecs/ORBTC/fnzj/threadsupport.h",
      "mode == 2 || mode == 3 : mode >= 12;", "mode == 2 || mode == 3 : mode >= 9;", "optimiser"),
    F("optimiser-hard-slots-4bpp", "Source/Codecs/ORBTC/fnzj/threadsupport.h",
      "mode == 2 || mode == 3 : mode >= 12;", "mode >= 1 : mode >= 12;", "optimiser"),
    F("optimiser-islands-diagonal", "Source/Codecs/ORBTC/fnzj/analygrapprop.cpp",
      "(left & southWest[p]) << 5", "(left & southEast[p]) << 5", "optimiser"),
    F("optimiser-islands-near-limit", "Source/Codecs/ORBTC/fnzj/analygrapprop.cpp",
      "alpha = _mm_set1_epi32(int(0xFF000000u)), limit = _mm_set1_epi32(17);",
      "alpha = _mm_set1_epi32(int(0xFF000000u)), limit = _mm_set1_epi32(16);", "optimiser"),
    F("optimiser-islands-smooth", "Source/Codecs/ORBTC/fnzj/analygrapprop.cpp",
      "_mm_sub_epi16(lowSums, _mm_add_epi16(low, low))", "_mm_sub_epi16(lowSums, low)", "optimiser"),
    F("optimiser-islands-punch", "Source/Codecs/ORBTC/fnzj/analygrapprop.cpp",
      "_mm_and_si128(_mm_or_si128(a, b), alpha)", "_mm_and_si128(_mm_and_si128(a, b), alpha)", "optimiser"),
    F("optimiser-swaps-ratio-order", "Source/Codecs/ORBTC/fnzj/threadsupport.cpp",
      "keys[i] = {uint64_t(~bits) << 32", "keys[i] = {uint64_t(bits) << 32", "optimiser"),
    F("optimiser-swaps-tie-order", "Source/Codecs/ORBTC/fnzj/threadsupport.cpp",
      "uint64_t(rank[island[edges[i].second]]) << 32 | i}", "uint64_t(i) << 32 | rank[island[edges[i].second]]}",
      "optimiser"),
    F("optimiser-swaps-turn", "Source/Codecs/ORBTC/fnzj/threadsupport.cpp",
      "const uint8_t turn = swap < same ? 1 : 0;", "const uint8_t turn = swap <= same ? 1 : 0;", "optimiser"),
    F("optimiser-swaps-merge-pair", "Source/Codecs/ORBTC/fnzj/threadsupport.cpp",
      "std::swap(p, q), std::swap(a, b);", "std::swap(a, b);", "optimiser"),

    # ---- image operations
    F("image-spline-coefficient", "Source/Operations/ORBTextureResample.cpp",
      "(2.0f * p0 + 4.0f * p2 - p3 - 5.0f * p1", "(2.0f * p0 + 4.0f * p2 - p3 - 4.0f * p1", "image-ops"),
    F("image-mip-count-depth", "Source/Operations/ORBTextureMIPMaps.cpp",
      "w > 1 || h > 1 || d > 1;", "w > 1 || h > 1;", "image-ops"),
    F("image-mip-next-size", "Source/Operations/ORBTextureMIPMaps.cpp",
      "uint32_t NextLevelSize(uint32_t size) { return size < 4 ? 1 : size >> 1; }",
      "uint32_t NextLevelSize(uint32_t size) { return size < 2 ? 1 : size >> 1; }", "image-ops",
      equivalent="sides of 2 and 3 halve to 1 either way, and no side is 0"),
    F("image-bleed-opaque", "Source/Operations/ORBTextureCanvas.cpp",
      "        return alpha > 7;", "        return alpha >= 7;", "image-ops"),
    F("image-normal-y-sign", "Source/Operations/ORBTextureNormalMap.cpp",
      "dy = slope(above[x].red, below[x].red);", "dy = slope(below[x].red, above[x].red);", "image-ops"),
    F("image-tolerance-tie", "Source/Operations/ORBTextureDiffTools.cpp",
      "within = within && tolerance > c[k];", "within = within && tolerance >= c[k];", "image-ops"),

    # ---- orbtex
    F("cli-convert-orbtc-4096", "Source/Pixels/ORBTextureCodecRegistry.cpp",
      "return (!longest || side <= longest) &&", "return (!longest || side < longest) &&", "registry"),
    F("cli-legacy-api-range", "CLI/ConvertCommand.cpp",
      'NumberOption("--legacy-api", 1, 7,', 'NumberOption("--legacy-api", 1, 6,', "cli"),
    F("cli-quality-supported", "Source/Pixels/ORBTextureCodecRegistry.cpp",
      "(highest != INT8_MAX && quality > highest))", "(highest != INT8_MAX && quality >= highest))", "registry"),
    F("registry-orbtcii-whole-units", "Source/Pixels/ORBTextureCodecRegistry.cpp",
      "kORBTCII = {uint16_t(kORBTCLargestSide), eWholeUnitsNone,",
      "kORBTCII = {uint16_t(kORBTCLargestSide), eWholeUnitsAcross,", "registry"),

    # ---- saving, errors and the call context
    F("sink-item-of-zero-bytes", "Source/Files/ORBTextureByteSink.h",
      "return size != 0 && Write(bytes, size);", "return Write(bytes, size);", "saving"),
    F("equal-item-count", "Source/Files/ORBTextureFiles.cpp",
      "return same && ours == theirs;", "return same;", "saving"),
    F("save-errno", "Source/Files/ORBTextureFiles.cpp",
      'SetSystemError((CORBTString("cannot create ") + path).c_str(), errno)',
      'SetSystemError((CORBTString("cannot create ") + path).c_str(), 0)', "saving"),
    F("context-etc-cancel", "Source/Codecs/ETC/ETCCompress.cpp",
      "if (context.Cancelled())", "if (false && context.Cancelled())", "context"),
    F("context-optimiser-rows", "Source/Codecs/ORBTC/fnzj/fnzj_localised_region.cpp",
      "if (next >= schedule.dueCount || StopAsked(args.cancel))", "if (next >= schedule.dueCount)", "context"),
    F("context-transcode-keeps-texture", "Source/Pixels/ORBTextureUtilities.cpp",
      "if (!done && LastErrorIs(eORBTErrorCancelled))", "if (false)", "context"),
    F("cli-standard-type-8bit", "CLI/TextureInput.cpp",
      "if (type == eVarUnsignedByteNorm && widest <= 8)", "if (type == eVarUnsignedByteNorm && widest < 8)",
      "cli"),
    # ---- fast decoders and pixel kernels
    F("dxt-fast-three-colour", "Source/Codecs/DXTDecode.cpp",
      "((e0 + e1) >> 1) & kLanes", "((e0 + e1 + 1) >> 1) & kLanes", "fast-decode"),
    F("dxt-fast-green-lanes", "Source/Codecs/DXTDecode.cpp",
      "_mm_setr_epi16(264, 8320, 264, 0, 264, 8320, 264, 0)", "_mm_setr_epi16(264, 8319, 264, 0, 264, 8319, 264, 0)",
      "fast-decode"),
    F("dxt-fast-alpha-sevenths", "Source/Codecs/DXTDecode.cpp",
      "{9363, 9363, 9363, 9363, 9363, 9363, 9363, 9363}", "{9362, 9362, 9362, 9362, 9362, 9362, 9362, 9362}",
      "fast-decode"),
    F("etc-fast-signed-widening", "Source/Codecs/ETC/ETCFastDecode.cpp",
      "    const int magnitude = (a << 5) + (a >> 5);", "    const int magnitude = (a << 5) + (a >> 6);", "fast-decode"),
    F("etc-fast-h-order", "Source/Codecs/ETC/ETCFastDecode.cpp",
      "table58H[((word1 >> 2) & 1) << 2 | (word1 & 1) << 1 | order]",
      "table58H[((word1 >> 2) & 1) << 2 | (word1 & 1) << 1 | (order ^ 1)]", "fast-decode"),
    F("orbtc-fast-blend-sse2", "Source/Codecs/ORBTC/ORBTCFastDecodeSSE2.cpp",
      "__m128i out = _mm_add_epi16(a, _mm_srai_epi16(mix, 3));", "__m128i out = _mm_add_epi16(a, _mm_srai_epi16(mix, 2));",
      "fast-decode"),
    F("orbtc-fast-alpha-b", "Source/Codecs/ORBTC/ORBTCFastDecode.cpp",
      "(((colour >> 28) & 7u) << 3) + (generation2 ? 4 : 0)", "(((colour >> 28) & 7u) << 3) + (generation2 ? 3 : 0)",
      "fast-decode"),
    F("orbtc-fast-hard-blend", "Source/Codecs/ORBTC/ORBTCFastDecode.cpp",
      "o[k] = uint8_t((a * (8 - w) + b * w) >> 3);", "o[k] = uint8_t((a * (8 - w) + b * w + 4) >> 3);", "fast-decode"),
    F("parallel-first-part", "Source/Tools/ORBTParallel.cpp",
      "    body(0, start(1));", "    body(0, start(1) - 1);", "fast-decode"),
    F("kernel-lane-sse2-bias", "Source/Pixels/ORBTPixelByteMoves.cpp",
      "        y = _mm_add_epi32(y, _mm_set1_epi32(int(f.b)));", "        y = _mm_add_epi32(y, _mm_set1_epi32(int(f.b + 1)));",
      "pixel-kernels"),
    F("kernel-prefix-base", "Source/Pixels/ORBTPixelByteMoves.cpp",
      "StoreLE(out, (LoadLE(in, 4) & keep) | plan.base, 4);", "StoreLE(out, LoadLE(in, 4) & keep, 4);", "pixel-kernels"),
    F("kernel-lane-rounding", "Source/Pixels/ORBTPixelKernels.cpp",
      "    field.b = mask / 2;", "    field.b = mask / 2 + 1;", "pixel-kernels"),
    F("kernel-narrow16", "Source/Pixels/ORBTPixelElements.cpp",
      "const uint32_t t = value + 128 > 0xFFFF ? 0xFFFF : value + 128;",
      "const uint32_t t = value + 127 > 0xFFFF ? 0xFFFF : value + 127;", "pixel-kernels"),
    F("kernel-float-bytes-avx2", "Source/Pixels/ORBTPixelElements.cpp",
      "_mm256_sub_epi32(_mm256_set1_epi32(22), exponent)", "_mm256_sub_epi32(_mm256_set1_epi32(23), exponent)",
      "pixel-kernels"),
    F("kernel-small-float-bias", "Source/Pixels/ORBTPixelElements.cpp",
      "return field == 31 ? fraction | 255u : fraction | (field + 112) << 23;",
      "return field == 31 ? fraction | 255u : fraction | (field + 111) << 23;", "pixel-kernels"),
    F("kernel-luminance-alpha", "Source/Pixels/ORBTPixelByteMoves.cpp",
      "            out[1] = in[plan.alpha];", "            out[1] = in[3];", "pixel-kernels"),
    F("shared-exponent-largest", "Source/Pixels/ORBTSharedExponentPaths.cpp",
      "std::max(rgba[0], std::max(rgba[1], rgba[2]))", "std::max(rgba[0], rgba[1])", "pixel-kernels"),
    F("shared-exponent-avx2-shift", "Source/Pixels/ORBTSharedExponentPaths.cpp",
      "_mm256_srlv_epi32(t, _mm256_sub_epi32(_mm256_set1_epi32(23), exponent))",
      "_mm256_srlv_epi32(t, _mm256_sub_epi32(_mm256_set1_epi32(22), exponent))", "pixel-kernels"),
    F("rgb9e5-rounding", "Source/Codecs/RGB9E5Codec.cpp",
      "double RoundHalfUp(double x) { return double(int64_t(x + 0.5)); }",
      "double RoundHalfUp(double x) { return double(int64_t(x + 0.4999)); }", "pixel-kernels"),
]

def run(command, **kwargs):
    return subprocess.run(command, check=False, **kwargs)


def git(*arguments, cwd):
    result = run(["git", *arguments], cwd=cwd, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    if result.returncode != 0:
        sys.exit("mutants: git %s failed: %s" % (" ".join(arguments), result.stderr.decode(errors="replace").strip()))
    return result.stdout


def repository_root():
    here = os.path.dirname(os.path.abspath(__file__))
    return git("rev-parse", "--show-toplevel", cwd=here).decode().strip()


def select(faults, only):
    if not only:
        return list(faults)
    return [f for f in faults if any(s in f.id or s in f.area for s in only)]


def problems(faults, read):
    """The reasons why faults cannot be applied; empty when all apply."""
    found = []
    seen = set()
    for fault in faults:
        if fault.id in seen:
            found.append("%s: id used twice" % fault.id)
        seen.add(fault.id)
        if fault.old == fault.new:
            found.append("%s: replacement changes nothing" % fault.id)
        text = read(fault.file)
        if text is None:
            found.append("%s: %s does not exist" % (fault.id, fault.file))
            continue
        count = text.count(fault.old.encode())
        if count == 0:
            found.append("%s: text not found in %s" % (fault.id, fault.file))
        elif count > 1:
            found.append("%s: text occurs %d times in %s" % (fault.id, count, fault.file))
    return found


def head_reader(repo):
    cache = {}

    def read(path):
        if path not in cache:
            result = run(["git", "show", "HEAD:" + path], cwd=repo, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
            cache[path] = result.stdout if result.returncode == 0 else None
        return cache[path]

    return read


def print_list(faults):
    width = max(len(f.id) for f in faults)
    area_width = max(len(f.area) for f in faults)
    for f in faults:
        line = "%-*s  %-*s  %s" % (width, f.id, area_width, f.area, f.file)
        if f.equivalent:
            line += "  (equivalent: %s)" % f.equivalent
        print(line)
    print_area_counts(faults)


def print_area_counts(faults):
    counts = collections.Counter(f.area for f in faults)
    print("%d faults: %s" % (len(faults), ", ".join("%s %d" % item for item in sorted(counts.items()))))


def step(description, command, log_path, cwd=None):
    """Runs a command with its output in a log; True when it succeeded."""
    with open(log_path, "wb") as log:
        result = run(command, cwd=cwd, stdout=log, stderr=subprocess.STDOUT)
    if result.returncode != 0 and description:
        print("mutants: %s failed; see %s" % (description, log_path), file=sys.stderr)
    return result.returncode == 0


def prepare_scratch(repo, scratch, fresh):
    """Brings the scratch clone to HEAD, configured and built."""
    if fresh and os.path.exists(scratch):
        print("removing %s" % scratch, flush=True)
        shutil.rmtree(scratch)
    if not os.path.exists(scratch):
        print("cloning HEAD into %s" % scratch, flush=True)
        git("clone", "--quiet", "--no-hardlinks", repo, scratch, cwd=repo)
    else:
        # A run stopped half way may have left a fault in place: reset puts
        # back every tracked file that differs from HEAD, and only those, so
        # the build stays incremental.
        git("fetch", "--quiet", repo, "HEAD", cwd=scratch)
        git("reset", "--quiet", "--hard", "FETCH_HEAD", cwd=scratch)
        git("clean", "--quiet", "-fd", "-e", "/build/", "-e", "/mutant-logs/", cwd=scratch)
    logs = os.path.join(scratch, "mutant-logs")
    os.makedirs(logs, exist_ok=True)
    build = os.path.join(scratch, "build")
    if not os.path.exists(os.path.join(build, "CMakeCache.txt")):
        print("configuring %s" % build, flush=True)
        if not step("configuring", ["cmake", "-S", scratch, "-B", build, "-DCMAKE_BUILD_TYPE=RelWithDebInfo"],
                    os.path.join(logs, "configure.log")):
            sys.exit(1)
    print("building %s (a fresh build takes a few minutes)" % build, flush=True)
    started = time.time()
    if not step("building the unchanged sources", ["cmake", "--build", build, "-j", "2"],
                os.path.join(logs, "build.log")):
        sys.exit(1)
    print("built in %.0f s" % (time.time() - started), flush=True)
    return build, logs


FAILED_TEST = re.compile(r"Test\s+#\d+:\s+(\S+)\s.*\*\*\*")
LISTED_FAILURE = re.compile(r"^\s*\d+\s+-\s+(\S+)\s+\(", re.MULTILINE)


def run_tests(build, log_path):
    """(passed, name of the first failing test or a reason)."""
    command = ["ctest", "-j", "2", "--stop-on-failure", "--timeout", "300"]
    with open(log_path, "wb") as log:
        result = run(command, cwd=build, stdout=log, stderr=subprocess.STDOUT)
    with open(log_path, "rb") as log:
        text = log.read().decode(errors="replace")
    if "No tests were found" in text:
        sys.exit("mutants: ctest found no tests in %s" % build)
    match = FAILED_TEST.search(text) or LISTED_FAILURE.search(text)
    if result.returncode == 0 and not match:
        return True, None
    return False, match.group(1) if match else "ctest exit status %d" % result.returncode


def check_baseline(repo, build, logs):
    """The unchanged sources must pass, or no result means anything. Checked
    once per commit."""
    commit = git("rev-parse", "HEAD", cwd=repo).decode().strip()
    marker = os.path.join(build, "mutants-baseline")
    if os.path.exists(marker) and open(marker).read().strip() == commit:
        return
    print("running the tests on the unchanged sources", flush=True)
    started = time.time()
    passed, failure = run_tests(build, os.path.join(logs, "baseline.test.log"))
    if not passed:
        sys.exit("mutants: the unchanged sources fail (%s); see %s" % (failure, os.path.join(logs, "baseline.test.log")))
    with open(marker, "w") as out:
        out.write(commit + "\n")
    print("all tests pass in %.0f s" % (time.time() - started), flush=True)


def run_fault(fault, scratch, build, logs):
    """Applies the fault, builds, tests and restores; returns (outcome, detail),
    outcome one of "killed", "unbuilt", "survived"."""
    path = os.path.join(scratch, fault.file)
    with open(path, "rb") as source:
        original = source.read()
    if original.count(fault.old.encode()) != 1:
        sys.exit("mutants: %s no longer applies to %s" % (fault.id, fault.file))
    try:
        with open(path, "wb") as out:
            out.write(original.replace(fault.old.encode(), fault.new.encode(), 1))
        if not step(None, ["cmake", "--build", build, "-j", "2"], os.path.join(logs, fault.id + ".build.log")):
            return "unbuilt", "DOES NOT COMPILE: see mutant-logs/%s.build.log" % fault.id
        passed, failure = run_tests(build, os.path.join(logs, fault.id + ".test.log"))
        return ("survived", None) if passed else ("killed", failure)
    finally:
        # The original bytes, with a new modification time so that the next
        # build compiles them again.
        with open(path, "wb") as out:
            out.write(original)


def main():
    parser = argparse.ArgumentParser(description="Plants faults one at a time in a scratch clone and reports "
                                     "which ones the test suite catches.")
    parser.add_argument("--only", action="append", default=[], metavar="SUBSTRING",
                        help="run the faults whose id or area contains SUBSTRING (may be repeated)")
    parser.add_argument("--list", action="store_true", help="print the faults without running them")
    parser.add_argument("--check", action="store_true", help="check that every fault applies to HEAD; no build")
    parser.add_argument("--fresh", action="store_true", help="delete the scratch clone and clone and build anew")
    parser.add_argument("--scratch", metavar="DIR", help="scratch clone (default: build-mutants/ in the repository)")
    options = parser.parse_args()

    repo = repository_root()
    faults = select(FAULTS, options.only)
    if not faults:
        sys.exit("mutants: no fault matches %s" % ", ".join(options.only))
    if options.list:
        print_list(faults)
        return 0

    found = problems(faults, head_reader(repo))
    if found:
        for problem in found:
            print("mutants: %s" % problem, file=sys.stderr)
        return 1
    if options.check:
        print("every fault applies to HEAD")
        print_area_counts(faults)
        return 0

    scratch = os.path.abspath(options.scratch or os.path.join(repo, "build-mutants"))
    real_scratch, real_repo = os.path.realpath(scratch), os.path.realpath(repo)
    if real_scratch == real_repo or real_repo.startswith(real_scratch + os.sep):
        sys.exit("mutants: the scratch folder cannot be the repository or hold it")
    if real_scratch.startswith(real_repo + os.sep):
        relative = os.path.relpath(real_scratch, real_repo) + "/"
        if run(["git", "check-ignore", "-q", relative], cwd=repo).returncode != 0:
            print("mutants: warning: %s is not ignored by git" % relative, file=sys.stderr)

    build, logs = prepare_scratch(repo, scratch, options.fresh)
    check_baseline(repo, build, logs)

    width = max(len(f.id) for f in faults)
    area_width = max(len(f.area) for f in faults)
    results = []
    started = time.time()
    for number, fault in enumerate(faults, 1):
        began = time.time()
        outcome, detail = run_fault(fault, scratch, build, logs)
        seconds = time.time() - began
        word = "SURVIVED" if outcome == "survived" else "killed"
        line = "%-8s %-*s  %-*s" % (word, width, fault.id, area_width, fault.area)
        if detail:
            line += "  (%s)" % detail
        if fault.equivalent:
            line += "  [equivalent]"
        print("%s  %.0f s  [%d/%d]" % (line, seconds, number, len(faults)), flush=True)
        results.append((fault, outcome))

    counted = [(f, o) for f, o in results if not f.equivalent]
    killed = sum(1 for _, o in counted if o != "survived")
    unbuilt = [f for f, o in results if o == "unbuilt"]
    survivors = [f for f, o in counted if o == "survived"]
    equivalent = len(results) - len(counted)
    print()
    print("%d faults in %.0f min, %d equivalent" % (len(results), (time.time() - started) / 60, equivalent))
    if counted:
        print("score: %d / %d killed = %.1f%%" % (killed, len(counted), 100.0 * killed / len(counted)))
    else:
        print("score: no fault counts")
    if unbuilt:
        print("do not compile (counted as killed, but useless): %s" % ", ".join(f.id for f in unbuilt))
    for f, o in results:
        if f.equivalent and o != "survived":
            print("marked equivalent but killed (look again): %s" % f.id)
    if survivors:
        print("survivors:")
        for f in survivors:
            print("  %-*s  %-*s  %s" % (width, f.id, area_width, f.area, f.file))
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit("mutants: interrupted; the file in progress was put back")
