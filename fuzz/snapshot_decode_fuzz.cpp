// Fuzzes snapshot decoding: any bytes either fail with a reason or decode into
// records that encode and decode again to the same records; a Mac reads the
// same files, without the keys only Linux writes.
#include "model/invariant.h"
#include "model/snapshot_json.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

using namespace tarnwick;

namespace {

bool finiteFrames(const Snapshot& s) {
    auto finite = [](const std::optional<Frame>& f) {
        return !f || (std::isfinite(f->x) && std::isfinite(f->y) && std::isfinite(f->w) && std::isfinite(f->h));
    };
    for (const auto& app : s.apps) {
        for (const auto& w : app.windows)
            if (!finite(w.frame)) return false;
        for (const auto& w : app.scripted)
            if (!finite(w.frame)) return false;
    }
    return true;
}

Snapshot withoutLinuxKeys(Snapshot s) {
    for (auto& app : s.apps) {
        app.commandLine.reset();
        app.workingDirectory.reset();
        for (auto& w : app.windows) {
            w.workspace.reset();
            w.maximizedHorizontally.reset();
            w.maximizedVertically.reset();
        }
    }
    return s;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static SnapshotDecoder decoder(System::linuxDesktop);
    static SnapshotDecoder mac(System::macOS);
    std::string error;
    std::string_view input(reinterpret_cast<const char*>(data), size);
    auto snapshot = decoder.decode(input, &error);
    // The keys only Linux writes never decide whether a file is readable: a Mac
    // reads the same files, with those keys absent.
    std::string macError;
    auto onMac = mac.decode(input, &macError);
    if (onMac.has_value() != snapshot.has_value()) invariantFailed("a Mac and Linux disagree on a file: " + macError);
    if (onMac && !sameList(onMac->apps, withoutLinuxKeys(*snapshot).apps))
        invariantFailed("a Mac read a key only Linux writes");
    if (!snapshot) {
        if (error.empty()) invariantFailed("decoding failed without a reason");
        return 0;
    }
    // simdjson reads numbers too large for a double as errors, so every frame
    // value that decodes is finite and the snapshot can be written back.
    if (!finiteFrames(*snapshot)) return 0;
    auto text = encodeSnapshot(*snapshot, &error);
    if (!text) invariantFailed("a decoded snapshot did not encode: " + error);
    auto again = decoder.decode(*text, &error);
    if (!again) invariantFailed("an encoded snapshot did not decode: " + error);
    // The reader only lets valid UTF-8 through, so writing changes nothing.
    if (!sameList(again->apps, snapshot->apps) || again->date != snapshot->date ||
        again->reason != snapshot->reason || again->frontmost != snapshot->frontmost)
        invariantFailed("round trip changed the snapshot");
    return 0;
}
