// The schemas of the OpenAPI document.
#include <cstring>

#include "instrument/channel_settings.h"
#include "openapi.h"

namespace orvan_web {
namespace {

struct NamedSchema {
    const char* name;
    const char* schema;
};

// clang-format off
constexpr NamedSchema kSchemas[] = {
    {"Empty", R"({"type":"object","examples":[{}]})"},

    {"Problem", R"({"type":"object","required":["type","title","status"],
        "properties":{"type":{"type":"string"},"title":{"type":"string"},"status":{"type":"integer"},"detail":{"type":"string"},
            "errors":{"type":"array","items":{"$ref":"#/components/schemas/Error"}},
            "channel":{"$ref":"#/components/schemas/Channel"}},
        "examples":[{"type":"about:blank","title":"Unprocessable Content","status":422,"detail":"Some settings were refused; the others have been applied.",
            "errors":[{"field":"frequency_hz","number":-222,"text":"Data out of range"}]}]})"},

    {"Error", R"({"type":"object","required":["number","text"],
        "properties":{"field":{"type":"string"},"number":{"type":"integer"},"text":{"type":"string"}},
        "examples":[{"number":-222,"text":"Data out of range"}]})"},

    {"Instrument", R"({"type":"object",
        "required":["manufacturer","model","serial","firmware","hostname","mac","addresses","network","interfaces","channels","fan","battery","self_test","clients","last_errors","service","access"],
        "properties":{
            "manufacturer":{"type":"string"},"model":{"type":"string"},"serial":{"type":"string"},"firmware":{"type":"string"},
            "hostname":{"type":"string"},"mac":{"type":"string"},"addresses":{"type":"array","items":{"type":"string"}},
            "network":{"type":"object","required":["dhcp","address","mask","gateway","dns"],"properties":{"dhcp":{"type":"boolean"},"address":{"type":"string"},
                "mask":{"type":"string"},"gateway":{"type":"string"},"dns":{"type":"array","items":{"type":"string"}}}},
            "interfaces":{"type":"array","items":{"type":"object","required":["protocol","address"],"properties":{"protocol":{"enum":["raw","hislip","vxi11"]},"address":{"type":"string"}}}},
            "channels":{"type":"integer"},
            "fan":{"type":["object","null"],"properties":{"mode":{"enum":["AUTO","FIXED"]}}},
            "battery":{"type":["object","null"],"properties":{"charge_percent":{"type":"number"}}},
            "self_test":{"type":["object","null"],"properties":{"results":{"type":"array","items":{"type":"string"}}}},
            "clients":{"type":"array","items":{"type":"object","required":["protocol","address"],"properties":{"protocol":{"type":"string"},"address":{"type":"string"},"since_s":{"type":"number"}}}},
            "last_errors":{"type":"array","items":{"type":"object","required":["number","text"],"properties":{"age_s":{"type":"number"},"protocol":{"type":"string"},
                "client":{"type":"string"},"number":{"type":"integer"},"text":{"type":"string"},"message":{"type":"string"}}}},
            "service":{"type":"object","required":["reachable"],"properties":{"reachable":{"type":"boolean"},"uptime_s":{"type":["number","null"]},
                "running":{"type":["object","null"],"properties":{"client":{"type":"string"},"message":{"type":"string"},"for_s":{"type":"number"}}}}},
            "access":{"type":"object","required":["changes","password_set","reason"],"properties":{"changes":{"type":"boolean"},"password_set":{"type":"boolean"},"reason":{"type":"string"}}}}})"},

    {"Settings", R"({"type":"object","required":["settings"],"properties":{"settings":{"type":"array","items":{"type":"object",
        "required":["path","group","label","unit","kind","choices","scpi","read_only"],
        "properties":{"path":{"type":"string","description":"Place of the value in a channel; '/' separates members"},"group":{"type":"string"},"label":{"type":"string"},
            "unit":{"type":"string"},"kind":{"enum":["number","integer","switch","choice","text"]},"choices":{"type":"array","items":{"type":"string"}},
            "scpi":{"type":"string"},"read_only":{"type":"boolean"}}}}},
        "examples":[{"settings":[{"path":"am/source","group":"Amplitude modulation","label":"Source","unit":"","kind":"choice","choices":["INT","EXT"],"scpi":":AM:SOUR","read_only":false}]}]})"},

    {"Channels", R"({"type":"object","required":["channels"],"properties":{"channels":{"type":"array","items":{"$ref":"#/components/schemas/Channel"}}}})"},
    {"PatchedChannel", R"({"type":"object","required":["channel"],"properties":{"channel":{"$ref":"#/components/schemas/Channel"}}})"},

    {"ScpiLine", R"({"type":"object","required":["line"],"properties":{"channel":{"type":"integer","minimum":1,"maximum":4,"description":"The channel that the line is for; 1 if it is missing"},
            "line":{"type":"string"}},
        "examples":[{"channel":1,"line":":FREQ?"}]})"},
    {"ScpiAnswer", R"({"type":"object","required":["errors","duration_ms"],"properties":{"response":{"type":"string"},
            "response_base64":{"type":"string","description":"Instead of \"response\" if that is not UTF-8"},
            "errors":{"type":"array","items":{"$ref":"#/components/schemas/Error"}},"duration_ms":{"type":"number"}},
        "examples":[{"response":"1000000000","errors":[],"duration_ms":1.2}]})"},

    {"Setups", R"({"type":"object","required":["power_up","setups"],"properties":{"power_up":{"type":["integer","null"]},
        "setups":{"type":"array","items":{"type":"object","required":["setup","factory","stored","stored_at"],
            "properties":{"setup":{"type":"integer"},"factory":{"type":"boolean"},"stored":{"type":"boolean"},"stored_at":{"type":["string","null"]}}}}},
        "examples":[{"power_up":0,"setups":[{"setup":1,"factory":false,"stored":true,"stored_at":"2026-01-01T00:00:00Z"}]}]})"},
    {"SetupDifferences", R"({"type":"object","required":["setup","differences"],"properties":{"setup":{"type":"integer"},
        "differences":{"type":"array","items":{"type":"object","required":["channel","path","label","group","unit","now","setup"],
            "properties":{"channel":{"type":"integer"},"path":{"type":"string"},"label":{"type":"string"},"group":{"type":"string"},"unit":{"type":"string"},
                "now":{"type":["number","boolean","string","null"]},"setup":{"type":["number","boolean","string","null"]}}}}},
        "examples":[{"setup":1,"differences":[{"channel":1,"path":"frequency_hz","label":"Frequency","group":"Output","unit":"Hz","now":1000000000,"setup":2500000000}]}]})"},

    {"History", R"({"type":"object","required":["seconds","channels"],"properties":{
        "seconds":{"type":"array","description":"When each point was taken, in seconds from now","items":{"type":"number"}},
        "channels":{"type":"array","items":{"type":"object","required":["channel","temperature_celsius","level_dbm"],"properties":{"channel":{"type":"integer"},
            "temperature_celsius":{"type":"array","items":{"type":["number","null"]}},"level_dbm":{"type":"array","items":{"type":["number","null"]}}}}}},
        "examples":[{"seconds":[-2.1,-0.1],"channels":[{"channel":1,"temperature_celsius":[41.5,41.6],"level_dbm":[-10,null]}]}]})"},

    {"Commands", R"({"type":"object","required":["commands"],"properties":{"commands":{"type":"array","items":{"type":"object",
        "required":["header","set","query","text","parameters"],"properties":{"header":{"type":"string"},"set":{"type":"boolean"},"query":{"type":"boolean"},
            "text":{"type":"string"},"parameters":{"type":"string"}}}}}})"},
};
// clang-format on

