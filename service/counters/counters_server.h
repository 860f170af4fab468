#ifndef ORVAN_SERVICE_COUNTERS_COUNTERS_SERVER_H
#define ORVAN_SERVICE_COUNTERS_COUNTERS_SERVER_H

#include <functional>
#include <list>
#include <optional>
#include <string>

#include "service/attended.h"
#include "service/local/local_socket.h"

namespace orvan_service {

/**
 * Gives each client of the Unix socket `counters.sock` a document, then closes the connection. On the
 * attendant's thread, so also while a command runs. A client that does not read is dropped after a while.
 */
class CountersServer : public Attended {
public:
    using Document = std::function<std::string()>;
    static constexpr size_t kMostReaders =
        16; /**< that have not read all; the oldest is dropped for one more */
    static constexpr std::chrono::milliseconds kPatience{2000};

    /** @param folder of the socket; empty: serves nobody. A socket that cannot be opened is logged: the
     * service does without. */
    CountersServer(const std::string& folder, Document document);

    void add_descriptors(std::vector<pollfd>& waiting) override;
    void serve(std::span<const pollfd> waiting) override;
    Clock::time_point due() const override;

    /** Removes the socket's file. */
    void end() { m_socket.reset(); }

private:
    struct Reader {
        orvan_common::UniqueFd socket;
        std::string document;
        size_t sent = 0;
        Clock::time_point deadline = Clock::now() + kPatience;
    };

    void accept();
    static bool send(Reader& reader);

    const Document m_document;
    std::optional<LocalSocket> m_socket;
    std::list<Reader> m_readers;
};

} // namespace orvan_service

#endif
