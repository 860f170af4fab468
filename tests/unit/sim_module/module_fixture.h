/** A module on its own thread and a free loopback port, and clients for it. */
#ifndef ORVAN_TESTS_UNIT_SIM_MODULE_MODULE_FIXTURE_H
#define ORVAN_TESTS_UNIT_SIM_MODULE_MODULE_FIXTURE_H

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include <gtest/gtest.h>

#include "module/module.h"
#include "support/eventually.h"

/** One TCP connection to a module. */
class Client {
public:
    explicit Client(const sim_module::Module& module);
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    int fd() const { return m_fd; }
    void send(std::string_view bytes) const;
    void end_sending() const;

    /** Up to and including LF; what was received if the peer closed or 5 s passed before. */
    std::string reply() const;
    std::string ask(std::string_view request) const;

    /** True when the peer ends the connection within 5 s, without a byte. */
    bool ended_by_peer() const;

    /** Number of TCP segments with data received. */
    unsigned segments_received() const;

private:
    int m_fd;
};

class ModuleTest : public testing::Test {
protected:
    static constexpr std::chrono::milliseconds kRestartTime{50};

    void SetUp() override;
    void TearDown() override;

    sim_module::Module& module() { return *m_module; }

    /** A request on a new connection, as a controller sends it. */
    std::string ask(std::string_view request);

    /** The reply line to a control command, without its LF. */
    std::string control(const std::string& command);

    const std::string& control_path() const { return m_control_path; }

private:
    size_t m_descriptors_before = 0;
    std::filesystem::path m_directory;
    std::string m_control_path;
    std::unique_ptr<sim_module::Module> m_module;
    std::thread m_thread;
};

using orvan_test::eventually;

#endif
