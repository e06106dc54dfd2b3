// installPlatform and platform: the one place that knows which backend runs.
#include "platform/platform.h"

#include "model/invariant.h"

#include <atomic>

namespace tarnwick {

namespace {

std::atomic<Platform*> installed{nullptr};

}  // namespace

Platform* installPlatform(Platform* backend) { return installed.exchange(backend, std::memory_order_acq_rel); }

Platform& platform() {
    Platform* backend = installed.load(std::memory_order_acquire);
    if (backend == nullptr) invariantFailed("no desktop backend is installed");
    return *backend;
}

}  // namespace tarnwick
