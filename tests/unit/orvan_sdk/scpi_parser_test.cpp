#include <algorithm>
#include <cstddef>
#include <string_view>
#include <type_traits>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "front_end_bench.h"
#include "orvan_sdk/scpi-parser/scpi_reply.h"
#include "support/output_capture.h"

using namespace orvan_test;

namespace {

// The service process and the handlers are built against these signatures.
static_assert(!std::is_polymorphic_v<ScpiParser>);
static_assert(sizeof(ScpiParser) == sizeof(bool));
static_assert(std::is_standard_layout_v<userContext_t>);
static_assert(std::is_same_v<decltype(userContext_t::bypass_items), bypassItem_t[64]>);
static_assert(std::is_same_v<decltype(bypassItem_t::tag), int32_t>);
static_assert(std::is_same_v<decltype(bypassItem_t::param), char[128]>);
static_assert(std::string_view(SCPI_GENERAL_ERR_MSG) == "Invalid Command");

template <size_t kCount>
bool ascending(const size_t (&offsets)[kCount])
{
    return std::is_sorted(std::begin(offsets), std::end(offsets));
}

TEST(UserRecord, FieldsAreInTheirPublicOrder)
{
    using U = userContext_t;
    EXPECT_EQ(offsetof(U, socket), 0u);
    EXPECT_TRUE(ascending(
        {offsetof(U, socket), offsetof(U, deviceType), offsetof(U, ptrParser), offsetof(U, ptrDevice),
         offsetof(U, bypass_accum_active), offsetof(U, bypass_accum_buf), offsetof(U, bypass_accum_len),
         offsetof(U, bypass_accum_cap), offsetof(U, had_error_line), offsetof(U, binary_block_active),
         offsetof(U, adding_ok), offsetof(U, bypass_item_count), offsetof(U, bypass_items)}));
    EXPECT_TRUE(ascending({offsetof(bypassItem_t, tag), offsetof(bypassItem_t, is_query),
                           offsetof(bypassItem_t, param_len), offsetof(bypassItem_t, param)}));
}

class SessionFront : public FrontEndBench {
protected:
    ScpiParser parser;
    bool external(const std::string& line, const std::string& peer)
    {
        const TcpPair other(peer);
        speak_as(other);
        feed(line);
        return orvanx->isExternalCommand();
    }
};

TEST_F(SessionFront, BuildingTheContextIsLogged)
{
    EXPECT_EQ(logs.count(LOG_INFO, "ScpiParser::init_new_scpi done"), 1u);
}

TEST_F(SessionFront, ContextHoldsTheInstrumentsObjects)
{
    EXPECT_EQ(scpi_context.cmdlist, scpi_commands);
    EXPECT_EQ(scpi_context.interface, &scpi_interface);
    EXPECT_EQ(scpi_context.units, scpi_units_def);
    EXPECT_EQ(scpi_context.buffer.data, scpi_input_buffer);
    EXPECT_EQ(scpi_context.buffer.length, 3145728u);
    EXPECT_EQ(scpi_context.error_queue, scpi_error_queue_data);
    EXPECT_EQ(scpi_context.error_queue_size, 20);
}

TEST_F(SessionFront, CallbacksAreInTheirSlots)
{
    EXPECT_EQ(scpi_interface.error, SCPI_Error);
    EXPECT_EQ(scpi_interface.write, SCPI_Write);
    EXPECT_EQ(scpi_interface.control, SCPI_Control);
    EXPECT_EQ(scpi_interface.flush, SCPI_Flush);
    EXPECT_EQ(scpi_interface.reset, SCPI_Reset);
}

TEST_F(SessionFront, UserRecordStartsZeroedButForSuccessWordAndModuleService)
{
    user().had_error_line = 1;
    user().bypass_item_count = 7;
    user().bypass_items[3].tag = 9;
    SCPI_Deinit(&scpi_context);
    parser.init_new_scpi(orvanx);
    EXPECT_EQ(user().socket, 0);
    EXPECT_EQ(user().deviceType, 0);
    EXPECT_EQ(user().ptrParser, orvanx);
    EXPECT_EQ(user().ptrDevice, nullptr);
    EXPECT_EQ(user().bypass_accum_active, 0);
    EXPECT_EQ(user().bypass_accum_buf, nullptr);
    EXPECT_EQ(user().bypass_accum_len, 0u);
    EXPECT_EQ(user().bypass_accum_cap, 0u);
    EXPECT_EQ(user().had_error_line, 0);
    EXPECT_EQ(user().binary_block_active, 0);
    EXPECT_EQ(user().adding_ok, 1);
    EXPECT_EQ(user().bypass_item_count, 0);
    EXPECT_EQ(user().bypass_items[3].tag, 0);
    speak_as(client);
}

TEST_F(SessionFront, CallerSocketAndDeviceTypeAreKept)
{
    EXPECT_EQ(parser.setCallerSocket(client.server(), 3), 1);
    EXPECT_EQ(user().socket, client.server());
    EXPECT_EQ(user().deviceType, 3);
}

TEST_F(SessionFront, DeviceReachesTheUserRecord)
{
    int device = 0;
    parser.setDevicePtr(&device);
    EXPECT_EQ(user().ptrDevice, &device);
}

TEST_F(SessionFront, WithoutAUserRecordNothingIsStored)
{
    void* const record = scpi_context.user_context;
    scpi_context.user_context = nullptr;
    int device = 0;
    parser.setDevicePtr(&device);
    EXPECT_EQ(parser.setCallerSocket(99, 1), -1);
    scpi_context.user_context = record;
    EXPECT_EQ(user().ptrDevice, nullptr);
    EXPECT_EQ(user().socket, client.server());
}

TEST_F(SessionFront, ReceivedBytesAreLoggedAsSent)
{
    ask(":FOO");
    const std::string socket = std::to_string(client.server());
    const std::string shown = socket.size() < 2 ? "0" + socket : socket;
    EXPECT_EQ(logs.count(LOG_INFO, "sending \":FOO\" soc:" + shown + " len:6"), 1u);
}

TEST_F(SessionFront, ALineInSingleBytesIsOneMessage)
{
    const std::string line = "*IDN?\r\n";
    for (size_t i = 0; i + 1 < line.size(); ++i) {
        EXPECT_FALSE(feed(line.substr(i, 1)));
        EXPECT_EQ(read_ready(client.client()), "");
    }
    EXPECT_TRUE(feed("\n"));
    EXPECT_EQ(read_ready(client.client()), "Halde Electronics Ltd.,OVX3651P,230000,01.0.001;+OK\r\n");
}

TEST_F(SessionFront, SeveralLinesInOneCallGetAReplyEach)
{
    feed("*IDN?\n:FOO\n:SYST:VERS?\n");
    const std::string replies = read_ready(client.client());
    EXPECT_EQ(replies, "Halde Electronics Ltd.,OVX3651P,230000,01.0.001;+OK\r\n"
                       "-ERR -113, \"Undefined header\";+OK\r\n"
                       "1999.0;+OK\r\n");
}

TEST_F(SessionFront, AnEmptyLineGetsTheSuccessWord)
{
    EXPECT_TRUE(feed("\r\n"));
    EXPECT_EQ(read_ready(client.client()), "+OK\r\n");
}

TEST_F(SessionFront, AMessageLongerThanTheInputBufferIsRefusedOnce)
{
    EXPECT_FALSE(feed(":FREQ " + std::string(kScpiInputBufferSize, '1') + "\n"));
    EXPECT_EQ(read_ready(client.client()),
              std::string("-ERR -363, \"") + SCPI_ErrorTranslate(-363) + "\";+OK\r\n");
    EXPECT_EQ(ask("*IDN?"), "Halde Electronics Ltd.,OVX3651P,230000,01.0.001;+OK\r\n");
}

TEST_F(SessionFront, ErrorsKeepReachingTheClientWhenTheQueueIsFull)
{
    for (int i = 0; i < 25; ++i) {
        EXPECT_EQ(ask(":FOO"), "-ERR -113, \"Undefined header\";+OK\r\n");
    }
    EXPECT_EQ(SCPI_ErrorCount(&scpi_context), 20);
}

// ---- who changed something

TEST_F(SessionFront, ASetCommandFromOutsideIsExternal)
{
    EXPECT_TRUE(external(":FREQ 1\n", "127.0.0.2"));
}

TEST_F(SessionFront, ASetCommandFromTheInstrumentItselfIsNotExternal)
{
    EXPECT_FALSE(external(":FREQ 1\n", "127.0.0.1"));
}

TEST_F(SessionFront, ALineOfQueriesClearsTheExternalMark)
{
    EXPECT_TRUE(external(":FREQ 1\n", "127.0.0.2"));
    EXPECT_FALSE(external(":FREQ?;:POW?\n", "127.0.0.2"));
}

TEST_F(SessionFront, ASetBeforeAQueryIsExternal)
{
    EXPECT_TRUE(external(":FREQ 1;:FREQ?\n", "127.0.0.2"));
}

TEST_F(SessionFront, AFailedMessageLeavesTheExternalMark)
{
    EXPECT_TRUE(external(":FREQ 1\n", "127.0.0.2"));
    EXPECT_TRUE(external(":FOO?\n", "127.0.0.2"));
    EXPECT_FALSE(external(":FREQ?\n", "127.0.0.2"));
    EXPECT_FALSE(external(":FOO 1\n", "127.0.0.2"));
}

TEST_F(SessionFront, AnIncompleteMessageLeavesTheExternalMark)
{
    EXPECT_TRUE(external(":FREQ 1\n", "127.0.0.2"));
    EXPECT_TRUE(external(":FREQ", "127.0.0.2"));
    OutputCapture errors(STDERR_FILENO);
    orvanx->connection_abort(user().socket);
}

TEST(InternalMessage, OnlyOneIPv4AddressIsTheInstrumentItself)
{
    ScpiParser parser;
    EXPECT_TRUE(parser.isInternalMessage(TcpPair("127.0.0.1").server()));
    EXPECT_FALSE(parser.isInternalMessage(TcpPair("127.0.0.2").server()));
    EXPECT_FALSE(parser.isInternalMessage(TcpPair("127.1.0.1").server()));
}

TEST(InternalMessage, AnUnknownPeerIsInternal)
{
    ScpiParser parser;
    EXPECT_TRUE(parser.isInternalMessage(-1));
    const int unconnected = ::socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_TRUE(parser.isInternalMessage(unconnected));
    ::close(unconnected);
}

TEST(InternalMessage, AUnixSocketIsInternal)
{
    ScpiParser parser;
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    EXPECT_TRUE(parser.isInternalMessage(pair[0]));
    ::close(pair[0]);
    ::close(pair[1]);
}

TEST(InternalMessage, AnIPv6PeerIsInternal)
{
    const int listener = ::socket(AF_INET6, SOCK_STREAM, 0);
    sockaddr_in6 own{};
    own.sin6_family = AF_INET6;
    own.sin6_addr = in6addr_loopback;
    if (listener < 0 || ::bind(listener, reinterpret_cast<sockaddr*>(&own), sizeof own) != 0) {
        ::close(listener);
        GTEST_SKIP() << "this machine has no IPv6 loopback";
    }
    ASSERT_EQ(listen(listener, 1), 0);
    socklen_t size = sizeof own;
    ::getsockname(listener, reinterpret_cast<sockaddr*>(&own), &size);
    const int peer = ::socket(AF_INET6, SOCK_STREAM, 0);
    ASSERT_EQ(connect(peer, reinterpret_cast<sockaddr*>(&own), sizeof own), 0);
    const int accepted = ::accept(listener, nullptr, nullptr);
    EXPECT_TRUE(ScpiParser().isInternalMessage(accepted));
    for (int fd : {listener, peer, accepted}) {
        ::close(fd);
    }
}

struct CommandCase {
    const char* name;
    const char* line;
    bool command;

