# Top-level entry points. Every target installs what it needs first, so that
# one command works on a new machine.

BUILD_DIR      ?= build
ASAN_DIR       ?= build-asan
BUILD_TYPE     ?= RelWithDebInfo
JOBS           ?= $(shell nproc)
FUZZ_SECONDS   ?= 60
BENCH_QUICK    ?=
PACKAGE_DIR    ?= build-release
PREFIX         ?=

# What an installation needs beyond the plug-in and signing-host: their
# stripped copies with the debug files split off, and the man pages.
INSTALL_TARGETS = signing signing-host signing_stripped signing-host_stripped signing_man_pages

.PHONY: all deps build test test-asan demo bench fuzz format clean install package install-test

all: build

deps:
	@bash scripts/deps.sh

$(BUILD_DIR)/CMakeCache.txt: | deps
	cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=$(BUILD_TYPE)

# The plug-in and signing-host only; the test suites are built by make test.
build: deps $(BUILD_DIR)/CMakeCache.txt
	cmake --build $(BUILD_DIR) -j $(JOBS) --target signing signing-host

test: deps $(BUILD_DIR)/CMakeCache.txt
	cmake --build $(BUILD_DIR) -j $(JOBS)
	ctest --test-dir $(BUILD_DIR) --output-on-failure -j $(JOBS)

# Installs into the prefix the build was configured with (CMAKE_INSTALL_PREFIX,
# /usr/local unless set), or PREFIX; DESTDIR stages it elsewhere.
install: deps $(BUILD_DIR)/CMakeCache.txt
	cmake --build $(BUILD_DIR) -j $(JOBS) --target $(INSTALL_TARGETS)
	cmake --install $(BUILD_DIR) $(if $(PREFIX),--prefix $(PREFIX))

# The Debian packages, built for the prefix /usr in their own folder, then
# checked with lintian (no errors allowed; docs/packaging.md explains the
# warnings that remain).
$(PACKAGE_DIR)/CMakeCache.txt: | deps
	cmake -S . -B $(PACKAGE_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr \
		-DSIGNING_TESTS=OFF -DSIGNING_DEBIAN_FILES=ON

package: deps $(PACKAGE_DIR)/CMakeCache.txt
	cmake --build $(PACKAGE_DIR) -j $(JOBS) --target $(INSTALL_TARGETS) signing_debian_changelog
	rm -f $(PACKAGE_DIR)/packages/*.deb
	cd $(PACKAGE_DIR) && cpack
	bash scripts/lint-packages.sh $(PACKAGE_DIR)/packages/*.deb

# The installed layout: a DESTDIR installation, hosts built against it, the
# packages installed with dpkg (scripts/install-test.sh).
install-test: package
	bash scripts/install-test.sh $(PACKAGE_DIR)

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
	rm -rf $(BUILD_DIR) $(ASAN_DIR) $(PACKAGE_DIR) build-fuzz
