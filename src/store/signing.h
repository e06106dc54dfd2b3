// Signing: what tells a snapshot this user's Tarnwick wrote from one that came from elsewhere.
#pragma once

#include "model/snapshot.h"

#include <filesystem>
#include <optional>
#include <string>

namespace tarnwick::Signing {

// What a restore may start from a snapshot, in one canonical byte string: each
// app's identifier, path, command line and folder, every text as the file form
// writes it. The signature covers these and nothing else, so a frame edited by
// hand keeps a snapshot trusted while a command line does not.
std::string launchData(const Snapshot& snapshot);

// Where this user's signing key is kept: a private file in Tarnwick's settings
// folder on Linux; nothing on a Mac, where the system checks what it opens and
// snapshots carry no signature.
std::optional<std::filesystem::path> keyLocation();

// The snapshot's signature under this user's key, made on first use; nothing
// where there is no key or it cannot be made (the reason is logged once).
std::optional<std::string> signatureOf(const Snapshot& snapshot);

// Marks a snapshot read from a file as trusted exactly when its signature is
// this user's over its launch data.
void judge(Snapshot& snapshot);

}  // namespace tarnwick::Signing
