# The two commands of the README, and the other build configurations. Every
# target installs what is missing first, so each works on a fresh Debian.
# The debug, release, sanitize, tsan, coverage, fuzz and arm64 builds are the
# CMake presets of the same names (CMakePresets.json), so an IDE or
# `cmake --preset` builds the same; on Debian, the clang builds' presets are
# given the compiler as below (CLANG).
BUILD ?= build
JOBS ?= $(shell nproc)
PREFIX ?= /usr/local
CMAKE_FLAGS ?=

SANITIZER_ENV = ASAN_OPTIONS=detect_leaks=1:halt_on_error=1:abort_on_error=1:detect_stack_use_after_return=1:allocator_may_return_null=1 \
                UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1:suppressions=$(CURDIR)/scripts/ubsan.supp

# configure PRESET FOLDER [CMAKE ARGS]: every build the Makefile starts holds
# the project's code to warnings as errors.
configure = cmake --preset $(1) -B $(BUILD)/$(2) -DTARSEL_WERROR=ON $(3) $(CMAKE_FLAGS) > /dev/null

# The sanitizer, coverage and fuzzing builds' compiler. Debian names its clang
# by version; on macOS the presets' default compiler, Apple's clang, is the
# one to use.
CLANG = -DCMAKE_CXX_COMPILER=clang++-14

.PHONY: all demo test test-release sanitize bench bench-check install install-check check-macos check-arm64 deps clean
.PHONY: fuzz tsan coverage release-lib format format-check
.PHONY: abi-lib abi-check abi-baseline docs

all: test

deps:
	@scripts/install-deps

# The tour ends with set on a scratch copy and diff of the copy against the
# original, which exits 1 because they now differ.
DEMO_COPY = $(BUILD)/demo-settings.json
demo: release-lib
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
	@$(call configure,debug,debug)
	@cmake --build $(BUILD)/debug -j $(JOBS)
	ctest --test-dir $(BUILD)/debug --output-on-failure -j $(JOBS)

sanitize:
	@scripts/install-deps --with-clang
	@$(call configure,sanitize,sanitize,$(CLANG))
	@cmake --build $(BUILD)/sanitize -j $(JOBS)
	$(SANITIZER_ENV) ctest --test-dir $(BUILD)/sanitize --output-on-failure -j $(JOBS)

# The whole suite under ThreadSanitizer, the concurrency tests (named
# "Concurrent...") among it: a data race fails the run.
tsan:
	@scripts/install-deps --with-clang
	@$(call configure,tsan,tsan,$(CLANG))
	@cmake --build $(BUILD)/tsan -j $(JOBS)
	TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 ctest --test-dir $(BUILD)/tsan --output-on-failure -j $(JOBS)

# The whole suite built with clang's source-based coverage; prints the line
# and branch coverage of the library's sources (Core/), file by file. The
# profile folder is open to the tool tests' unprivileged runs; a tool run
# under a file size limit leaves a cut-off profile, which the merge skips.
coverage:
	@scripts/install-deps --with-clang --with-coverage
	@$(call configure,coverage,coverage,$(CLANG))
	@cmake --build $(BUILD)/coverage -j $(JOBS)
	@rm -rf $(BUILD)/coverage/profiles
	@mkdir -p $(BUILD)/coverage/profiles && chmod 1777 $(BUILD)/coverage/profiles
	LLVM_PROFILE_FILE=$(CURDIR)/$(BUILD)/coverage/profiles/%p.profraw \
	    ctest --test-dir $(BUILD)/coverage --output-on-failure -j $(JOBS) > $(BUILD)/coverage/ctest.log \
	    || { cat $(BUILD)/coverage/ctest.log; exit 1; }
	@llvm-profdata-14 merge -sparse --failure-mode=all $(BUILD)/coverage/profiles/*.profraw \
	    -o $(BUILD)/coverage/suite.profdata 2> $(BUILD)/coverage/merge.log || { cat $(BUILD)/coverage/merge.log; exit 1; }
	@llvm-cov-14 report $(BUILD)/coverage/lib/libTarselCore.so -instr-profile=$(BUILD)/coverage/suite.profdata \
	    -show-region-summary=false -show-instantiation-summary=false $(CURDIR)/Core

# The libFuzzer targets of fuzz/ under the sanitizers, at -O1 with
# assertions kept; fuzz/run gives each its regressions, then FUZZ_SECONDS of
# fuzzing, and fails on the first finding.
FUZZ_SECONDS ?= 60
fuzz:
	@scripts/install-deps --with-clang
	@$(call configure,fuzz,fuzz,$(CLANG))
	@cmake --build $(BUILD)/fuzz -j $(JOBS)
	$(SANITIZER_ENV) fuzz/run $(BUILD)/fuzz $(FUZZ_SECONDS)

# The Google Benchmark programs, then the JSON load and save counted in
# instructions (scripts/bench-instructions: perf where the machine counts,
# else callgrind, which install-deps --with-bench installs with valgrind),
# which swing far less between runs on shared machines than times do.
bench: deps
	@scripts/install-deps --with-bench
	@cmake -S . -B $(BUILD)/bench -DCMAKE_BUILD_TYPE=Release -DTARSEL_BUILD_TESTS=OFF -DTARSEL_WERROR=ON \
	    $(CMAKE_FLAGS) > /dev/null
	@cmake --build $(BUILD)/bench -j $(JOBS)
	@for b in $(BUILD)/bench/bin/bench_*; do echo "== $$b"; $$b --benchmark_min_time=0.2 || exit 1; done
	@scripts/bench-instructions $(BUILD)/bench/bin/bench_Json

# Each benchmark program once, unmeasured, so that what the programs check
# runs: DoubleTextBench's comparison of saved doubles with snprintf("%#g"),
# and NodePlan's check that it builds the load's tree. One iteration of every
# benchmark, the fewest Google Benchmark runs; bench_Json's table sets its
# own times, so it is asked with --check instead (its own operations and
# floors). The programs are the Debug build's, which make test builds: in CI
# nothing is built again.
bench-check: deps
	@$(call configure,debug,debug)
	@cmake --build $(BUILD)/debug --target benchmarks -j $(JOBS)
	@for b in $(BUILD)/debug/bin/bench_*; do \
	    case "$${b##*/}" in bench_Json) args=--check ;; *) args=--benchmark_min_time=0 ;; esac; \
	    echo "== $$b $$args"; $$b $$args || exit 1; \
	done

