/**
 * A server on the loopback with a recording sink, and clients for it.
 */
#ifndef ORVAN_TESTS_SERVICE_FIXTURE_H
#define ORVAN_TESTS_SERVICE_FIXTURE_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "service/server.h"
#include "support/eventually.h"

namespace orvan_test {

using orvan_common::UniqueFd;

/** Records messages and answers them: by default with the message's text, then ";+OK" CR LF. */
class RecordingSink : public orvan_service::MessageSink {
public:
    /** Runs inside execute, instead of the default answer. */
    using Handler = std::function<void(int socket, const std::string& message)>;

    explicit RecordingSink(Handler handler = {});

    void execute(int socket, char* data, size_t len) override;
    void client_lost(int socket) override;

    /** From now on messages wait inside execute until open() is called. */
    void shut();
    void open();

    std::vector<std::string> messages() const;
    std::vector<int> lost() const;
    /** Number of messages executed at the same time as another. */
    size_t overlaps() const;
    /** Number of messages inside execute. */
    size_t at_work() const;

    /** The default answer. */
    static void answer(int socket, const std::string& message);

private:
    const Handler m_handler;
    mutable std::mutex m_mutex;
    std::condition_variable m_opened;
    bool m_shut = false;
    size_t m_at_work = 0;
    size_t m_overlaps = 0;
    std::vector<std::string> m_messages;
    std::vector<int> m_lost;
};

/** The server on its own thread, ended and joined at the end. */
class RunningServer {
public:
    explicit RunningServer(orvan_service::MessageSink& sink, const orvan_service::ServerLimits& limits = {},
                           orvan_service::HangWatch* watch = nullptr);
    ~RunningServer();
    RunningServer(const RunningServer&) = delete;
    RunningServer& operator=(const RunningServer&) = delete;

    int port() const { return m_port; }
    orvan_service::Server& server() { return m_server; }
    /** Stops accepting; returns when the server's run has returned. */
    void stop_accepting();

private:
    RunningServer(orvan_service::MessageSink& sink, const orvan_service::ServerLimits& limits,
                  orvan_service::HangWatch* watch, std::vector<orvan_common::UniqueFd> listeners);

    int m_port;
    orvan_service::Server m_server;
    orvan_common::UniqueFd m_stop;
    std::thread m_thread;
};

/** A client. Its receives are bounded, so that a missing reply fails instead of hanging. */
class TestClient {
public:
    /** @param from its own address; 127.0.0.1 is that of the instrument's own clients */
    explicit TestClient(int port, int receive_buffer = 0, const std::string& from = {});

    int fd() const { return m_socket.get(); }
    void send(const std::string& bytes);
    /** The next line with its CR LF; what was received if the peer closed or 10 seconds passed before. */
    std::string line(std::chrono::milliseconds bound = std::chrono::seconds(30));
    std::string ask(const std::string& message);
    /** Ends the sending direction. */
    void finish_sending();
    /** True when the server has ended the connection, with or without a reset. */
    bool sees_end(std::chrono::milliseconds bound = std::chrono::seconds(30));
    void close() { m_socket = {}; }
    /** Closes with a RST. */
    void reset();

private:
    orvan_common::UniqueFd m_socket;
    std::string m_received;
};

/** A child process with idle connections, which the server sees as another program's. */
class OtherProcess {
public:
    OtherProcess(int port, int connections);
    ~OtherProcess();
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;

    /** What the server sends first on the first connection, up to CR LF. */
    std::string first_line() const;

private:
    pid_t m_pid = -1;
    orvan_common::UniqueFd m_received;
};

} // namespace orvan_test

#endif
