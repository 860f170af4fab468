/**
 * Files and folders.
 */
#ifndef ORVAN_FS_UTILS_H
#define ORVAN_FS_UTILS_H

#include <cstddef>
#include <cstdint>
#include <string>

#include <sys/types.h>

/** What a search looks for. A symbolic link counts as what it leads to. */
enum FsFindKind : int {
    FS_FIND_ANY = 0,
    FS_FIND_FILE = 1, /**< regular files */
    FS_FIND_DIR = 2,
};

/**
 * The operations on files that more than one part of the system needs. None of them throws; a null
 * path, or a null buffer with a size, is a failure. They go on when a signal interrupts them and may
 * run on any number of threads at once. `errno` tells the reason of a failure that the system reported.
 *
 * "On the disk" means that the contents and the name survive a power failure.
 */
class OrvanFSUtils {
public:
    /** The one object, for callers that want one; never null. All operations are static. */
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
     * @return true when `size` bytes were read; with false `buffer` may be partly filled
     */
    static bool readBufferFromFile(const char* path, void* buffer, size_t size);

    /**
     * Reads the whole of a regular file, as it was at one moment if it is only ever replaced.
     *
     * @param contents gets the bytes; with false it is as it was
     * @param limit    length past which the file is refused
     */
    static bool readWholeFile(const char* path, std::string& contents, size_t limit);

    /**
     * Puts bytes on the disk as the whole contents of a file, in one step: with false the path has
     * what it had, and the folder nothing new. The file gets mode 644. A symbolic link at the path is
     * replaced and not followed. Takes the room of old and new contents together.
     *
     * @param path the file to make or to replace; its folder has to exist
     */
    static bool replaceFile(const char* path, const void* data, size_t length);

    /** As `replaceFile`, and makes the folders of the path that are missing, with mode 755. */
    static bool saveBufferToFile(const char* path, const void* data, size_t length);

    /** Makes an empty file with mode 644 in an existing folder; one that is there loses its contents. */
    static bool createFileName(const char* path);

    /**
     * Adds a line to the end of a text file, which is made if it is missing, and puts it on the disk.
     *
     * @param line the text without its line end, which this adds
     */
    static bool writeTxtLineToFile(const char* path, const char* line);

    /**
     * Makes a folder and its missing parents.
     *
     * @param mode permissions of each folder it makes, less the process's mask
     * @return 0, also when the folder was there; -1 on failure, and folders already made stay
     */
    static int mkdir_recursive(const char* path, mode_t mode);

    /**
     * Finds the entry of a folder whose name contains a word; folders below it are not searched.
     * Of several the one that was put there last is taken, by the time of its last status change
     * (`st_ctim`), which unpacking an archive does not set back as it does the others. Of several that are
     * equally new it is the first by byte order, so that the outcome does not depend on the disk.
     *
     * @param dir     the folder, with or without "/" at its end
     * @param word    case counts; the empty word is in every name
     * @param out     gets the entry's path, `dir` included
     * @param outSize size of `out`
     * @param kind    a `FsFindKind`
     * @return true when one was found; with false `out` is as it was. Also false when the path of the
     *         entry does not fit into `out`
     */
    static bool findFirstFileContaining(const char* dir, const char* word, char* out, size_t outSize,
                                        int kind);

    /**
     * Empties a folder: removes all files and folders in it, but not the folder itself. Symbolic links
     * are removed and not followed. One entry that resists does not keep the others.
     *
     * The folders in it are gone, on the disk, before the first file goes: a file can thus mark the folder as
     * one to be emptied, and a power cut leaves it there until nothing but files is left.
     *
     * @return 0 when the folder is empty, -1 when there is no such folder or something is left
     */
    static int delete_files_in_dir(const char* path);

private:
    OrvanFSUtils() = default;
};

#endif
