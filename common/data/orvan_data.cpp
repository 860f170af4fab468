// The file form of a record.

#include <cstring>
#include <exception>
#include <memory>
#include <string>

#include <element_json.h>
#include <orvan_element_names.h>
#include <orvan_fs_utils.h>

namespace {

// A record takes about 6 KB; a much larger file is not a setup.
constexpr size_t kMaxFileSize = 1 << 20;

struct JsonDeleter {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
    void operator()(char* text) const { cJSON_free(text); }
};
using Json = std::unique_ptr<cJSON, JsonDeleter>;
using JsonText = std::unique_ptr<char, JsonDeleter>;

// The parser returns texts as C strings, so it would silently truncate one at such a character.
bool holds_null_character(const std::string& text)
{
    if (text.find('\0') != std::string::npos) {
        return true;
    }
    for (size_t i = text.find('\\'); i != std::string::npos; i = text.find('\\', i + 2)) {
        if (text.compare(i + 1, 5, "u0000") == 0) {
            return true;
        }
    }
    return false;
}

Json parse(const std::string& text)
{
    if (holds_null_character(text)) {
        return nullptr;
    }
    // The parser rejects text after the object only if the length includes the terminating zero.
    Json root(cJSON_ParseWithLengthOpts(text.c_str(), text.size() + 1, nullptr, true));
    return cJSON_IsObject(root.get()) ? std::move(root) : nullptr;
}

bool apply(const cJSON* root, ORVAN_CONFIG& config)
{
    auto* record = reinterpret_cast<uint8_t*>(&config);
    for (size_t tag = 0; tag < kOrvanElementCount; ++tag) {
        const cJSON* section =
            cJSON_GetObjectItemCaseSensitive(root, orvan_common::kElementNames[tag].section);
        if (section == nullptr) {
            continue;
        }
        if (!cJSON_IsObject(section)) {
            return false;
        }
        const cJSON* value =
            cJSON_GetObjectItemCaseSensitive(section, orvan_common::kElementNames[tag].field);
        if (value != nullptr && !orvan_common::element_from_json(OrvanData::orvanMap[tag], value, record)) {
            return false;
        }
    }
    return true;
}

JsonText print(const ORVAN_CONFIG& config)
{
    const auto* record = reinterpret_cast<const uint8_t*>(&config);
    Json root(cJSON_CreateObject());
    cJSON* section = nullptr;
    const char* section_name = "";
    for (size_t tag = 0; tag < kOrvanElementCount; ++tag) {
        const orvan_common::ElementName& name = orvan_common::kElementNames[tag];
        if (std::strcmp(name.section, section_name) != 0) {
            section_name = name.section;
            section = cJSON_AddObjectToObject(root.get(), section_name);
        }
        Json value(orvan_common::element_to_json(OrvanData::orvanMap[tag], record));
        if (!cJSON_AddItemToObject(section, name.field, value.get())) {
            return nullptr;
        }
        (void)value.release();
    }
    return JsonText(cJSON_Print(root.get()));
}

} // namespace

int OrvanData::init_cmd_config(const char* path, ORVAN_CONFIG* config)
try {
    if (path == nullptr || config == nullptr) {
        return -1;
    }
    std::string text;
    if (!OrvanFSUtils::readWholeFile(path, text, kMaxFileSize)) {
        return -1;
    }
    const Json root = parse(text);
    if (!root) {
        return -1;
    }
    // First on a copy, to check that all of it fits, and only then on the record. The copy is not
    // stored back: other threads may write the record's other elements meanwhile.
    ORVAN_CONFIG trial{};
    if (!apply(root.get(), trial)) {
        return -1;
    }
    apply(root.get(), *config);
    return 0;
} catch (const std::exception&) {
    return -1;
}

int OrvanData::save_cmd_config(const char* path, ORVAN_CONFIG* config)
try {
    if (path == nullptr || config == nullptr) {
        return -1;
    }
    const JsonText text = print(*config);
    if (!text) {
        return -1;
    }
    const std::string file = std::string(text.get()) + '\n';
    return OrvanFSUtils::replaceFile(path, file.data(), file.size()) ? 0 : -1;
} catch (const std::exception&) {
    return -1;
}
