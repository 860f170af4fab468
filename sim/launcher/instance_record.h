#ifndef ORVAN_SIM_LAUNCHER_INSTANCE_RECORD_H
#define ORVAN_SIM_LAUNCHER_INSTANCE_RECORD_H

#include <filesystem>
#include <map>
#include <optional>
#include <string>

#include <sys/types.h>

#include "orvan_sandbox/child_process.h"

namespace orvan_launcher {

/**
 * What a running virtual instrument publishes for other processes of the same user, in run/instance.json of
 * its state directory.
 */
struct InstanceRecord {
    pid_t launcher = -1;
    pid_t init = -1; /**< first process of the sandbox, -1 without one */
    std::string model;
    int channels = 0;
    int modules = 0;
    int scpi_port = 0;                      /**< on the host's loopback */
    int hislip_port = 0;                    /**< on the host's loopback */
    int http_port = 0;                      /**< on the host's loopback, 0 without a page */
    int maintenance_port = 0;               /**< on the host's loopback, 0 when it is not served */
    bool temporary = false;                 /**< the state directory is removed when the launcher ends */
    orvan_sandbox::Environment environment; /**< of every process of the instrument */
    std::map<std::string, std::string>
        networks; /**< nsfs path of each role's network namespace, by role name */
};

/** False when the file could not be written. It appears whole or not at all. */
bool write_record(const std::filesystem::path& state, const InstanceRecord& record);

/** Empty when there is no file or it is damaged. */
std::optional<InstanceRecord> read_record(const std::filesystem::path& state);

} // namespace orvan_launcher

#endif
