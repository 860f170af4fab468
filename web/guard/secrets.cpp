#include "guard/secrets.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <system_error>

#include <crypt.h>
#include <sys/random.h>

#include <nettle/base16.h>
#include <nettle/memops.h>
#include <nettle/sha2.h>

namespace orvan_web {
namespace {

template <size_t N>
std::string hexadecimal(const std::array<uint8_t, N>& bytes)
{
    std::string text(BASE16_ENCODE_LENGTH(N), '\0');
    ::nettle_base16_encode_update(text.data(), N, bytes.data());
    return text;
}

// Empty for a password or hash that crypt() does not accept.
std::string crypt_text(const std::string& password, const char* setting)
{
    const auto work = std::make_unique<crypt_data>();
    const char* const result = ::crypt_rn(password.c_str(), setting, work.get(), sizeof *work);
    return result == nullptr ? "" : result;
}

} // namespace

std::string new_token()
{
    std::array<uint8_t, 32> bytes{};
    if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        throw std::system_error(errno, std::generic_category(), "getrandom");
    }
    return hexadecimal(bytes);
}

std::string token_hash(std::string_view token)
{
    sha256_ctx context;
    ::nettle_sha256_init(&context);
    ::nettle_sha256_update(&context, token.size(), reinterpret_cast<const uint8_t*>(token.data()));
    std::array<uint8_t, SHA256_DIGEST_SIZE> digest{};
    ::nettle_sha256_digest(&context, digest.size(), digest.data());
    return hexadecimal(digest);
}

bool equal_secrets(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && ::nettle_memeql_sec(a.data(), b.data(), a.size()) != 0;
}

std::string password_hash(const std::string& password)
{
    char setting[CRYPT_GENSALT_OUTPUT_SIZE];
    if (::crypt_gensalt_rn("$y$", 0, nullptr, 0, setting, sizeof setting) == nullptr) {
        throw std::system_error(errno, std::generic_category(), "crypt_gensalt");
    }
    std::string hash = crypt_text(password, setting);
    if (hash.empty()) {
        throw std::system_error(errno, std::generic_category(), "crypt");
    }
    return hash;
}

bool password_matches(const std::string& password, const std::string& hash)
{
    const std::string found = crypt_text(password, hash.c_str());
    return !found.empty() && equal_secrets(found, hash);
}

} // namespace orvan_web
