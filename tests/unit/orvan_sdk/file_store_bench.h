/**
 * The settings file in a private home.
 */
#ifndef ORVAN_TESTS_FILE_STORE_BENCH_H
#define ORVAN_TESTS_FILE_STORE_BENCH_H

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <numeric>
#include <sstream>
#include <string>

#include <unistd.h>

#include <gtest/gtest.h>

#include "file_calls_tap.h"
#include "orvan_sdk/nullEeprom/nullEeprom.h"
#include "support/bytes.h"
#include "support/output_capture.h"
#include "support/private_home.h"

/** Injects failures that no path in the fixed folder can cause. */
struct NullEepromTestPeer {
    static void set_path(NullEeprom& store, const char* path)
    {
        std::memset(store._fullpath, 0, sizeof store._fullpath);
        std::strcpy(store._fullpath, path);
    }
    static std::string path(const NullEeprom& store) { return store._fullpath; }
    static const uint8_t* storage(const NullEeprom& store) { return store._storage; }
};

namespace orvan_test {

inline const std::string kFolder = "/home/orvan/halde/config";
inline const std::string kFile = kFolder + "/flash.ini";

inline Bytes counting(size_t count, uint8_t from = 1)
{
    Bytes bytes(count);
    std::iota(bytes.begin(), bytes.end(), from);
    return bytes;
}

class FileStore : public testing::Test {
protected:
    void SetUp() override
    {
        if (!home.refusal().empty()) {
            GTEST_SKIP() << home.refusal();
        }
        store = std::make_unique<NullEeprom>();
    }
    void TearDown() override
    {
        g_failing.clear();
        g_recording = false;
        g_calls.clear();
        store.reset();
    }

    static Bytes file()
    {
        std::ifstream stream(kFile, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(stream), {});
    }
    static void put_file(const Bytes& bytes)
    {
        std::filesystem::create_directories(kFolder);
        std::ofstream(kFile, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }

    /** The output, without the lines printed by a sanitizer's malloc when out of memory. */
    static std::string said(const OutputCapture& err)
    {
        std::istringstream text(err.text());
        std::string own;
        for (std::string line; std::getline(text, line);) {
            if (!line.starts_with("==")) {
                own += line + '\n';
            }
        }
        return own;
    }
    /** Runs init() of a store with a fault. */
    std::string failed_init()
    {
        OutputCapture err(STDERR_FILENO);
        EXPECT_FALSE(store->init());
        return said(err);
    }

    PrivateHome home;
    std::unique_ptr<NullEeprom> store;
};

} // namespace orvan_test

#endif
