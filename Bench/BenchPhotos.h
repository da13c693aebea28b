#ifndef ORBTEX_BENCH_PHOTOS_H
#define ORBTEX_BENCH_PHOTOS_H

// Photos for the benchmarks: every .png and .jpg in a folder, as the centre
// square of each point-sampled to size x size rgba8 (a plain crop when the
// photo is at least that size both ways). Header-only; the including program
// links stb_image.

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <string>
#include <vector>

#include <stb_image.h>

namespace benchphotos
{

struct Image
{
    std::string name;
    std::vector<uint8_t> rgba;
};

inline std::vector<uint8_t> CentreSquare(const uint8_t* pixels, unsigned width, unsigned height, unsigned size)
{
    const unsigned side = std::min({width, height, size});
    const unsigned left = (width - side) / 2, top = (height - side) / 2;
    std::vector<uint8_t> out(size_t(size) * size * 4);
    for (unsigned y = 0; y < size; ++y)
        for (unsigned x = 0; x < size; ++x)
        {
            const size_t from = (size_t(top + y * side / size) * width + left + x * side / size) * 4;
            std::memcpy(&out[(size_t(y) * size + x) * 4], pixels + from, 4);
        }
    return out;
}

// In name order; unreadable files are reported and skipped.
inline std::vector<Image> LoadPhotos(const char* folder, unsigned size)
{
    std::vector<std::string> names;
    if (DIR* dir = opendir(folder))
    {
        while (const dirent* entry = readdir(dir))
        {
            const std::string name = entry->d_name;
            const size_t dot = name.rfind('.');
            std::string ext = dot == std::string::npos ? "" : name.substr(dot + 1);
            std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return char(std::tolower(c)); });
            if (ext == "png" || ext == "jpg" || ext == "jpeg")
                names.push_back(name);
        }
        closedir(dir);
    }
    std::sort(names.begin(), names.end());
    std::vector<Image> images;
    for (const std::string& name : names)
    {
        int width = 0, height = 0, channels = 0;
        stbi_uc* pixels = stbi_load((std::string(folder) + "/" + name).c_str(), &width, &height, &channels, 4);
        if (!pixels)
        {
            std::fprintf(stderr, "skipping %s: %s\n", name.c_str(), stbi_failure_reason());
            continue;
        }
        images.push_back({name.substr(0, name.rfind('.')), CentreSquare(pixels, unsigned(width), unsigned(height), size)});
        stbi_image_free(pixels);
    }
    return images;
}

} // namespace benchphotos

#endif
