/**
 * A byte store shaped like an EEPROM, kept in a file: the backup of the settings in the real EEPROM.
 */
#ifndef ORVAN_SDK_NULL_EEPROM_H
#define ORVAN_SDK_NULL_EEPROM_H

#include <cstddef>
#include <cstdint>

#include "orvan_sdk/orvan_api.h"

/**
 * `init` reads the whole file and every `write` rewrites it. The store never shrinks.
 *
 * An object belongs to one thread and serves one read or one write. flock serialises writers in all threads
 * and processes; a reader takes no lock, and since the file is truncated before it is locked, a reader, or
 * the next start after a power cut, may find it empty or short.
 *
 * A failure returns false and is described on standard error. One failure goes unnoticed: an image that fits
 * into the buffer of a stdio stream, as the settings do, is written only when the stream is
 * flushed, and that result is not checked. On a full disk such a write returns true and leaves the file
 * empty.
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

    /** Creates the directory if it is missing, mode 755, and loads the file. A missing file is an empty
     *  store, not a failure. */
    bool init();

    /** Bytes in the store. */
    size_t size() const { return _size; }

    /** Copies bytes out of the store. False, silently, for a null `buffer` or a range past the end of the
     *  store. */
    bool read(uint32_t offset, uint8_t* buffer, size_t length);

    /** Puts bytes into the store, which grows as needed, zeros filling any gap, and writes the file.
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
