#ifndef ORVAN_SIM_BOARD_IMAGE_FILE_H
#define ORVAN_SIM_BOARD_IMAGE_FILE_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace sim_board {

/**
 * The file with the cells of a memory chip, written through at every change: when the process is killed, the
 * file has everything stored until then. Without a path nothing is saved.
 */
class ImageFile {
public:
    /** Throws std::system_error if the file can't be opened or created. */
    explicit ImageFile(std::string path);
    ~ImageFile();
    ImageFile(const ImageFile&) = delete;
    ImageFile& operator=(const ImageFile&) = delete;

    /** The first `size` bytes of the file, padded with `fill`. */
    std::vector<uint8_t> load(size_t size, uint8_t fill) const;
    /** Throws std::system_error if the bytes can't be written. */
    void store(size_t offset, std::span<const uint8_t> bytes);

private:
    std::string m_path;
    int m_fd = -1;
};

} // namespace sim_board

#endif
