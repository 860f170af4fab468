#include "vxi11_core.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <exception>

#include <strings.h>
#include <syslog.h>

#include "rpc_message.h"
#include "scpi/error.h"

namespace orvan_service {
namespace {

using Event = WaitingCall::Event;

/** Device_Flags (VXI-11 B.5.3). */
enum Flag : int { kWaitLock = 0x01, kEnd = 0x08, kEndCharSet = 0x80 };

// The largest write and what comes with it.
constexpr size_t kLongestRecord = VXI11_MOST_DATA + 1024;

// Connections beyond the links' own, whose next call may create a link.
constexpr size_t kSpareConnections = 8;

constexpr unsigned kConnectTimeout = 2000; // ms, of an interrupt channel

constexpr const char* kDevice = "inst0";

int link_of(int id)
{
    return id;
}

template <typename Parameters>
int link_of(const Parameters& parameters)
{
    return parameters.lid;
}

void clear(Vxi11Link& link)
{
    link.clear();
}

void trigger(Vxi11Link& link)
{
    link.trigger();
}

void set_remote(Vxi11Link& link)
{
    link.set_remote(true);
}

void set_local(Vxi11Link& link)
{
    link.set_remote(false);
}

} // namespace

Vxi11Core::Vxi11Core(Executor& executor, StandardInstrument& instrument, Locks& locks,
                     std::shared_ptr<Vxi11Shared> shared, const Vxi11Options& options,
                     orvan_common::UniqueFd listener, uint16_t abort_port)
    : m_executor(executor), m_instrument(instrument), m_locks(locks), m_shared(std::move(shared)),
      m_options(options), m_abort_port(abort_port),
      m_channel(std::move(listener), DEVICE_CORE, {kLongestRecord, options.max_links + kSpareConnections},
                *this)
{
}

Vxi11Core::~Vxi11Core()
{
    while (!m_links.empty()) {
        destroy(m_links.begin());
    }
}

template <typename Result>
void Vxi11Core::answer(const RpcCaller& caller, XdrRoutine<Result> encoder, const Result& result)
{
    m_channel.reply(caller, encode(encoder, result));
}

template <typename Result>
void Vxi11Core::refuse(const RpcCaller& caller, XdrRoutine<Result> encoder, Vxi11Error error)
{
    Result result{};
    result.error = static_cast<int>(error);
    answer(caller, encoder, result);
}

void Vxi11Core::answer(const RpcCaller& caller, Vxi11Error error)
{
    refuse(caller, ::xdr_Device_Error, error);
}

/** Calls `procedure` with a link's decoded arguments. */
template <typename Parameters, typename Result>
RpcProgram::Outcome Vxi11Core::take(const RpcCaller& caller, std::string_view arguments,
                                    XdrRoutine<Parameters> decoder, XdrRoutine<Result> encoder,
                                    void (Vxi11Core::*procedure)(const RpcCaller&, Link&, const Parameters&))
{
    const Decoded<Parameters> parameters(decoder, arguments);
    if (!parameters) {
        return Outcome::kBadArguments;
    }
    const int id = link_of(*parameters);
    if (Link* const earlier = find(caller, id)) {
        earlier->waiting.abort(); // which destroys a link that waits for the lock it is created with
    }
    Link* const link = find(caller, id);
    if (link == nullptr) {
        refuse(caller, encoder, Vxi11Error::kInvalidLink);
        return Outcome::kTaken;
    }
    (this->*procedure)(caller, *link, *parameters);
    return Outcome::kTaken;
}

RpcProgram::Outcome Vxi11Core::call(const RpcCaller& caller, uint32_t procedure, std::string_view arguments)
{
    const auto act_as = [&](auto member) {
        return take(caller, arguments, ::xdr_Device_GenericParms, ::xdr_Device_Error, member);
    };
    switch (procedure) {
    case CREATE_LINK: {
        const Decoded<Create_LinkParms> parameters(::xdr_Create_LinkParms, arguments);
        if (!parameters) {
            return Outcome::kBadArguments;
        }
        create_link(caller, *parameters);
        return Outcome::kTaken;
    }
    case DEVICE_WRITE:
        return take(caller, arguments, ::xdr_Device_WriteParms, ::xdr_Device_WriteResp, &Vxi11Core::write);
    case DEVICE_READ:
        return take(caller, arguments, ::xdr_Device_ReadParms, ::xdr_Device_ReadResp, &Vxi11Core::read);
    case DEVICE_READSTB:
        return take(caller, arguments, ::xdr_Device_GenericParms, ::xdr_Device_ReadStbResp,
                    &Vxi11Core::read_status);
    case DEVICE_TRIGGER:
        return act_as(&Vxi11Core::act<trigger>);
    case DEVICE_CLEAR:
        return act_as(&Vxi11Core::act<clear>);
    case DEVICE_REMOTE:
        return act_as(&Vxi11Core::act<set_remote>);
    case DEVICE_LOCAL:
        return act_as(&Vxi11Core::act<set_local>);
    case DEVICE_LOCK:
        return take(caller, arguments, ::xdr_Device_LockParms, ::xdr_Device_Error, &Vxi11Core::lock);
    case DEVICE_UNLOCK:
        return take(caller, arguments, ::xdr_Device_Link, ::xdr_Device_Error, &Vxi11Core::unlock);
    case DEVICE_ENABLE_SRQ:
        return take(caller, arguments, ::xdr_Device_EnableSrqParms, ::xdr_Device_Error,
                    &Vxi11Core::enable_requests);
    case DEVICE_DOCMD:
        return take(caller, arguments, ::xdr_Device_DocmdParms, ::xdr_Device_DocmdResp,
                    &Vxi11Core::do_command);
    case DESTROY_LINK:
        return take(caller, arguments, ::xdr_Device_Link, ::xdr_Device_Error, &Vxi11Core::destroy_link);
    case CREATE_INTR_CHAN: {
        const Decoded<Device_RemoteFunc> parameters(::xdr_Device_RemoteFunc, arguments);
        if (!parameters) {
            return Outcome::kBadArguments;
        }
        create_interrupts(caller, *parameters);
        return Outcome::kTaken;
    }
    case DESTROY_INTR_CHAN:
        answer(caller,
               m_interrupts.erase(caller.connection) != 0 ? Vxi11Error::kNone : Vxi11Error::kNoChannel);
        return Outcome::kTaken;
    default:
        return Outcome::kNoProcedure;
    }
}

void Vxi11Core::create_link(const RpcCaller& caller, const Create_LinkParms& parameters)
{
    if (::strcasecmp(parameters.device, kDevice) != 0) {
        return refuse(caller, ::xdr_Create_LinkResp, Vxi11Error::kNotAccessible);
    }
    // Closed links exist as long as they have messages to execute, and must not exhaust the descriptors.
    if (m_links.size() >= m_options.max_links || m_shared->links >= 2 * m_options.max_links) {
        m_executor.counters().count_refused(Protocol::kVxi11);
        ::syslog(LOG_WARNING, "VXI-11: link refused: there are %zu", m_links.size());
        return refuse(caller, ::xdr_Create_LinkResp, Vxi11Error::kOutOfResources);
    }
    std::map<int, Link>::iterator place;
    try {
        auto link = std::make_shared<Vxi11Link>(m_instrument, m_shared, m_executor.counters(),
                                                Client{Protocol::kVxi11, m_channel.peer(caller)});
        m_executor.add(std::make_unique<Vxi11Session>(link));
        do {
            m_last_link = m_last_link == INT_MAX ? 1 : m_last_link + 1;
        } while (m_links.contains(m_last_link));
        place = m_links.emplace(m_last_link, Link{std::move(link), caller.connection, caller.address}).first;
    } catch (const std::exception& error) {
        ::syslog(LOG_ERR, "VXI-11: link refused: %s", error.what());
        return refuse(caller, ::xdr_Create_LinkResp, Vxi11Error::kOutOfResources);
    }
    const auto lock_first = [this, caller, place, locks = parameters.lockDevice != 0](Event event) {
        if (!locks || (event == Event::kTry && m_locks.lock(place->second.link.get()))) {
            answer(caller, ::xdr_Create_LinkResp,
                   {static_cast<int>(Vxi11Error::kNone), place->first, m_abort_port, VXI11_MOST_DATA});
        } else if (event == Event::kTry) {
            return false;
        } else {
            destroy(place);
            refuse(caller, ::xdr_Create_LinkResp, Vxi11Error::kLockedByOther);
        }
        return true;
    };
    place->second.waiting.start(parameters.lock_timeout, lock_first);
}

void Vxi11Core::destroy_link(const RpcCaller& caller, Link&, const Device_Link& id)
{
    destroy(m_links.find(id));
    answer(caller, Vxi11Error::kNone);
}

void Vxi11Core::destroy(std::map<int, Link>::iterator place)
{
    Vxi11Link* const link = place->second.link.get();
    m_locks.forget(link);
    link->close();
    m_links.erase(place);
}

/** Calls `then` once nobody else's lock excludes the link, or with the error. */
void Vxi11Core::when_admitted(Link& link, int flags, unsigned lock_timeout,
                              std::function<void(Vxi11Error)> then)
{
    const auto attempt = [this, &link, then = std::move(then)](Event event) {
        if (event == Event::kAborted) {
            then(Vxi11Error::kAborted);
        } else if (m_locks.admits(link.link.get())) {
            then(Vxi11Error::kNone);
        } else if (event == Event::kTimedOut) {
            then(Vxi11Error::kLockedByOther);
        } else {
            return false;
        }
        return true;
    };
    link.waiting.start((flags & kWaitLock) != 0 ? lock_timeout : 0, attempt);
}

void Vxi11Core::write(const RpcCaller& caller, Link& link, const Device_WriteParms& parameters)
{
    const auto take_data = [this, caller, &link,
                            data = std::string(parameters.data.data_val, parameters.data.data_len),
                            end = (parameters.flags & kEnd) != 0](Event event) {
        if (event == Event::kTry && !link.link->has_room(data.size(), m_options.message_memory)) {
            return false;
        }
        if (event != Event::kTry) {
            refuse(caller, ::xdr_Device_WriteResp,
                   event == Event::kTimedOut ? Vxi11Error::kIoTimeout : Vxi11Error::kAborted);
            return true;
        }
        link.link->write(data, end);
        answer(caller, ::xdr_Device_WriteResp,
               {static_cast<int>(Vxi11Error::kNone), static_cast<u_int>(data.size())});
        return true;
    };
    when_admitted(link, parameters.flags, parameters.lock_timeout,
                  [this, caller, &link, timeout = parameters.io_timeout, take_data](Vxi11Error error) {
                      if (error != Vxi11Error::kNone) {
                          return refuse(caller, ::xdr_Device_WriteResp, error);
                      }
                      link.waiting.start(timeout, take_data);
                  });
}

void Vxi11Core::read(const RpcCaller& caller, Link& link, const Device_ReadParms& parameters)
{
    std::optional<char> end_char;
    if ((parameters.flags & kEndCharSet) != 0) {
        end_char = parameters.termChar;
    }
    const auto take_part = [this, caller, &link, requested = parameters.requestSize, end_char,
                            reported = false](Event event) mutable {
        if (event != Event::kTry) {
            refuse(caller, ::xdr_Device_ReadResp,
                   event == Event::kTimedOut ? Vxi11Error::kIoTimeout : Vxi11Error::kAborted);
            return true;
        }
        // In this order, as the response may come in between.
        const bool asked = link.link->is_asked();
        auto part = link.link->read(requested, end_char);
        if (!part) {
            if (!asked && !reported) {
                reported = true;
                link.link->status().add(SCPI_ERROR_QUERY_UNTERMINATED);
            }
            return false;
        }
        Device_ReadResp result{static_cast<int>(Vxi11Error::kNone), part->reasons, {}};
        result.data = {static_cast<u_int>(part->data.size()), part->data.data()};
        answer(caller, ::xdr_Device_ReadResp, result);
        return true;
    };
    when_admitted(link, parameters.flags, parameters.lock_timeout,
                  [this, caller, &link, timeout = parameters.io_timeout, take_part](Vxi11Error error) {
                      if (error != Vxi11Error::kNone) {
                          return refuse(caller, ::xdr_Device_ReadResp, error);
                      }
                      link.waiting.start(timeout, take_part);
                  });
}

void Vxi11Core::read_status(const RpcCaller& caller, Link& link, const Device_GenericParms& parameters)
{
    when_admitted(link, parameters.flags, parameters.lock_timeout, [this, caller, &link](Vxi11Error error) {
        const bool good = error == Vxi11Error::kNone;
        answer(caller, ::xdr_Device_ReadStbResp,
               {static_cast<int>(error), good ? link.link->status().serial_poll() : uint8_t{0}});
    });
}

/** A procedure that does one thing with the link. */
template <auto kAction>
void Vxi11Core::act(const RpcCaller& caller, Link& link, const Device_GenericParms& parameters)
{
    when_admitted(link, parameters.flags, parameters.lock_timeout, [this, caller, &link](Vxi11Error error) {
        if (error == Vxi11Error::kNone) {
            kAction(*link.link);
        }
        answer(caller, error);
    });
}

void Vxi11Core::lock(const RpcCaller& caller, Link& link, const Device_LockParms& parameters)
{
    const auto attempt = [this, caller, &link](Event event) {
        if (event == Event::kTry && !m_locks.lock(link.link.get())) {
            return false;
        }
        answer(caller, event == Event::kTry        ? Vxi11Error::kNone
                       : event == Event::kTimedOut ? Vxi11Error::kLockedByOther
                                                   : Vxi11Error::kAborted);
        return true;
    };
    link.waiting.start((parameters.flags & kWaitLock) != 0 ? parameters.lock_timeout : 0, attempt);
}

void Vxi11Core::unlock(const RpcCaller& caller, Link& link, const Device_Link&)
{
    const bool released = m_locks.unlock(link.link.get()) != Locks::Released::kNone;
    answer(caller, released ? Vxi11Error::kNone : Vxi11Error::kNoLockHeld);
}

void Vxi11Core::enable_requests(const RpcCaller& caller, Link& link, const Device_EnableSrqParms& parameters)
{
    link.reports_requests = parameters.enable != 0;
    link.handle.assign(parameters.handle.handle_val, parameters.handle.handle_len);
    answer(caller, Vxi11Error::kNone);
}

void Vxi11Core::do_command(const RpcCaller& caller, Link&, const Device_DocmdParms&)
{
    refuse(caller, ::xdr_Device_DocmdResp, Vxi11Error::kNotSupported);
}

/** Connects to the client itself only: to no other machine on anybody's word. */
void Vxi11Core::create_interrupts(const RpcCaller& caller, const Device_RemoteFunc& parameters)
{
    if (m_interrupts.contains(caller.connection)) {
        return answer(caller, Vxi11Error::kChannelExists);
    }
    if (htonl(parameters.hostAddr) != caller.address || parameters.hostPort == 0) {
        return answer(caller, Vxi11Error::kInvalidAddress);
    }
    if (parameters.progFamily != DEVICE_TCP && parameters.progFamily != DEVICE_UDP) {
        return answer(caller, Vxi11Error::kNotSupported);
    }
    auto channel = std::make_unique<InterruptChannel>(
        InterruptTarget{caller.address, parameters.hostPort, parameters.progFamily == DEVICE_TCP,
                        parameters.progNum, parameters.progVers});
    const auto place = m_interrupts.emplace(caller.connection, Interrupts{std::move(channel)}).first;
    place->second.waiting.start(kConnectTimeout, [this, caller, place](Event event) {
        const auto state = place->second.channel->state();
        if (state == InterruptChannel::State::kOpen) {
            answer(caller, Vxi11Error::kNone);
        } else if (state == InterruptChannel::State::kConnecting && event == Event::kTry) {
            return false;
        } else {
            m_interrupts.erase(place);
            answer(caller, Vxi11Error::kNoChannel);
        }
        return true;
    });
}

void Vxi11Core::report_requests()
{
    for (auto& [id, link] : m_links) {
        if (!link.link->take_service_request() || !link.reports_requests) {
            continue;
        }
        const auto place = m_interrupts.find(link.connection);
        if (place != m_interrupts.end() && place->second.channel->state() == InterruptChannel::State::kOpen) {
            place->second.channel->request_service(link.handle);
        }
    }
    // A channel that failed later: the client may create another.
    std::erase_if(m_interrupts, [](const auto& interrupts) {
        return interrupts.second.channel->state() == InterruptChannel::State::kFailed;
    });
}

Vxi11Core::Link* Vxi11Core::find(const RpcCaller& caller, int id)
{
    const auto place = m_links.find(id);
    return place != m_links.end() && place->second.connection == caller.connection ? &place->second : nullptr;
}

Vxi11Error Vxi11Core::abort(int link, in_addr_t address)
{
    const auto place = m_links.find(link);
    if (place == m_links.end() || place->second.address != address) {
        return Vxi11Error::kInvalidLink;
    }
    place->second.waiting.abort();
    return Vxi11Error::kNone;
}

void Vxi11Core::connection_ended(uint64_t connection)
{
    for (auto place = m_links.begin(); place != m_links.end();) {
        const auto next = std::next(place);
        if (place->second.connection == connection) {
            destroy(place);
        }
        place = next;
    }
    m_interrupts.erase(connection);
}

bool Vxi11Core::needs(uint64_t connection) const
{
    return std::any_of(m_links.begin(), m_links.end(),
                       [=](const auto& link) { return link.second.connection == connection; });
}

void Vxi11Core::add_descriptors(std::vector<pollfd>& waiting)
{
    m_waiting.clear();
    for (const auto& [connection, interrupts] : m_interrupts) {
        waiting.push_back(interrupts.channel->waiting());
        m_waiting.push_back(connection);
    }
    m_channel.add_descriptors(waiting);
}

void Vxi11Core::serve(std::span<const pollfd> waiting)
{
    for (size_t i = 0; i < m_waiting.size(); ++i) {
        if (waiting[i].revents != 0) {
            m_interrupts.at(m_waiting[i]).channel->serve();
        }
    }
    m_channel.serve(waiting.subspan(m_waiting.size()));
    // A call that is tried may remove its own entry, and no other.
    for (auto place = m_interrupts.begin(); place != m_interrupts.end();) {
        (place++)->second.waiting.try_again();
    }
    for (auto place = m_links.begin(); place != m_links.end();) {
        (place++)->second.waiting.try_again();
    }
    report_requests();
}

Vxi11Core::Clock::time_point Vxi11Core::due() const
{
    auto due = m_channel.due();
    for (const auto& [connection, interrupts] : m_interrupts) {
        due = std::min(due, interrupts.waiting.deadline());
    }
    for (const auto& [id, link] : m_links) {
        due = std::min(due, link.waiting.deadline());
    }
    return due;
}

} // namespace orvan_service