# The Release build a packager makes: every target, and the whole suite.
test-release: deps
	@$(call configure,release,release)
	@cmake --build $(BUILD)/release -j $(JOBS)
	ctest --test-dir $(BUILD)/release --output-on-failure -j $(JOBS)

# The library and the tool of the Release build, what make install installs;
# nothing to do once make test-release has built everything there.
release-lib: deps
	@$(call configure,release,release)
	@cmake --build $(BUILD)/release --target TarselCore tarsel -j $(JOBS)

install: release-lib
	cmake --install $(BUILD)/release --prefix $(PREFIX)

# The API reference: Doxygen over the public headers and this README into
# $(BUILD)/docs/html (docs/Doxyfile). Any warning fails it, an undocumented
# public name among them; so does a missing page of the main classes.
DOCS_PAGES = index.html classTarsel_1_1Core_1_1Property.html classTarsel_1_1Core_1_1PropertySerializer.html \
             classTarsel_1_1Core_1_1DyLib.html classTarsel_1_1ioPath.html group__GetValueOr.html
docs:
	@scripts/install-deps --with-docs
	@rm -rf $(BUILD)/docs && mkdir -p $(BUILD)/docs
	@{ cat docs/Doxyfile; echo "OUTPUT_DIRECTORY = $(BUILD)/docs"; echo "PROJECT_NUMBER = $(shell sed -n \
	    's/^\#define TARSEL_VERSION_\(MAJOR\|MINOR\|PATCH\) \([0-9]*\)$$/\2/p' Core/Interfaces/Version.h | paste -sd.)"; } \
	    | doxygen - || { echo "docs: Doxygen failed or warned (above)" >&2; exit 1; }
	@for page in $(DOCS_PAGES); do test -f $(BUILD)/docs/html/$$page \
	    || { echo "docs: $(BUILD)/docs/html/$$page was not made" >&2; exit 1; }; done
	@echo "docs: $(BUILD)/docs/html/index.html"

# The binary interface against the baseline committed for the current major
# version, abi/libTarselCore.so.<major>.xml. Both sides are abidw's dump of
# the Release library (g++, -O3 -DNDEBUG, hidden symbols) built with -g for
# the types' debug information, in a folder of its own (the abi preset).
# abi-check fails on a break: a removed or changed function or global, a
# changed layout of a public type, a moved virtual function. It also fails
# on a compatible addition that the baseline lacks, since the baseline is
# updated in the commit that adds to the interface: make abi-baseline.
# abi/suppressions.ini says what is not compared, and why.
ABI_MAJOR = $(shell sed -n 's/^\#define TARSEL_VERSION_MAJOR \([0-9]*\)$$/\1/p' Core/Interfaces/Version.h)
ABI_NAME = libTarselCore.so.$(ABI_MAJOR)
ABI_BASELINE = abi/$(ABI_NAME).xml
ABI_DUMP = $(BUILD)/abi/$(ABI_NAME).xml
ABI_SUPPRESSIONS = --suppressions abi/suppressions.ini
abi-lib:
	@scripts/install-deps --with-abi
	@$(call configure,abi,abi)
	@cmake --build $(BUILD)/abi --target TarselCore -j $(JOBS)
	@abidw --no-corpus-path --no-comp-dir-path --no-show-locs --type-id-style hash --exported-interfaces-only \
	    --headers-dir Core/Interfaces --drop-private-types $(ABI_SUPPRESSIONS) $(BUILD)/abi/lib/$(ABI_NAME) > $(ABI_DUMP)

