# The two commands of the README, and the other build configurations. Every
# target installs what is missing first, so each works on a fresh Debian.
BUILD ?= build
JOBS ?= $(shell nproc)
PREFIX ?= /usr/local
CMAKE_FLAGS ?=

SANITIZER_ENV = ASAN_OPTIONS=detect_leaks=1:halt_on_error=1:abort_on_error=1:detect_stack_use_after_return=1:allocator_may_return_null=1 \
                UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1:suppressions=$(CURDIR)/scripts/ubsan.supp

.PHONY: all demo test sanitize bench install install-check deps clean
.PHONY: fuzz

all: test

deps:
	@scripts/install-deps

# The tour ends with set on a scratch copy and diff of the copy against the
# original, which exits 1 because they now differ.
DEMO_COPY = $(BUILD)/demo-settings.json
demo: deps
	@cmake -S . -B $(BUILD)/release -DCMAKE_BUILD_TYPE=Release -DTARSEL_BUILD_TESTS=OFF -DTARSEL_BUILD_BENCH=OFF $(CMAKE_FLAGS) > /dev/null
	@cmake --build $(BUILD)/release --target tarsel -j $(JOBS)
	$(BUILD)/release/bin/tarsel --version
	$(BUILD)/release/bin/tarsel demo
	$(BUILD)/release/bin/tarsel show examples/settings.json
	$(BUILD)/release/bin/tarsel get examples/settings.json playback/frameRateRatio
	$(BUILD)/release/bin/tarsel get examples/settings.json export/presets/1/name
	cp examples/settings.json $(DEMO_COPY)
	$(BUILD)/release/bin/tarsel set $(DEMO_COPY) playback/frameRateRatio 24000/1001
	$(BUILD)/release/bin/tarsel set $(DEMO_COPY) video/bitrate 8000000
	$(BUILD)/release/bin/tarsel get $(DEMO_COPY) playback/frameRateRatio
	$(BUILD)/release/bin/tarsel diff examples/settings.json $(DEMO_COPY) || [ $$? -eq 1 ]
	$(BUILD)/release/bin/tarsel md5 examples/settings.json
	$(BUILD)/release/bin/tarsel ratio 23.976 --max 1001
	$(BUILD)/release/bin/tarsel uuid

test: deps
	@cmake -S . -B $(BUILD)/debug -DCMAKE_BUILD_TYPE=Debug $(CMAKE_FLAGS) > /dev/null
	@cmake --build $(BUILD)/debug -j $(JOBS)
	ctest --test-dir $(BUILD)/debug --output-on-failure -j $(JOBS)

sanitize:
	@scripts/install-deps --with-clang
	@cmake -S . -B $(BUILD)/sanitize -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER=clang++-14 \
	    -DTARSEL_SANITIZE=ON -DTARSEL_BUILD_BENCH=OFF $(CMAKE_FLAGS) > /dev/null
	@cmake --build $(BUILD)/sanitize -j $(JOBS)
	$(SANITIZER_ENV) ctest --test-dir $(BUILD)/sanitize --output-on-failure -j $(JOBS)

# The libFuzzer targets of fuzz/ under the sanitizers, at -O1 with
# assertions kept; fuzz/run gives each its regressions, then FUZZ_SECONDS of
# fuzzing, and fails on the first finding.
FUZZ_SECONDS ?= 60
fuzz:
	@scripts/install-deps --with-clang
	@cmake -S . -B $(BUILD)/fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g" \
	    -DCMAKE_CXX_COMPILER=clang++-14 -DTARSEL_BUILD_FUZZ=ON -DTARSEL_BUILD_TESTS=OFF -DTARSEL_BUILD_BENCH=OFF \
	    -DTARSEL_BUILD_TOOLS=OFF $(CMAKE_FLAGS) > /dev/null
	@cmake --build $(BUILD)/fuzz -j $(JOBS)
	$(SANITIZER_ENV) fuzz/run $(BUILD)/fuzz $(FUZZ_SECONDS)

bench: deps
	@cmake -S . -B $(BUILD)/bench -DCMAKE_BUILD_TYPE=Release -DTARSEL_BUILD_TESTS=OFF $(CMAKE_FLAGS) > /dev/null
	@cmake --build $(BUILD)/bench -j $(JOBS)
	@for b in $(BUILD)/bench/bin/bench_*; do echo "== $$b"; $$b --benchmark_min_time=0.2 || exit 1; done

install: deps
	@cmake -S . -B $(BUILD)/release -DCMAKE_BUILD_TYPE=Release -DTARSEL_BUILD_TESTS=OFF -DTARSEL_BUILD_BENCH=OFF $(CMAKE_FLAGS) > /dev/null
	@cmake --build $(BUILD)/release -j $(JOBS)
	cmake --install $(BUILD)/release --prefix $(PREFIX)

# Installs the Debug build of `make test` into a scratch prefix and builds
# and runs the example client against it, through CMake and pkg-config.
install-check: test
	@rm -rf $(BUILD)/prefix $(BUILD)/client
	@cmake --install $(BUILD)/debug --prefix $(CURDIR)/$(BUILD)/prefix > /dev/null
	@cmake -S examples/client -B $(BUILD)/client -DCMAKE_PREFIX_PATH=$(CURDIR)/$(BUILD)/prefix > /dev/null
	@cmake --build $(BUILD)/client -j $(JOBS)
	LD_LIBRARY_PATH=$(BUILD)/prefix/lib $(BUILD)/client/settings-client examples/settings.json video/width
	PKG_CONFIG_PATH=$(BUILD)/prefix/lib/pkgconfig pkg-config --cflags --libs tarsel-core

clean:
	rm -rf $(BUILD)
