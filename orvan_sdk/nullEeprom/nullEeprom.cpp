#include "orvan_sdk/nullEeprom/nullEeprom.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

NullEeprom::NullEeprom() : _fullpath{}, _storage(nullptr), _size(0)
{
    const int length = std::snprintf(_fullpath, sizeof _fullpath, "%s/%s", dir_path, filename);
    if (length < 0 || static_cast<size_t>(length) >= sizeof _fullpath) {
        _fullpath[0] = '\0';
    }
}

NullEeprom::~NullEeprom()
{
    std::free(_storage);
}

bool NullEeprom::init()
{
    if (_fullpath[0] == '\0') {
        std::fputs("NullEeprom: bad path\n", stderr);
        return false;
    }
    return _ensure_directory() && _load_file();
}

bool NullEeprom::read(uint32_t offset, uint8_t* buffer, size_t length)
{
    if (buffer == nullptr) {
        return false;
    }
    if (offset > _size || length > _size - offset) {
        std::fprintf(stderr, "NullEeprom::read OOB %u+%zu > %zu\n", static_cast<unsigned>(offset), length,
                     _size);
        return false;
    }
    if (length != 0) {
        std::memcpy(buffer, _storage + offset, length);
    }
    return true;
}

bool NullEeprom::write(uint32_t offset, const uint8_t* data, size_t length)
{
    if (data == nullptr) {
        return false;
    }
    const size_t needed = length > SIZE_MAX - offset ? SIZE_MAX : offset + length;
    if (needed > _size) {
        auto* const grown = static_cast<uint8_t*>(std::realloc(_storage, needed));
        if (grown == nullptr) {
            std::fprintf(stderr, "NullEeprom::write OOM resizing to %zu\n", needed);
            return false;
        }
        std::memset(grown + _size, 0, needed - _size);
        _storage = grown;
        _size = needed;
    }
    if (length != 0) {
        std::memcpy(_storage + offset, data, length);
    }
    return _save_file();
}

bool NullEeprom::_ensure_directory()
{
    char directory[sizeof _fullpath];
    std::memcpy(directory, _fullpath, sizeof directory);
    char* const last = std::strrchr(directory, '/');
    if (last == nullptr) {
        return false;
    }
    *last = '\0';

    struct stat info = {};
    if (::stat(directory, &info) == 0) {
        if (S_ISDIR(info.st_mode)) {
            return true;
        }
        std::fprintf(stderr, "NullEeprom: %s exists but not a directory\n", directory);
        return false;
    }

    char path[sizeof _fullpath] = "";
    size_t length = 0;
    char* rest = nullptr;
    for (const char* name = ::strtok_r(directory, "/", &rest); name != nullptr;
         name = ::strtok_r(nullptr, "/", &rest)) {
        length += static_cast<size_t>(std::snprintf(path + length, sizeof path - length, "/%s", name));
        // Another process may be creating the same path.
        if (::stat(path, &info) != 0 && ::mkdir(path, 0755) != 0 && errno != EEXIST) {
            std::perror("NullEeprom mkdir");
            return false;
        }
    }
    return true;
}

bool NullEeprom::_load_file()
{
    std::FILE* const file = std::fopen(_fullpath, "rb");
    if (file == nullptr) {
        if (errno == ENOENT) {
            _size = 0;
            return true;
        }
        std::perror("NullEeprom fopen");
        return false;
    }

    const auto fail = [file](const char* what) {
        if (what != nullptr) {
            std::perror(what);
        }
        std::fclose(file);
        return false;
    };
    if (std::fseek(file, 0, SEEK_END) != 0) {
        return fail("NullEeprom fseek");
    }
    const long end = std::ftell(file);
    if (end < 0) {
        return fail("NullEeprom ftell");
    }
    std::rewind(file);

    const auto size = static_cast<size_t>(end);
    auto* const loaded = static_cast<uint8_t*>(std::malloc(size));
    if (loaded == nullptr && size != 0) {
        std::fprintf(stderr, "NullEeprom malloc %ld failed\n", end);
        return fail(nullptr);
    }
    if (size != 0 && std::fread(loaded, 1, size, file) != size) {
        const bool result = fail("NullEeprom fread");
        std::free(loaded);
        return result;
    }
    std::fclose(file);
    std::free(_storage);
    _storage = loaded;
    _size = size;
    return true;
}

bool NullEeprom::_save_file()
{
    std::FILE* const file = std::fopen(_fullpath, "wb");
    if (file == nullptr) {
        std::perror("NullEeprom fopen for write");
        return false;
    }
    const int fd = ::fileno(file);
    if (::flock(fd, LOCK_EX) != 0) {
        std::perror("NullEeprom flock(LOCK_EX)");
        std::fclose(file);
        return false;
    }
    const bool written = _size == 0 || std::fwrite(_storage, 1, _size, file) == _size;
    if (written) {
        std::fflush(file);
        ::fsync(fd);
    } else {
        std::perror("NullEeprom fwrite");
    }
    ::flock(fd, LOCK_UN);
    std::fclose(file);
    return written;
}
