# make demo | make test | make build | make octave   (each installs what is missing first)
BUILD_DIR ?= build
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=

.PHONY: setup configure build test demo octave clean

setup:
	@scripts/setup

configure: setup
	@cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_FLAGS) >/dev/null

build: configure
	@cmake --build $(BUILD_DIR) -j $(JOBS)

test: build
	@cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS) --timeout 900

demo: build
	@scripts/demo $(BUILD_DIR)

# The Octave binding: $(BUILD_DIR)/octave holds zvAddon*.mex and the libraries they load; addpath it.
octave: configure
	@cmake --build $(BUILD_DIR) -j $(JOBS) --target zvaddon_octave

clean:
	rm -rf $(BUILD_DIR)
