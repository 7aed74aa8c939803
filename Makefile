# make demo | make test | make build | make octave   (each installs what is missing first)
BUILD_DIR ?= build
# The same suite built with ASan and UBSan; the slow, benchmark, Octave, valgrind and install tests are left to
# the plain build (valgrind cannot run sanitized binaries; Octave and an outside consumer cannot load them).
ASAN_BUILD_DIR ?= build-asan
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=

.PHONY: setup configure build test test-asan demo octave fuzz clean

setup:
	@scripts/setup

configure: setup
	@cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_FLAGS) >/dev/null

build: configure
	@cmake --build $(BUILD_DIR) -j $(JOBS)

test: build
	@cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS) --timeout 900
	@$(MAKE) --no-print-directory test-asan

test-asan: setup
	@cmake -S . -B $(ASAN_BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZV_SANITIZE=ON $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(ASAN_BUILD_DIR) -j $(JOBS)
	@cd $(ASAN_BUILD_DIR) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
	  ctest --output-on-failure -j $(JOBS) --timeout 900 -LE 'slow|bench|octave|valgrind|install'

# Only what the demo runs: the library and the tool (tests and benchmarks are left to `make test`).
demo: configure
	@cmake --build $(BUILD_DIR) -j $(JOBS) --target zvaddon_tool
	@scripts/demo $(BUILD_DIR)

# The Octave binding: $(BUILD_DIR)/octave holds zvAddon*.mex and the libraries they load; addpath it.
octave: configure
	@cmake --build $(BUILD_DIR) -j $(JOBS) --target zvaddon_octave

.PHONY: octave-package deb
# The Octave package $(BUILD_DIR)/zvaddon-<version>-octave.tar.gz, for pkg install in Octave.
octave-package: configure
	@cmake --build $(BUILD_DIR) -j $(JOBS) --target zvaddon_octave_package

# The Debian package $(DEB_BUILD_DIR)/zvaddon_<version>_<arch>.deb (cpack), built for /usr without the tests.
DEB_BUILD_DIR ?= build-deb
deb: setup
	@cmake -S . -B $(DEB_BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr \
	  -DZV_BUILD_TESTS=OFF $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(DEB_BUILD_DIR) -j $(JOBS)
	@cd $(DEB_BUILD_DIR) && cpack

# Each fuzz target for FUZZ_SECONDS (default 120) in build-fuzz, built with clang; see fuzz/run.
fuzz: setup
	@fuzz/run

clean:
	rm -rf $(BUILD_DIR) $(ASAN_BUILD_DIR) build-fuzz
