// Generates the SCPI reference, and the commands for the console of the web page, from the library's command
// table and the descriptions.
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string_view>

#include "descriptions.h"
#include "orvan_sdk/scpi-parser/scpi-def.h"
#include "orvan_sdk/scpi-parser/scpi_cmd_orvanx.h"
#include "reference.h"

using namespace scpi_reference;

namespace {

std::string read_file(const char* path)
{
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    if (!in) {
        throw Complaint("cannot be read");
    }
    return text.str();
}

int check(const char* path, const std::string& wanted)
{
    const std::string found = difference(read_file(path), wanted);
    if (found.empty()) {
        return 0;
    }
    std::fprintf(stderr,
                 "%s is stale: %s\nRegenerate it: cmake --build --preset dev --target write_scpi_reference\n",
                 path, found.c_str());
    return 1;
}

int write(const char* path, const std::string& wanted)
{
    std::ofstream out(path, std::ios::trunc);
    if (out << wanted << std::flush) {
        return 0;
    }
    std::fprintf(stderr, "%s: cannot be written\n", path);
    return 1;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string_view verb = argc == 4 ? argv[1] : "";
    const bool checks = verb == "check" || verb == "check-json";
    if (!checks && verb != "write" && verb != "write-json") {
        std::fputs("usage: scpi-reference check|write|check-json|write-json DESCRIPTIONS DOCUMENT\n", stderr);
        return 2;
    }
    try {
        const auto make = verb.ends_with("json") ? render_json : render;
        const std::string wanted =
            make(parse_descriptions(read_file(argv[2])), {scpi_commands, OrvanX_cmdBypass});
        return checks ? check(argv[3], wanted) : write(argv[3], wanted);
    } catch (const Complaint& complaint) {
        std::fprintf(stderr, "%s: %s\n", argv[2], complaint.what());
        return 1;
    }
}
