/**
 * The module service: addresses, liveness and selection of the RF channel modules, the conversation with a
 * module, and the relay functions that the service process calls.
 *
 * Channels are numbered 1 to 4 in every call; array indices are channel minus 1.
 */
#ifndef ORVAN_SDK_SCPI_ORVANX_H
#define ORVAN_SDK_SCPI_ORVANX_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>

#include "orvan_sdk/orvan_api.h"
#include <scpi/types.h>

enum SendOnInit : int;
struct ORVAN_CONFIG;
struct OrvanElementData;
class OrvanData;
class ScpiParser;

/** Maximum number of channels. */
inline constexpr int kMaxChannels = 4;

/** The folder where images for the modules are placed, and the words that identify their file names. */
inline constexpr const char* SW_UPDATE_PATH_ORVANX = "/home/orvan/halde/upgrade/orvanx";
inline constexpr const char* ORVANXFILEKEYWORD = "ovx_module";     // module software
inline constexpr const char* ORVANXFPGAFILEKEYWORD = "fpga_image"; // FPGA image

/**
 * One object for the process. Its fields have no lock: every conversation has its own connection, and a
 * reader may see a half-written value.
 */
class ORVAN_API Scpi_Orvanx {
public:
    // ---- the object

    /**
     * The object, built by the first call. That call must come before other threads use it; nothing in
     * the library destroys it. @return never null
     */
    static Scpi_Orvanx* getInstance();

    /**
     * Ends the temperature thread, which may sleep for up to 30 seconds, and the parser; unmaps the channel
     * records and removes their object.
     */
    ~Scpi_Orvanx();
    Scpi_Orvanx(const Scpi_Orvanx&) = delete;
    Scpi_Orvanx& operator=(const Scpi_Orvanx&) = delete;

    // ---- selection and state

    /** Channel that forwarded commands go to, 1 to 4. Not checked; the device selects 1 at start-up. One for
     *  all clients, except on a thread with an OwnSelection (scpi_selection.h). */
    void setSelectedChannel(int channel);
    int getSelectedChannel();

    /** The channel whose temperature a poll is querying through the instrument's own SCPI server; 0 if none
     *  is. It is the one selected when the poll began, which a client may have changed since. */
    int getPolledChannel() const { return m_polledChannel; }

    /** Installed channels. */
    void setNumberofChannels(int channels) { m_modules = channels; }
    int getNumberofChannels() { return m_modules; }

    void setTrigSourceCouple(uint8_t couple) { m_trgSrcCouple = couple; }
    uint8_t getTrigSourceCouple() { return m_trgSrcCouple; }

    /** RF output as last set by the output command. */
    void setRfOnOff(bool on) { m_isRFOn = on; }
    bool getRfOnOff() { return m_isRFOn; }

    void set_powerOnRestore(bool restore) { m_pwrOnRestore = restore; }
    bool get_powerOnRestore() { return m_pwrOnRestore; }

    /** TCP port of the instrument's own SCPI server. */
    int getScpiPort() { return m_scpiPort; }
    void setScpiPort(int port) { m_scpiPort = port; }

    // ---- one request to a module

    /**
     * One request to one module: connects, sends `length` bytes unchanged, reads once, closes. Safe on
     * any number of threads, even for the same module.
     *
     * Waits at most 5 seconds for the connection and 10 seconds for the reply; sending has no limit. The
     * reply is the result of one read of at most 4096 bytes, up to its first NUL. If the module closes the
     * connection without replying, the result is empty, which is not an error. The caller appends CR LF
     * itself.
     *
     * @param ipaddress dotted IPv4 address
     * @param port      TCP port; its low 16 bits count
     * @return the reply, or one of: "-ERR Unable to create socket", "-ERR Unable to connect",
     *         "-ERR Connection timeout", "-ERR Unable to send message", "-ERR Receive timeout",
     *         "-ERR Error while receiving server's msg"
     */
    std::string SendSCPIOrvanX(const char* buffer, int length, const std::string& ipaddress, int port);

    /** False, and logged, if the reply contains "-ERR" anywhere, whether from the module or the link. */
    bool checkOrvanReply(const std::string& reply);

    std::string m_orvanXIp[kMaxChannels] = {"192.168.7.1", "192.168.8.1", "192.168.9.1", "192.168.10.1"};
    uint32_t m_OrvanXport[kMaxChannels] = {6001, 6002, 6003, 6004};

    // ---- liveness and identity of the modules

    bool m_isLive[kMaxChannels] = {}; /**< the module has answered */

