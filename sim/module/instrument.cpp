#include "instrument.h"

#include <cstdio>
#include <stdexcept>
#include <utility>

#include "command_table.h"
#include "scpi/scpi.h"

namespace sim_module {

namespace {

constexpr std::string_view kEnd = "+OK\r\n";

ModelLimits limits_of(const Identity& identity)
{
    const auto limits = model_limits(identity.model);
    if (!limits) {
        throw std::invalid_argument("unknown model " + identity.model);
    }
    return *limits;
}

} // namespace

const scpi_interface_t Instrument::kInterface = {
    .error = &Instrument::error,
    .write = &Instrument::write,
    .control = nullptr,
    .flush = nullptr,
    .reset = &Instrument::reset_callback,
};

Instrument& instrument_of(scpi_t* context)
{
    return *static_cast<Instrument*>(context->user_context);
}

Instrument::Instrument(Identity identity, const Temperature& temperature)
    : m_identity(std::move(identity)), m_settings(limits_of(m_identity)), m_temperature(temperature)
{
    // Messages are executed in place with SCPI_Parse, so the context needs no input buffer of its own.
    SCPI_Init(&m_context, command_table(), &kInterface, scpi_units_def, m_identity.manufacturer.c_str(),
              m_identity.model.c_str(), m_identity.serial.c_str(), m_identity.firmware.c_str(), nullptr, 0,
              m_error_queue.data(), static_cast<int16_t>(m_error_queue.size()));
    m_context.user_context = this;
}

Instrument::~Instrument()
{
    SCPI_Deinit(&m_context);
}

std::string Instrument::execute(std::string_view request)
{
    m_brought_image = false;
    m_request.assign(request);
    SCPI_Parse(&m_context, m_request.data(), m_request.size());
    return finish_reply();
}

std::string Instrument::refuse_overrun()
{
    m_brought_image = false;
    SCPI_ErrorPush(&m_context, SCPI_ERROR_INPUT_BUFFER_OVERRUN);
    return finish_reply();
}

std::optional<std::chrono::milliseconds> Instrument::reply_delay() const
{
    if (!m_brought_image) {
        return std::chrono::milliseconds(0);
    }
    if (!m_firmware.takes_request()) {
        return std::nullopt;
    }
    return m_firmware.lateness();
}

bool Instrument::take_image(ImageKind kind, std::string_view bytes)
{
    m_brought_image = true;
    if (m_firmware.refuses()) {
        return false;
    }
    if (m_firmware.takes_request()) {
        m_firmware.store(kind, bytes);
    }
    return true;
}

void Instrument::restart()
{
    ++m_restarts;
    reset();
    if (m_restart_action) {
        m_restart_action();
    }
}

void Instrument::reset()
{
    m_settings.reset();
    m_store.reset();
}

void Instrument::add_field(std::string_view field)
{
    if (m_reply.size() > kMaxReply) {
        return; // too long already; no need to collect the rest
    }
    // A "," joins the results of one command; anything else after a result begins the next field.
    if (!m_reply.empty() && field != "," && m_reply.back() != ',') {
        m_reply += ';';
    }
    m_reply += field;
}

std::string Instrument::finish_reply()
{
    if (m_reply.size() + 1 + kEnd.size() > kMaxReply) {
        m_reply.clear();
        SCPI_ErrorPush(&m_context, SCPI_ERROR_TOO_MUCH_DATA);
    }
    if (!m_reply.empty()) {
        m_reply += ';';
    }
    m_reply += kEnd;
    return std::exchange(m_reply, {});
}

size_t Instrument::write(scpi_t* context, const char* data, size_t len)
{
    instrument_of(context).add_field({data, len});
    return len;
}

int Instrument::error(scpi_t* context, int_fast16_t number)
{
    char line[320];
    std::snprintf(line, sizeof line, "-ERR %d, \"%s\"", static_cast<int>(number),
                  SCPI_ErrorTranslate(number));
    instrument_of(context).add_field(line);
    return 0;
}

scpi_result_t Instrument::reset_callback(scpi_t* context)
{
    instrument_of(context).reset();
    return SCPI_RES_OK;
}

} // namespace sim_module
