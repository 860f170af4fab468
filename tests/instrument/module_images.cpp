#include "module_images.h"

#include <cstdio>
#include <fstream>
#include <iterator>

#include "crc32_utils.h"

namespace orvan_test {

std::string image_of(size_t size)
{
    std::string image(size, '\0');
    uint32_t state = 1;
    for (char& byte : image) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<char>(state >> 24);
    }
    return image;
}

std::string stored(const std::string& kind, const std::string& image, int times)
{
    const Crc32Utils& crc32 = *Crc32Utils::getInstance();
    const auto* const bytes = reinterpret_cast<const uint8_t*>(image.data());
    char text[100];
    std::snprintf(text, sizeof text, "\"%s\":{\"stored\":%d,\"size\":%zu,\"crc32\":\"%08X\"}", kind.c_str(),
                  times, image.size(),
                  crc32.crc32_signoff(crc32.calculate_crc32(crc32.crc32_init(), bytes, image.size())));
    return text;
}

std::string status(const Instrument& instrument, int module)
{
    return instrument.ctl({"module", std::to_string(module), "status"}).output;
}

std::string contents(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace orvan_test
