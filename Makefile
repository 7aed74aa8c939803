# make demo | make test | make build   (each installs what is missing first)
BUILD_DIR ?= build
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=

.PHONY: setup configure build test demo clean

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

clean:
	rm -rf $(BUILD_DIR)
