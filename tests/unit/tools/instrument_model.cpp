#include "instrument_model.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include <arpa/inet.h>
#include <endian.h>

namespace orvan_test {

using namespace HaldeElec::Orvan;

namespace {

// Requests for which the socket has room.
constexpr size_t kRoom = 4;

} // namespace

InstrumentModel::InstrumentModel()
    : rows{{'A', "10.0.0.2"}, {'N', "255.255.255.0"}, {'B', "OFF"},      {'H', "bench-4"},
           {'I', "OVX3654B"}, {'S', "241107"},        {'F', "1.19.145"}, {'W', "5025"}},
      options{{0, 4, 1, 14, ""},  {4, 1, 1, 1, "MOD"},  {5, 1, 1, 0, "PLS"}, {6, 1, 0, 0, "FIX"},
              {7, 1, 1, 1, "LP"}, {12, 1, 1, 0, "ULN"}, {13, 0, 0, 0, ""},   {}}
{
    options.resize(kOptionRows);
    // A symbol may fill its four bytes.
    std::memcpy(options[5].symbol, "ULNX", 4);
}

void InstrumentModel::wait_for_block(uint16_t block)
{
    m_next_block = block;
}

Bytes InstrumentModel::reply(const Frame& frame, size_t length) const
{
    Bytes bytes(length);
    std::memcpy(bytes.data(), &frame, std::min(length, sizeof frame));
    return bytes;
}

void InstrumentModel::put_rows(Frame& frame) const
{
    frame.size = htons(kSentRowsSize);
    std::memset(frame.data, 0, sizeof frame.data);
    for (size_t line = 0; line < kSentRows; ++line) {
        char* const row = reinterpret_cast<char*>(frame.data) + line * FP_MAX_ENTRY_LEN;
        row[0] = flash_ids[line];
        const auto text = rows.find(flash_ids[line]);
        if (text != rows.end()) {
            text->second.copy(row + 1, FP_MAX_DATA_LEN);
        }
    }
}

void InstrumentModel::write_rows(const Frame& frame)
{
    for (size_t line = 0; line < FP_MAX_LINE; ++line) {
        const char* const row = reinterpret_cast<const char*>(frame.data) + line * FP_MAX_ENTRY_LEN;
        if (row[0] != '\0') {
            written[row[0]] = std::string(row + 1, FP_MAX_DATA_LEN);
        }
    }
}

std::vector<Bytes> InstrumentModel::serve(std::span<const uint8_t> datagram)
{
    if (is_silent || m_is_gone) {
        return {};
    }
    return m_updating ? serve_update(datagram) : serve_now(datagram);
}

std::vector<Bytes> InstrumentModel::serve_update(std::span<const uint8_t> datagram)
{
    if (busy > 0) {
        --busy;
        if (m_waiting.size() < kRoom) {
            m_waiting.emplace_back(datagram.begin(), datagram.end());
        }
        return {};
    }
    if (restarts && answers_before == 0) {
        m_waiting.clear();
        if (away-- > 0) {
            return {};
        }
        m_buffer = {};
        if (!software_after.empty()) {
            rows[FLASH_CSCIVER] = software_after;
        }
        m_updating = false;
        return serve_now(datagram);
    }
    std::vector<Bytes> replies;
    for (const Bytes& waited : std::exchange(m_waiting, {})) {
        for (const Bytes& reply : serve_now(waited)) {
            replies.push_back(reply);
        }
    }
    answers_before -= restarts ? 1 : 0;
    for (const Bytes& reply : serve_now(datagram)) {
        replies.push_back(reply);
    }
    return replies;
}

std::vector<Bytes> InstrumentModel::serve_now(std::span<const uint8_t> datagram)
{
    if (clears_buffer) {
        m_buffer = {};
    }
    std::memcpy(&m_buffer, datagram.data(), std::min(datagram.size(), sizeof m_buffer));
    Frame frame = m_buffer;
    if (m_next_block != 0) {
        return serve_transfer(frame);
    }
    const std::string_view opcode(frame.opcode, kOpcodeLength);
    if (m_streaming || opcode == kOpcodeModule) {
        return serve_stream(frame);
    }
    if (opcode == kOpcodeIdentify) {
        put_rows(frame);
        std::memcpy(frame.mac, mac.b, sizeof frame.mac);
        return {reply(frame, FRMHEADERLEN + kSentRowsSize)};
    }
    if (opcode == kOpcodeNetwork) {
        std::memcpy(frame.mac, mac.b, sizeof frame.mac);
        if (frame.size == 0) {
            return {};
        }
        written.erase(FLASH_SCPI_PORT);
        write_rows(frame);
        if (!written.contains(FLASH_SCPI_PORT)) {
            return {reply(frame, FRMHEADERLEN + datagram.size())};
        }
        put_rows(frame);
        return {reply(frame, FRMHEADERLEN + kSentRowsSize)};
    }
    if (opcode == kOpcodeFactory) {
        if (frame.size != 0) {
            write_rows(frame);
        }
        put_rows(frame);
        return {reply(frame, FRMHEADERLEN + kSentRowsSize)};
    }
    if (opcode == kOpcodeOptions) {
        const size_t size = options.size() * sizeof(optEntry_t);
        frame.size = htons(static_cast<uint16_t>(size));
        std::memcpy(frame.data, options.data(), size);
        return {reply(frame, FRMHEADERLEN + size)};
    }
    if (opcode == kOpcodeSoftware) {
        ++transfers;
        m_next_block = 1;
        m_position = 0;
        file.clear();
        frame.block = htons(1);
        frame.size = 0;
        return {reply(frame, ACK_ONLY_LEN)};
    }
    return {};
}

std::vector<Bytes> InstrumentModel::serve_transfer(Frame& frame)
{
    const uint16_t block = ntohs(frame.block);
    if (leaves_at != 0 && block == leaves_at) {
        m_next_block = 0;
        leaves_at = 0;
        return {};
    }
    if (block == 0) {
        m_next_block = 1;
        m_position = 0;
        return {};
    }
    if (block != m_next_block) {
        return {};
    }
    if (block == stolen_block) {
        stolen_block = 0;
        std::memset(frame.data, 'x', sizeof frame.data);
        frame.info = htole32(stolen_info);
    }
    const size_t size = ntohs(frame.size);
    ++m_next_block;
    frame.block = htons(m_next_block);
    frame.size = 0;
    if (size == EOD) {
        ++ended;
        m_updating = transfers != 0;
        m_next_block = 0;
        return {reply(frame, ACK_ONLY_LEN)};
    }
    file.resize(std::max(file.size(), m_position + size));
    file.replace(m_position, size, reinterpret_cast<const char*>(frame.data), size);
    m_position += size;
    return {reply(frame, ACK_ONLY_LEN)};
}

Bytes InstrumentModel::final_frame(uint32_t error) const
{
    Frame frame{};
    std::memcpy(frame.opcode, kOpcodeModule.data(), kOpcodeLength);
    frame.size = htons(EOD);
    frame.stateMode = 0xFFFF;
    frame.info = htole32(error);
    return reply(frame, FRMHEADERLEN);
}

std::vector<Bytes> InstrumentModel::serve_stream(Frame& frame)
{
    if (std::string_view(frame.opcode, kOpcodeLength) != kOpcodeModule) {
        return {};
    }
    const uint16_t block = ntohs(frame.block);
    if (module_silent_from != 0 && block >= module_silent_from) {
        m_streaming = false;
        return {final_frame(LXI_ERROR_TIMEOUT)};
    }
    m_streaming = true;
    const size_t size = ntohs(frame.size);
    if (block == 1) {
        image.clear();
    }
    if (size != EOD && image.size() == (block - 1U) * FRMDATALEN) {
        image.append(reinterpret_cast<const char*>(frame.data), size);
    }
    frame.block = htons(static_cast<uint16_t>(block + acknowledged_above));
    frame.size = 0;
    std::vector<Bytes> replies = {reply(frame, ACK_ONLY_LEN)};
    if (size != EOD) {
        return replies;
    }
    ++streams;
    m_is_gone = true;
    bool all_reported = true;
    for (const uint32_t end : module_ends) {
        if (end == 0) {
            frame.block = htons(50);
            replies.push_back(reply(frame, FRMHEADERLEN));
        }
        replies.push_back(final_frame(end));
        all_reported = all_reported && end != LXI_ERROR_TIMEOUT;
    }
    if (all_reported && confirms) {
        replies.push_back(final_frame(0));
    }
    return replies;
}

} // namespace orvan_test
