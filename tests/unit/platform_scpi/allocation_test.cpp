/**
 * The parser's heap allocations. The counter replaces operator new of the whole program.
 */
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "instrument_patterns.h"
#include "scpi/scpi.h"

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

namespace {
size_t g_allocations = 0;
}

void* operator new(size_t size)
{
    ++g_allocations;
    if (void* const memory = std::malloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, size_t) noexcept
{
    std::free(memory);
}

namespace {

scpi_result_t nothing(scpi_t*)
{
    return SCPI_RES_OK;
}

TEST(Allocation, LookUpAndDispatchUseNoHeap)
{
    std::vector<scpi_command_t> commands;
    for (const char* pattern : kInstrumentPatterns) {
        commands.push_back({pattern, nothing, 0});
    }
    commands.push_back({nullptr, nullptr, 0});
    std::vector<char> buffer(4096);
    scpi_error_t errors[4];
    scpi_t context;
    const size_t before_init = g_allocations;
    SCPI_Init(&context, commands.data(), nullptr, nullptr, "", "", "", "", buffer.data(), buffer.size(),
              errors, 4);
    const std::string message =
        ":FREQ;POW;:SYST:COMM:LAN:IPAD?;*IDN?;:FOO;:INST 1;\"\n" + std::string(5000, 'A') + "\n";
    const size_t before_input = g_allocations;
    EXPECT_GT(before_input, before_init) << "the counter counts";
    SCPI_Input(&context, message.data(), message.size());
    SCPI_FindCommand(&context, ":SYSTEM:FOO?", 12);
    SCPI_Match(":SYSTem[:FOO]?", ":SYST?", 6);
    EXPECT_EQ(g_allocations, before_input);
    SCPI_Deinit(&context);
}

} // namespace

#endif
