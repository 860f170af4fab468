#include "registry.h"

#include <cerrno>
#include <cstdlib>

#include <sys/stat.h>
#include <unistd.h>

#include "instance_record.h"
#include "state_lock.h"

namespace orvan_launcher {

namespace fs = std::filesystem;
using orvan_sandbox::Error;
using orvan_sandbox::Result;

namespace {

fs::path folder_from(const char* variable)
{
    const char* value = std::getenv(variable);
    return value != nullptr && *value == '/' ? fs::path(value) : fs::path("/tmp");
}

/** A temporary directory is removed only when both its record and its name say so. */
bool is_left_over_temporary(const fs::path& state)
{
    const auto record = read_record(state);
    return record && record->temporary && state.filename().string().starts_with(kTemporaryPrefix);
}

} // namespace

fs::path temporary_folder()
{
    return folder_from("TMPDIR");
}

Result<Registry> Registry::open()
{
    const fs::path folder = folder_from("XDG_RUNTIME_DIR") / ("orvan-sim-" + std::to_string(::getuid()));
    const std::string step = "opening the registry " + folder.string();
    struct stat status = {};
    if (::lstat(folder.c_str(), &status) != 0) {
        if (errno != ENOENT) {
            return Error{step, errno, "", "", false};
        }
    } else if (!S_ISDIR(status.st_mode) || status.st_uid != ::getuid()) {
        return Error{step, 0, "it is not a folder of this user", "remove it", false};
    }
    return Registry(folder);
}

fs::path Registry::own_link() const
{
    return m_folder / std::to_string(::getpid());
}

bool Registry::add(const fs::path& state) const
{
    std::error_code code;
    ::mkdir(m_folder.c_str(), 0700);
    fs::remove(own_link(), code);
    fs::create_directory_symlink(state, own_link(), code);
    return !code;
}

void Registry::remove() const
{
    std::error_code code;
    fs::remove(own_link(), code);
    // Succeeds only for the last instance.
    ::rmdir(m_folder.c_str());
}

std::vector<fs::path> Registry::running() const
{
    std::vector<fs::path> states;
    std::error_code code;
    for (fs::directory_iterator entry(m_folder, code), end; !code && entry != end; entry.increment(code)) {
        std::error_code link_code;
        const fs::path state = fs::read_symlink(entry->path(), link_code);
        if (!link_code && is_running(state)) {
            states.push_back(state);
        }
    }
    return states;
}

void Registry::sweep(const fs::path& own) const
{
    std::error_code code;
    std::vector<fs::path> links;
    for (fs::directory_iterator entry(m_folder, code), end; !code && entry != end; entry.increment(code)) {
        links.push_back(entry->path());
    }
    for (const fs::path& link : links) {
        const fs::path state = fs::read_symlink(link, code);
        if (code || (state != own && is_running(state))) {
            continue;
        }
        if (state != own && is_left_over_temporary(state)) {
            fs::remove_all(state, code);
        }
        fs::remove(link, code);
    }
}

Result<fs::path> choose_instance(const std::string& named)
{
    if (!named.empty()) {
        std::error_code code;
        const fs::path state = fs::canonical(named, code);
        if (code || !is_running(state)) {
            return Error{"looking for an instance in " + named, 0, "none is running there", "", false};
        }
        return state;
    }
    const Result<Registry> registry = Registry::open();
    if (!registry) {
        return registry.error();
    }
    const std::vector<fs::path> states = registry.value().running();
    if (states.size() == 1) {
        return states.front();
    }
    Error error{"looking for a running instance", 0, "there is none", "start one with 'orvan-sim run'",
                false};
    if (!states.empty()) {
        error.detail = "there are several:";
        for (const fs::path& state : states) {
            error.detail += " " + state.string();
        }
        error.hint = "choose one with --state";
    }
    return error;
}

} // namespace orvan_launcher
