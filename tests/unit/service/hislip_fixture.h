/**
 * A HiSLIP server on the loopback in front of a scripted instrument.
 */
#ifndef ORVAN_TESTS_HISLIP_FIXTURE_H
#define ORVAN_TESTS_HISLIP_FIXTURE_H

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "service/executor.h"
#include "service/hislip/hislip_server.h"
#include "service/server.h"
#include "support/eventually.h"
#include "support/hislip_client.h"
#include "support/log_capture.h"

namespace orvan_test {

/** Answers a message that ends in "?" with its own text, others with nothing, and records all. */
class ScriptedInstrument : public orvan_service::StandardInstrument {
public:
    using Handler = std::function<std::string(int& channel, const std::string& message)>;

    explicit ScriptedInstrument(Handler handler = {}) : m_handler(std::move(handler)) {}

    std::string execute(int& channel, std::string& message) override;

    /** From now on messages wait inside execute until open() is called. */
    void shut();
    void open();
    /** Messages inside execute. */
    size_t at_work() const;
    /** Channel and text of each message, without its LF. */
    std::vector<std::pair<int, std::string>> messages() const;

private:
    const Handler m_handler;
    mutable std::mutex m_mutex;
    std::condition_variable m_opened;
    bool m_shut = false;
    size_t m_at_work = 0;
    std::vector<std::pair<int, std::string>> m_messages;
};

/** The whole front without raw clients, on a thread for the attendant. */
class RunningHislip {
public:
    explicit RunningHislip(orvan_service::StandardInstrument& instrument);
    ~RunningHislip();

    int port() const { return m_port; }
    orvan_service::Locks& locks() { return m_locks; }

private:
    RunningHislip(orvan_service::StandardInstrument& instrument,
                  std::vector<orvan_common::UniqueFd> listeners);

    struct NoSink : orvan_service::MessageSink {
        void execute(int, char*, size_t) override {}
        void client_lost(int) override {}
    };

    const int m_port;
    NoSink m_no_sink;
    orvan_service::Locks m_locks;
    orvan_service::Server m_server;
    orvan_service::HislipServer m_hislip;
    orvan_common::UniqueFd m_stop;
    std::thread m_attendant;
};

class HislipTest : public ::testing::Test {
protected:
    LogCapture log; // keeps the service's lines out of the machine's log
    ScriptedInstrument instrument;
    RunningHislip server{instrument};
};

} // namespace orvan_test

#endif
