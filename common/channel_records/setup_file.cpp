#include "channel_records/setup_file.h"

#include <cerrno>
#include <cstring>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "channel_records/element_text.h"
#include <element_json.h>
#include <orvan_element_names.h>

namespace orvan_records {
namespace {

constexpr size_t kMostBytes = 1 << 20; // of OrvanData

struct JsonDeleter {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
    void operator()(char* text) const { cJSON_free(text); }
};
using Json = std::unique_ptr<cJSON, JsonDeleter>;
using JsonText = std::unique_ptr<char, JsonDeleter>;

// The file's text; false with the reason in `complaint`.
bool read_text(const std::string& path, std::string& text, std::string& complaint)
{
    // Opening a pipe would otherwise block until there is a writer.
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    struct stat info = {};
    if (fd < 0 || ::fstat(fd, &info) != 0) {
        complaint = std::strerror(errno);
    } else if (!S_ISREG(info.st_mode)) {
        complaint = "is not a file";
    } else if (static_cast<uintmax_t>(info.st_size) > kMostBytes) {
        complaint = "is larger than a setup can be";
    } else {
        text.resize(static_cast<size_t>(info.st_size));
        const ssize_t count = ::read(fd, text.data(), text.size());
        if (count != info.st_size) {
            complaint = count < 0 ? std::strerror(errno) : "was truncated while it was read";
        }
    }
    if (fd >= 0) {
        ::close(fd);
    }
    return complaint.empty();
}

std::string shown(const cJSON* value)
{
    constexpr size_t kMost = 60;
    const JsonText text(cJSON_PrintUnformatted(value));
    const std::string all = text ? text.get() : "?";
    return all.size() > kMost ? all.substr(0, kMost) + "..." : all;
}

// Why OrvanData refuses this text.
std::string reason_of_refusal(const std::string& text)
{
    const Json root(cJSON_ParseWithLengthOpts(text.c_str(), text.size() + 1, nullptr, true));
    if (!root) {
        return "is not JSON";
    }
    if (!cJSON_IsObject(root.get())) {
        return "is not a JSON object";
    }
    ORVAN_CONFIG trial{};
    for (size_t tag = 0; tag < kOrvanElementCount; ++tag) {
        const orvan_common::ElementName& name = orvan_common::kElementNames[tag];
        const cJSON* const section = cJSON_GetObjectItemCaseSensitive(root.get(), name.section);
        if (section != nullptr && !cJSON_IsObject(section)) {
            return std::string(name.section) + " is not a JSON object: " + shown(section);
        }
        const cJSON* const value = cJSON_GetObjectItemCaseSensitive(section, name.field);
        if (value != nullptr && !orvan_common::element_from_json(OrvanData::orvanMap[tag], value,
                                                                 reinterpret_cast<uint8_t*>(&trial))) {
            return std::string(name.section) + "." + name.field + " does not fit: " + shown(value);
        }
    }
    return "contains a NUL character";
}

bool is_known(const char* section, const char* field)
{
    for (const orvan_common::ElementName& name : orvan_common::kElementNames) {
        if (std::strcmp(name.section, section) == 0 &&
            (field == nullptr || std::strcmp(name.field, field) == 0)) {
            return true;
        }
    }
    return false;
}

std::string unknown_entries(const std::string& text)
{
    const Json root(cJSON_ParseWithLength(text.c_str(), text.size()));
    std::string list;
    const auto note = [&list](const std::string& entry) { list += (list.empty() ? "" : ", ") + entry; };
    for (const cJSON* section = root ? root->child : nullptr; section != nullptr; section = section->next) {
        if (!is_known(section->string, nullptr)) {
            note(section->string);
            continue;
        }
        for (const cJSON* field = section->child; field != nullptr; field = field->next) {
            if (!is_known(section->string, field->string)) {
                note(std::string(section->string) + "." + field->string);
            }
        }
    }
    return list;
}

} // namespace

std::optional<Setup> read_setup(const std::string& path, std::string& complaint)
{
    std::string text;
    if (!read_text(path, text, complaint)) {
        return std::nullopt;
    }
    // Elements that are not in the file keep their value; so the file's are those equal in both results.
    Setup setup;
    ORVAN_CONFIG other;
    std::memset(&setup.record, 0, sizeof setup.record);
    std::memset(&other, 0x5A, sizeof other);
    OrvanData data;
    if (data.init_cmd_config(path.c_str(), &setup.record) != 0 ||
        data.init_cmd_config(path.c_str(), &other) != 0) {
        complaint = reason_of_refusal(text);
        return std::nullopt;
    }
    for (size_t tag = 0; tag < kOrvanElementCount; ++tag) {
        const OrvanElementData& element = OrvanData::orvanMap[tag];
        setup.present[tag] =
            std::memcmp(reinterpret_cast<const char*>(&setup.record) + element.pos,
                        reinterpret_cast<const char*>(&other) + element.pos, element.size) == 0;
    }
    setup.passed_over = unknown_entries(text);
    return setup;
}

bool is_recalled(int tag)
{
    switch (tag) {
    case ODT_CHAN_STAT:
    case ODT_IF_DHCP:
    case ODT_IF_NAME:
    case ODT_IF_ADDR:
    case ODT_IF_MASK:
    case ODT_IF_GATE:
    case ODT_IF_MAC:
    case ODT_IF_PORT:
    case ODT_IF_DNS1:
    case ODT_IF_DNS2:
        return false;
    default:
        return true;
    }
}

} // namespace orvan_records
