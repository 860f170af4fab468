/**
 * A portable that runs its complete start, with its threads, one module and both stores of its settings.
 */
#ifndef ORVAN_TESTS_PORTABLE_START_BENCH_H
#define ORVAN_TESTS_PORTABLE_START_BENCH_H

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include <unistd.h>

#include "dataorvan.h"
#include "orvan_sdk/bit/bit_manager.h"
#include "orvan_sdk/lxi/PersistentData.h"
#include "orvan_sdk/orvan_sdk.h"
#include "portable_bench.h"
#include "support/instrument_files.h"
#include "support/maintenance_client.h"
#include "support/output_capture.h"
#include "support/persistent_data_peer.h"
#include "support/private_home.h"
#include "support/private_network.h"
#include "support/scripted_module.h"
#include "support/stand_ins.h"

namespace board_test {

inline constexpr uint64_t kSecond = 1'000'000;

class PortableStart : public testing::Test, protected PortableBoard {
protected:
    PortableStart()
    {
        if (!refusal().empty()) {
            return;
        }
        // A program that creates the folder would not accept a link to one.
        std::filesystem::create_directories("/home/orvan");
        std::filesystem::create_directory_symlink(files->halde(), "/home/orvan/halde");
        files->write_factory_setup("{}");
        BITManager::getInstance(0); // with no periodic thread
        module->always(orvan_test::ModuleAnswer::reply("25.0;+OK\r\n"));
        connect_module();
        logs.clear();
    }
    void SetUp() override
    {
        if (!refusal().empty()) {
            GTEST_SKIP() << refusal();
        }
    }
    /** GoogleTest reports failures on standard output. */
    void TearDown() override
    {
        if (refusal().empty()) {
            end();
        }
        const std::string output = HasFailure() ? out->text() : ""; // the library's own may hold NULs
        out.reset();
        std::fwrite(output.data(), 1, output.size(), stdout);
    }

    void without_battery() { board->battery()->set_fitted(false); }

    void start()
    {
        const sim_board::SelfAdvancing self{board->clock()};
        device.reset(CreateDevice("/dev/null", kDebugOff));
        // The selected channel's temperature is polled through the instrument's own server.
        Scpi_Orvanx::getInstance()->setScpiPort(module->port());
    }
    /** Restarts the process on the same machine. */
    void restart()
    {
        end();
        connect_module();
        start();
    }
    void end()
    {
        while_time_runs([this] {
            orvan_test::end_with_frames([this] { device.reset(); });
            end_module_service();
        });
        PersistentDataTestPeer::forget_instance();
    }

    /** Waits until the threads started by the device are asleep. */
    bool threads(size_t count)
    {
        return board->clock().wait_for_sleepers(count) && board->clock().sleepers() == count;
    }
    static EEPROM_DEVICE_SETTINGS& settings() { return *CPersistentData::GetInstance()->getSettings(); }
    void store_settings()
    {
        const sim_board::SelfAdvancing self{board->clock()};
        CPersistentData::GetInstance()->writeData(true, true);
    }
    const ORVAN_CONFIG& record()
    {
        return *reinterpret_cast<ORVAN_CONFIG*>(Scpi_Orvanx::getInstance()->get_channelDB(1));
    }

    /** Runs the body of a case whose device never ends, in a child process that ends with it. */
    template <typename Body>
    void in_a_process_that_ends(Body body)
    {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        EXPECT_EXIT(end_process_after(body), testing::ExitedWithCode(0), "");
    }

    /** Why a case can't run here; empty if it can. */
    const std::string& refusal() const { return home.refusal().empty() ? network.refusal() : home.refusal(); }

    orvan_test::PrivateHome home;
    orvan_test::PrivateNetwork network;
    std::optional<orvan_test::OutputCapture> out{STDOUT_FILENO};
    std::optional<orvan_test::OutputCapture> err{STDERR_FILENO};
    std::optional<orvan_test::StandIns> stand_ins{std::in_place};
    std::optional<orvan_test::InstrumentFiles> files{std::in_place};
    std::optional<orvan_test::ScriptedModule> module{std::in_place};
    LogCapture logs;
    std::unique_ptr<IOrvanDeviceManager> device;

private:
    void connect_module()
    {
        Scpi_Orvanx* const modules = Scpi_Orvanx::getInstance();
        modules->m_orvanXIp[0] = module->address();
        modules->m_OrvanXport[0] = static_cast<uint32_t>(module->port());
    }

    template <typename Body>
    [[noreturn]] void end_process_after(Body body)
    {
        body();
        err.reset();
        // GoogleTest prints nothing in such a process.
        const auto& result = *testing::UnitTest::GetInstance()->current_test_info()->result();
        for (int i = 0; i < result.total_part_count(); ++i) {
            const auto& part = result.GetTestPartResult(i);
            std::fprintf(stderr, "%s:%d: %s\n", part.file_name(), part.line_number(), part.message());
        }
        module.reset();
        stand_ins.reset();
        files.reset();
        std::_Exit(HasFailure() ? 1 : 0);
    }

    template <typename Body>
    void while_time_runs(Body body)
    {
        std::atomic<bool> done = false;
        std::thread worker([&] {
            body();
            done = true;
        });
        while (!done) {
            board->clock().advance(kSecond);
        }
        worker.join();
    }
};

} // namespace board_test

#endif
