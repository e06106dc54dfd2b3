// The JSON file form of a Snapshot: our own writer and a strict reader.
#pragma once

#include "model/snapshot.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tarnwick {

// The file form: two-blank indentation, " : ", keys sorted, "/" written as "\/",
// empty arrays as "[ ]", absent optionals left out, shortest round-trip numbers,
// the date as ISO 8601 UTC with whole seconds. Fails (nothing, with the reason
// in `error`) on a NaN or infinite number or a date that cannot be written.
std::optional<std::string> encodeSnapshot(const Snapshot& snapshot, std::string* error = nullptr);
// The same with this signature in place of the snapshot's own.
std::optional<std::string> encodeSnapshot(const Snapshot& snapshot, const std::optional<std::string>& signature,
                                          std::string* error = nullptr);

// A text as a JSON string, quotes included, escaped as the file form escapes.
std::string jsonString(std::string_view text);

// The system whose snapshot files a reader reads. Linux writes a few keys of
// its own (a window's workspace, a program's command line) that another system
// could not act on, and so reads as unknown keys.
enum class System { macOS, linuxDesktop };
#if defined(__APPLE__)
inline constexpr System thisSystem = System::macOS;
#else
inline constexpr System thisSystem = System::linuxDesktop;
#endif

// Reads snapshot files. Every required key must be present with the right type;
// optional keys may be missing or null; unknown keys are ignored; an unknown
// kind makes the whole snapshot unreadable. The keys only Linux writes are read
// on Linux only, and one of the wrong type reads as absent: they refine a
// session that is whole without them. Keeps its parser's buffers between
// calls, so one decoder reading many files allocates once.
class SnapshotDecoder {
public:
    // Reads the files as `system` reads them: by default as this build's system.
    explicit SnapshotDecoder(System system = thisSystem);
    ~SnapshotDecoder();
    SnapshotDecoder(const SnapshotDecoder&) = delete;
    SnapshotDecoder& operator=(const SnapshotDecoder&) = delete;

    // Nothing, with the reason in `error`, when the text is not a snapshot.
    std::optional<Snapshot> decode(std::string_view json, std::string* error = nullptr);

    // How many bytes past the end of the text the padded calls may read.
    static constexpr size_t padding = 64;
    // The same as decode, for text followed by `padding` readable bytes, which
    // the parser then reads where it is instead of copying it first.
    std::optional<Snapshot> decodePadded(std::string_view json, std::string* error = nullptr);
    // Makes every check decode makes, without building the records: the date of
    // a readable snapshot, nothing otherwise. Padded text, as above.
    std::optional<Date> datePadded(std::string_view json, std::string* error = nullptr);

private:
    struct Parser;
    std::unique_ptr<Parser> parser_;
    System system_;
};

// One-off decoding with a fresh decoder.
std::optional<Snapshot> decodeSnapshot(std::string_view json, std::string* error = nullptr,
                                       System system = thisSystem);

}  // namespace tarnwick
