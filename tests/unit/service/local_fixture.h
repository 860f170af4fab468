/**
 * The servers of the Unix sockets in front of a scripted instrument, and clients for them.
 */
#ifndef ORVAN_TESTS_LOCAL_FIXTURE_H
#define ORVAN_TESTS_LOCAL_FIXTURE_H

#include <chrono>
#include <filesystem>
#include <string>
#include <string_view>
#include <thread>

#include <gtest/gtest.h>

#include "scripted_instrument.h"
#include "service/executor.h"
#include "service/local/local_server.h"
#include "service/server.h"
#include "service/standard/locks.h"
#include "support/eventually.h"
#include "support/log_capture.h"
#include <unique_fd.h>

namespace orvan_test {

/** A folder of the test's own, removed at the end. */
class PrivateFolder {
public:
    PrivateFolder();
    ~PrivateFolder();
    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;

    const std::filesystem::path& path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

/** A client of a Unix socket. Its receives are bounded, so that a missing line fails instead of hanging. */
class LocalClient {
public:
    explicit LocalClient(const std::filesystem::path& socket);

    int fd() const { return m_socket.get(); }
    void send(std::string_view bytes);
    /** The next line with its LF; what was received if the peer closed or `bound` passed before. */
    std::string line(std::chrono::milliseconds bound = std::chrono::seconds(20));
    /** Exactly `size` bytes. */
    std::string bytes(size_t size, std::chrono::milliseconds bound = std::chrono::seconds(20));
    /** All bytes until the end of the stream. */
    std::string rest(std::chrono::milliseconds bound = std::chrono::seconds(20));
    std::string ask(std::string_view message);
    void finish_sending();
    void close() { m_socket = {}; }

private:
    bool receive(std::chrono::steady_clock::time_point deadline);

    orvan_common::UniqueFd m_socket;
    std::string m_received;
    bool m_ended = false;
};

/** The socket of messages, with an attendant's thread. */
class RunningLocal {
public:
    RunningLocal(const std::filesystem::path& folder, orvan_service::StandardInstrument& instrument);
    ~RunningLocal();

    orvan_service::Locks& locks() { return m_locks; }
    orvan_service::Executor& executor() { return m_server.executor(); }
    /** Stops the attendant, and removes the socket. */
    void end();

private:
    struct NoSink : orvan_service::MessageSink {
        void execute(int, char*, size_t) override {}
        void client_lost(int) override {}
    };

    NoSink m_no_sink;
    orvan_service::Locks m_locks;
    orvan_service::Server m_server;
    orvan_service::LocalServer m_local;
    orvan_common::UniqueFd m_stop;
    std::thread m_attendant;
};

class LocalTest : public ::testing::Test {
protected:
    ~LocalTest() override { instrument.open(); } // the server's end waits for its message

    LogCapture log; // keeps the service's lines out of the machine's log
    PrivateFolder folder;
    const std::filesystem::path socket = folder.path() / "run/scpi.sock";
    ScriptedInstrument instrument;
    RunningLocal server{folder.path() / "run", instrument};
};

} // namespace orvan_test

#endif
