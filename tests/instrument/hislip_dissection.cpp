#include "hislip_dissection.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "instrument.h"

namespace orvan_test {
namespace {

/** Runs tshark with these arguments after the file's name, and returns its lines. */
std::vector<std::string> tshark(const std::filesystem::path& file, const std::string& arguments)
{
    // Remarks about the user who runs it go to standard error.
    const Outcome outcome =
        run_program({"sh", "-c", "exec tshark -r \"$0\" " + arguments + " 2>/dev/null", file.string()});
    if (outcome.status != 0) {
        throw std::runtime_error("tshark " + arguments + " ended with " + std::to_string(outcome.status));
    }
    std::vector<std::string> lines;
    std::istringstream text(outcome.output);
    for (std::string line; std::getline(text, line);) {
        lines.push_back(line);
    }
    return lines;
}

} // namespace

HislipDissection dissect_hislip(const std::string& capture)
{
    std::string folder = (std::filesystem::temp_directory_path() / "orvan-test-XXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr) {
        throw std::runtime_error("no temporary folder");
    }
    const std::filesystem::path file = std::filesystem::path(folder) / "capture.pcap";
    std::ofstream(file, std::ios::binary) << capture;
    HislipDissection dissection;
    for (const std::string& line : tshark(file, "-Y hislip -T fields -e hislip.messagetype")) {
        std::istringstream types(line); // several messages of one segment are separated by commas
        for (std::string type; std::getline(types, type, ',');) {
            dissection.types.push_back(std::stoi(type, nullptr, 16));
        }
    }
    // Warnings and errors, of any protocol.
    dissection.faults = tshark(file, "-Y '_ws.malformed || _ws.expert.severity >= 0x600000' -T fields "
                                     "-e frame.number -e _ws.expert.message");
    std::filesystem::remove_all(folder);
    return dissection;
}

} // namespace orvan_test
