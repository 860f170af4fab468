#include "data_store.h"

#include <algorithm>

#include "scpi/error.h"

namespace sim_module {

void DataStore::reset()
{
    m_memory = {};
}

int DataStore::define(TableKind kind, const std::string& name)
{
    Memory& tables = memory(kind);
    if (!tables.tables.contains(name) && tables.tables.size() >= kMaxTables) {
        return SCPI_ERROR_OUT_OF_MEMORY;
    }
    tables.tables.try_emplace(name);
    tables.selected = name;
    return 0;
}

DataStore::Table& DataStore::table(TableKind kind)
{
    Memory& tables = memory(kind);
    return tables.tables[tables.selected];
}

size_t DataStore::rows(TableKind kind)
{
    return table(kind).size() / table_shape(kind).columns.size();
}

int DataStore::erase(TableKind kind, const std::string& name)
{
    Memory& tables = memory(kind);
    if (tables.tables.erase(name) == 0) {
        return SCPI_ERROR_ILLEGAL_PARAMETER_VALUE;
    }
    if (tables.selected == name) {
        tables.selected.clear();
    }
    return 0;
}

int DataStore::store(TableKind kind, const std::string& name)
{
    if (name.empty()) {
        return SCPI_ERROR_FILE_NAME;
    }
    const auto files_of_kind = static_cast<size_t>(std::count_if(
        m_files.begin(), m_files.end(), [kind](const auto& file) { return file.first.first == kind; }));
    if (!m_files.contains({kind, name}) && files_of_kind >= kMaxTables) {
        return SCPI_ERROR_MEDIA_FULL;
    }
    m_files[{kind, name}] = table(kind);
    return 0;
}

int DataStore::load(TableKind kind, const std::string& name)
{
    const auto file = m_files.find({kind, name});
    if (file == m_files.end()) {
        return SCPI_ERROR_FILE_NAME_NOT_FOUND;
    }
    if (kind != TableKind::kUserCorrection) {
        if (const int error = define(kind, name); error != 0) {
            return error;
        }
    }
    table(kind) = file->second;
    return 0;
}

int DataStore::remove_file(TableKind kind, const std::string& name)
{
    return m_files.erase({kind, name}) == 0 ? SCPI_ERROR_FILE_NAME_NOT_FOUND : 0;
}

int DataStore::remove_files(const std::string& name)
{
    const size_t removed =
        std::erase_if(m_files, [&name](const auto& file) { return file.first.second == name; });
    return removed == 0 ? SCPI_ERROR_FILE_NAME_NOT_FOUND : 0;
}

std::vector<std::string> DataStore::catalog(TableKind kind) const
{
    std::vector<std::string> names;
    for (const auto& [key, data] : m_files) {
        if (key.first == kind) {
            names.push_back(key.second);
        }
    }
    return names;
}

int DataStore::size(const std::string& name, size_t& bytes) const
{
    for (const TableKind kind : kTableKinds) {
        if (const auto file = m_files.find({kind, name}); file != m_files.end()) {
            bytes = file->second.size() * sizeof(double);
            return 0;
        }
    }
    return SCPI_ERROR_FILE_NAME_NOT_FOUND;
}

} // namespace sim_module
