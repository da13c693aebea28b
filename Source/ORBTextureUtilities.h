#ifndef ORBTEXTUREUTILITIES_H
#define ORBTEXTUREUTILITIES_H

#include "ORBTPixelConversion.h"
#include "ORBTexture.h"
#include "ORBTextureFormat.h"
#include "Tools/ORBTCallContext.h"
#include "Tools/ORBTDefines.h"

namespace orbtexture
{

// ---------------------------------------------------------------------------
// Pixel format conversion
// ---------------------------------------------------------------------------

// Converts the texture in place to another channel layout, channel type,
// colour space or named format. Metadata and other header fields are kept.
// False for an empty texture, the target ePF_NumCompressed, or a compressor
// that wrote other than the expected byte count (the texture then holds what
// it wrote).
ORBT_API bool Transcode(CORBTexture& texture, PixelType pixelType, EORBTVariableType channelType,
                        EORBTColourSpace colourSpace, ECompressorQuality quality = ECompressorQuality(0),
                        bool dither = false);

// The same with the threads, progress, cancel flag and debug stream of
// 'context' for the codecs it runs. With a cancel flag the work is done on a
// copy, so that a cancelled call (false, reason "cancelled") leaves the
// texture as it was. Every failing Transcode leaves its reason in
// ORBTGetLastError ("Transcode: the image is 451x300, but ORBTC_2bpp_RGB
// needs ...").
ORBT_API bool Transcode(CORBTexture& texture, PixelType pixelType, EORBTVariableType channelType,
                        EORBTColourSpace colourSpace, ECompressorQuality quality, bool dither,
                        const ORBTCallContext& context);

// True for channel layouts and for named formats whose codec is part of this
// build, in the direction asked. Transcode to a named format without an
// encoder returns false; from one without a decoder it leaves the pixels
// undefined.
ORBT_API bool CanTranscodeTo(PixelType format);
ORBT_API bool CanTranscodeFrom(PixelType format);

// The highest compressor quality whose compressor is part of this build for a
// named format (qualities 0 to it work); -1 for a named format without an
// encoder and for channel layouts, which take no quality.
ORBT_API int HighestCompressorQuality(PixelType format);

// Whether the encoder of a named format takes a width x height x depth image at
// 'quality', answered before any work: false, with the reason ("the image is
// 451x300, but ORBTC_2bpp_RGB needs sides that are multiples of 16 across and
// 8 down (or less than that) and at most 4096"), when the format has no
// encoder, does not serve the quality, or its encoder takes no such side.
// Channel layouts take every size. CanEncodeTexture asks the same for every
// MIP level of 'texture' ("MIP level 2 is 3x1, but ...").
ORBT_API bool CanEncode(PixelType format, unsigned width, unsigned height, unsigned depth, int quality,
                        CORBTString& reason);
ORBT_API bool CanEncodeTexture(const CORBTexture& texture, PixelType format, int quality, CORBTString& reason);

// Pixel loop between two channel-layout textures of equal dimensions; returns
// the bytes written.
ORBT_API unsigned TranscodeTrivial(CORBTexture& source, CORBTexture& target, CPixelEncoder& sourceEncoder,
                                   CPixelEncoder& targetEncoder, EORBTColourSpace targetColourSpace,
                                   EORBTColourSpace sourceColourSpace);

// The channel layout in which a named format's codec takes and gives pixels.
ORBT_API void IntermediateTranscodeFormat(const PixelType& format, const EORBTVariableType& channelType,
                                          PixelType& intermediateFormat, EORBTVariableType& intermediateChannelType);

// Replaces a texture of a named format by its intermediate layout; returns the
// sum of the decoders' results.
ORBT_API unsigned DecompressNonTrivial(CORBTexture& texture);

// Replaces a texture of the intermediate layout by the named format; returns
// the bytes the encoders wrote.
ORBT_API unsigned CompressNonTrivial(CORBTexture& texture, PixelType format, ECompressorQuality quality);

// Error diffusion of one surface of rgba8 pixels to the bit depth of 'target'.
ORBT_API void Dither(unsigned char* data, PixelType target, unsigned width, unsigned height, unsigned depth);

// ---------------------------------------------------------------------------
// Channel operations on textures of a standard pixel type
// ---------------------------------------------------------------------------

// Fills channels with constants on every surface: values[k] goes to
// channels[k], taking the low bits that fit an integer channel and the number
// as it stands for float. These four operations answer false for a texture
// that is not of a standard pixel type, and otherwise the result of the last
// surface visited (false when its data is null or there is none).
ORBT_API bool SetChannels(CORBTexture& texture, unsigned int channelCount, EChannelName* channels,
                          unsigned int* values);
// As SetChannels with float values, unscaled and truncated towards zero for
// integer channels; values outside an integer channel's range saturate.
ORBT_API bool SetChannelsFloat(CORBTexture& texture, unsigned int channelCount, EChannelName* channels,
                               float* values);
// Copies sourceChannels[k] of 'source' into destinationChannels[k] of
// 'destination', scaling between channel types. The textures must have equal
// dimensions, members, levels and faces. Plain channels copied between equal
// types move unchanged; everything else goes through float and is truncated.
ORBT_API bool CopyChannels(CORBTexture& destination, const CORBTexture& source, unsigned int channelCount,
                           EChannelName* destinationChannels, EChannelName* sourceChannels);
// Multiplies red, green and blue by alpha once and marks the texture
// premultiplied; a texture already so marked is refused. For every channel
// type the product keeps only the low byte of its 16-bit truncation.
ORBT_API bool PreMultiplyAlpha(CORBTexture& texture);

// Surface workers over width x height x depth pixels; false for null data.
// SetChannels is provided for T of unsigned char, unsigned short, unsigned int
// and float with V of unsigned char, unsigned int and float; CopyChannels for
// every pair of those four channel types.
template <typename T, typename V>
bool SetChannels(Pixel<T>* data, const unsigned int& width, const unsigned int& height, const unsigned int& depth,
                 const unsigned int& channelCount, EChannelName* channels, V* values);
template <typename S, typename D>
bool CopyChannels(Pixel<S>* source, Pixel<D>* destination, const unsigned int& width, const unsigned int& height,
                  const unsigned int& depth, const unsigned int& channelCount, EChannelName* destinationChannels,
                  EChannelName* sourceChannels);

// The exported worker instances, declared here with 'extern' and defined in
// the library with an empty keyword.
#define ORBT_SET_CHANNELS_INSTANCE(KEYWORD, T, V)                                                                \
    KEYWORD template ORBT_API bool SetChannels<T, V>(Pixel<T>*, const unsigned int&, const unsigned int&,        \
                                                     const unsigned int&, const unsigned int&, EChannelName*, V*);
#define ORBT_COPY_CHANNELS_INSTANCE(KEYWORD, S, D)                                                               \
    KEYWORD template ORBT_API bool CopyChannels<S, D>(Pixel<S>*, Pixel<D>*, const unsigned int&,                 \
                                                      const unsigned int&, const unsigned int&,                  \
                                                      const unsigned int&, EChannelName*, EChannelName*);
#define ORBT_CHANNEL_WORKERS_OF_TYPE(KEYWORD, T)                                                                 \
    ORBT_SET_CHANNELS_INSTANCE(KEYWORD, T, unsigned char)                                                        \
    ORBT_SET_CHANNELS_INSTANCE(KEYWORD, T, unsigned int)                                                         \
    ORBT_SET_CHANNELS_INSTANCE(KEYWORD, T, float)                                                                \
    ORBT_COPY_CHANNELS_INSTANCE(KEYWORD, T, unsigned char)                                                       \
    ORBT_COPY_CHANNELS_INSTANCE(KEYWORD, T, unsigned short)                                                      \
    ORBT_COPY_CHANNELS_INSTANCE(KEYWORD, T, unsigned int)                                                        \
    ORBT_COPY_CHANNELS_INSTANCE(KEYWORD, T, float)
#define ORBT_CHANNEL_WORKERS(KEYWORD)                                                                            \
    ORBT_CHANNEL_WORKERS_OF_TYPE(KEYWORD, unsigned char)                                                         \
    ORBT_CHANNEL_WORKERS_OF_TYPE(KEYWORD, unsigned short)                                                        \
    ORBT_CHANNEL_WORKERS_OF_TYPE(KEYWORD, unsigned int)                                                          \
    ORBT_CHANNEL_WORKERS_OF_TYPE(KEYWORD, float)

ORBT_CHANNEL_WORKERS(extern)

// ---------------------------------------------------------------------------
// Image operations on textures of a standard pixel type
// ---------------------------------------------------------------------------
// Each operation answers false, changing nothing, for a texture that is not of
// a standard pixel type (isStandardPixelType); transcode first.

// Resampling filter.
enum EResizeMode : uint32_t
{
    eResizeNearest = 0,
    eResizeLinear = 1,
    eResizeCubic = 2
};

// Resamples level 0 of every member and face to the new size, dropping the
// other MIP levels, and rescales the border metadata. The present size
// changes nothing; a zero size gives false.
ORBT_API bool Resize(CORBTexture& texture, const unsigned int& newWidth, const unsigned int& newHeight,
                     const unsigned int& newDepth, EResizeMode mode);

// Resamples a pixel array in passes of at most a factor of two per axis.
template <typename T>
bool SteppedStretchImage(Pixel<T>* source, Pixel<T>* destination, unsigned int sourceWidth,
                         unsigned int sourceHeight, unsigned int sourceDepth, unsigned int destinationWidth,
                         unsigned int destinationHeight, unsigned int destinationDepth, EResizeMode mode);

// One resampling pass over a pixel array (x fastest, then y, then z).
template <typename T>
bool StretchImage(Pixel<T>* source, Pixel<T>* destination, unsigned int sourceWidth, unsigned int sourceHeight,
                  unsigned int sourceDepth, unsigned int destinationWidth, unsigned int destinationHeight,
                  unsigned int destinationDepth, EResizeMode mode);

// Sample position of destination index 'index' on a shrinking axis of 'size'.
ORBT_API double calculateDownscalePosition(unsigned int index, unsigned int size, double inverseRatio,
                                           double ratio);

// Catmull-Rom spline through points[0..3] at t in [0, 1] between points 1 and 2.
ORBT_API float evaluateSplines(const float* points, const float& t);

// Rebuilds the MIP chain from the top level; 'levels' counts the top, and
// 0xFFFFFFFF asks for a full chain.
ORBT_API bool GenerateMIPMaps(CORBTexture& texture, EResizeMode filter, unsigned int levels);

// Tints the levels below the top by level number, to show which is sampled.
ORBT_API bool ColourMIPMaps(CORBTexture& texture);

// Changes the frame around level 0: the old origin lands at the offset, the
// rest is transparent black. One MIP level afterwards.
ORBT_API bool ResizeCanvas(CORBTexture& texture, const unsigned int& newWidth, const unsigned int& newHeight,
                           const unsigned int& newDepth, const int& offsetX, const int& offsetY,
                           const int& offsetZ);

// Turns every surface a quarter turn about 'axis'; about z, 'direction' true
// is clockwise.
ORBT_API bool Rotate90(CORBTexture& texture, EORBTAxis axis, bool direction);

// Mirrors every surface along 'axis' in place.
ORBT_API bool Flip(CORBTexture& texture, EORBTAxis axis);

// Adds a mirrored margin around level 0 and records it as the border
// metadata. One MIP level afterwards.
ORBT_API bool Border(CORBTexture& texture, unsigned int borderX, unsigned int borderY, unsigned int borderZ);

// Gives transparent pixels the mean colour of the opaque pixels within 8 in
// every axis.
ORBT_API bool Bleed(CORBTexture& texture);

// Surface workers of the operations above.
template <typename T>
bool Rotate90(Pixel<T>* first, Pixel<T>* second, const unsigned int& width, const unsigned int& height,
              const unsigned int& depth, EORBTAxis axis, bool direction);
template <typename T>
bool Flip(Pixel<T>* data, const unsigned int& width, const unsigned int& height, const unsigned int& depth,
          EORBTAxis axis);
template <typename T>
bool Border(Pixel<T>* source, Pixel<T>* destination, unsigned int sourceWidth, unsigned int sourceHeight,
            unsigned int sourceDepth, unsigned int destinationWidth, unsigned int destinationHeight,
            unsigned int destinationDepth);
template <typename T>
bool Bleed(Pixel<T>* data, const unsigned int& width, const unsigned int& height, const unsigned int& depth);

// Replaces a height map (first channel) by a float normal map. 'channelOrder'
// names the output channels with x, y, z and h (height), in any case; an
// empty CORBTString assigns nothing. The scale and order are recorded as
// bump-map metadata.
ORBT_API bool GenerateNormalMap(CORBTexture& texture, float scale, CORBTString channelOrder);

// Normal map of one surface; a null 'channelOrder' means "xyz".
template <typename T>
bool CreateNormalMap(Pixel<T>* source, Pixel<float>* destination, unsigned int width, unsigned int height,
                     unsigned int depth, float scale, const char* channelOrder);

// The exported worker instances, declared here with 'extern' and defined in
// the library with an empty keyword.
#define ORBT_RESAMPLE_WORKERS_OF_TYPE(KEYWORD, T)                                                                \
    KEYWORD template ORBT_API bool SteppedStretchImage<T>(Pixel<T>*, Pixel<T>*, unsigned int, unsigned int,     \
                                                          unsigned int, unsigned int, unsigned int,             \
                                                          unsigned int, EResizeMode);                           \
    KEYWORD template ORBT_API bool StretchImage<T>(Pixel<T>*, Pixel<T>*, unsigned int, unsigned int,            \
                                                   unsigned int, unsigned int, unsigned int, unsigned int,      \
                                                   EResizeMode);
#define ORBT_CANVAS_WORKERS_OF_TYPE(KEYWORD, T)                                                                  \
    KEYWORD template ORBT_API bool Rotate90<T>(Pixel<T>*, Pixel<T>*, const unsigned int&, const unsigned int&,  \
                                               const unsigned int&, EORBTAxis, bool);                          \
    KEYWORD template ORBT_API bool Flip<T>(Pixel<T>*, const unsigned int&, const unsigned int&,                 \
                                           const unsigned int&, EORBTAxis);                                    \
    KEYWORD template ORBT_API bool Border<T>(Pixel<T>*, Pixel<T>*, unsigned int, unsigned int, unsigned int,    \
                                             unsigned int, unsigned int, unsigned int);                        \
    KEYWORD template ORBT_API bool Bleed<T>(Pixel<T>*, const unsigned int&, const unsigned int&,                \
                                            const unsigned int&);
#define ORBT_NORMAL_MAP_WORKERS_OF_TYPE(KEYWORD, T)                                                              \
    KEYWORD template ORBT_API bool CreateNormalMap<T>(Pixel<T>*, Pixel<float>*, unsigned int, unsigned int,     \
                                                      unsigned int, float, const char*);
// Applies WORKERS(KEYWORD, T) to the four channel types of standard pixel types.
#define ORBT_FOR_STANDARD_TYPES(WORKERS, KEYWORD)                                                                \
    WORKERS(KEYWORD, unsigned char)                                                                              \
    WORKERS(KEYWORD, unsigned short)                                                                             \
    WORKERS(KEYWORD, unsigned int)                                                                               \
    WORKERS(KEYWORD, float)

ORBT_FOR_STANDARD_TYPES(ORBT_RESAMPLE_WORKERS_OF_TYPE, extern)
ORBT_FOR_STANDARD_TYPES(ORBT_CANVAS_WORKERS_OF_TYPE, extern)
ORBT_FOR_STANDARD_TYPES(ORBT_NORMAL_MAP_WORKERS_OF_TYPE, extern)

} // namespace orbtexture

#endif
