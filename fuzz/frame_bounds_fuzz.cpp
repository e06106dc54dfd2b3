// Fuzzes the bounds text reader: whatever it accepts is a finite rectangle with a
// positive size, which the restore scripts' form can always take.
#include "model/frame.h"
#include "model/invariant.h"

#include <cmath>
#include <cstddef>
#include <cstdint>

using namespace tarnwick;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    auto frame = Frame::init({reinterpret_cast<const char*>(data), size});
    if (!frame) return 0;
    if (!std::isfinite(frame->x) || !std::isfinite(frame->y) || !std::isfinite(frame->w) || !std::isfinite(frame->h))
        invariantFailed("bounds gave a non-finite frame");
    if (!(frame->w > 0) || !(frame->h > 0)) invariantFailed("bounds gave an empty frame");
    // Within the range the script form can hold, formatting must not stop.
    if (std::fabs(frame->x) + frame->w < 9e18 && std::fabs(frame->y) + frame->h < 9e18)
        (void)frame->appleScriptBounds();
    return 0;
}
