// Process entry: the one-shot modes and, on a Mac, the menu-bar application.
#include <cstdio>

int main() {
    // Capture and restore need a desktop backend; this system has none yet, and
    // pretending to capture would write an empty session.
    std::fputs("tarnwick: no desktop backend on this system yet; capture and restore work on macOS only\n", stderr);
    return 2;
}
