/**
 * The real library with its records and a scripted module for each of four channels.
 */
#ifndef ORVAN_TESTS_LIBRARY_BENCH_H
#define ORVAN_TESTS_LIBRARY_BENCH_H

#include <string>

#include <gtest/gtest.h>

#include "orvan_sdk/bit/bit_manager.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include "service/instrument.h"
#include "support/instrument_files.h"
#include "support/log_capture.h"
#include "support/scripted_module.h"
#include <dataorvan.h>

namespace orvan_test {

class LibraryBench : public ::testing::Test {
protected:
    LibraryBench()
    {
        BITManager::getInstance(0); // with no periodic thread, which the process's end would wait for
        library->setNumberofChannels(kMaxChannels);
        library->setSelectedChannel(1);
        for (int channel = 1; channel <= kMaxChannels; ++channel) {
            library->m_orvanXIp[channel - 1] = module(channel).address();
            library->m_OrvanXport[channel - 1] = static_cast<uint32_t>(module(channel).port());
        }
        files.write_factory_setup("{}");
        library->load_database(0);
    }

    ScriptedModule& module(int channel) { return m_modules[channel - 1]; }

    void answers(int channel, const std::string& result)
    {
        module(channel).always(ModuleAnswer::reply(result + ";+OK\r\n"));
    }

    const ORVAN_CONFIG& record(int channel)
    {
        return *reinterpret_cast<const ORVAN_CONFIG*>(library->get_channelDB(channel));
    }

    InstrumentFiles files;
    LogCapture log; // keeps the library's lines out of the machine's log
    orvan_service::Instrument instrument;
    Scpi_Orvanx* library = Scpi_Orvanx::getInstance();

private:
    ScriptedModule m_modules[kMaxChannels];
};

} // namespace orvan_test

#endif
