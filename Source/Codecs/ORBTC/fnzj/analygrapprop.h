#ifndef FNZJ_ANALYGRAPPROP_H
#define FNZJ_ANALYGRAPPROP_H

// Graphics-property analysis: cuts a block's window into islands of
// connected pixels that are near in colour or lie on a smooth gradient.

#include "Codecs/ORBTC/fnzj/wrapper.h"

namespace orbtexture
{

// 'window' holds windowWidth x windowHeight RGBA pixels in rows. 'labels'
// (a byte a pixel) receives each pixel's island from 0; 'order' (a byte a
// pixel) the pixel indices in the order they joined their islands, each
// island one run. Returns the number of islands; a window of more than 255
// pixels, which labels cannot number, gives 0 and leaves both untouched.
// With 'enough', the labelling stops once that many islands are found (the
// labels and order are then partial) and gives 'enough'.
int AnalyseGraphicsProperties(const unsigned char* window, const CompressParams& params, unsigned char* labels,
                              unsigned char* order, int enough = 256);

} // namespace orbtexture

#endif
