#ifndef FNZJ_OPTIMISER_PATH_H
#define FNZJ_OPTIMISER_PATH_H

// The optimiser's two ways to the same words: the plain one (every visit
// recomputed, fixed row shares per thread) and the fast one (visits whose
// inputs are those of a settled last visit replayed, rows handed out as
// threads free up). Process-wide: for tests and benchmarks, not for
// concurrent use.

namespace orbtexture
{

void SetOptimiserReference(bool reference);
bool OptimiserReference();

} // namespace orbtexture

#endif
