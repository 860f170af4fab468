#include <sys/stat.h>

#include "guard/attempts.h"
#include "guard/credentials.h"
#include "guard/secrets.h"
#include "guard/sessions.h"
#include "http_fixture.h"
#include "support/files.h"

using namespace orvan_test;
using namespace orvan_web;
using namespace std::chrono_literals;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

namespace {

template <typename Action>
std::string complaint(Action action)
{
    try {
        action();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "none";
}

mode_t mode_of(const std::filesystem::path& path)
{
    struct stat status {};
    ::stat(path.c_str(), &status);
    return status.st_mode & 0777;
}

} // namespace

TEST(Secrets, ATokenIs256RandomBits)
{
    EXPECT_THAT(new_token(), MatchesRegex("[0-9a-f]{64}"));
    EXPECT_NE(new_token(), new_token());
    EXPECT_EQ(token_hash("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(Secrets, APasswordMatchesItsHashOnly)
{
    const std::string hash = password_hash("correct horse");
    EXPECT_THAT(hash, StartsWith("$y$"));
    EXPECT_NE(hash, password_hash("correct horse")) << "salted";
    EXPECT_TRUE(password_matches("correct horse", hash));
    for (const char* wrong : {"", "correct hors", "correct horse ", "Correct horse"}) {
        EXPECT_FALSE(password_matches(wrong, hash)) << wrong;
    }
    for (const char* bad : {"", "*", "*0", "*1", "x", "$y$", "correct horse"}) {
        EXPECT_FALSE(password_matches("correct horse", bad)) << bad;
    }
}

TEST(Secrets, AreEqualOnlyAsAWhole)
{
    EXPECT_TRUE(equal_secrets("abc", "abc"));
    EXPECT_TRUE(equal_secrets("", ""));
    EXPECT_FALSE(equal_secrets("abc", "abd"));
    EXPECT_FALSE(equal_secrets("abc", "ab"));
    EXPECT_FALSE(equal_secrets("", "a"));
}

TEST(Credentials, APasswordIsStoredAsAHashThatOnlyItsOwnerReads)
{
    const ScratchFolder scratch;
    const auto folder = scratch.path() / "state";
    Credentials serving(folder);
    EXPECT_EQ(serving.password_hash(), "");
    Credentials setting(folder);
    setting.set_password("correct horse");
    EXPECT_TRUE(password_matches("correct horse", serving.password_hash()));
    EXPECT_EQ(read_file(folder / "password"), serving.password_hash() + "\n");
    EXPECT_EQ(mode_of(folder / "password"), 0600u);
    EXPECT_EQ(mode_of(folder), 0700u);
    setting.set_password("another horse");
    EXPECT_TRUE(password_matches("another horse", serving.password_hash()));
    std::filesystem::remove(folder / "password");
    EXPECT_EQ(serving.password_hash(), "");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 0) << "no draft is left";
}

TEST(Credentials, APasswordHas8To256CharactersInOneLine)
{
    const ScratchFolder scratch;
    Credentials credentials(scratch.path());
    EXPECT_EQ(complaint([&] { credentials.set_password("seven77"); }), "a password has 8 to 256 characters");
    EXPECT_EQ(complaint([&] { credentials.set_password(std::string(257, 'x')); }),
              "a password has 8 to 256 characters");
    EXPECT_EQ(complaint([&] { credentials.set_password("two\nlines"); }), "a password is one line");
    EXPECT_EQ(complaint([&] { credentials.set_password(std::string("a\0secret", 8)); }),
              "a password is one line");
    EXPECT_EQ(credentials.password_hash(), "");
    credentials.set_password(std::string(256, 'x'));
    EXPECT_TRUE(password_matches(std::string(256, 'x'), credentials.password_hash()));
    EXPECT_FALSE(password_matches(std::string(255, 'x') + 'y', credentials.password_hash()));
}

TEST(Credentials, AnEmptyPasswordFileLetsNobodyIn)
{
    const ScratchFolder scratch;
    write_file(scratch.path() / "password", "");
    Credentials credentials(scratch.path());
    EXPECT_EQ(credentials.password_hash(), "*");
    EXPECT_FALSE(password_matches("", credentials.password_hash()));
}

TEST(Credentials, APasswordFileThatCannotBeReachedLetsNobodyIn)
{
    const ScratchFolder folder;
    std::filesystem::create_symlink("password", folder.path() / "password");
    Credentials credentials(folder.path());
    EXPECT_NE(credentials.password_hash(), "");
    EXPECT_FALSE(password_matches("", credentials.password_hash()));
}

TEST(Credentials, OfTokensOnlyHashesAreStored)
{
    const ScratchFolder scratch;
    Credentials serving(scratch.path());
    EXPECT_EQ(serving.name_of(""), "");
    Credentials setting(scratch.path());
    const std::string first = setting.add_token("line-3");
    const std::string second = setting.add_token("Prometheus_1.x");
    EXPECT_EQ(serving.name_of(first), "line-3");
    EXPECT_EQ(serving.name_of(second), "Prometheus_1.x");
    EXPECT_EQ(serving.name_of(first.substr(1)), "");
    EXPECT_EQ(serving.name_of(token_hash(first)), "") << "the hash is no token";
    EXPECT_EQ(read_file(scratch.path() / "tokens"),
              "line-3 " + token_hash(first) + "\nPrometheus_1.x " + token_hash(second) + "\n");
    EXPECT_EQ(mode_of(scratch.path() / "tokens"), 0600u);
    setting.remove_token("line-3");
    EXPECT_EQ(serving.name_of(first), "");
    EXPECT_EQ(serving.name_of(second), "Prometheus_1.x");
}

TEST(Credentials, TokensHaveUsableNamesOfTheirOwn)
{
    const ScratchFolder scratch;
    Credentials credentials(scratch.path());
    credentials.add_token("a");
    EXPECT_EQ(complaint([&] { credentials.add_token("a"); }), "there is a token a already");
    EXPECT_EQ(complaint([&] { credentials.remove_token("b"); }), "there is no token b");
    for (const std::string& name :
         {std::string(), std::string("a b"), std::string("a\nb"), std::string(65, 'x')}) {
        EXPECT_EQ(complaint([&] { credentials.add_token(name); }),
                  "the name of a token has 1 to 64 letters, digits, dots, dashes and underscores");
    }
}

TEST(Credentials, AFolderThatCannotBeMadeIsNamed)
{
    Credentials credentials("/proc/nowhere/state");
    EXPECT_EQ(complaint([&] { credentials.add_token("a"); }),
              "/proc/nowhere/state: No such file or directory");
}

TEST(Attempts, AreFiveInAMinuteForEachAddress)
{
    Attempts attempts;
    const Attempts::Clock::time_point start{1h};
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(attempts.begin("a", start + i * 1s), std::nullopt);
    }
    EXPECT_EQ(attempts.begin("a", start + 4500ms), 56s);
    EXPECT_EQ(attempts.begin("b", start + 5s), std::nullopt);
    EXPECT_EQ(attempts.begin("a", start + 59s), 1s);
    EXPECT_EQ(attempts.begin("a", start + 60s), std::nullopt) << "the first one is a minute old";
    EXPECT_EQ(attempts.begin("a", start + 60s), 1s);
    attempts.succeeded("a");
    EXPECT_EQ(attempts.begin("a", start + 60s), std::nullopt);
}

TEST(Attempts, OfManyAddressesTheOldestAreForgotten)
{
    Attempts attempts;
    const Attempts::Clock::time_point start{1h};
    const auto exhaust = [&](const std::string& address, std::chrono::seconds when) {
        for (int i = 0; i < 5; ++i) {
            attempts.begin(address, start + when);
        }
    };
    exhaust("old", 0s);
    exhaust("new", 10s);
    for (size_t i = 0; i < Attempts::kMostAddresses - 1; ++i) {
        attempts.begin(std::to_string(i), start + 20s);
    }
    EXPECT_EQ(attempts.begin("new", start + 20s), 50s);
    EXPECT_EQ(attempts.begin("old", start + 20s), std::nullopt);
}

TEST(Sessions, LastEightHours)
{
    Sessions sessions;
    const Sessions::Clock::time_point start{1h};
    const std::string token = sessions.begin(start);
    EXPECT_TRUE(sessions.has(token, start + 8h - 1s));
    EXPECT_FALSE(sessions.has(token, start + 8h));
    EXPECT_FALSE(sessions.has("", start));
    EXPECT_FALSE(sessions.has(token + "x", start));
}

TEST(Sessions, EndOneByOneAndAllTogether)
{
    Sessions sessions;
    const Sessions::Clock::time_point start{1h};
    const std::string first = sessions.begin(start);
    const std::string second = sessions.begin(start);
    const std::string third = sessions.begin(start);
    EXPECT_TRUE(sessions.end(first, start));
    EXPECT_FALSE(sessions.end(first, start));
    EXPECT_FALSE(sessions.has(first, start));
    EXPECT_TRUE(sessions.has(second, start));
    sessions.end_all();
    EXPECT_FALSE(sessions.has(third, start));
}

TEST(Sessions, OfTooManyTheOldestEnds)
{
    Sessions sessions;
    const Sessions::Clock::time_point start{1h};
    const std::string first = sessions.begin(start);
    const std::string second = sessions.begin(start);
    for (size_t i = 0; i < Sessions::kMost - 1; ++i) {
        sessions.begin(start);
    }
    EXPECT_FALSE(sessions.has(first, start));
    EXPECT_TRUE(sessions.has(second, start));
}
