// UniqueFd: owns a POSIX file descriptor; plus EINTR-safe helpers around it.
#pragma once

#include <cerrno>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace tarnwick {

class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); }
    // Closes the descriptor now. Not retried on EINTR: on Linux and macOS the
    // descriptor is gone whatever close() returns, and a retry could close a
    // descriptor another thread has just been given.
    void reset(int fd = -1) {
        if (fd_ >= 0) ::close(fd_);
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

// Calls f until it does not fail with EINTR.
template <typename F>
auto retryOnEintr(F f) {
    decltype(f()) result;
    do result = f();
    while (result == -1 && errno == EINTR);
    return result;
}

// Writes every byte, through short writes and interruptions. False with errno set
// on failure.
inline bool writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        ssize_t n = retryOnEintr([&] { return ::write(fd, bytes.data(), bytes.size()); });
        if (n < 0) return false;
        bytes.remove_prefix(static_cast<size_t>(n));
    }
    return true;
}

}  // namespace tarnwick
