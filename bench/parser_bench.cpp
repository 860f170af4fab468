// usage: orvan-bench-parser [options]
// The parser over the instrument's command table with empty handlers. Ratios of medians, in turn.
//
// With --case NAME --count N it runs that one case N times and prints nothing, for an instruction counter.
#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "bench_support.h"
#include "orvan_sdk/scpi-parser/scpi-def.h"
#include "scpi/scpi.h"

using namespace orvan_bench;

namespace {

constexpr size_t kUnits = 64; // sub-commands of one message
constexpr size_t kSegment = 1460;

scpi_result_t take_nothing(scpi_t*)
{
    return SCPI_RES_OK;
}

// As a forwarded row does: the text is passed on unchanged.
scpi_result_t take_text(scpi_t* context)
{
    lex_state_t& parameters = context->param_list.lex_state;
    parameters.pos = parameters.buffer + parameters.len;
    return SCPI_RES_OK;
}

scpi_result_t take_numbers(scpi_t* context)
{
    double value = 0;
    while (SCPI_ParamDouble(context, &value, false)) {
    }
    return SCPI_RES_OK;
}

// The shortest header that matches a pattern: short forms, optional nodes omitted.
std::string shortest_header(const char* pattern)
{
    std::string header;
    bool optional = false;
    for (const char* p = pattern; *p != '\0'; ++p) {
        optional = *p == '[' || (optional && *p != ']');
        if (!optional && *p != ']' && std::islower(static_cast<unsigned char>(*p)) == 0) {
            header += *p;
        }
    }
    return header;
}

class Parser {
public:
    Parser() : m_input(std::make_unique<char[]>(kScpiInputBufferSize))
    {
        for (const scpi_command_t* row = scpi_commands; row->pattern != nullptr; ++row) {
            m_rows.push_back({row->pattern, take_nothing, row->tag});
        }
        m_table = m_rows;
        m_table.push_back({":BENCh:TEXT", take_text, 0});
        m_table.push_back({":BENCh:NUMBers", take_numbers, 0});
        m_table.push_back({nullptr, nullptr, 0});
        SCPI_Init(&m_context, m_table.data(), &m_interface, scpi_units_def, "", "", "", "", m_input.get(),
                  kScpiInputBufferSize, m_errors, kScpiErrorQueueSize);
    }
    ~Parser() { SCPI_Deinit(&m_context); }
    Parser(const Parser&) = delete;
    Parser& operator=(const Parser&) = delete;

    void input(const std::string& text) { SCPI_Input(&m_context, text.data(), text.size()); }
    void input_in_pieces(const std::string& text)
    {
        for (size_t at = 0; at < text.size(); at += kSegment) {
            SCPI_Input(&m_context, text.data() + at, std::min(kSegment, text.size() - at));
        }
    }
    const scpi_command_t* find(const std::string& header)
    {
        return SCPI_FindCommand(&m_context, header.data(), header.size());
    }
    const std::vector<scpi_command_t>& rows() const { return m_rows; }

private:
    std::unique_ptr<char[]> m_input;
    std::vector<scpi_command_t> m_rows; // the instrument's
    std::vector<scpi_command_t> m_table;
    scpi_interface_t m_interface{};
    scpi_error_t m_errors[kScpiErrorQueueSize] = {};
    scpi_t m_context{};
};

// 64 absolute headers, evenly spread over the table.
std::vector<std::string> spread_headers(Parser& parser)
{
    std::vector<std::string> absolute;
    for (const auto& row : parser.rows()) {
        const std::string header = shortest_header(row.pattern);
        if (header[0] == ':' && parser.find(header) != nullptr) {
            absolute.push_back(header);
        }
    }
    std::vector<std::string> headers;
    for (size_t i = 0; i < kUnits; ++i) {
        headers.push_back(absolute[i * (absolute.size() - 1) / (kUnits - 1)]);
    }
    return headers;
}

std::string message_of(const std::vector<std::string>& headers)
{
    std::string message;
    for (const auto& header : headers) {
        message += header + ";";
    }
    message.back() = '\n';
    return message;
}

std::string numbers(const std::string& header, size_t size)
{
    std::string message = header + " ";
    for (unsigned i = 0; message.size() < size; ++i) {
        message += std::to_string(1'000'000 + i * 7919 % 1'000'000) + ".25,";
    }
    message.back() = '\n';
    return message;
}

volatile const void* g_found;

// Nanoseconds per call, averaged over `calls` calls.
double nanoseconds(const std::function<void()>& call, int calls)
{
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < calls; ++i) {
        call();
    }
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - begin).count() / calls;
}

} // namespace

