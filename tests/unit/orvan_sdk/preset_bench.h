/**
 * Setups as one file for each channel.
 */
#ifndef ORVAN_TESTS_PRESET_BENCH_H
#define ORVAN_TESTS_PRESET_BENCH_H

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>

#include "setup_bench.h"

namespace orvan_test {

class PresetStore : public SetupBench {
protected:
    ORVAN_CONFIG stored(int channel, int setup)
    {
        ORVAN_CONFIG config;
        std::memset(&config, 0, sizeof config);
        EXPECT_EQ(OrvanData().init_cmd_config(files.preset(channel, setup).c_str(), &config), 0);
        return config;
    }
    size_t files_below(const char* folder) const
    {
        const std::filesystem::recursive_directory_iterator all(files.halde() / folder);
        return static_cast<size_t>(
            std::count_if(begin(all), end(all), [](const auto& entry) { return entry.is_regular_file(); }));
    }
    std::string path_of(int channel, int setup)
    {
        char path[256];
        orvanx->get_json_db_path(channel, setup, path, sizeof path);
        return path;
    }
    void write_all(int setup, const std::string& json = "{}")
    {
        for (int channel = 1; channel <= kMaxChannels; ++channel) {
            files.write_preset(channel, setup, json);
        }
    }
    void put_folder_at(const std::filesystem::path& path) { std::filesystem::create_directory(path); }
};

} // namespace orvan_test

#endif
