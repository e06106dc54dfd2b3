# Fills the application's Info.plist template the way the Mac build does and
# checks the keys macOS reads: an accessory app that may send Apple events.
#   cmake -DTEMPLATE=packaging/Info.plist.in -DOUT=Info.plist -DDEPLOYMENT_TARGET=13.3 -P info_plist_check.cmake
set(MACOSX_BUNDLE_EXECUTABLE_NAME Tarnwick)
set(MACOSX_BUNDLE_GUI_IDENTIFIER com.tarnwick.Tarnwick)
set(MACOSX_BUNDLE_BUNDLE_NAME Tarnwick)
set(MACOSX_BUNDLE_BUNDLE_VERSION 0.1.0)
set(MACOSX_BUNDLE_SHORT_VERSION_STRING 0.1.0)
set(CMAKE_OSX_DEPLOYMENT_TARGET ${DEPLOYMENT_TARGET})
configure_file(${TEMPLATE} ${OUT})
file(READ ${OUT} plist)

if(plist MATCHES "\\$\\{")
  message(FATAL_ERROR "a placeholder was left unfilled")
endif()

# Each key must be followed directly by this value.
function(expect key value)
  string(FIND "${plist}" "<key>${key}</key>" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "missing key ${key}")
  endif()
  string(SUBSTRING "${plist}" ${at} -1 rest)
  string(REGEX REPLACE "^<key>${key}</key>[ \t\r\n]*" "" rest "${rest}")
  string(FIND "${rest}" "${value}" found)
  if(NOT found EQUAL 0)
    message(FATAL_ERROR "${key} is not followed by ${value}")
  endif()
endfunction()

expect(CFBundleIdentifier "<string>com.tarnwick.Tarnwick</string>")
expect(CFBundleExecutable "<string>Tarnwick</string>")
expect(CFBundlePackageType "<string>APPL</string>")
expect(CFBundleInfoDictionaryVersion "<string>6.0</string>")
expect(CFBundleShortVersionString "<string>0.1.0</string>")
expect(CFBundleVersion "<string>0.1.0</string>")
# The oldest system the build targets, and no other.
if(NOT DEPLOYMENT_TARGET MATCHES "^1[3-9]\\.[0-9]+$")
  message(FATAL_ERROR "deployment target '${DEPLOYMENT_TARGET}' is not a macOS 13 or later version")
endif()
expect(LSMinimumSystemVersion "<string>${DEPLOYMENT_TARGET}</string>")
expect(LSUIElement "<true/>")
expect(NSAppleEventsUsageDescription "<string>Tarnwick asks your browsers")

# Well formed enough for the property-list reader: one dict, keys and values paired.
string(REGEX MATCHALL "<key>" keys "${plist}")
string(REGEX MATCHALL "<(string|true/|false/|integer)>" values "${plist}")
list(LENGTH keys key_count)
list(LENGTH values value_count)
if(NOT key_count EQUAL value_count)
  message(FATAL_ERROR "${key_count} keys but ${value_count} values")
endif()
message(STATUS "Info.plist: ${key_count} keys, all expected values present")
