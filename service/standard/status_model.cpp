#include "status_model.h"

#include <utility>

#include "scpi/error.h"

namespace orvan_service {
namespace {

// Of a module's status byte, what describes the channel and not its connection to the controller.
constexpr uint8_t kModuleBits = 0x8B | kStatusErrorAvailable;

/** SCPI-99 21.8.9 ff. */
uint8_t event_of(int number)
{
    if (number > 0) {
        return kEventDeviceError;
    }
    switch (-number / 100) {
    case 1:
        return kEventCommandError;
    case 2:
        return kEventExecutionError;
    case 3:
        return kEventDeviceError;
    case 4:
        return kEventQueryError;
    case 5:
        return kEventPowerOn;
    case 6:
        return kEventUserRequest;
    case 7:
        return kEventRequestControl;
    case 8:
        return kEventOperationComplete;
    default:
        return 0;
    }
}

} // namespace

StatusModel::StatusModel(std::function<void(uint8_t)> request,
                         std::function<void(const StandardError&)> added)
    : m_request(std::move(request)), m_added(std::move(added))
{
}

uint8_t StatusModel::summary() const
{
    uint8_t status = m_module_status;
    if (!m_queue.empty()) {
        status |= kStatusErrorAvailable;
    }
    if (m_message_available) {
        status |= kStatusMessageAvailable;
    }
    if ((m_events & m_event_enable) != 0) {
        status |= kStatusEventSummary;
    }
    return status;
}

/** Runs `change` under the lock and reports a new request for service afterwards. */
template <typename Change>
auto StatusModel::change(Change change)
{
    bool is_new = false;
    uint8_t status = 0;
    auto result = [&] {
        const std::lock_guard lock(m_mutex);
        auto changed = change();
        const auto reasons = static_cast<uint8_t>(summary() & m_service_enable);
        is_new = (reasons & ~m_reasons) != 0;
        m_reasons = reasons;
        m_requested = (m_requested || is_new) && reasons != 0;
        status = static_cast<uint8_t>(summary() | kStatusRequest);
        return changed;
    }();
    if (is_new && m_request) {
        m_request(status);
    }
    return result;
}

void StatusModel::add(StandardError error)
{
    if (m_added) {
        m_added(error);
    }
    change([&] {
        m_events |= event_of(error.number);
        if (m_queue.size() < kQueue) {
            m_queue.push_back(std::move(error));
        } else {
            m_queue.back() = {SCPI_ERROR_QUEUE_OVERFLOW, SCPI_ErrorTranslate(SCPI_ERROR_QUEUE_OVERFLOW)};
            m_events |= kEventDeviceError;
        }
        return 0;
    });
}

void StatusModel::add(int number)
{
    add({number, SCPI_ErrorTranslate(static_cast<int_fast16_t>(number))});
}

StandardError StatusModel::take_error()
{
    return change([this]() -> StandardError {
        if (m_queue.empty()) {
            return {0, SCPI_ErrorTranslate(0)};
        }
        StandardError error = std::move(m_queue.front());
        m_queue.pop_front();
        return error;
    });
}

size_t StatusModel::errors() const
{
    const std::lock_guard lock(m_mutex);
    return m_queue.size();
}

void StatusModel::set_events(uint8_t bits)
{
    change([&] { return m_events |= bits; });
}

uint8_t StatusModel::take_events()
{
    return change([&] { return std::exchange(m_events, uint8_t{0}); });
}

uint8_t StatusModel::event_enable() const
{
    const std::lock_guard lock(m_mutex);
    return m_event_enable;
}

void StatusModel::set_event_enable(uint8_t bits)
{
    change([&] { return m_event_enable = bits; });
}

uint8_t StatusModel::service_enable() const
{
    const std::lock_guard lock(m_mutex);
    return m_service_enable;
}

void StatusModel::set_service_enable(uint8_t bits)
{
    change([&] { return m_service_enable = static_cast<uint8_t>(bits & ~kStatusRequest); });
}

void StatusModel::set_message_available(bool available)
{
    change([&] { return m_message_available = available; });
}

void StatusModel::set_module_status(uint8_t status)
{
    change([&] { return m_module_status = static_cast<uint8_t>(status & kModuleBits); });
}

uint8_t StatusModel::status_byte() const
{
    const std::lock_guard lock(m_mutex);
    const uint8_t status = summary();
    return static_cast<uint8_t>(status | ((status & m_service_enable) != 0 ? kStatusRequest : 0));
}

uint8_t StatusModel::serial_poll()
{
    const std::lock_guard lock(m_mutex);
    return static_cast<uint8_t>(summary() | (std::exchange(m_requested, false) ? kStatusRequest : 0));
}

void StatusModel::clear()
{
    change([this] {
        m_queue.clear();
        m_events = 0;
        m_module_status = 0;
        return 0;
    });
}

} // namespace orvan_service