// The object that has a setting's last part as a member.
cJSON* properties_for(cJSON* root, const char*& path)
{
    const char* const slash = std::strchr(path, '/');
    if (slash == nullptr) {
        return root;
    }
    const std::string name(path, slash);
    path = slash + 1;
    cJSON* group = cJSON_GetObjectItemCaseSensitive(root, name.c_str());
    if (group == nullptr) {
        group = cJSON_AddObjectToObject(root, name.c_str());
        cJSON_AddStringToObject(group, "type", "object");
        cJSON_AddObjectToObject(group, "properties");
    }
    return cJSON_GetObjectItemCaseSensitive(group, "properties");
}

Json types(std::initializer_list<const char*> names)
{
    Json array(cJSON_CreateArray());
    for (const char* const name : names) {
        cJSON_AddItemToArray(array.get(), cJSON_CreateString(name));
    }
    return array;
}

std::string description(const ChannelSetting& setting)
{
    const std::string unit = setting.unit[0] != '\0' ? std::string(" in ") + setting.unit : "";
    return std::string(setting.group) + ": " + setting.label + unit + " (" + setting.scpi + ")";
}

// A value as it is sent, null if it is unknown.
Json value_schema(const ChannelSetting& setting)
{
    Json schema = json_object();
    switch (setting.kind) {
    case SettingKind::kNumber:
    case SettingKind::kInteger:
        add(schema.get(), "type", types({"number", "null"}));
        break;
    case SettingKind::kSwitch:
        add(schema.get(), "type", types({"boolean", "null"}));
        break;
    case SettingKind::kChoice: {
        cJSON* const choices = cJSON_AddArrayToObject(schema.get(), "enum");
        for (const std::string& choice : choices_of(setting)) {
            cJSON_AddItemToArray(choices, json_string(choice).release());
        }
        cJSON_AddItemToArray(choices, cJSON_CreateNull());
        break;
    }
    case SettingKind::kText:
        add(schema.get(), "type", types({"string", "null"}));
        break;
    }
    add(schema.get(), "description", json_string(description(setting)));
    if (setting.read_only) {
        cJSON_AddTrueToObject(schema.get(), "readOnly");
    }
    return schema;
}

