#ifndef ORVAN_MAINT_TAR_WRITER_H
#define ORVAN_MAINT_TAR_WRITER_H

#include <cstdint>
#include <string>
#include <string_view>

namespace orvan_maint {

/** Makes a tar archive in memory; all in it belongs to root. */
class TarWriter {
public:
    void add_folder(const std::string& name, unsigned mode, int64_t time);
    void add_file(const std::string& name, std::string_view contents, unsigned mode, int64_t time);
    void add_symbolic_link(const std::string& name, const std::string& target, int64_t time);

    /** The archive with its end; the writer is empty again. */
    std::string finish();

private:
    void add(char type, const std::string& name, const std::string& target, std::string_view contents,
             unsigned mode, int64_t time);

    std::string m_bytes;
};

/** Throws Failure when there is no memory for it. */
std::string gzip(std::string_view bytes);

} // namespace orvan_maint

#endif
