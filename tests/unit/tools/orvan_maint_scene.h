/**
 * An instrument's model on the loopback, and orvan-maint called with its address.
 */
#ifndef ORVAN_TESTS_ORVAN_MAINT_SCENE_H
#define ORVAN_TESTS_ORVAN_MAINT_SCENE_H

#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "maintenance_peer.h"
#include "orvan-maint/tar_writer.h"
#include "orvan_maint_bench.h"

namespace orvan_test {

/** An instrument and the program, which is called with its address. */
struct Scene {
    MaintOutcome run(std::vector<std::string> arguments, const std::string& input = {}, int stop = -1)
    {
        peer = std::make_unique<MaintenancePeer>(model, answers);
        std::vector<std::string> reach = {"--address", "127.0.0.1", "--port", std::to_string(peer->port()),
                                          "--wait",    wait};
        arguments.insert(arguments.begin() + 1, reach.begin(), reach.end());
        const MaintOutcome outcome = run_maint(arguments, input, stop);
        peer->stop();
        return outcome;
    }

    /** The opcodes of the frames received: "HEID HEIP". */
    std::string came() const
    {
        std::string opcodes;
        for (const Bytes& request : peer->requests) {
            opcodes += (opcodes.empty() ? "" : " ") + std::string(request.begin(), request.begin() + 4);
        }
        return opcodes;
    }

    InstrumentModel model;
    std::function<int(size_t)> answers;
    std::string wait = "3000";
    std::unique_ptr<MaintenancePeer> peer;
};

inline bool has(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

inline std::string padded(const std::string& text)
{
    return text + std::string(HaldeElec::Orvan::FP_MAX_DATA_LEN - text.size(), '\0');
}

/** Incompressible data. */
inline std::string module_software()
{
    std::mt19937 random(1);
    std::string bytes(7500, '\0');
    for (char& c : bytes) {
        c = static_cast<char>(random());
    }
    return bytes;
}

/** An uncompressed archive that packs into eight blocks. */
inline std::string good_package(const std::string& module = "ovx_module")
{
    orvan_maint::TarWriter controller;
    controller.add_folder("patch", 0755, 0);
    controller.add_file("patch/x", "x", 0644, 0);
    orvan_maint::TarWriter package;
    package.add_file("Orvan_Benchtop_FW/" + module, module_software(), 0644, 0);
    package.add_file("Orvan_Benchtop_FW/benchtop_fw.tar", controller.finish(), 0644, 0);
    return package.finish();
}

} // namespace orvan_test

#endif
