// The service's own server and the parser, with one row that takes a block and does nothing with it. The
// instrument's rows that take one write it to disk and send it to the modules.
#include <memory>
#include <string_view>

#include "floor_server.h"
#include "scpi/scpi.h"
#include "service/hislip/hislip_server.h"
#include "service/listener.h"
#include "service/process.h"
#include "service/server.h"
#include "service/standard/library_instrument.h"

using namespace orvan_service;

namespace {

constexpr size_t kInputBuffer = 0x300000;

int g_socket = -1;
size_t g_taken = 0; // bytes of the current message taken by the handler

scpi_result_t take_block(scpi_t* context)
{
    const char* data = nullptr;
    return SCPI_ParamArbitraryBlock(context, &data, &g_taken, true) ? SCPI_RES_OK : SCPI_RES_ERR;
}

scpi_result_t flush(scpi_t*)
{
    const std::string_view reply = g_taken > 0 ? "+OK\r\n" : "-ERR no block;+OK\r\n";
    orvan_bench::reply_corked(g_socket, reply.data(), reply.size());
    g_taken = 0;
    return SCPI_RES_OK;
}

const scpi_command_t kCommands[] = {{":SYSTem:UPDate:SOFTware", take_block, 1}, {nullptr, nullptr, 0}};
const scpi_interface_t kInterface{nullptr, nullptr, nullptr, flush, nullptr};

class BlockSink : public MessageSink {
public:
    BlockSink() : m_input(std::make_unique<char[]>(kInputBuffer))
    {
        SCPI_Init(&m_context, kCommands, &kInterface, scpi_units_def, "", "", "", "", m_input.get(),
                  kInputBuffer, m_errors, 20);
    }
    void execute(int socket, char* data, size_t size) override
    {
        g_socket = socket;
        SCPI_Input(&m_context, data, size);
    }
    void client_lost(int) override {}

private:
    std::unique_ptr<char[]> m_input;
    scpi_error_t m_errors[20] = {};
    scpi_t m_context{};
};

} // namespace

int main()
{
    ignore_broken_pipes();
    const StopRequest stop;
    BlockSink sink;
    Listeners listeners = inherited_listeners();
    LibraryInstrument instrument(sink);
    Locks locks;
    Server server(std::move(listeners.raw), sink, {});
    HislipServer hislip(std::move(listeners.hislip), server.executor(), instrument, locks);
    Attended* const others[] = {&hislip};
    server.run(stop.descriptor(), nullptr, others);
    server.end(std::chrono::seconds(5));
}
