// The script texts as they must be sent, byte for byte.
#pragma once

namespace tarnwick::testing {

inline constexpr const char* kCaptureChromium = R"SCRIPT(if application id "com.google.Chrome" is running then
tell application id "com.google.Chrome"
    set out to ""
    repeat with w in windows
        try
            set skip to false
            try
                if mode of w is "incognito" then set skip to true
            end try
            if not skip then
                set bs to ""
try
    set b to bounds of w
    set bs to ((item 1 of b) as text) & ";" & ((item 2 of b) as text) & ";" & ((item 3 of b) as text) & ";" & ((item 4 of b) as text)
end try
set ai to 1
try
    set ai to active tab index of w
end try
set out to out & "W" & tb & bs & tb & (ai as text) & linefeed
                repeat with t in tabs of w
                    set u to URL of t
                    if u is missing value then set u to ""
                    set out to out & "T" & tb & u & linefeed
                end repeat
            end if
        end try
    end repeat
    return out
end tell
end if)SCRIPT";

inline constexpr const char* kCaptureSafari = R"SCRIPT(if application id "com.apple.Safari" is running then
tell application id "com.apple.Safari"
    set out to ""
    repeat with w in windows
        try
            set ts to tabs of w
            set bs to ""
try
    set b to bounds of w
    set bs to ((item 1 of b) as text) & ";" & ((item 2 of b) as text) & ";" & ((item 3 of b) as text) & ";" & ((item 4 of b) as text)
end try
set ai to 1
try
    set ai to index of current tab of w
end try
set out to out & "W" & tb & bs & tb & (ai as text) & linefeed
            repeat with t in ts
                set u to URL of t
                if u is missing value then set u to ""
                set out to out & "T" & tb & u & linefeed
            end repeat
        end try
    end repeat
    return out
end tell
end if)SCRIPT";

inline constexpr const char* kCaptureFinder = R"SCRIPT(tell application "Finder"
    set out to ""
    repeat with w in Finder windows
        try
            set p to POSIX path of (target of w as alias)
            set bs to ""
try
    set b to bounds of w
    set bs to ((item 1 of b) as text) & ";" & ((item 2 of b) as text) & ";" & ((item 3 of b) as text) & ";" & ((item 4 of b) as text)
end try
set ai to 1
try
    set ai to 1
end try
set out to out & "W" & tb & bs & tb & (ai as text) & linefeed
            set out to out & "T" & tb & p & linefeed
        end try
    end repeat
    return out
end tell)SCRIPT";

inline constexpr const char* kCaptureTerminal = R"SCRIPT(if application id "com.apple.Terminal" is running then
tell application id "com.apple.Terminal"
    set out to ""
    repeat with w in windows
        try
            set tt to tty of selected tab of w
            set bs to ""
try
    set b to bounds of w
    set bs to ((item 1 of b) as text) & ";" & ((item 2 of b) as text) & ";" & ((item 3 of b) as text) & ";" & ((item 4 of b) as text)
end try
set ai to 1
try
    set ai to 1
end try
set out to out & "W" & tb & bs & tb & (ai as text) & linefeed
            set out to out & "T" & tb & tt & linefeed
        end try
    end repeat
    return out
end tell
end if)SCRIPT";

inline constexpr const char* kCaptureITerm = R"SCRIPT(if application id "com.googlecode.iterm2" is running then
tell application id "com.googlecode.iterm2"
    set out to ""
    repeat with w in windows
        try
            set bs to ""
try
    set b to bounds of w
    set bs to ((item 1 of b) as text) & ";" & ((item 2 of b) as text) & ";" & ((item 3 of b) as text) & ";" & ((item 4 of b) as text)
end try
set ai to 1
try
    set ai to 1
end try
set out to out & "W" & tb & bs & tb & (ai as text) & linefeed
            repeat with t in tabs of w
                set p to ""
                try
                    tell current session of t to set p to variable named "session.path"
                end try
                if p is missing value then set p to ""
                set out to out & "T" & tb & p & linefeed
            end repeat
        end try
    end repeat
    return out
end tell
end if)SCRIPT";

inline constexpr const char* kRestoreChromium = R"SCRIPT(tell application id "com.google.Chrome"
set w to make new window
set URL of active tab of w to "file:///tmp/a.html"
make new tab at end of tabs of w with properties {URL:"file:///tmp/b.html"}
try
set bounds of w to {10, 20, 310, 420}
end try
try
set active tab index of w to 3
end try
end tell
)SCRIPT";

inline constexpr const char* kRestoreSafari = R"SCRIPT(tell application id "com.apple.Safari"
make new document with properties {URL:"file:///tmp/a.html"}
set w to front window
tell w to make new tab at end of tabs with properties {URL:"file:///tmp/b.html"}
try
set bounds of w to {10, 20, 310, 420}
end try
try
set current tab of w to tab 2 of w
end try
end tell
)SCRIPT";

inline constexpr const char* kRestoreFinder = R"SCRIPT(tell application "Finder"
set w to make new Finder window to (POSIX file "/tmp/work/" as alias)
try
set bounds of w to {10, 20, 310, 420}
end try
end tell
)SCRIPT";

inline constexpr const char* kRestoreTerminalReuse = R"SCRIPT(tell application id "com.apple.Terminal"
do script "cd '/tmp/it'\\''s here' && clear" in window 1
try
set bounds of front window to {10, 20, 310, 420}
end try
end tell
)SCRIPT";

inline constexpr const char* kRestoreTerminalNew = R"SCRIPT(tell application id "com.apple.Terminal"
do script "cd '/tmp/it'\\''s here' && clear"
end tell
)SCRIPT";

inline constexpr const char* kRestoreITerm = R"SCRIPT(tell application id "com.googlecode.iterm2"
set w to (create window with default profile)
tell current session of w to write text "cd '/tmp/a' && clear"
tell w
set t to (create tab with default profile)
end tell
tell current session of t to write text "cd '/tmp/b' && clear"
try
set bounds of w to {10, 20, 310, 420}
end try
end tell
)SCRIPT";

inline constexpr const char* kCloseBlankChrome = R"SCRIPT(tell application id "com.google.Chrome"
    repeat with w in (get windows)
        try
            if (count of tabs of w) is 1 then
                set u to URL of active tab of w
                if u is missing value or u is "" or u contains "://newtab" or u is "about:blank" or u starts with "favorites:" or u starts with "topsites:" then close w
            end if
        end try
    end repeat
end tell)SCRIPT";

}  // namespace tarnwick::testing
