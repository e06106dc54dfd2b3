# Thin entry points over the CMake presets. Each target first installs what is
# missing (apt-get on Debian, Homebrew on macOS).

.PHONY: run test bench deps clean

# On a Mac: builds, signs and opens Tarnwick.app. On a Linux desktop: builds
# and starts the tray application. Without any desktop: a walk-through on a
# private virtual desktop (tools/linux-walkthrough).
run: deps
	cmake --preset default
	cmake --build --preset default --target tarnwick
	if [ "$$(uname -s)" = Darwin ]; then open build/default/src/Tarnwick.app; \
	elif [ -n "$${DISPLAY:-}" ] && xdpyinfo >/dev/null 2>&1; then ./build/default/src/tarnwick; \
	else sh tools/linux-walkthrough build/default; fi

test: deps
	cmake --preset default
	cmake --build --preset default
	ctest --preset default
	sh tools/macos-cross-check
	sh tests/macos/cross_check_rejects_mistakes.sh
	cmake --preset sanitize
	cmake --build --preset sanitize
	ctest --preset sanitize
	cmake --preset tsan
	cmake --build --preset tsan
	ctest --preset tsan

# On Linux also the KWin backend's, on a headless KWin 5 and KWin 6.
bench: deps
	cmake --preset default
	cmake --build --preset default --target tarnwick_bench
	./build/default/bench/tarnwick_bench
	if [ "$$(uname -s)" = Linux ]; then \
	cmake --build --preset default --target tarnwick_kwin_bench && ./build/default/bench/tarnwick_kwin_bench; fi

deps:
	@sh tools/install-deps

clean:
	rm -rf build
