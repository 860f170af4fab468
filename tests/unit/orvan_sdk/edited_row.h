/**
 * Changes a row of one of the library's constant tables while it lives.
 */
#ifndef ORVAN_TESTS_EDITED_ROW_H
#define ORVAN_TESTS_EDITED_ROW_H

#include <cstdint>
#include <stdexcept>

#include <sys/mman.h>
#include <unistd.h>

namespace orvan_test {

template <typename Row>
class EditedRow {
public:
    EditedRow(const Row& row, const Row& other) : m_row(const_cast<Row*>(&row)), m_saved(row) { put(other); }
    ~EditedRow() { put(m_saved); }
    EditedRow(const EditedRow&) = delete;
    EditedRow& operator=(const EditedRow&) = delete;

private:
    void put(const Row& row)
    {
        const auto page = static_cast<uintptr_t>(::sysconf(_SC_PAGESIZE));
        const size_t before = reinterpret_cast<uintptr_t>(m_row) & (page - 1);
        char* const first = reinterpret_cast<char*>(m_row) - before;
        if (::mprotect(first, before + sizeof row, PROT_READ | PROT_WRITE) != 0) {
            throw std::runtime_error("the table stays read-only");
        }
        // As volatile bytes: the compiler knows that a constant does not change.
        const auto* from = reinterpret_cast<const unsigned char*>(&row);
        auto* to = reinterpret_cast<volatile unsigned char*>(m_row);
        for (size_t i = 0; i < sizeof row; ++i) {
            to[i] = from[i];
        }
    }

    Row* m_row;
    Row m_saved;
};

} // namespace orvan_test

#endif
