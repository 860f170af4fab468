/**
 * The front end as in a service process: the module service, one client on the loopback, and one
 * scripted module for all channels.
 */
#ifndef ORVAN_TESTS_FRONT_END_BENCH_H
#define ORVAN_TESTS_FRONT_END_BENCH_H

#include <csignal>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "orvan_sdk/orvan_sdk.h"
#include "orvan_sdk/scpi-parser/scpi-def.h"
#include "orvan_sdk/scpi-parser/scpi_reply.h"
#include "support/log_capture.h"
#include "support/loopback.h"
#include "support/scripted_module.h"
#include <scpi/scpi.h>

namespace orvan_test {

/** Replies of a message that failed: the error's line, then the success word. */
inline const std::string kMissingParameter = "-ERR -109, \"Missing parameter\";+OK\r\n";
inline const std::string kExecutionError = "-ERR -200, \"Execution error\";+OK\r\n"; // the parser's own
inline const std::string kTooMuchData = "-ERR -223, \"Too much data\";+OK\r\n";
inline const std::string kSystemError = "-ERR -310, \"System error\";+OK\r\n";
inline const std::string kCommunicationError = "-ERR -360, \"Communication error\";+OK\r\n";

class FrontEndBench : public ::testing::Test {
protected:
    FrontEndBench()
    {
        std::signal(SIGPIPE, SIG_IGN);
        orvanx = Scpi_Orvanx::getInstance();
        for (int index = 0; index < kMaxChannels; ++index) {
            connect_module(index + 1, module);
        }
        orvanx->setSelectedChannel(1);
        speak_as(client);
    }

    ~FrontEndBench() override
    {
        speak_as(client);
        SCPI_Flush(&scpi_context); // output left by a case must not reach the next one
        delete orvanx;
        SCPI_Deinit(&scpi_context);
    }

    void connect_module(int channel, const ScriptedModule& target)
    {
        orvanx->m_orvanXIp[channel - 1] = target.address();
        orvanx->m_OrvanXport[channel - 1] = static_cast<uint32_t>(target.port());
    }

    void speak_as(const TcpPair& pair) { orvanx->setCallerSocket(pair.server(), 0); }

    userContext_t& user() { return *static_cast<userContext_t*>(scpi_context.user_context); }

    /** Passes bytes in as the service process does. @return the parser's result */
    bool feed(std::string bytes)
    {
        return orvanx->sendScpiToNewParser(bytes.data(), static_cast<int>(bytes.size())) != 0;
    }

    /** Sends a line and returns everything received; a reply is sent before the call returns. */
    std::string ask(const std::string& line)
    {
        feed(line + "\r\n");
        return read_ready(client.client());
    }

    void take_service_away() { user().ptrParser = nullptr; }

    /** Calls a handler without a user record. Its reply and its error texts are discarded. */
    scpi_result_t call_without_user_record(scpi_command_callback_t handler)
    {
        void* const record = std::exchange(scpi_context.user_context, nullptr);
        const scpi_result_t result = handler(&scpi_context);
        scpi_context.user_context = record;
        return result;
    }

    /** Empties the error queue. @return its errors as "<number> <info>" */
    std::vector<std::string> take_errors()
    {
        std::vector<std::string> errors;
        for (scpi_error_t error; SCPI_ErrorPop(&scpi_context, &error); SCPI_ErrorFree(&error)) {
            errors.push_back(std::to_string(error.error_code) + " " +
                             (error.device_dependent_info != nullptr ? error.device_dependent_info : ""));
        }
        return errors;
    }

    /** The lines logged at LOG_ERR; clears the log. */
    std::vector<std::string> take_error_lines()
    {
        std::vector<std::string> texts;
        for (const LogLine& line : logs.lines()) {
            if (line.priority == LOG_ERR) {
                texts.push_back(line.text);
            }
        }
        logs.clear();
        return texts;
    }

    std::string write_and_flush(std::initializer_list<std::string> pieces)
    {
        for (const std::string& piece : pieces) {
            EXPECT_EQ(SCPI_Write(&scpi_context, piece.data(), piece.size()), piece.size());
        }
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