abi-baseline: abi-lib
	cp $(ABI_DUMP) $(ABI_BASELINE)

abi-check: abi-lib
	@test -f $(ABI_BASELINE) || { echo "abi-check: no baseline $(ABI_BASELINE) for $(ABI_NAME);" \
	    "make abi-baseline writes it" >&2; exit 1; }
	@abidiff --no-added-syms $(ABI_SUPPRESSIONS) $(ABI_BASELINE) $(ABI_DUMP) > $(BUILD)/abi/breaks.txt \
	    || { cat $(BUILD)/abi/breaks.txt; echo "abi-check: $(ABI_NAME) is not compatible with $(ABI_BASELINE)" \
	        "(above). Undo the change, or raise TARSEL_VERSION_MAJOR in Core/Interfaces/Version.h, which is the" \
	        "SONAME's, and make abi-baseline, in one commit" >&2; exit 1; }
	@abidiff $(ABI_SUPPRESSIONS) $(ABI_BASELINE) $(ABI_DUMP) > $(BUILD)/abi/additions.txt \
	    || { cat $(BUILD)/abi/additions.txt; echo "abi-check: the interface has compatible additions (above) that" \
	        "$(ABI_BASELINE) lacks: make abi-baseline, and commit the baseline with them" >&2; exit 1; }
	@echo "abi-check: $(ABI_NAME) has the interface of $(ABI_BASELINE)"

# Compiles every source for macOS, as its build does it: clang 19 with libc++
# 19, then aarch64 and x86_64 macOS against the macOS SDK's headers
# (scripts/check-macos says how). Compile only.
check-macos:
	@scripts/install-deps --with-macos-check
	@scripts/check-macos $(BUILD)/check-macos

# The test build for aarch64 Linux, the instruction set of current Macs,
# cross-compiled and run under qemu's user-mode emulator (the arm64 preset,
# cmake/toolchains/aarch64-linux.cmake): the whole suite, the tool tests
# starting the tool through the emulator too.
check-arm64:
	@scripts/install-deps --with-arm64
	@$(call configure,arm64,arm64)
	@cmake --build $(BUILD)/arm64 -j $(JOBS)
	QEMU_LD_PREFIX=/ ctest --test-dir $(BUILD)/arm64 --output-on-failure -j $(JOBS)

