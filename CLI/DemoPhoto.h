#ifndef ORBTEX_DEMO_PHOTO_H
#define ORBTEX_DEMO_PHOTO_H

namespace cli
{

// A 64x64 photograph crop, as a PNG file's bytes.
extern const unsigned char kDemoPhotoPNG[];
extern const unsigned long kDemoPhotoPNGSize;

} // namespace cli

#endif
