#ifndef ORBTEX_CLI_TEST_CARD_H
#define ORBTEX_CLI_TEST_CARD_H

#include "ORBTexture.h"

namespace cli
{

// A procedural rgba8 test card: smooth gradients (top left), hard-edged
// colour blocks (top right), an alpha ramp with a fully transparent hole
// (bottom left) and single-pixel detail and rings (bottom right).
orbtexture::CORBTexture MakeTestCard(unsigned int size = 256);

} // namespace cli

#endif
