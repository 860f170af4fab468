#include "library_errors.h"

#include <string_view>

#include "orvan_sdk/scpi-parser/scpi_error_observer.h"
#include "service/standard/standard_reply.h"

namespace orvan_service {
namespace {

// The library's observer has no context.
Executor* g_executor = nullptr;
const HangWatch* g_watch = nullptr;

// On the executor's thread, like everything that has the library reply.
void count(int socket, const char* text, size_t len)
{
    const Session* const session = g_executor->running_session();
    if (session == nullptr || session->client().protocol != Protocol::kRaw ||
        session->descriptor() != socket) {
        return;
    }
    const std::string message = g_watch->message();
    for (const StandardError& error : take_reply_apart({text, len}).errors) {
        g_executor->counters().count_error(session->client(), error, message);
    }
}

} // namespace

LibraryErrors::LibraryErrors(Executor& executor, const HangWatch& watch)
{
    g_executor = &executor;
    g_watch = &watch;
    scpi_observe_errors(count);
}

LibraryErrors::~LibraryErrors()
{
    scpi_observe_errors(nullptr);
}

} // namespace orvan_service
