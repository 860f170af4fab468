#ifndef ORVAN_SERVICE_LOCAL_LOCAL_SERVER_H
#define ORVAN_SERVICE_LOCAL_LOCAL_SERVER_H

#include <optional>
#include <string>

#include "local_socket.h"
#include "service/attended.h"
#include "service/executor.h"
#include "service/standard/locks.h"
#include "service/standard/standard_session.h"

namespace orvan_service {

/** Accepts clients of the Unix socket `scpi.sock`, which are programs of this machine, and hands them to the
 * executor. On the attendant's thread. */
class LocalServer : public Attended {
public:
    static constexpr size_t kMostClients = 16;

    /**
     * @param folder of the socket; empty: serves nobody. A socket that cannot be opened is logged: the
     *               service does without.
     * @param instrument, locks outlive the executor's sessions
     */
    LocalServer(const std::string& folder, Executor& executor, StandardInstrument& instrument, Locks& locks);

    void add_descriptors(std::vector<pollfd>& waiting) override;
    void serve(std::span<const pollfd> waiting) override;
    Clock::time_point due() const override;

    /** Accepts no more clients, and removes the socket's file. */
    void end();

private:
    bool has_place() const;

    Executor& m_executor;
    StandardInstrument& m_instrument;
    Locks& m_locks;
    std::optional<LocalSocket> m_socket;
};

} // namespace orvan_service

#endif
