#ifndef TESTS_SUPPORT_TESTPICTURES_H
#define TESTS_SUPPORT_TESTPICTURES_H

// Small photograph-like rgba8 pictures and the measure the codec tests
// compare them with.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace testsupport
{

// Smooth shading, a hard edge, a thin line, texture noise and, when asked,
// an alpha ramp with a transparent hole.
inline std::vector<unsigned char> Picture(unsigned width, unsigned height, bool alpha, unsigned seed = 3)
{
    std::mt19937 random(seed);
    std::vector<unsigned char> pixels(size_t(width) * height * 4);
    for (unsigned y = 0; y < height; ++y)
        for (unsigned x = 0; x < width; ++x)
        {
            unsigned char* p = &pixels[(size_t(y) * width + x) * 4];
            const double u = double(x) / width, v = double(y) / height;
            double r = 200 * u + 30, g = 60 + 120 * std::sin(6 * v), b = 90 + 80 * u * v;
            if (x > width / 2 + y / 3)
                r = 40, g += 50; // an edge
            if (x == y / 2 + 3)
                r = g = b = 250; // a thin line
            const int noise = int(random() % 13) - 6;
            p[0] = uint8_t(std::min(255.0, std::max(0.0, r + noise)));
            p[1] = uint8_t(std::min(255.0, std::max(0.0, g + noise)));
            p[2] = uint8_t(std::min(255.0, std::max(0.0, b - noise)));
            const double dx = double(x) - width * 0.3, dy = double(y) - height * 0.6;
            p[3] = !alpha ? 255 : dx * dx + dy * dy < width * width / 36.0 ? 0 : uint8_t(std::min(255.0, 120 + 200 * v));
        }
    return pixels;
}

inline double Psnr(const std::vector<unsigned char>& a, const std::vector<unsigned char>& b, bool withAlpha)
{
    double sum = 0.0;
    size_t n = 0;
    for (size_t i = 0; i < a.size(); ++i)
    {
        if (!withAlpha && i % 4 == 3)
            continue;
        sum += (double(a[i]) - b[i]) * (double(a[i]) - b[i]);
        ++n;
    }
    return sum == 0.0 ? 99.0 : 10.0 * std::log10(255.0 * 255.0 * double(n) / sum);
}

} // namespace testsupport

#endif
