# Convenience wrapper around CMake.
#   make demo              set up, build and run `orbtex demo`
#   make test              set up, build and run the whole test suite
#   make test SANITIZE=1   the same with AddressSanitizer and UBSan
#   make test COMPILER=clang++   any of these with another compiler
#   make test PORTABLE=1   the pixel kernels' portable C++ path only (no x86 intrinsics)
#   make install PREFIX=/usr/local   (the Python package into PREFIX's dist-packages, or PYTHON_SITE=DIR)
#   make python            build the orbtex Python package in BUILD_DIR/python
#   make bench             build and run the benchmarks
#   make fuzz-smoke        build the fuzz targets with clang, run each FUZZ_SECONDS (60) under ASan and UBSan
#   make fuzz              the same, 600 seconds a target unless FUZZ_SECONDS says; FUZZ_ONLY=name picks targets

SANITIZE ?= 0
PORTABLE ?= 0
PREFIX ?= /usr/local
JOBS ?= $(shell nproc 2>/dev/null || echo 2)

COMPILER ?=
# Where make install puts the Python package; empty: lib/python3.X/dist-packages under PREFIX.
PYTHON_SITE ?=

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
ifneq ($(PYTHON_SITE),)
CMAKE_ARGS += -DORBT_PYTHON_SITE=$(PYTHON_SITE)
endif
ifeq ($(PORTABLE),1)
BUILD_DIR := $(BUILD_DIR)-portable
CMAKE_ARGS += -DORBT_PORTABLE=ON
endif

.PHONY: all setup configure build demo test install bench clean fuzz-smoke fuzz python

all: build

setup:
	@./scripts/setup.sh

configure: setup
	@cmake -S . -B $(BUILD_DIR) $(CMAKE_ARGS) -DORBT_BUILD_BENCH=ON >/dev/null

build: configure
	@cmake --build $(BUILD_DIR) -j $(JOBS)

python: configure
	@cmake --build $(BUILD_DIR) -j $(JOBS) --target python

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

FUZZ_SECONDS ?=
# Run only the targets named here (default: all).
FUZZ_ONLY ?=

# Each target starts from a fresh working corpus plus its generated seeds and
# the inputs of past findings (Fuzz/regressions/<target>/); crash inputs and
# logs go to build-fuzz/fuzz-smoke/<target>/. Any crash, leak, sanitizer
# report or use of more than 2 GiB fails.
define run-fuzzers
	@cmake -S . -B build-fuzz -DCMAKE_CXX_COMPILER=clang++ -DORBT_BUILD_FUZZ=ON -DORBT_BUILD_TESTS=OFF -DORBT_BUILD_CLI=OFF >/dev/null
	@cmake --build build-fuzz -j $(JOBS)
	@status=0; \
	for fuzzer in $(if $(FUZZ_ONLY),$(addprefix build-fuzz/Fuzz/,$(FUZZ_ONLY)),build-fuzz/Fuzz/*fuzz); do \
	    name=$$(basename $$fuzzer); out=build-fuzz/fuzz-smoke/$$name; \
	    rm -rf $$out; mkdir -p $$out/corpus $$out/artifacts; \
	    if UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	        $$fuzzer -max_total_time=$(1) -timeout=30 -rss_limit_mb=2048 -print_final_stats=1 \
	        -artifact_prefix=$$out/artifacts/ $$out/corpus build-fuzz/Fuzz/corpus/$$name \
	        $$(test -d Fuzz/regressions/$$name && echo Fuzz/regressions/$$name) >$$out/log 2>&1; then \
	        echo "fuzz: $$name: $$(sed -n 's/^stat::number_of_executed_units: *//p' $$out/log) runs in $(1) s, no findings"; \
	    else \
	        status=1; tail -n 30 $$out/log; \
	        echo "fuzz: $$name: FAILED (log $$out/log, inputs in $$out/artifacts/)"; \
	    fi; \
	done; exit $$status
endef

# A minute a target (FUZZ_SECONDS to change it); CI runs this.
fuzz-smoke: setup
	$(call run-fuzzers,$(or $(FUZZ_SECONDS),60))

# Ten minutes a target by default.
fuzz: setup
	$(call run-fuzzers,$(or $(FUZZ_SECONDS),600))
