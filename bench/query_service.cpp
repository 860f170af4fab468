// usage: orvan-query-service VXI11_PORT
// The service's own servers of all protocols over an instrument that answers every message at once. The
// service itself serves VXI-11 only where there is an rpcbind.
#include <cstdlib>
#include <string_view>

#include "floor_server.h"
#include "service/hislip/hislip_server.h"
#include "service/listener.h"
#include "service/process.h"
#include "service/server.h"
#include "service/standard/library_instrument.h"
#include "service/vxi11/vxi11_server.h"

using namespace orvan_service;

namespace {

struct Answering : MessageSink {
    void execute(int socket, char*, size_t) override
    {
        constexpr std::string_view kReply = "answer;+OK\r\n";
        orvan_bench::reply_corked(socket, kReply.data(), kReply.size());
    }
    void client_lost(int) override {}
};

} // namespace

int main(int argc, char** argv)
{
    ignore_broken_pipes();
    const StopRequest stop;
    Answering sink;
    Listeners listeners = inherited_listeners();
    LibraryInstrument instrument(sink);
    Locks locks;
    Vxi11Options options;
    options.address = "127.0.0.1";
    options.port = static_cast<uint16_t>(argc > 1 ? std::atoi(argv[1]) : 0);
    options.use_rpcbind = false;
    Server server(std::move(listeners.raw), sink, {});
    HislipServer hislip(std::move(listeners.hislip), server.executor(), instrument, locks);
    Vxi11Server vxi11(server.executor(), instrument, locks, options);
    if (!vxi11.start()) {
        return 1;
    }
    Attended* const others[] = {&hislip};
    server.run(stop.descriptor(), nullptr, others);
    vxi11.end();
    server.end(std::chrono::seconds(5));
}
