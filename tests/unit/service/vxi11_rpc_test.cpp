// Records and messages of ONC RPC, fed as bytes.
#include <string>
#include <string_view>

#include <vxi11.h>

#include <gtest/gtest.h>

#include "service/vxi11/rpc_message.h"
#include "service/vxi11/rpc_record_buffer.h"

using namespace orvan_service;
using namespace std::string_literals;

namespace {

using State = RpcRecordBuffer::State;

const std::string kCall = "\0\0\0\x2A"       // xid
                          "\0\0\0\0"         // call
                          "\0\0\0\2"         // RPC version
                          "\0\6\7\xAF"       // program
                          "\0\0\0\1"         // its version
                          "\0\0\0\x0C"       // procedure
                          "\0\0\0\0\0\0\0\0" // credentials
                          "\0\0\0\0\0\0\0\0" // verifier
                          "argument"s;

} // namespace

TEST(RpcRecordBuffer, JoinsFragmentsHoweverTheStreamIsSplit)
{
    const std::string stream = "\0\0\0\2ab\0\0\0\0\x80\0\0\3cde\x80\0\0\1f"s;
    for (size_t size = 1; size <= stream.size(); ++size) {
        RpcRecordBuffer buffer(5);
        std::vector<std::string> records;
        for (size_t at = 0; at < stream.size(); at += size) {
            std::string_view bytes = std::string_view(stream).substr(at, size);
            while (buffer.take(bytes) == State::kComplete) {
                records.emplace_back(buffer.record());
            }
            EXPECT_TRUE(bytes.empty());
        }
        EXPECT_EQ(records, (std::vector<std::string>{"abcde", "f"})) << size;
    }
}

TEST(RpcRecordBuffer, RefusesARecordThatWouldBecomeTooLongByItsMarkAlone)
{
    for (const std::string& stream :
         {"\x80\0\0\6"s, "\xFF\xFF\xFF\xFF"s, "\x7F\xFF\xFF\xFF"s, "\0\0\0\5abcde\x80\0\0\1"s}) {
        RpcRecordBuffer buffer(5);
        std::string_view bytes = stream;
        EXPECT_EQ(buffer.take(bytes), State::kTooLong) << testing::PrintToString(stream);
    }
    RpcRecordBuffer buffer(5);
    std::string_view bytes("\0\0\0\5abcde\x80\0\0\0", 13);
    EXPECT_EQ(buffer.take(bytes), State::kComplete);
    EXPECT_EQ(buffer.record(), "abcde");
}

TEST(RpcMessage, ReadsTheHeaderOfACall)
{
    const auto call = RpcCall::of(kCall);
    ASSERT_TRUE(call);
    EXPECT_EQ(call->xid, 0x2Au);
    EXPECT_EQ(call->program, 0x0607AFu);
    EXPECT_EQ(call->version, 1u);
    EXPECT_EQ(call->procedure, 12u);
    EXPECT_EQ(call->arguments, "argument");
}

TEST(RpcMessage, IgnoresCredentialsOfUpTo400Bytes)
{
    const std::string before = kCall.substr(0, 24);
    const auto with = [&](size_t size) {
        const std::string length{'\0', '\0', static_cast<char>(size >> 8), static_cast<char>(size)};
        return before + "\0\0\0\1"s + length + std::string(size, 'c') + "\0\0\0\0\0\0\0\0rest"s;
    };
    const std::string longest = with(400);
    const auto call = RpcCall::of(longest);
    ASSERT_TRUE(call);
    EXPECT_EQ(call->arguments, "rest");
    EXPECT_FALSE(RpcCall::of(with(404)));
}

TEST(RpcMessage, TakesNothingElseForACall)
{
    EXPECT_FALSE(RpcCall::of(""));
    EXPECT_FALSE(RpcCall::of("*IDN?\n"));
    for (size_t size = 0; size < 40; ++size) {
        EXPECT_FALSE(RpcCall::of(kCall.substr(0, size))) << size;
    }
    std::string reply = kCall;
    reply[7] = 1;
    EXPECT_FALSE(RpcCall::of(reply));
    std::string other_version = kCall;
    other_version[11] = 3;
    EXPECT_FALSE(RpcCall::of(other_version));
}

TEST(RpcMessage, WritesRepliesAsTheyAreOnTheWire)
{
    EXPECT_EQ(rpc_reply(0x2A, "data"), "\x80\0\0\x1C\0\0\0\x2A\0\0\0\1\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0data"s);
    EXPECT_EQ(rpc_refusal(1, PROC_UNAVAIL), "\x80\0\0\x18\0\0\0\1\0\0\0\1\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\3"s);
    EXPECT_EQ(rpc_refusal(1, PROG_MISMATCH),
              "\x80\0\0\x20\0\0\0\1\0\0\0\1\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\2\0\0\0\1\0\0\0\1"s);
}

TEST(RpcMessage, WritesTheCallsThatItReads)
{
    EXPECT_EQ(rpc_call({0x2A, 0x0607AF, 1, 12, "argument"}), kCall);
    EXPECT_EQ(rpc_record("ab"), "\x80\0\0\2ab"s);
}

TEST(RpcMessage, BelievesNoLengthBeyondTheInterfacesOrTheMessagesBytes)
{
    const std::string head(16, '\0');
    EXPECT_FALSE(Decoded<Device_WriteParms>(::xdr_Device_WriteParms, head + "\xFF\xFF\xFF\xFF"s));
    EXPECT_FALSE(Decoded<Device_WriteParms>(::xdr_Device_WriteParms,
                                            head + "\0\x10\0\1"s + std::string(2 << 20, 'x')));
    EXPECT_FALSE(Decoded<Device_WriteParms>(::xdr_Device_WriteParms, head + "\0\0\0\5abcd"s));
    const std::string good = head + "\0\0\0\4abcd"s;
    const Decoded<Device_WriteParms> write(::xdr_Device_WriteParms, good);
    ASSERT_TRUE(write);
    EXPECT_EQ(std::string_view((*write).data.data_val, (*write).data.data_len), "abcd");
}
