#ifndef ORVAN_SERVICE_HISLIP_SYNC_STREAM_H
#define ORVAN_SERVICE_HISLIP_SYNC_STREAM_H

#include <memory>

#include "connection.h"

namespace orvan_service::hislip {

/** The synchronous channel of a connection, as the executor serves it. */
class SyncStream : public Session {
public:
    explicit SyncStream(std::shared_ptr<Connection> connection)
        : Session(connection->client()), m_connection(std::move(connection))
    {
    }
    ~SyncStream() override { m_connection->close(); }

    int descriptor() const override { return m_connection->sync(); }
    Wait advance(ServiceTime now, bool readable) override;
    void execute() override { m_connection->execute(); }
    HangUp hung_up() override { return HangUp::kReset; }
    ServiceTime deadline() const override { return m_deadline; }
    void expired() override;

private:
    const std::shared_ptr<Connection> m_connection;
    ServiceTime m_deadline = kNever; // for the client to read its response
};

} // namespace orvan_service::hislip

#endif
