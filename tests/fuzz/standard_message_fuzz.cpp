/**
 * Cuts a message of a standard session into parts. Executed one after the other, they do what the parser does
 * with the whole message: the same commands with the same parameters and the same errors, in the same order.
 *
 * The input is the message; it ends at its first LF outside a block.
 */
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "scpi/scpi.h"
#include "service/standard/standard_message.h"
#include "unit/platform_scpi/recording_context.h"

using namespace orvan_service;

namespace {

using R = RecordingContext;
using Events = std::vector<std::string>;

void require(bool held, const char* what)
{
    if (!held) {
        std::fprintf(stderr, "%s\n", what);
        std::abort();
    }
}

/** The header in full, its first ':' aside: a path that is written out may begin with one. */
scpi_result_t note(scpi_t* c)
{
    lex_state_t& lex = c->param_list.lex_state;
    std::string header = R::header(c);
    header.erase(0, header.starts_with(':') ? 1 : 0);
    R::of(c).note(header + " [" + R::escaped(R::parameters(c)) + ']');
    lex.pos = lex.buffer + lex.len;
    return SCPI_RES_OK;
}

/** As the session's part of it reports the command. */
template <int kCommand>
scpi_result_t note_session(scpi_t* c)
{
    lex_state_t& lex = c->param_list.lex_state;
    R::of(c).note("session " + std::to_string(kCommand) + " [" + R::escaped(R::parameters(c)) + ']');
    lex.pos = lex.buffer + lex.len;
    return SCPI_RES_OK;
}

template <SessionCommand kCommand>
constexpr scpi_command_callback_t kNote = note_session<static_cast<int>(kCommand)>;

constexpr scpi_command_t kCommands[] = {
    {"*CLS", kNote<SessionCommand::kClear>, 0},
    {"*ESE", kNote<SessionCommand::kEventEnable>, 0},
    {"*ESE?", kNote<SessionCommand::kEventEnableQ>, 0},
    {"*ESR?", kNote<SessionCommand::kEventStatusQ>, 0},
    {"*OPC", kNote<SessionCommand::kComplete>, 0},
    {"*OPC?", kNote<SessionCommand::kCompleteQ>, 0},
    {"*SRE", kNote<SessionCommand::kServiceEnable>, 0},
    {"*SRE?", kNote<SessionCommand::kServiceEnableQ>, 0},
    {"*STB?", kNote<SessionCommand::kStatusByteQ>, 0},
    {"*WAI", kNote<SessionCommand::kWait>, 0},
    {":SYSTem:ERRor[:NEXT]?", kNote<SessionCommand::kErrorQ>, 0},
    {":SYSTem:ERRor:COUNt?", kNote<SessionCommand::kErrorCountQ>, 0},
    {":SYSTem:VERSion?", note, 0},
    {"[:SOURce]:FREQuency", note, 0},
    {"[:SOURce]:FREQuency?", note, 0},
    {"[:SOURce]:POWer:LEVel", note, 0},
    {"[:SOURce]:LIST:DATA", note, 0},
    {"[:INTernal]:INFormation:DEVice:OPTions?", note, 0},
    {"*RST", note, 0},
    {"*IDN?", note, 0},
    {nullptr, nullptr, 0},
};

/** Without the ends of messages, of which there is one for each part. A mnemonic that is too long is an
 * unknown one: a path that is written out brings it into later headers. */
Events take(R& context)
{
    Events events;
    for (std::string& event : context.take_events()) {
        if (event != "flush" && event != kLineEnd) {
            events.push_back(event == "error -112" ? "error -113" : std::move(event));
        }
    }
    return events;
}

/** Made once, as its index of commands takes longer than a message. */
R& parser()
{
    static R context(kCommands, 2u << 20);
    return context;
}

Events execute_whole(std::string message)
{
    SCPI_Parse(&parser().context, message.data(), message.size());
    return take(parser());
}

Events execute_parts(std::string_view message)
{
    R& context = parser();
    std::string line(message);
    line += '\n';
    for (const MessagePart& part : cut_message(line)) {
        const std::string text(part.text.data(), part.text.size());
        switch (part.kind) {
        case MessagePart::Kind::kInstrument:
            context.input(part.path + text);
            require(context.context.buffer.position == 0, "no part leaves the parser waiting");
            break;
        case MessagePart::Kind::kSession:
            context.note("session " + std::to_string(static_cast<int>(part.command)) + " [" +
                         R::escaped(text) + ']');
            break;
        case MessagePart::Kind::kError:
            context.note("error " + std::to_string(part.error));
            break;
        }
    }
    return take(context);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string_view message(reinterpret_cast<const char*>(data), size);
    scpi_framer_t framer;
    SCPI_FramerReset(&framer);
    if (const size_t end = SCPI_FramerScan(&framer, message.data(), message.size()); end != 0) {
        message = message.substr(0, end - 1); // without its LF, which execute_parts() adds
    }
    const Events whole = execute_whole(std::string(message));
    Events parts = execute_parts(message);
    // What is cut off before an incomplete block is not looked up.
    if (!whole.empty() && whole.size() == parts.size() && parts.back() == "error -161" &&
        whole.back() == "error -113") {
        parts.back() = whole.back();
    }
    if (whole != parts) {
        for (const Events* const events : {&whole, const_cast<const Events*>(&parts)}) {
            std::fprintf(stderr, "--\n");
            for (const std::string& event : *events) {
                std::fprintf(stderr, "%s\n", event.c_str());
            }
        }
    }
    require(whole == parts, "the parts do what the message does");
    return 0;
}
