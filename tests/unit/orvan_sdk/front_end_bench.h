/**
 * The front end as a service process holds it: the module service, one client on the loopback, and one
 * scripted module that stands behind every channel.
 */
#ifndef ORVAN_TESTS_FRONT_END_BENCH_H
#define ORVAN_TESTS_FRONT_END_BENCH_H

#include <csignal>
#include <string>

#include <gtest/gtest.h>
#include <scpi/scpi.h>

#include "orvan_sdk/orvan_sdk.h"
#include "orvan_sdk/scpi-parser/scpi-def.h"
#include "orvan_sdk/scpi-parser/scpi_reply.h"
#include "support/log_capture.h"
#include "support/loopback.h"
#include "support/scripted_module.h"

namespace orvan_test {

class FrontEndBench : public ::testing::Test {
protected:
    FrontEndBench()
    {
        std::signal(SIGPIPE, SIG_IGN);
        orvanx = Scpi_Orvanx::getInstance();
        for (int index = 0; index < kMaxChannels; ++index)
            put_module_behind(index + 1, module);
        orvanx->setSelectedChannel(1);
        speak_as(client);
    }

    ~FrontEndBench() override
    {
        speak_as(client);
        SCPI_Flush(&scpi_context); // output that a case left behind must not reach the next one
        delete orvanx;
        SCPI_Deinit(&scpi_context);
    }

    void put_module_behind(int channel, const ScriptedModule& behind)
    {
        orvanx->m_orvanXIp[channel - 1] = behind.address();
        orvanx->m_OrvanXport[channel - 1] = static_cast<uint32_t>(behind.port());
    }

    void speak_as(const TcpPair& pair) { orvanx->setCallerSocket(pair.server(), 0); }

    userContext_t& user() { return *static_cast<userContext_t*>(scpi_context.user_context); }

    /** Hands bytes in as the service process does. @return what the parser gave */
    bool feed(std::string bytes)
    {
        return orvanx->sendScpiToNewParser(bytes.data(), static_cast<int>(bytes.size())) != 0;
    }

    /** Sends a line and gives everything that came back; a reply leaves before the call returns. */
    std::string ask(const std::string& line)
    {
        feed(line + "\r\n");
        return read_ready(client.client());
    }

    std::string write_and_flush(std::initializer_list<std::string> pieces)
    {
        for (const std::string& piece : pieces)
            EXPECT_EQ(SCPI_Write(&scpi_context, piece.data(), piece.size()), piece.size());
        SCPI_Flush(&scpi_context);
        return read_ready(client.client());
    }

    LogCapture logs;
    ScriptedModule module;
    TcpPair client;
    Scpi_Orvanx* orvanx;
};

} // namespace orvan_test

#endif
