#include "Codecs/ORBTC/fnzj/analygrapprop.h"

#include "Codecs/ORBTC/fnzj/initialreps.h"

namespace orbtexture
{

namespace
{

constexpr int kMostPixels = 255; // 255 marks a pixel without an island
constexpr unsigned char kUnlabelled = 255;

// Sum over the channels of the squared second difference left + right - 2
// centre is below 17.
bool Smooth(const unsigned char* before, const unsigned char* centre, const unsigned char* after)
{
    int sum = 0;
    for (int c = 0; c < 4; ++c)
    {
        const int d = before[c] + after[c] - 2 * centre[c];
        sum += d * d;
    }
    return sum < 17;
}

} // namespace

int AnalyseGraphicsProperties(const unsigned char* window, const CompressParams& params, unsigned char* labels,
                              unsigned char* order, int enough)
{
    const int width = params.windowWidth, height = params.windowHeight, count = width * height;
    if (count > kMostPixels || count == 0)
        return 0;
    auto pixel = [window](int index) { return window + 4 * index; };

    // Smooth across the row and down the column; the outer columns take the
    // row flag of their neighbour, the outer rows the column flag of theirs.
    bool acrossRow[kMostPixels] = {}, downColumn[kMostPixels] = {};
    for (int y = 0; y < height; ++y)
        for (int x = 1; x + 1 < width; ++x)
            acrossRow[y * width + x] = Smooth(pixel(y * width + x - 1), pixel(y * width + x), pixel(y * width + x + 1));
    for (int y = 1; y + 1 < height; ++y)
        for (int x = 0; x < width; ++x)
            downColumn[y * width + x] =
                Smooth(pixel((y - 1) * width + x), pixel(y * width + x), pixel((y + 1) * width + x));
    if (width >= 3)
        for (int y = 0; y < height; ++y)
        {
            acrossRow[y * width] = acrossRow[y * width + 1];
            acrossRow[y * width + width - 1] = acrossRow[y * width + width - 2];
        }
    if (height >= 3)
        for (int x = 0; x < width; ++x)
        {
            downColumn[x] = downColumn[width + x];
            downColumn[(height - 1) * width + x] = downColumn[(height - 2) * width + x];
        }

    for (int i = 0; i < count; ++i)
        labels[i] = kUnlabelled;
    unsigned char stack[kMostPixels];
    int islands = 0, written = 0;
    for (int seed = 0; seed < count; ++seed)
    {
        if (labels[seed] != kUnlabelled)
            continue;
        if (islands == enough)
            return enough;
        const unsigned char island = static_cast<unsigned char>(islands++);
        labels[seed] = island;
        order[written++] = static_cast<unsigned char>(seed);
        int top = 0;
        stack[top++] = static_cast<unsigned char>(seed);
        while (top > 0)
        {
            // The popped pixel is the reference, not the seed, so a slow
            // gradient stays one island.
            const int p = stack[--top], px = p % width, py = p / width;
            for (int qy = py - 1; qy <= py + 1; ++qy)
                for (int qx = px - 1; qx <= px + 1; ++qx)
                {
                    if (qx < 0 || qy < 0 || qx >= width || qy >= height)
                        continue;
                    const int q = qy * width + qx;
                    if (labels[q] != kUnlabelled)
                        continue;
                    const bool joins = SQColDist(pixel(p), pixel(q)) <= 16 || (qy == py && acrossRow[q]) ||
                                       (qx == px && downColumn[q]) ||
                                       (params.punchThrough && pixel(p)[3] == 0 && pixel(q)[3] == 0);
                    if (!joins)
                        continue;
                    labels[q] = island;
                    order[written++] = static_cast<unsigned char>(q);
                    stack[top++] = static_cast<unsigned char>(q);
                }
        }
    }
    return islands;
}

} // namespace orbtexture
