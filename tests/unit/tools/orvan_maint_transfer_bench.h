/**
 * Sends a package to an instrument's model over a link that loses, duplicates and delays frames.
 */
#ifndef ORVAN_TESTS_ORVAN_MAINT_TRANSFER_BENCH_H
#define ORVAN_TESTS_ORVAN_MAINT_TRANSFER_BENCH_H

#include <chrono>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "direct_link.h"
#include "orvan-maint/software_transfer.h"

namespace orvan_test {

inline constexpr orvan_maint::Timing kQuick{std::chrono::milliseconds(1), std::chrono::microseconds(200),
                                            std::chrono::milliseconds(2), std::chrono::milliseconds(300)};

inline std::string random_bytes(size_t size)
{
    std::mt19937 random(size);
    std::string bytes(size, '\0');
    for (char& c : bytes) {
        c = static_cast<char>(random());
    }
    return bytes;
}

/** A transfer to a model. */
struct Transfer {
    explicit Transfer(size_t size) : Transfer(random_bytes(size)) {}
    explicit Transfer(std::string bytes) : package(std::move(bytes)) {}

    /** Its result. */
    int run(const orvan_maint::Timing& timing = kQuick)
    {
        orvan_maint::SoftwareTransfer transfer(link, model.mac, package, timing,
                                               [this](size_t done) { progress.push_back(done); });
        int code = orvan_maint::kExitDone;
        try {
            transfer.run();
        } catch (const orvan_maint::Failure& failure) {
            code = failure.code;
            complaint = failure.what();
        }
        resent = transfer.resent();
        end_sent = transfer.end_sent();
        damaged = transfer.damaged();
        return code;
    }

    /** Opcode and block of each frame sent: "HESU0 HEID1". */
    std::string sent() const
    {
        std::string text;
        for (const Bytes& bytes : link.sent) {
            text += (text.empty() ? "" : " ") + std::string(bytes.begin(), bytes.begin() + 4) +
                    std::to_string(bytes[4] << 8 | bytes[5]);
        }
        return text;
    }

    void expect_whole()
    {
        EXPECT_EQ(complaint, "");
        EXPECT_TRUE(model.file == package);
        EXPECT_EQ(model.ended, 1);
        EXPECT_EQ(model.transfers, 1);
        EXPECT_FALSE(model.in_transfer());
        EXPECT_FALSE(damaged);
    }

    std::string package;
    InstrumentModel model;
    DirectLink link{model};
    std::vector<size_t> progress;
    size_t resent = 0;
    bool end_sent = false;
    bool damaged = false;
    std::string complaint;
};

} // namespace orvan_test

#endif
