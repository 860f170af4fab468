/**
 * Takes replies of the instrument apart, in two ways.
 *
 * The whole input is a reply of any bytes. Errors are fit for a queue. What a standard client gets has no
 * error among its results, and taken apart once more it is the same, blocks aside.
 *
 * The input is also a list of fields, as the instrument can put them into one reply: a byte that chooses the
 * kind of each, a byte of length and the bytes. Results and errors come out as they went in.
 */
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "service/standard/standard_reply.h"

using namespace orvan_service;

namespace {

constexpr std::string_view kEnd = ";+OK\r\n";

void require(bool held, const char* what)
{
    if (!held) {
        std::fprintf(stderr, "%s\n", what);
        std::abort();
    }
}

void take_any(std::string_view reply)
{
    for (const StandardError& error : take_reply_apart(reply).errors) {
        require(error.number != 0, "an error has a number");
        require(!error.text.empty() && error.text.size() <= 255, "and a text");
        require(error.text.find_first_of("\"\r\n") == std::string::npos,
                "that an entry of the queue can hold");
    }
}

/** Without white space and blocks: what is dropped can change what a broken block announces. */
void take_twice(std::string reply)
{
    for (char& c : reply) {
        c = std::isspace(static_cast<unsigned char>(c)) != 0 || c == '#' ? '_' : c;
    }
    const StandardReply taken = take_reply_apart(reply.append(kEnd));
    const StandardReply again = take_reply_apart(taken.results + std::string(kEnd));
    require(again.errors.empty(), "no error among the results");
    require(again.results == taken.results, "the same once more");
}

struct Input {
    std::string_view rest;

    unsigned char byte()
    {
        if (rest.empty()) {
            return 0;
        }
        const char c = rest.front();
        rest.remove_prefix(1);
        return static_cast<unsigned char>(c);
    }
    std::string bytes()
    {
        const std::string taken(rest.substr(0, byte()));
        rest.remove_prefix(taken.size());
        return taken;
    }
};

std::string quoted(const std::string& text)
{
    std::string result = "\"";
    for (const char c : text) {
        result += c == '"' ? "\"\"" : std::string(1, c);
    }
    return result + '"';
}

std::string block(const std::string& data)
{
    const std::string length = std::to_string(data.size());
    return '#' + std::to_string(length.size()) + length + data;
}

/** Characters of numbers and names. */
std::string plain(std::string text)
{
    for (char& c : text) {
        c = std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '.';
    }
    return 'x' + text;
}

void take_fields(std::string_view bytes)
{
    Input input{bytes};
    std::string reply;
    StandardReply expected;
    bool after_block = false;
    const auto separate = [&](bool is_block) {
        reply += reply.empty() || is_block || after_block ? "" : ";";
        after_block = is_block;
    };
    const auto expect_result = [&](const std::string& result) {
        expected.results += (expected.results.empty() ? "" : ";") + result;
        reply += result;
    };
    while (!input.rest.empty()) {
        const unsigned char kind = input.byte() % 5;
        const std::string text = input.bytes();
        separate(kind == 0);
        switch (kind) {
        case 0:
            expect_result(block(text));
            break;
        case 1:
            expect_result(quoted(text));
            break;
        case 2:
            expect_result(plain(text) + ',' + quoted(text) + ",(@" + plain(text) + ';' + quoted(text) + ')');
            break;
        case 3:
            reply += "-ERR -222, \"" + plain(text) + ';' + plain(text) + '"';
            expected.errors.push_back({-222, (plain(text) + ';' + plain(text)).substr(0, 255)});
            break;
        default:
            expect_result(plain(text));
            break;
        }
    }
    require(take_reply_apart(reply + std::string(reply.empty() ? kEnd.substr(1) : kEnd)) == expected,
            "fields as they were sent");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    take_any(input);
    take_any(std::string(input) + std::string(kEnd));
    take_twice(std::string(input));
    take_fields(input);
    return 0;
}
