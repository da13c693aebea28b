#ifndef FNZJ_OPTIMISER_PATH_H
#define FNZJ_OPTIMISER_PATH_H

// The optimiser's two ways to the same words: the plain one (fixed row
// shares per thread, every pixel of a window measured on each evaluation, the
// pair fit in two walks) and the fast one (a phase's blocks in independent
// stages handed to free threads, the pixels the block's own pair does not
// reach settled once per prepared cache, the others measured two at a time
// with AVX2, the fit in one walk). Process-wide: for tests and benchmarks,
// not for concurrent use.

namespace orbtexture
{

void SetOptimiserReference(bool reference);
bool OptimiserReference();

} // namespace orbtexture

#endif