// A value as it is accepted: a text may have a unit.
Json wanted_schema(const ChannelSetting& setting)
{
    Json schema = json_object();
    const bool is_switch = setting.kind == SettingKind::kSwitch;
    const bool numeric = setting.kind == SettingKind::kNumber || setting.kind == SettingKind::kInteger;
    add(schema.get(), "type",
        is_switch ? types({"boolean", "string"})
        : numeric ? types({"number", "string"})
                  : types({"string"}));
    add(schema.get(), "description", json_string(description(setting)));
    return schema;
}

Json channel_schema(bool wanted)
{
    Json schema =
        parse_json(wanted ? R"({"type":"object","additionalProperties":false,"properties":{},
                                          "examples":[{"frequency_hz":"2.5 GHz","am":{"enabled":true}}]})"
                          : R"({"type":"object","required":["channel","present","failed"],"properties":{
        "channel":{"type":"integer"},"present":{"type":"boolean"},
        "failed":{"type":"boolean","description":"The last request to the channel's module failed"},
        "model":{"type":"string"},"serial":{"type":"string"},"temperature_celsius":{"type":["number","null"]},
        "limits":{"type":"object","description":"[least, greatest] value by the setting's path","additionalProperties":{
            "type":["array","null"],"items":{"type":"number"}}}}})");
    cJSON* const properties = cJSON_GetObjectItemCaseSensitive(schema.get(), "properties");
    for (const ChannelSetting& setting : channel_settings()) {
        if (wanted && setting.read_only) {
            continue;
        }
        const char* name = setting.path;
        cJSON* const parent = properties_for(properties, name);
        add(parent, name, wanted ? wanted_schema(setting) : value_schema(setting));
    }
    return schema;
}

} // namespace

Json openapi_schemas()
{
    Json schemas = json_object();
    for (const NamedSchema& named : kSchemas) {
        add(schemas.get(), named.name, parse_json(named.schema));
    }
    add(schemas.get(), "Channel", channel_schema(false));
    add(schemas.get(), "ChannelPatch", channel_schema(true));
    return schemas;
}

} // namespace orvan_web
