// Signing: an HMAC over a snapshot's launch data, with a key made once per user.
#include "store/signing.h"

#include "model/hmac_sha256.h"
#include "model/utf8.h"
#include "store/data_folder.h"
#include "store/log.h"
#include "model/unique_fd.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <vector>

#if !defined(__APPLE__)
#include <sys/random.h>
#endif

namespace tarnwick::Signing {

namespace {

// A text as the file holds it, behind its length, so no two lists of texts
// share one byte string.
void addText(std::string& data, std::string_view text) {
    std::string repaired;
    if (!isValidUtf8(text)) text = repaired = validUtf8(text);
    std::uint64_t length = text.size();
    for (int i = 0; i < 8; ++i) data += static_cast<char>(length >> (8 * i));
    data += text;
}

void addOptional(std::string& data, const std::optional<std::string>& text) {
    data += text ? '\1' : '\0';
    if (text) addText(data, *text);
}

#if !defined(__APPLE__)
constexpr size_t keyBytes = 32;

// The key in the file, when the file is this user's regular file of the right size.
std::optional<std::string> readKey(const std::filesystem::path& path, int& error) {
    UniqueFd fd(retryOnEintr([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK); }));
    struct stat info {};
    if (!fd) {
        error = errno;
        return std::nullopt;
    }
    // A key another user could have written or read proves nothing.
    if (::fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_uid != ::geteuid() ||
        (info.st_mode & 077) != 0 || info.st_size != static_cast<off_t>(keyBytes)) {
        error = EPERM;
        return std::nullopt;
    }
    std::string key(keyBytes, '\0');
    ssize_t n = retryOnEintr([&] { return ::read(fd.get(), key.data(), key.size()); });
    if (n != static_cast<ssize_t>(keyBytes)) {
        error = n < 0 ? errno : EIO;
        return std::nullopt;
    }
    return key;
}

// A new key, written whole under a temporary name and linked into place, so
// that two processes making it at once end up sharing the one that won.
std::optional<std::string> makeKey(const std::filesystem::path& path, std::string& why) {
    std::string key(keyBytes, '\0');
    for (size_t filled = 0; filled < keyBytes;) {
        ssize_t n = ::getrandom(key.data() + filled, keyBytes - filled, 0);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            why = std::string("no random bytes: ") + std::strerror(errno);
            return std::nullopt;
        }
        filled += static_cast<size_t>(n);
    }
    prepareFolder(path.parent_path());
    std::string pattern = (path.parent_path() / ".signing.key.XXXXXX").string();
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    UniqueFd fd(retryOnEintr([&] { return ::mkostemp(name.data(), O_CLOEXEC); }));
    if (!fd) {
        why = "cannot write in " + path.parent_path().string() + ": " + std::strerror(errno);
        return std::nullopt;
    }
    bool written = ::fchmod(fd.get(), 0600) == 0 && writeAll(fd.get(), key) && ::fsync(fd.get()) == 0;
    int error = errno;
    bool linked = written && ::link(name.data(), path.c_str()) == 0;
    if (written && !linked) error = errno;
    ::unlink(name.data());
    if (!written || (!linked && error != EEXIST)) {
        why = "cannot write " + path.string() + ": " + std::strerror(error);
        return std::nullopt;
    }
    if (linked) return key;
    int readError = 0;
    auto theirs = readKey(path, readError);
    if (!theirs) why = "cannot read " + path.string() + ": " + std::strerror(readError);
    return theirs;
}
#endif

// This user's key, read or made once per process.
const std::optional<std::string>& userKey() {
    static const std::optional<std::string> made = []() -> std::optional<std::string> {
#if defined(__APPLE__)
        return std::nullopt;
#else
        auto path = keyLocation();
        if (!path) return std::nullopt;
        int error = 0;
        if (auto key = readKey(*path, error)) return key;
        std::string why;
        if (error == ENOENT) {
            if (auto key = makeKey(*path, why)) return key;
        } else {
            why = "cannot use " + path->string() + ": " +
                  (error == EPERM ? "not a private key file of this user" : std::strerror(error));
        }
        // Without a key nothing this process writes is signed, so nothing it
        // restores starts a recorded command line unless the user says so.
        log("signing: " + why);
        return std::nullopt;
#endif
    }();
    return made;
}

}  // namespace

std::string launchData(const Snapshot& snapshot) {
    std::string data = "tarnwick launch data 1\n";
    for (const AppState& app : snapshot.apps) {
        addOptional(data, app.bundleID);
        addText(data, app.bundlePath);
        data += app.commandLine ? '\1' : '\0';
        if (app.commandLine) {
            addText(data, std::to_string(app.commandLine->size()));
            for (const std::string& word : *app.commandLine) addText(data, word);
        }
        addOptional(data, app.workingDirectory);
    }
    return data;
}

std::optional<std::filesystem::path> keyLocation() {
#if defined(__APPLE__)
    return std::nullopt;
#else
    auto config = configLocation();
    if (!config) return std::nullopt;
    return *config / "Tarnwick" / "signing.key";
#endif
}

std::optional<std::string> signatureOf(const Snapshot& snapshot) {
    const auto& key = userKey();
    if (!key) return std::nullopt;
    return hexText(hmacSha256(*key, launchData(snapshot)));
}

void judge(Snapshot& snapshot) {
    snapshot.trusted = false;
    if (!snapshot.signature) return;
    auto expected = signatureOf(snapshot);
    snapshot.trusted = expected && equalInConstantTime(*expected, *snapshot.signature);
}

}  // namespace tarnwick::Signing