    /**
     * Sends "*TST?" to channels 1 to `numChannels` in parallel until each has answered without "-ERR" or
     * their common deadline has passed. A channel that answers becomes live; the others are left unchanged.
     *
     * Between attempts a channel waits 100, 200, 400, 800, then 1600 ms. An attempt under way at the deadline
     * runs to its end, so the call can last one connect, one receive timeout and one wait longer.
     *
     * @param numChannels 1 to 4; with any other number nothing happens
     */
    void wait_for_channels_ready(int numChannels, int max_wait_sec);

    /**
     * Reports the "MODULES test" (bit/bit_tests.h): passed when there are as many USB links as modules and
     * every module is live. The error word has an eModuleFailure for each module that is not.
     *
     * @param devNo   installed modules; the first four count
     * @param bitType eBitType of the row; 3 and above report nothing
     */
    void modules_bit(int devNo, int bitType);

    /**
     * Queries a module's calibration date, FPGA and SCPI versions and reference frequency for its record;
     * those of module 1 also go to the settings, which are not stored. A dead module costs the connect
     * timeout of each query. @return true when all four were answered
     */
    bool getModuleData(int ch);

    // ---- temperature of the modules

    /**
     * Starts the thread that polls the temperature of every installed module, 30 seconds after its start and
     * 30 seconds after each poll. Called once, when the modules and their records are set up; the destructor
     * ends it. Failure to create the thread is logged.
     */
    void startTempratureThread();

    /**
     * The thread's body: polls until the destructor requests the end, which takes effect after a poll. A
     * request made before the thread has begun is lost. An exception from a poll is logged and ends the
     * thread for good.
     */
    void ThreadRunTempratureFunction();

    /**
     * One poll on the caller's thread: sends ":SYST:TEMP?" to channels 1 to `num`, stores the results in
     * `m_isLive`, in the records (ODT_TEMP) and for getTempMaxOrvanx, and reports the "TEMP test" and, if a
     * module did not answer, the "MODULES test". A module that does not answer counts as 100 degrees and
     * costs up to 15 seconds (SendSCPIOrvanX).
     *
     * The selected channel is queried through the instrument's own SCPI server, so never call this from
     * within a command of that server: it executes one at a time.
     *
     * @param num channels; the first four count
     * @return true
     * @throws std::logic_error when an answer does not begin with a number, or the number exceeds the range
     *         of a double; the poll ends there, and later channels are left unchanged
     */
    bool getTempOrvanXForAlltheChannel(int num);

    /** The largest temperature of the last poll in degrees Celsius; 0 until the first poll has ended. */
    double getTempMaxOrvanx() { return m_max_temprature; }

    /**
     * For the service process: polls all installed modules, as above, and returns the largest temperature
     * with six decimals. After an answer that is not a number, which is logged, returns the previous poll's.
     */
    std::string getTempratureForOrvanXResponse();

    // ---- images for the modules

    /**
     * Sends the FPGA image in the upgrade folder to every installed module in turn, and keeps the file.
     * An image is one request, `:SYST:UPD:FPGA #71234567<image>\r\n`, which a module has to answer
     * within 10 seconds of its last byte. A failing module does not stop the others.
     *
     * The folder must contain exactly one file with ORVANXFPGAFILEKEYWORD in its name.
     *
     * @return the last module's outcome: true hides every earlier failure, even that of reading the file.
     *         Without a module, whether the file was read
     * @throws std::exception if there is no such file or several
     */
    bool sendFPGAUpdateSCPICommandtoOrvanX();

    /**
     * The same for the module software, the first file with ORVANXFILEKEYWORD in its name, as
     * ":SYST:UPD:SOFT". The file is deleted once it has been sent, even if refused.
     *
     * @return true if every module accepted it; otherwise false, and logged. Nothing is sent if there is no
     *         file, or it is empty, cannot be read or does not fit into memory twice
     */
    bool sendSoftwareUpdate();

    /**
     * Restarts every installed module, whatever it answers. The modules are unreachable for a while; their
     * setup is not sent again. @return true
     */
    bool sendDeviceRestart();

    /** The software update and, if every module accepted it, the restart. @return false, and no module
     * restarted, if one did not */
    bool sendSWUpdateToOrvanX();

    // ---- channel records

    /**
     * Maps the shared memory object "/orvanData" with a record for each installed channel and recalls a
     * setup (database_recall). Called once, at start-up; an existing object is reused.
     *
     * @param defaultCfg setup to load at boot. If one of its files is missing, setup 0 is loaded, and becomes
     *                   the boot setup of the settings in memory
     * @return 0; -4 and nothing done without channels; -1, and logged, when the object cannot be opened or
     *         the setup cannot be read. In the latter case the records exist nevertheless.
     */
    int load_database(int defaultCfg);

