/**
 * A HiSLIP server on the loopback in front of a scripted instrument.
 */
#ifndef ORVAN_TESTS_HISLIP_FIXTURE_H
#define ORVAN_TESTS_HISLIP_FIXTURE_H

#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "scripted_instrument.h"
#include "service/executor.h"
#include "service/hislip/hislip_server.h"
#include "service/server.h"
#include "support/eventually.h"
#include "support/hislip_client.h"
#include "support/log_capture.h"

namespace orvan_test {

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
