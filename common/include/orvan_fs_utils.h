/**
 * Files and folders.
 */
#ifndef ORVAN_FS_UTILS_H
#define ORVAN_FS_UTILS_H

#include <cstddef>
#include <cstdint>
#include <string>

#include <sys/types.h>

/** What a search looks for. Symbolic links are followed. */
enum FsFindKind : int {
    FS_FIND_ANY = 0,
    FS_FIND_FILE = 1, /**< regular files */
    FS_FIND_DIR = 2,
};

/**
 * File operations used by more than one part of the system. None of them throws; a null
 * path, or a null buffer with a size, is a failure. They resume when interrupted by a signal and may
 * run on any number of threads at once. After a failure reported by the system `errno` holds the reason.
 *
 * "On the disk" means that the contents and the name survive a power failure.
 */
class OrvanFSUtils {
public:
    /** A single object, for callers that want one; never null. All operations are static. */
    static OrvanFSUtils* getInstance();

    OrvanFSUtils(const OrvanFSUtils&) = delete;
    OrvanFSUtils& operator=(const OrvanFSUtils&) = delete;

    /** Whether something of any kind is at the path. */
    static bool ifFileExists(const char* path);

    /** Length of a regular file in bytes, at most `UINT32_MAX`; 0 when there is none or it is empty. */
    static uint32_t getFileLen(const char* path);

    /**
     * Reads the first bytes of a regular file.
     *
     * @return true when `size` bytes were read; otherwise `buffer` may be partly filled
     */
    static bool readBufferFromFile(const char* path, void* buffer, size_t size);

    /**
     * Reads a whole regular file, consistently if the file is only ever replaced.
     *
     * @param contents receives the bytes; unchanged on failure
     * @param limit    maximum length; a longer file is refused
     */
    static bool readWholeFile(const char* path, std::string& contents, size_t limit);

    /**
     * Atomically replaces the contents of a file and puts them on the disk; on failure the path has its
     * old contents and the folder nothing new. The file gets mode 644. A symbolic link at the path is
     * replaced, not followed. Needs disk space for both old and new contents.
     *
     * @param path the file to create or replace; its folder must exist
     */
    static bool replaceFile(const char* path, const void* data, size_t length);

    /** As `replaceFile`, but also creates missing folders of the path, with mode 755. */
    static bool saveBufferToFile(const char* path, const void* data, size_t length);

    /** Creates an empty file with mode 644 in an existing folder; an existing file is truncated. */
    static bool createFileName(const char* path);

    /**
     * Appends a line to a text file, which is created if missing, and puts it on the disk.
     *
     * @param line the text without its line end, which is added
     */
    static bool writeTxtLineToFile(const char* path, const char* line);

    /**
     * Creates a folder and its missing parents.
     *
     * @param mode permissions of each folder it creates, less the process's mask
     * @return 0, also if the folder existed; -1 on failure, with folders already created left in place
     */
    static int mkdir_recursive(const char* path, mode_t mode);

    /**
     * Finds the entry of a folder whose name contains a word; folders below it are not searched.
     * If there are several, the one with the latest status change (`st_ctim`) is taken: unlike the other
     * time stamps, unpacking an archive does not set it back. Among equally new ones it is the first in byte
     * order, so that the result does not depend on the file system.
     *
     * @param dir     the folder, with or without "/" at its end
     * @param word    case-sensitive; the empty word matches every name
     * @param out     receives the entry's path, `dir` included
     * @param outSize size of `out`
     * @param kind    a `FsFindKind`
     * @return true if one was found; otherwise `out` is unchanged. Also false if the path of the entry
     *         does not fit into `out`
     */
    static bool findFirstFileContaining(const char* dir, const char* word, char* out, size_t outSize,
                                        int kind);

    /**
     * Empties a folder: removes all files and folders in it, but not the folder itself. Symbolic links
     * are removed, not followed. An entry that cannot be removed does not stop the others.
     *
     * All folders are removed, on the disk, before the first file: a file can thus mark the folder as to be
     * emptied, and after a power cut it is still there until only files are left.
     *
     * @return 0 if the folder is empty, -1 if there is no such folder or something is left
     */
    static int delete_files_in_dir(const char* path);

private:
    OrvanFSUtils() = default;
};

#endif