    /** The tag's row of the element table, null before load_database and for ODT_NO_TAG. A tag past the last
     * is not rejected. */
    const OrvanElementData* get_ElemByTag(int32_t tag);

    /** The selected channel's record, null before load_database or when nothing is selected. */
    uint8_t* get_channelDB();

    /** A channel's record, null before load_database and for 0 or a number above 4. Only installed channels
     * have one; this is not checked. */
    uint8_t* get_channelDB(int ch);

    /**
     * Writes an element of a channel from text (update_orvan_DB).
     * @return 0; -1 without a record, and logged for a null `buff` or a `size` of 0
     */
    int update_db(int ch, int tag, char* buff, size_t size);

    /**
     * As above for a record, but first NUL-terminates the text at its size, in the caller's buffer: the last
     * byte of a text that fills `size` bytes is lost.
     */
    int update_db(uint8_t* base, int tag, char* buff, size_t size);

    /** Writes one text to a group of elements. With a null pointer, no tags or no size nothing happens. */
    void updateDBFeature(uint8_t* base, int* tags, int count, char* buff, size_t size);

    // ---- stored setups

    /**
     * Stores every channel's record as a setup. The RF output is stored as off unless the power-on restore
     * mode is on; the record, too, is set to off while its file is written. The record's setup number becomes
     * `index`.
     *
     * A channel that fails is logged and the others continue, so a setup can be stored incompletely. A file
     * that cannot be written keeps its previous contents.
     *
     * @param index 1 to 5; larger values are not rejected
     * @return 0; -1 when a channel failed or the records are not loaded; -3, and nothing done, for setup 0
     */
    int database_store(int index);

    /**
     * Fills every channel's record from a setup and sends it to the modules that are live: a channel's
     * values first, then its states. Elements missing from the file are left unchanged. Records in each
     * channel's State whether its module is live and, at the end, the current network (network_if_detect).
     *
     * A channel whose file cannot be used is logged, keeps its record and sends nothing; the others continue.
     *
     * @param index 0 to 5; larger values are not rejected
     * @return 0; -1 when a channel failed or the records are not loaded
     */
    int database_recall(int index);

    /**
     * Deletes every channel's file of a setup; a missing one counts as deleted.
     * @return 0; -1, and logged, if a file cannot be deleted, or for setup 0, with nothing done
     */
    int database_clear(int index);

    /**
     * Whether every installed channel has a file of this setup; its contents are not checked.
     * @return 0; -1 for 6 and above, and if one is missing; the first missing one is logged
     */
    int validate_DB_files(int index);

    /**
     * Sets, in the settings, the setup that is recalled at boot; the low 8 bits count.
     * @param update store the settings at once, if there is a device
     */
    void set_bootDBConfig(int cfgIdx, bool update);

    /** The setup that is recalled at boot; 0 without settings. */
    int get_bootDBConfig();

    /**
     * The file of a channel's setup: for setup 0 "/home/orvan/halde/json/ch0.json" whatever the channel,
     * else "/home/orvan/halde/preset/<channel>/preset-<setup>.json". The folders are expected to exist.
     * @param size bytes of `buff`; a longer path is truncated
     */
    void get_json_db_path(int ovx_idx, int cfg_idx, char* buff, size_t size);

    // ---- synchronisation of records, modules and settings

    /**
     * Sends the elements of one pass to a channel's module, each in a separate request, in the order of
     * their tags: "<header> <value>\r\n". An element without a header in the language is skipped.
     *
     * Every outcome is logged and none stops the pass: without answers each element costs a timeout.
     *
     * @param ch             1 to the installed channels; neither range nor liveness is checked
     * @param targetPriority eSendPri1 or eSendPri2
     */
    void scpi_cmds_pass(int ch, SendOnInit targetPriority);

    /**
     * Adds to every channel's record what only the controller knows, in this order: model, settings and
     * customer options. Sends nothing. The values remain until a recall replaces them with those of the
     * stored setup.
     *
     * @param arch the device's sDevArch_t
     */
    void sync_db_to_orvanx(void* arch);

    /** Writes the model, its type and its frequency limit to a channel's record.
     *  @param arch an sDevArch_t @return 0; -1, and logged, when null */
    int apply_dev_arch(int ch, void* arch);

    /** Writes manufacturer, versions, serial number and the lower power limit to a channel's record. The last
     *  byte of each text in the settings becomes zero.
     *  @param e2pr an EEPROM_DEVICE_SETTINGS @return 0; -1, and logged, when null */
    int apply_eeprom(int ch, void* e2pr);