int main(int argc, char** argv)
{
    int cpu = 0;
    bool unpinned = false;
    int rounds = 31;
    std::string one_case;
    int count = 1000;
    CLI::App app("The parser over the instrument's command table with empty handlers");
    app.add_option("--cpu", cpu, "CPU to be pinned to")->capture_default_str();
    app.add_flag("--unpinned", unpinned, "Pin nothing");
    app.add_option("--rounds", rounds, "Rounds of candidate and floor")->capture_default_str();
    app.add_option("--case", one_case, "Run one case only, for an instruction counter");
    app.add_option("--count", count, "How often to run it")->capture_default_str();

    Parser parser;
    const auto headers = spread_headers(parser);
    const std::string spread = message_of(headers);
    const std::string first = headers.front();
    const std::string last = headers.back();
    // As long as the others and equal up to its last node.
    const std::string unknown = last.substr(0, last.size() - 1) + "Q";
    const auto repeated = [](const std::string& header) { return message_of(std::vector(kUnits, header)); };
    const std::string first_64 = repeated(first);
    const std::string last_64 = repeated(last);
    const std::string unknown_64 = repeated(unknown);
    const std::string text = numbers(":BENC:TEXT", 500'000);
    const std::string values = numbers(":BENC:NUMB", 500'000);
    const auto find_64 = [&](const std::string& header) {
        for (size_t i = 0; i < kUnits; ++i) {
            g_found = parser.find(header);
        }
    };

    const std::map<std::string, std::function<void()>> cases{
        {"dispatch-spread", [&] { parser.input(spread); }},
        {"dispatch-first", [&] { parser.input(first_64); }},
        {"dispatch-last", [&] { parser.input(last_64); }},
        {"dispatch-unknown", [&] { parser.input(unknown_64); }},
        {"find-spread",
         [&] {
             for (const auto& header : headers) {
                 g_found = parser.find(header);
             }
         }},
        {"find-first", [&] { find_64(first); }},
        {"find-last", [&] { find_64(last); }},
        {"find-unknown", [&] { find_64(unknown); }},
        {"text-whole", [&] { parser.input(text); }},
        {"text-pieces", [&] { parser.input_in_pieces(text); }},
        {"numbers-whole", [&] { parser.input(values); }},
        {"numbers-pieces", [&] { parser.input_in_pieces(values); }},
    };
    std::vector<std::string> names{"none"};
    for (const auto& entry : cases) {
        names.push_back(entry.first);
    }
    app.get_option("--case")->check(CLI::IsMember(names));
    CLI11_PARSE(app, argc, argv);

    if (!one_case.empty()) {
        for (int i = 0; one_case != "none" && i < count; ++i) {
            cases.at(one_case)();
        }
        return 0;
    }
    if (!unpinned) {
        pin_to_cpu(cpu);
    }
    const std::string how = unpinned ? "unpinned: " : "";
    const auto compare = [&](const std::string& name, const std::string& candidate, const std::string& floor,
                             int calls, double target, double per_unit) {
        const auto time = [&](const std::string& which) {
            return nanoseconds(cases.at(which), calls) / per_unit;
        };
        print_ratio(how + name,
                    interleaved(
                        rounds, [&] { return time(floor); }, [&] { return time(candidate); }),
                    Better::kLower, target, "ns");
    };
    constexpr double kEach = kUnits;
    compare("dispatch, 64 spread sub-commands / bare look-up", "dispatch-spread", "find-spread", 500, 10.0,
            kEach);
    compare("dispatch, last row / first row", "dispatch-last", "dispatch-first", 500, 1.5, kEach);
    compare("dispatch, first row / last row", "dispatch-first", "dispatch-last", 500, 1.5, kEach);
    compare("dispatch, unknown header / last row", "dispatch-unknown", "dispatch-last", 500, 1.5, kEach);
    compare("look-up, last row / first row", "find-last", "find-first", 2000, 1.5, kEach);
    compare("look-up, first row / last row", "find-first", "find-last", 2000, 1.5, kEach);
    compare("look-up, unknown header / last row", "find-unknown", "find-last", 2000, 1.5, kEach);
    compare("500 KB of text in 1460-byte pieces / whole", "text-pieces", "text-whole", 20, 1.3, 1);
    compare("500 KB of numbers, read, in 1460-byte pieces / whole", "numbers-pieces", "numbers-whole", 5, 1.3,
            1);
    return 0;
}
