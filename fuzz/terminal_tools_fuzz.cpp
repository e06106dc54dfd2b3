// Fuzzes the ps and lsof output readers behind cwdOfTTY: the process number found
// is a line's first column, and a directory never spans lines.
#include "model/invariant.h"
#include "scripting/capture_scripts.h"

#include <cstddef>
#include <cstdint>

using namespace tarnwick;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view text(reinterpret_cast<const char*>(data), size);
    if (auto pid = Scripts::shellPidFromPs(text)) {
        if (pid->empty() || pid->find_first_of(" \n") != std::string::npos) invariantFailed("bad process number");
        if (text.find(*pid) == std::string_view::npos) invariantFailed("process number not in the output");
    }
    if (auto directory = Scripts::cwdFromLsof(text))
        if (directory->find('\n') != std::string::npos) invariantFailed("directory spans lines");
    return 0;
}