    friend void PrintTo(const CommandCase& tested, std::ostream* out) { *out << tested.name; }
};

class IsCommand : public testing::TestWithParam<CommandCase> {};

TEST_P(IsCommand, FindsAUnitWithoutAQuestionMark)
{
    const std::string line = GetParam().line;
    EXPECT_EQ(ScpiParser().isCommand(line.c_str(), static_cast<int>(line.size())), GetParam().command)
        << line;
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Lines, IsCommand, testing::Values(
    CommandCase{"Nothing",              "",                        false},
    CommandCase{"EmptyLine",            "\n",                      false},
    CommandCase{"EmptyLineWithReturn",  "\r\n",                    false},
    CommandCase{"EmptyUnitAtReturn",    "\r:POW 1\n",             false},
    CommandCase{"NoLineEnd",            "*RST",                    true },
    CommandCase{"Set",                  ":FREQ 1\r\n",             true },
    CommandCase{"Query",                ":FREQ?\r\n",              false},
    CommandCase{"Queries",              ":FREQ?;:POW?\n",          false},
    CommandCase{"SetAfterQuery",        ":FREQ?;:POW 1\n",         true },
    CommandCase{"SetBeforeQuery",       ":OUTP ON;:OUTP?\n",       true },
    CommandCase{"QuestionInParameter",  ":LIST:DEF \"what?\"\n",   false},
    CommandCase{"OneBlank",             " \n",                     true },
    CommandCase{"OneBlankAmongQueries", ":FREQ?; ;:POW?\n",        true },
    CommandCase{"OnlySeparators",       ";;;\n",                   false},
    CommandCase{"SeparatorAtTheEnd",    ":FREQ?;",                 false},
    CommandCase{"AfterCarriageReturn",  ":FREQ?\r:POW 1\n",        false},
    CommandCase{"SecondLine",           ":FREQ?\n:POW 1\n",        false}),
    [](const auto& tested) { return std::string(tested.param.name); });
// clang-format on

TEST(IsCommandBounds, TheUnitAtTheEndIsReadBeyondTheSize)
{
    // The size shows whether another unit follows, not where a unit ends.
    EXPECT_FALSE(ScpiParser().isCommand(":FREQ?", 3));
    EXPECT_FALSE(ScpiParser().isCommand(":FREQ?;:POW 1", 6));
    EXPECT_TRUE(ScpiParser().isCommand(":FREQ?;:POW 1", 7));
}

// ---- callbacks

TEST_F(SessionFront, ErrorLineEntersTheReply)
{
    EXPECT_EQ(SCPI_Error(&scpi_context, -113), 0);
    EXPECT_EQ(SCPI_Error(&scpi_context, -360), 0);
    EXPECT_EQ(write_and_flush({}),
              "-ERR -113, \"Undefined header\";-ERR -360, \"Communication error\";+OK\r\n");
}

TEST_F(SessionFront, ErrorNumberIsNarrowedTo16BitsWithItsSignAndSoIsItsText)
{
    SCPI_Error(&scpi_context, 65536 - 113);
    EXPECT_EQ(write_and_flush({}), "-ERR -113, \"Undefined header\";+OK\r\n");
}

TEST_F(SessionFront, AnErrorNumberWithoutATextIsUnknown)
{
    EXPECT_EQ(SCPI_Error(&scpi_context, 12345), 0);
    EXPECT_EQ(write_and_flush({}), "-ERR 12345, \"Unknown error\";+OK\r\n");
}

TEST_F(SessionFront, InfoTextOfAnErrorStaysOutOfTheReply)
{
    SCPI_ErrorPushEx(&scpi_context, -200, "secret", 6);
    EXPECT_EQ(write_and_flush({}), std::string("-ERR -200, \"") + SCPI_ErrorTranslate(-200) + "\";+OK\r\n");
}

TEST_F(SessionFront, ServiceRequestIsWrittenStraightToTheSocket)
{
    SCPI_Write(&scpi_context, "later", 5);
    EXPECT_EQ(SCPI_Control(&scpi_context, SCPI_CTRL_SRQ, 0x60), SCPI_RES_OK);
    EXPECT_EQ(read_ready(client.client()), "**SRQ: 0x60 (96)\r\n");
    EXPECT_EQ(write_and_flush({}), "later;+OK\r\n");
}

TEST_F(SessionFront, OtherControlsNameTheirNumber)
{
    EXPECT_EQ(SCPI_Control(&scpi_context, SCPI_CTRL_MSA, 0xABC), SCPI_RES_OK);
    EXPECT_EQ(read_ready(client.client()), "**CTRL 10: 0xABC (2748)\r\n");
    EXPECT_EQ(SCPI_Control(&scpi_context, SCPI_CTRL_GTL, 0), SCPI_RES_OK);
    EXPECT_EQ(read_ready(client.client()), "**CTRL 02: 0x0 (0)\r\n");
}

TEST_F(SessionFront, AControlThatCannotBeWrittenIsNoFailure)
{
    orvanx->setCallerSocket(-1, 0);
    OutputCapture errors(STDERR_FILENO);
    EXPECT_EQ(SCPI_Control(&scpi_context, SCPI_CTRL_SRQ, 1), SCPI_RES_OK);
    EXPECT_EQ(errors.text(), "");
    speak_as(client);
}

TEST_F(SessionFront, ResetDropsPartialInputAndLogsIt)
{
    EXPECT_FALSE(feed(":FOO;"));
    OutputCapture errors(STDERR_FILENO);
    EXPECT_EQ(SCPI_Reset(&scpi_context), SCPI_RES_OK);
    EXPECT_EQ(errors.text(), "**Reset\r\n");
    EXPECT_EQ(scpi_context.buffer.position, 0u);
    EXPECT_EQ(scpi_context.buffer.data[5], '\0');
    EXPECT_EQ(ask("*IDN?"), "Halde Electronics Ltd.,OVX3651P,230000,01.0.001;+OK\r\n");
}

TEST_F(SessionFront, ResetOfAFullInputBufferStaysInside)
{
    char bytes[4] = {'a', 'b', 'c', 'd'};
    scpi_t context{};
    context.buffer = {sizeof bytes - 1, sizeof bytes - 1, bytes};
    OutputCapture errors(STDERR_FILENO);
    SCPI_Reset(&context);
    EXPECT_EQ(bytes[3], 'd');
    EXPECT_EQ(context.buffer.position, 0u);
}

// ---- a client that disconnects

TEST_F(SessionFront, LosingTheCallerDropsItsPartialLine)
{
    EXPECT_FALSE(feed(":FOO;"));
    OutputCapture errors(STDERR_FILENO);
    orvanx->connection_abort(client.server());
    EXPECT_EQ(errors.text(), "**Reset\r\n");
    EXPECT_EQ(ask("*IDN?"), "Halde Electronics Ltd.,OVX3651P,230000,01.0.001;+OK\r\n");
}

TEST_F(SessionFront, LosingAnotherClientLeavesThePartialLine)
{
    EXPECT_FALSE(feed("*ID"));
    OutputCapture errors(STDERR_FILENO);
    orvanx->connection_abort(client.client());
    EXPECT_EQ(errors.text(), "");
    EXPECT_EQ(ask("N?"), "Halde Electronics Ltd.,OVX3651P,230000,01.0.001;+OK\r\n");
}

TEST_F(SessionFront, LosingAClientBetweenLinesResetsNothing)
{
    ask("*IDN?");
    OutputCapture errors(STDERR_FILENO);
    orvanx->connection_abort(client.server());
    EXPECT_EQ(errors.text(), "");
}

} // namespace
