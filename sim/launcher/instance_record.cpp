#include "instance_record.h"

#include <fstream>
#include <memory>
#include <sstream>

#include <cjson/cJSON.h>

namespace orvan_launcher {

namespace fs = std::filesystem;

namespace {

using Json = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;
using Texts = std::map<std::string, std::string>;

/** Number fields of the record, by the names they have in the file. */
struct NumberField {
    const char* name;
    int InstanceRecord::*field;
};

constexpr NumberField kNumbers[] = {
    {"launcher", &InstanceRecord::launcher},   {"init", &InstanceRecord::init},
    {"channels", &InstanceRecord::channels},   {"modules", &InstanceRecord::modules},
    {"scpi_port", &InstanceRecord::scpi_port}, {"hislip_port", &InstanceRecord::hislip_port},
    {"http_port", &InstanceRecord::http_port}, {"maintenance_port", &InstanceRecord::maintenance_port},
};

fs::path record_file(const fs::path& state)
{
    return state / "run/instance.json";
}

void add_texts(cJSON* root, const char* name, const Texts& texts)
{
    cJSON* object = cJSON_AddObjectToObject(root, name);
    for (const auto& [key, value] : texts) {
        cJSON_AddStringToObject(object, key.c_str(), value.c_str());
    }
}

Texts texts_of(const cJSON* root, const char* name)
{
    Texts texts;
    const cJSON* entry = nullptr;
    cJSON_ArrayForEach(entry, cJSON_GetObjectItem(root, name))
    {
        if (cJSON_IsString(entry)) {
            texts[entry->string] = entry->valuestring;
        }
    }
    return texts;
}

} // namespace

bool write_record(const fs::path& state, const InstanceRecord& record)
{
    const Json root(cJSON_CreateObject(), cJSON_Delete);
    cJSON_AddStringToObject(root.get(), "model", record.model.c_str());
    for (const NumberField& number : kNumbers) {
        cJSON_AddNumberToObject(root.get(), number.name, record.*number.field);
    }
    cJSON_AddBoolToObject(root.get(), "temporary", record.temporary);
    add_texts(root.get(), "environment", record.environment);
    add_texts(root.get(), "networks", record.networks);
    const std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_Print(root.get()), cJSON_free);

    const fs::path unfinished = record_file(state).string() + ".new";
    std::ofstream file(unfinished);
    file << text.get() << '\n';
    file.close();
    std::error_code code;
    fs::rename(unfinished, record_file(state), code);
    return file.good() && !code;
}

std::optional<InstanceRecord> read_record(const fs::path& state)
{
    std::ifstream file(record_file(state));
    std::ostringstream text;
    text << file.rdbuf();
    const Json root(cJSON_Parse(text.str().c_str()), cJSON_Delete);
    const cJSON* model = cJSON_GetObjectItem(root.get(), "model");
    if (!cJSON_IsString(model)) {
        return std::nullopt;
    }
    InstanceRecord record;
    record.model = model->valuestring;
    for (const NumberField& number : kNumbers) {
        const cJSON* item = cJSON_GetObjectItem(root.get(), number.name);
        if (!cJSON_IsNumber(item)) {
            return std::nullopt;
        }
        record.*number.field = item->valueint;
    }
    record.temporary = cJSON_IsTrue(cJSON_GetObjectItem(root.get(), "temporary")) != 0;
    record.environment = texts_of(root.get(), "environment");
    record.networks = texts_of(root.get(), "networks");
    return record;
}

} // namespace orvan_launcher
