/**
 * A byte store with the shape of an EEPROM, kept in a file: the settings' backup beside the real EEPROM.
 */
#ifndef ORVAN_SDK_NULL_EEPROM_H
#define ORVAN_SDK_NULL_EEPROM_H

#include <cstddef>
#include <cstdint>

#include "orvan_sdk/orvan_api.h"

/**
 * The file is loaded whole by `init` and written whole by every `write`. The store never shrinks.
 *
 * An object belongs to one thread and is made for one read or one write. Writers of other threads and
 * processes are kept apart by flock while they write; a reader takes no lock, and since the file is truncated
 * before it is locked, a reader, or the next start after a power cut, may find it empty or short.
 *
 * A failure returns false, and standard error says what failed. One does not show: an image that fits the
 * buffer of a stdio stream, as that of the settings does, is written only when the stream is flushed, and
 * what comes of that is not looked at. On a full disk such a write returns true and leaves the file empty.
 */
class ORVAN_API NullEeprom {
public:
    static constexpr const char* dir_path = "/home/orvan/halde/config";
    static constexpr const char* filename = "flash.ini"; /**< the bytes as they are; no text format */

    /** Touches no file. */
    NullEeprom();
    ~NullEeprom();
    NullEeprom(const NullEeprom&) = delete;
    NullEeprom& operator=(const NullEeprom&) = delete;

    /** Makes the directory where it is missing, mode 755, and loads the file. A missing file is an empty
     *  store and no failure. */
    bool init();

    /** Bytes in the store. */
    size_t size() const { return _size; }

    /** Copies bytes of the store out. False, silently, for a null `buffer`, and for a range that leaves the
     *  store. */
    bool read(uint32_t offset, uint8_t* buffer, size_t length);

    /** Puts bytes into the store, which grows as far as needed with zeros between, and writes the file.
     * False, silently, for a null `data`. */
    bool write(uint32_t offset, const uint8_t* data, size_t length);

private:
    friend struct NullEepromTestPeer;

    bool _ensure_directory();
    bool _load_file();
    bool _save_file();

    char _fullpath[4096]; // empty if the path did not fit
    uint8_t* _storage;    // from the C heap, may be null
    size_t _size;
};

#endif
