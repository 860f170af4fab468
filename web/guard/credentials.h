#ifndef ORVAN_WEB_CREDENTIALS_H
#define ORVAN_WEB_CREDENTIALS_H

#include <ctime>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

namespace orvan_web {

/**
 * The password and the API tokens, of which only hashes are kept, in two files of the state folder:
 * "password" has the hash, "tokens" a line "NAME HASH" for each. Both have mode 600 and the owner of the
 * folder. They are changed by another process (`orvan-web --set-password`, `--new-token`), so the one that
 * serves reads them again when they have changed. Not thread-safe.
 */
class Credentials {
public:
    static constexpr size_t kShortestPassword = 8;
    static constexpr size_t kLongestPassword = 256; /**< bytes */
    static constexpr size_t kLongestName = 64;

    /** @param folder is made when something is stored, with mode 700 */
    explicit Credentials(std::filesystem::path folder) : m_folder(std::move(folder)) {}

    /** Replaces the password.
     *  @throws std::runtime_error with a text for the user */
    void set_password(const std::string& password);

    /** Makes a token with a new name.
     *  @param name 1 to 64 letters, digits and "._-"
     *  @return the token, which cannot be read later
     *  @throws std::runtime_error with a text for the user */
    std::string add_token(const std::string& name);

    /** @throws std::runtime_error with a text for the user */
    void remove_token(const std::string& name);

    /** The hash of the password; empty if there is none. */
    const std::string& password_hash();

    /** The name of an API token; empty if there is none like this. */
    std::string name_of(std::string_view token);

private:
    struct File {
        std::string name;
        std::string contents;
        bool known = false; /**< whether the following are those of the contents */
        bool exists = false;
        timespec changed{};
        ino_t inode = 0;
    };
    struct Token {
        std::string name;
        std::string hash;
    };

    bool refresh(File& file);
    void replace(const File& file, const std::string& contents);
    void read_tokens();
    void write_tokens();

    const std::filesystem::path m_folder;
    File m_password_file{"password", {}, false, false, {}, 0};
    File m_token_file{"tokens", {}, false, false, {}, 0};
    std::string m_password_hash;
    std::vector<Token> m_tokens;
};

} // namespace orvan_web

#endif