    /**
     * Writes the option text to a channel's record and applies the options in it: "LP" lowers the lower power
     * limit to -80 dBm. A word must match exactly, apart from leading blanks; others are ignored.
     *
     * @param e2pr    an EEPROM_DEVICE_SETTINGS
     * @param options words separated by ","; its last byte becomes zero
     * @param optSize bytes of `options`
     * @return 0; -1, and logged, when a pointer is null, `optSize` is 0 or the channel has no record
     */
    int apply_customer_options(int ch, void* e2pr, char* options, size_t optSize);

    /** Writes the battery's charge and current status to every channel's record. */
    void update_battery_status(int percent, int currentStatus);

    /**
     * Stores the current network configuration, as reported by "sudo /usr/local/bin/he_get_net_config.sh", in
     * the settings' live one and in every channel's record, and adopts the SCPI port of the settings.
     *
     * The script prints six words: "Dynamic", "NoLink" or another word for a fixed address; interface,
     * IPv4 address, mask, gateway, MAC address.
     *
     * @return 0; -1 without settings, when the script fails, and, logged and with the live configuration
     *         cleared, when it does not print six words
     */
    int network_if_detect();

    // ---- relay functions for the service process

    /** Sets the device, for the handlers as well. Not owned. */
    void setDevicePtr(void* ptrDevice);

    /** ScpiParser::isExternalCommand; false without a parser. */
    bool isExternalCommand();

    /** ScpiParser::setCallerSocket. @return 1; -1, and logged, without a parser */
    int setCallerSocket(int socket, int deviceArch);

    /** ScpiParser::sendCommandToNewScpiParser; 0 without a parser. */
    int sendScpiToNewParser(char* buffer, int valread);

    /** ScpiParser::connection_abort. */
    void connection_abort(int sd);

    /**
     * Passes a NUL-terminated request to the selected channel and the unmodified reply to `new_socket`.
     * If the selected channel is 0, channel 1 is selected and stays selected.
     */
    void sendSCPICommandtoOrvanX(char* buffer, int valread, int new_socket);

private:
    int m_channelNo = 0;
    std::atomic<int> m_polledChannel = 0;
    bool m_pwrOnRestore = false;
    uint8_t m_trgSrcCouple = 0;
    double m_temprature[kMaxChannels] = {};
    int m_modules = 0;
    bool m_isRFOn = false;
    double m_max_temprature = 0.0;
    ScpiParser* p_scpi_parser = nullptr; // owned
    void* p_devicePtr = nullptr;
    std::atomic<bool> m_runTemperatureThread = false;
    std::thread m_temperatureThread;
    int m_scpiPort = 0;
    ORVAN_CONFIG* m_orvanDB = nullptr; // a record for each channel, shared with other processes
    OrvanData* m_orvanData = nullptr;  // owned
    int m_defaultBootCfg = 0;

    static Scpi_Orvanx* m_instance;

    Scpi_Orvanx();
};

/** @return length of a file in bytes; -1 when it cannot be opened or is not seekable */
ORVAN_API long get_file_size(const char* path);

/**
 * Writes one element of a channel's record from text: the number times the element's factor, a word, or the
 * text itself, which is cut to the element's size with its NUL.
 *
 * Nothing is checked and nothing fails: a number ends at the first character that does not fit ("1GHz" is
 * 1), text that is not a number is 0, and a switch is on only for "ON", "On" and "1". For an integer element
 * the factor is truncated to an integer first. At most `e->size` bytes at `e->pos` are written, with a plain
 * copy: a reader may see half a value. With a null argument nothing happens.
 */
ORVAN_API void update_orvan_DB(uint8_t* base, const OrvanElementData* e, const char* str);

/**
 * Renders an element of a record as text, as update_orvan_DB reads it back: "ON" or "OFF", a float with six
 * and a double with twelve significant digits, numbers divided by the element's factor.
 *
 * @param element its factor is at least 1 for an integer type
 * @param bufSize bytes of `buffer`; a longer text is truncated
 * @return false, with `buffer` unchanged, when a pointer is null or the type is unknown
 */
ORVAN_API bool format_element_value(const char* baseAddress, const OrvanElementData& element, char* buffer,
                                    size_t bufSize);

/**
 * The header that sets an element: the first row of a command table with this tag, without the parts in
 * brackets, ":OUTPut" for ":OUTPut[:STATe]". It ends in "?" when that row is a query.
 *
 * @param commands ended by a row with a null pattern
 * @return empty when no row has the tag
 */
ORVAN_API std::string get_scpi_pattern(const scpi_command_t* commands, int32_t targetTag);

#endif
