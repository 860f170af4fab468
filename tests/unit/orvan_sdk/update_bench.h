/**
 * The front end with a scripted module for every channel and a private upgrade folder.
 */
#ifndef ORVAN_TESTS_UPDATE_BENCH_H
#define ORVAN_TESTS_UPDATE_BENCH_H

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "front_end_bench.h"
#include "support/private_home.h"
#include "support/stand_ins.h"

namespace orvan_test {

using Lines = std::vector<std::string>;

inline const std::filesystem::path kUpgradeFolder = "/home/orvan/halde/upgrade/orvanx";

/** A base before the bench: a private home needs the process to have one thread. */
struct WithHomeAndStandIns {
    PrivateHome home;
    StandIns stand_ins;
};

class UpdateBench : protected WithHomeAndStandIns, public FrontEndBench {
protected:
    UpdateBench()
    {
        for (int channel = 1; channel <= kMaxChannels; ++channel) {
            connect_module(channel, modules[channel - 1]);
        }
        orvanx->setNumberofChannels(3);
    }

    void SetUp() override
    {
        if (!home.refusal().empty()) {
            GTEST_SKIP() << home.refusal();
        }
        std::filesystem::create_directories(kUpgradeFolder);
        logs.clear();
    }

    /** Every byte that an image can have, line ends and separators included, over and over. */
    static std::string image_of(size_t size)
    {
        std::string image(size, '\0');
        for (size_t i = 0; i < size; ++i) {
            image[i] = static_cast<char>(i + i / 256);
        }
        return image;
    }

    /** Puts an image into the upgrade folder. */
    static std::filesystem::path put_image(const std::string& name, const std::string& image)
    {
        const std::filesystem::path path = kUpgradeFolder / name;
        std::ofstream(path, std::ios::binary) << image;
        return path;
    }

    static std::string contents(const std::filesystem::path& path)
    {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    /** Makes modules 1 to 3 wait for this request, whose end is given by its size, and send these answers. */
    void expect_request(const std::string& request, const std::string (&answers)[3])
    {
        for (int index = 0; index < 3; ++index) {
            modules[index].then(ModuleAnswer::reply_to_block(request.size(), answers[index]));
        }
    }

    /** Connections to all modules. */
    size_t connections() const
    {
        size_t all = 0;
        for (const ScriptedModule& each : modules) {
            all += each.connections();
        }
        return all;
    }

    ScriptedModule modules[kMaxChannels];
};

inline const std::string kAccepted = "+OK\r\n";
inline const std::string kRefused = "-ERR -250, \"Mass storage error\";+OK\r\n";
inline const std::string kAllAccept[3] = {kAccepted, kAccepted, kAccepted};

} // namespace orvan_test

#endif
