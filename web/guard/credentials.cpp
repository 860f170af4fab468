#include "guard/credentials.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "guard/secrets.h"
#include <unique_fd.h>

namespace orvan_web {
namespace {

using orvan_common::UniqueFd;

constexpr mode_t kFolderMode = 0700;

[[noreturn]] void fail(const std::filesystem::path& path)
{
    throw std::runtime_error(path.string() + ": " + std::strerror(errno));
}

bool write_all(int fd, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

// The process that serves has a user of its own, whose folder this is; root may be the one who writes.
bool take_owner(int fd, const struct stat& folder)
{
    return folder.st_uid == ::geteuid() || ::geteuid() != 0 ||
           ::fchown(fd, folder.st_uid, folder.st_gid) == 0;
}

bool is_name(const std::string& name)
{
    return !name.empty() && name.size() <= Credentials::kLongestName &&
           std::all_of(name.begin(), name.end(), [](char c) {
               return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                      c == '.' || c == '_' || c == '-';
           });
}

} // namespace

// A file is only ever replaced, so it has another inode or time when it has changed.
bool Credentials::refresh(File& file)
{
    const std::filesystem::path path = m_folder / file.name;
    struct stat status {};
    // What cannot be looked at may well be there.
    const bool exists = ::stat(path.c_str(), &status) == 0 || (errno != ENOENT && errno != ENOTDIR);
    const bool same = file.known && exists == file.exists && status.st_ino == file.inode &&
                      status.st_mtim.tv_sec == file.changed.tv_sec &&
                      status.st_mtim.tv_nsec == file.changed.tv_nsec;
    if (same) {
        return false;
    }
    file.known = true;
    file.exists = exists;
    file.inode = status.st_ino;
    file.changed = status.st_mtim;
    std::ifstream stream(path, std::ios::binary);
    file.contents.assign(std::istreambuf_iterator<char>(stream), {});
    if (exists && !stream) {
        ::syslog(LOG_ERR, "cannot read %s", path.c_str());
    }
    return true;
}

void Credentials::replace(const File& file, const std::string& contents)
{
    if (::mkdir(m_folder.c_str(), kFolderMode) != 0 && errno != EEXIST) {
        fail(m_folder);
    }
    const UniqueFd folder(::open(m_folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct stat status {};
    if (!folder || ::fstat(folder.get(), &status) != 0) {
        fail(m_folder);
    }
    std::string draft = m_folder / ".new-XXXXXX";
    const UniqueFd fd(::mkostemp(draft.data(), O_CLOEXEC)); // mode 600
    if (!fd) {
        fail(m_folder);
    }
    const std::filesystem::path path = m_folder / file.name;
    if (!take_owner(fd.get(), status) || !write_all(fd.get(), contents) || ::fsync(fd.get()) != 0 ||
        ::rename(draft.c_str(), path.c_str()) != 0 || ::fsync(folder.get()) != 0) {
        const int reason = errno;
        ::unlink(draft.c_str());
        errno = reason;
        fail(path);
    }
}

void Credentials::set_password(const std::string& password)
{
    if (password.size() < kShortestPassword || password.size() > kLongestPassword) {
        throw std::runtime_error("a password has 8 to 256 characters");
    }
    if (password.find_first_of(std::string("\0\n\r", 3)) != std::string::npos) {
        throw std::runtime_error("a password is one line");
    }
    replace(m_password_file, orvan_web::password_hash(password) + '\n');
}

std::string Credentials::add_token(const std::string& name)
{
    if (!is_name(name)) {
        throw std::runtime_error(
            "the name of a token has 1 to 64 letters, digits, dots, dashes and underscores");
    }
    read_tokens();
    if (std::any_of(m_tokens.begin(), m_tokens.end(),
                    [&](const Token& token) { return token.name == name; })) {
        throw std::runtime_error("there is a token " + name + " already");
    }
    std::string token = new_token();
    m_tokens.push_back({name, token_hash(token)});
    write_tokens();
    return token;
}

void Credentials::remove_token(const std::string& name)
{
    read_tokens();
    if (std::erase_if(m_tokens, [&](const Token& token) { return token.name == name; }) == 0) {
        throw std::runtime_error("there is no token " + name);
    }
    write_tokens();
}

void Credentials::read_tokens()
{
    if (!refresh(m_token_file)) {
        return;
    }
    m_tokens.clear();
    std::istringstream lines(m_token_file.contents);
    for (Token token; lines >> token.name >> token.hash;) {
        m_tokens.push_back(token);
    }
}

void Credentials::write_tokens()
{
    std::string text;
    for (const Token& token : m_tokens) {
        text += token.name + ' ' + token.hash + '\n';
    }
    replace(m_token_file, text);
}

const std::string& Credentials::password_hash()
{
    if (refresh(m_password_file)) {
        const std::string& contents = m_password_file.contents;
        m_password_hash = contents.substr(0, contents.find('\n'));
        // Nobody gets in by a file that is empty or cannot be read: a password is set, and none is right.
        if (m_password_file.exists && m_password_hash.empty()) {
            m_password_hash = "*";
        }
    }
    return m_password_hash;
}

std::string Credentials::name_of(std::string_view token)
{
    read_tokens();
    const std::string hash = token_hash(token);
    std::string name;
    for (const Token& known : m_tokens) {
        if (equal_secrets(known.hash, hash)) {
            name = known.name;
        }
    }
    return name;
}

} // namespace orvan_web
