/**
 * An instrument's files and shared memory for a process that runs on a plain machine.
 *
 * Linking this library replaces open(), access(), unlink(), rename(), mkostemp(), shm_open() and shm_unlink()
 * of a program that names InstrumentFiles; while none lives they are libc's.
 */
#ifndef ORVAN_TESTS_SUPPORT_INSTRUMENT_FILES_H
#define ORVAN_TESTS_SUPPORT_INSTRUMENT_FILES_H

#include <filesystem>
#include <string>

namespace orvan_test {

/** While it lives, the names below lead to private files of this process. One at a time. */
class InstrumentFiles {
public:
    /** Which shared memory call fails. */
    enum class Fault {
        kNone,
        kOpen,     /**< shm_open, with EACCES */
        kAllocate, /**< ftruncate, as the descriptor is for reading only */
        kMap,      /**< mmap, as the descriptor is for writing only */
    };

    /** Starts with the folders "json" and "preset/1" to "preset/4" in /home/orvan/halde, all empty. */
    InstrumentFiles();
    /** Removes the folder and the shared memory object. */
    ~InstrumentFiles();
    InstrumentFiles(const InstrumentFiles&) = delete;
    InstrumentFiles& operator=(const InstrumentFiles&) = delete;

    /** Where /home/orvan/halde leads to. */
    const std::filesystem::path& halde() const { return m_halde; }
    /** The name that "/orvanData" leads to. */
    const std::string& object() const { return m_object; }

    /** Puts a text into "json/ch0.json". */
    void write_factory_setup(const std::string& json);

    /** Path of the file of a channel's setup, from 1, and writing a text into it. */
    std::filesystem::path preset(int channel, int setup) const;
    void write_preset(int channel, int setup, const std::string& json);

    /** How often this file of /home/orvan/halde, as "json/ch0.json", has been opened. */
    size_t opened(const std::string& name) const;

    void set_fault(Fault fault);

    /** Bytes of the shared memory object; -1 when there is none. */
    long object_size() const;

    /** Puts a shell script of this text first in PATH as sudo. */
    void stand_in_for_sudo(const std::string& script);

private:
    std::filesystem::path m_halde;
    std::string m_object;
    std::string m_path; // of the environment, before a stand-in
};

} // namespace orvan_test

#endif
