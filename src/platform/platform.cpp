// installPlatform and platform: the one place that knows which backend runs.
#include "platform/platform.h"

#include "model/invariant.h"

#include <algorithm>
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

std::optional<std::string> outputHolding(const Frame& frame, const std::vector<Output>& outputs) {
    std::optional<std::string> best;
    double largest = 0;
    for (const Output& output : outputs) {
        double wide = std::min(frame.x + frame.w, output.frame.x + output.frame.w) - std::max(frame.x, output.frame.x);
        double tall = std::min(frame.y + frame.h, output.frame.y + output.frame.h) - std::max(frame.y, output.frame.y);
        if (wide > 0 && tall > 0 && wide * tall > largest) {
            largest = wide * tall;
            best = output.name;
        }
    }
    return best;
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
