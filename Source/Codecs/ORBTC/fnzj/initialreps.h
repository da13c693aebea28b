#ifndef FNZJ_INITIALREPS_H
#define FNZJ_INITIALREPS_H

// Initial representatives of the optimiser: colour measures.

namespace orbtexture
{

// Sum of the squared differences of the four channels of two 8-bit RGBA
// colours, unweighted.
inline int SQColDist(const unsigned char* a, const unsigned char* b)
{
    int sum = 0;
    for (int c = 0; c < 4; ++c)
        sum += (a[c] - b[c]) * (a[c] - b[c]);
    return sum;
}

} // namespace orbtexture

#endif
