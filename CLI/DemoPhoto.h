#ifndef ORBTEX_DEMO_PHOTO_H
#define ORBTEX_DEMO_PHOTO_H

// A 64x64 crop of a photograph for orbtex demo: a portrait by NASA (public
// domain), as distributed with Debian's python3-skimage (astronaut.png,
// pixels 192 to 255 across and 80 to 143 down), stored as PNG in
// DemoPhoto.png (its colour profile chunk left out) and compiled in by
// EmbedFile.cmake.

namespace cli
{

// The PNG file's bytes.
extern const unsigned char kDemoPhotoPNG[];
extern const unsigned long kDemoPhotoPNGSize;

} // namespace cli

#endif
