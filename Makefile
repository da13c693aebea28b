# Convenience wrapper around CMake.
#   make demo              set up, build and run `orbtex demo`
#   make test              set up, build and run the whole test suite
#   make test SANITIZE=1   the same with AddressSanitizer and UBSan
#   make test COMPILER=clang++   any of these with another compiler
#   make install PREFIX=/usr/local
#   make bench             build and run the benchmarks

SANITIZE ?= 0
PREFIX ?= /usr/local
JOBS ?= $(shell nproc 2>/dev/null || echo 2)

COMPILER ?=

ifeq ($(SANITIZE),1)
BUILD_DIR ?= build-sanitize$(if $(COMPILER),-$(notdir $(COMPILER)))
CMAKE_ARGS += -DORBT_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug
else
BUILD_DIR ?= build$(if $(COMPILER),-$(notdir $(COMPILER)))
CMAKE_ARGS += -DCMAKE_BUILD_TYPE=RelWithDebInfo
endif
ifneq ($(COMPILER),)
CMAKE_ARGS += -DCMAKE_CXX_COMPILER=$(COMPILER)
endif

.PHONY: all setup configure build demo test install bench clean

all: build

setup:
	@./scripts/setup.sh

configure: setup
	@cmake -S . -B $(BUILD_DIR) $(CMAKE_ARGS) -DORBT_BUILD_BENCH=ON >/dev/null

build: configure
	@cmake --build $(BUILD_DIR) -j $(JOBS)

demo: build
	./$(BUILD_DIR)/CLI/orbtex demo

test: build
	cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS)

install: build
	cmake --install $(BUILD_DIR) --prefix $(PREFIX)

bench: build
	@for b in $(BUILD_DIR)/Bench/orbtex_bench_*; do [ -x "$$b" ] && "$$b" || exit 1; done

clean:
	rm -rf build build-*
