/**
 * Feeds one stream of client bytes to the parser whole, byte by byte and in random pieces. All three must
 * produce the same events, with one line end and one flush for each message of the stream.
 *
 * The first byte of the input selects the buffer size, the second the pieces; the rest is the stream.
 */
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "scpi/scpi.h"
#include "unit/platform_scpi/recording_context.h"

namespace {

using R = RecordingContext;

void require(bool held, const char* what)
{
    if (held) {
        return;
    }
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

/** The header and the parameters are in the received bytes, in this order, and belong to the row. */
void check_command(scpi_t* c)
{
    const char* const begin = c->buffer.data;
    const char* const end = begin + c->buffer.position;
    const scpi_const_buffer_t& header = c->param_list.cmd_raw;
    const lex_state_t& lex = c->param_list.lex_state;
    require(begin <= header.data && header.data + header.length <= lex.buffer,
            "header before the parameters");
    require(lex.buffer + lex.len <= end, "parameters in the received bytes");
    require(SCPI_FindCommand(c, header.data, header.length) == c->param_list.cmd, "row of the header");
    require(SCPI_IsCmd(c, c->param_list.cmd->pattern), "pattern of the row");
    require(lex.len == 0 || static_cast<unsigned char>(lex.buffer[0]) > ' ', "no leading white space");
}

scpi_result_t raw(scpi_t* c)
{
    check_command(c);
    return R::handle(c);
}

scpi_result_t numbers(scpi_t* c)
{
    check_command(c);
    double value = 0;
    uint32_t count = 0;
    if (SCPI_ParamDouble(c, &value, true)) {
        SCPI_ResultDouble(c, value);
    }
    if (SCPI_ParamUInt32(c, &count, false)) {
        SCPI_ResultUInt32Base(c, count, 10);
    }
    scpi_number_t number{};
    SCPI_ParamNumber(c, nullptr, &number, false);
    return SCPI_RES_OK;
}

scpi_result_t texts(scpi_t* c)
{
    check_command(c);
    char text[16];
    size_t len = 0;
    if (SCPI_ParamCopyText(c, text, sizeof text, &len, true)) {
        SCPI_ResultCharacters(c, text, len);
    }
    const char* characters = nullptr;
    if (SCPI_ParamCharacters(c, &characters, &len, false)) {
        SCPI_ResultCharacters(c, characters, len);
    }
    return SCPI_RES_OK;
}

scpi_result_t block(scpi_t* c)
{
    check_command(c);
    const char* data = nullptr;
    size_t len = 0;
    if (SCPI_ParamArbitraryBlock(c, &data, &len, true)) {
        SCPI_ResultArbitraryBlock(c, data, len);
    }
    return SCPI_RES_OK;
}

scpi_result_t choices(scpi_t* c)
{
    check_command(c);
    static constexpr scpi_choice_def_t options[] = {{"INTernal", 1}, {"EXTernal", 2}, {nullptr, -1}};
    bool on = false;
    int32_t choice = 0;
    if (SCPI_ParamBool(c, &on, true)) {
        SCPI_ResultBool(c, on);
    }
    if (SCPI_ParamChoice(c, options, &choice, false)) {
        SCPI_ResultInt32(c, choice);
    }
    return SCPI_RES_OK;
}

constexpr scpi_command_t kCommands[] = {
    {"[:SOURce]:FREQuency", raw, 1},
    {"[:SOURce]:FREQuency?", raw, 1},
    {"[:SOURce]:POWer[:LEVel]", numbers, 2},
    {"[:SOURce]:LIST:DATA", block, 3},
    {"[:SOURce]:LIST:DEFine", raw, 4},
    {":OUTPut[:STATe]", choices, 5},
    {":SYSTem:SETup:STORe", texts, 6},
    {":SYSTem:ERRor[:NEXT]?", SCPI_SystemErrorNextQ, 7},
    {":SYSTem:FAIL", R::fail_silently, 8},
    {":SYSTem:LEAVe", R::leave_parameters, 9},
    {"*CLS", SCPI_CoreCls, 0},
    {"*IDN?", SCPI_CoreIdnQ, 0},
    {"*ESE", SCPI_CoreEse, 0},
    {"*ESR?", SCPI_CoreEsrQ, 0},
    {nullptr, nullptr, 0},
};

struct Outcome {
    std::vector<std::string> events;
    bool incomplete;
    bool operator==(const Outcome&) const = default;
};

template <class NextPiece>
Outcome feed(std::string_view stream, size_t buffer_size, NextPiece next_piece)
{
    RecordingContext context(kCommands, buffer_size);
    while (!stream.empty()) {
        const size_t piece = std::min(stream.size(), next_piece());
        context.input(stream.substr(0, piece));
        stream.remove_prefix(piece);
    }
    const bool incomplete = context.context.framer_position != 0;
    context.end();
    return {context.take_events(), incomplete};
}

size_t count_messages(std::string_view stream)
{
    scpi_framer_t framer;
    SCPI_FramerReset(&framer);
    size_t messages = 0;
    while (const size_t n = SCPI_FramerScan(&framer, stream.data(), stream.size())) {
        ++messages;
        stream.remove_prefix(n);
    }
    return messages;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 2) {
        return 0;
    }
    const size_t buffer_size = data[0] < 0x80 ? 65536 : static_cast<size_t>(data[0]) - 0x7f;
    std::minstd_rand random(data[1]);
    const std::string_view stream(reinterpret_cast<const char*>(data) + 2, size - 2);

    const Outcome whole = feed(stream, buffer_size, [&] { return stream.size(); });
    require(feed(stream, buffer_size, [] { return size_t{1}; }) == whole, "byte by byte as whole");
    require(feed(stream, buffer_size, [&] { return 1 + random() % 20; }) == whole, "in pieces as whole");

    const size_t messages = count_messages(stream) + 1; // plus the one ended by END
    size_t flushes = 0;
    for (size_t i = 0; i < whole.events.size(); ++i) {
        if (whole.events[i] != "flush") {
            continue;
        }
        ++flushes;
        require(i > 0 && whole.events[i - 1] == kLineEnd, "line end before the flush");
    }
    require(flushes == messages, "one flush for each message");
    return 0;
}
