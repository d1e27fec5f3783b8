# Top-level entry points. Every target installs what it needs first, so that
# one command works on a new machine.

BUILD_DIR      ?= build
ASAN_DIR       ?= build-asan
BUILD_TYPE     ?= RelWithDebInfo
JOBS           ?= $(shell nproc)
FUZZ_SECONDS   ?= 60
BENCH_QUICK    ?=

.PHONY: all deps build test test-asan demo bench fuzz format clean

all: build

deps:
	@bash scripts/deps.sh

$(BUILD_DIR)/CMakeCache.txt: | deps
	cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=$(BUILD_TYPE)

build: deps $(BUILD_DIR)/CMakeCache.txt
	cmake --build $(BUILD_DIR) -j $(JOBS)

test: build
	ctest --test-dir $(BUILD_DIR) --output-on-failure -j $(JOBS)

$(ASAN_DIR)/CMakeCache.txt: | deps
	cmake -S . -B $(ASAN_DIR) -DCMAKE_BUILD_TYPE=Debug -DSIGNING_SANITIZE=ON

test-asan: deps $(ASAN_DIR)/CMakeCache.txt
	cmake --build $(ASAN_DIR) -j $(JOBS)
	ASAN_OPTIONS=halt_on_error=1:abort_on_error=1:detect_leaks=1 \
	UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
	ctest --test-dir $(ASAN_DIR) --output-on-failure -j $(JOBS)

demo: build
	bash scripts/demo.sh $(BUILD_DIR)

bench: build
	BENCH_QUICK=$(BENCH_QUICK) bash bench/run.sh $(BUILD_DIR)

fuzz: deps
	FUZZ_SECONDS=$(FUZZ_SECONDS) bash fuzz/run.sh

format:
	clang-format -i sources/*/*.h sources/*/*.cpp host/*/*.h host/*/*.cpp tests/*.cpp tests/support/*.h 2>/dev/null || true

clean:
	rm -rf $(BUILD_DIR) $(ASAN_DIR) build-fuzz
