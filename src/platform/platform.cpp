// installPlatform and platform: the one place that knows which backend runs.
#include "platform/platform.h"

#include "model/invariant.h"

#include <atomic>
#include <mutex>

namespace tarnwick {

namespace {

std::atomic<Platform*> installed{nullptr};

std::mutex logLock;
std::function<void(const std::string&)> logSink;

}  // namespace

Platform* installPlatform(Platform* backend) { return installed.exchange(backend, std::memory_order_acq_rel); }

Platform& platform() {
    Platform* backend = installed.load(std::memory_order_acquire);
    if (backend == nullptr) invariantFailed("no desktop backend is installed");
    return *backend;
}

void setPlatformLog(std::function<void(const std::string& line)> sink) {
    std::lock_guard<std::mutex> hold(logLock);
    logSink = std::move(sink);
}

void platformLog(const std::string& line) {
    std::lock_guard<std::mutex> hold(logLock);
    if (logSink) logSink(line);
}

}  // namespace tarnwick