# The Release build, as make install installs it, put into a scratch prefix
# that is then moved, as a packager or a user may move it; then, against the
# moved prefix: the installed tool with no library path set; the example
# clients (the settings reader, and the one that catches every exception a
# library call throws by its own type) through CMake with g++ and with clang
# 14 (whose default standard is C++14, so the package must carry C++17
# itself); the settings reader built through pkg-config; and a parent
# project that builds Tarsel with add_subdirectory. The Release suite is make
# test-release's to run: in CI it runs first, and the build here has nothing
# left to do.
#
# The pkg-config client compiles against a copy of RapidJSON's headers outside
# the compiler's default folders, found through a RapidJSON.pc that pkg-config
# reads first, as on a Homebrew machine; its dependency list must name the
# copy's rapidjson/fwd.h and no other RapidJSON header. The system's copy is
# always on the include path, so only tarsel-core.pc's "Requires: RapidJSON"
# puts the copy before it.
RAPIDJSON_ELSEWHERE = $(CURDIR)/$(BUILD)/rapidjson-elsewhere
PC_CLIENT_DEPS = $(BUILD)/client/settings-client-pc.d
INSTALLED_PKG_CONFIG = PKG_CONFIG_PATH=$(RAPIDJSON_ELSEWHERE)/pkgconfig:$(BUILD)/moved-prefix/lib/pkgconfig pkg-config
install-check: release-lib
	@scripts/install-deps --with-clang
	@rm -rf $(BUILD)/prefix $(BUILD)/moved-prefix $(BUILD)/client $(BUILD)/client-clang $(BUILD)/parent \
	    $(RAPIDJSON_ELSEWHERE)
	@cmake --install $(BUILD)/release --prefix $(CURDIR)/$(BUILD)/prefix > /dev/null
	@mv $(BUILD)/prefix $(BUILD)/moved-prefix
	env -u LD_LIBRARY_PATH $(BUILD)/moved-prefix/bin/tarsel get examples/settings.json video/width
	@cmake -S examples/client -B $(BUILD)/client -DCMAKE_PREFIX_PATH=$(CURDIR)/$(BUILD)/moved-prefix > /dev/null
	@cmake --build $(BUILD)/client -j $(JOBS)
	LD_LIBRARY_PATH=$(BUILD)/moved-prefix/lib $(BUILD)/client/settings-client examples/settings.json video/width
	LD_LIBRARY_PATH=$(BUILD)/moved-prefix/lib $(BUILD)/client/exceptions-client
	@cmake -S examples/client -B $(BUILD)/client-clang $(CLANG) -DCMAKE_PREFIX_PATH=$(CURDIR)/$(BUILD)/moved-prefix \
	    > /dev/null
	@cmake --build $(BUILD)/client-clang -j $(JOBS)
	LD_LIBRARY_PATH=$(BUILD)/moved-prefix/lib $(BUILD)/client-clang/settings-client examples/settings.json video/width
	LD_LIBRARY_PATH=$(BUILD)/moved-prefix/lib $(BUILD)/client-clang/exceptions-client
	@mkdir -p $(RAPIDJSON_ELSEWHERE)/include $(RAPIDJSON_ELSEWHERE)/pkgconfig
	@cp -R "$$(pkg-config --variable=includedir RapidJSON)/rapidjson" $(RAPIDJSON_ELSEWHERE)/include/
	@printf 'includedir=%s\n\nName: RapidJSON\nDescription: %s\nVersion: %s\nCflags: -I$${includedir}\n' \
	    $(RAPIDJSON_ELSEWHERE)/include "RapidJSON's headers outside the default include path" \
	    "$$(pkg-config --modversion RapidJSON)" > $(RAPIDJSON_ELSEWHERE)/pkgconfig/RapidJSON.pc
	$(INSTALLED_PKG_CONFIG) --cflags --libs tarsel-core
	c++ examples/client/main.cpp -o $(BUILD)/client/settings-client-pc -MD -MF $(PC_CLIENT_DEPS) \
	    $$($(INSTALLED_PKG_CONFIG) --cflags --libs tarsel-core)
	@grep -q '$(RAPIDJSON_ELSEWHERE)/include/rapidjson/fwd.h' $(PC_CLIENT_DEPS) \
	    && ! tr ' ' '\n' < $(PC_CLIENT_DEPS) | grep '/rapidjson/' | grep -qv '^$(RAPIDJSON_ELSEWHERE)/' \
	    || { echo "install-check: the pkg-config client did not take RapidJSON from $(RAPIDJSON_ELSEWHERE)" \
	        "(does tarsel-core.pc require RapidJSON?); its headers:" >&2; \
	        tr ' ' '\n' < $(PC_CLIENT_DEPS) | grep '/rapidjson/' >&2; exit 1; }
	@echo "install-check: the pkg-config client read $$(tr ' ' '\n' < $(PC_CLIENT_DEPS) | grep -c '/rapidjson/')" \
	    "RapidJSON header(s), all from $(RAPIDJSON_ELSEWHERE)/include"
	LD_LIBRARY_PATH=$(BUILD)/moved-prefix/lib $(BUILD)/client/settings-client-pc examples/settings.json video/width
	@cmake -S examples/parent -B $(BUILD)/parent -DTARSEL_SOURCE_DIR=$(CURDIR) > /dev/null
	@cmake --build $(BUILD)/parent -j $(JOBS)
	$(BUILD)/parent/parent-app

# The tracked C++ sources against .clang-format: format-check names each file
# that formatting would change, format rewrites them in place.
FORMAT_SOURCES = $(wildcard $(shell git ls-files '*.cpp' '*.h'))
format-check:
	@scripts/install-deps --with-format
	@mkdir -p $(BUILD)
	@clang-format-14 --dry-run --Werror $(FORMAT_SOURCES) 2> $(BUILD)/format-check.log || { \
	    sed -n 's/^\(.*\):[0-9]*:[0-9]*: error: code should be clang-formatted.*/\1/p' $(BUILD)/format-check.log \
	        | uniq | grep . || cat $(BUILD)/format-check.log; \
	    echo "format-check: the files above differ from .clang-format; make format rewrites them" >&2; exit 1; }

format:
	@scripts/install-deps --with-format
	clang-format-14 -i $(FORMAT_SOURCES)

clean:
	rm -rf $(BUILD)
