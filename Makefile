# Top-level entry points. Every target installs what it needs first, so that
# one command works on a new machine.

# The build folders, build types and sanitizer settings are the presets of
# CMakePresets.json: default (build/), asan (build-asan/), dev (build-dev/,
# warnings are errors).
BUILD_DIR      := build
ASAN_DIR       := build-asan
DEV_DIR        := build-dev
JOBS           ?= $(shell nproc)
FUZZ_SECONDS   ?= 60
BENCH_QUICK    ?=
PACKAGE_DIR    ?= build-release
PREFIX         ?=

# What an installation needs beyond the plug-in and signing-host: their
# stripped copies with the debug files split off, and the man pages.
INSTALL_TARGETS = signing signing-host signing_stripped signing-host_stripped signing_man_pages

# Ninja and ccache make rebuilds fast; both are used when installed.
GENERATOR      := $(if $(shell command -v ninja 2>/dev/null),-G Ninja)
LAUNCHER       := $(if $(shell command -v ccache 2>/dev/null),-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)

# Every C++ file of the repository (tracked or new), for clang-format, but
# the host's session header (include/signing/session.h), which is kept
# exactly as the host ships it.
FORMAT_FILES    = $(filter-out include/signing/session.h, \
                    $(shell git ls-files --cached --others --exclude-standard '*.cpp' '*.h' 2>/dev/null || \
                            find sources host tests fuzz bench \( -name '*.cpp' -o -name '*.h' \)))

.PHONY: all deps build dev test test-asan test-dev demo bench fuzz fault-injection format format-check tidy clean \
	install package install-test

all: build

deps:
	@bash scripts/deps.sh

$(BUILD_DIR)/CMakeCache.txt: | deps
	cmake --preset default $(GENERATOR) $(LAUNCHER)

# Installs into the prefix the build was configured with (CMAKE_INSTALL_PREFIX,
# /usr/local unless set), or PREFIX; DESTDIR stages it elsewhere.
install: deps $(BUILD_DIR)/CMakeCache.txt
	cmake --build $(BUILD_DIR) -j $(JOBS) --target $(INSTALL_TARGETS)
	cmake --install $(BUILD_DIR) $(if $(PREFIX),--prefix $(PREFIX))

# The Debian packages, built for the prefix /usr in their own folder, then
# checked with lintian (no errors allowed; docs/packaging.md explains the
# warnings that remain).
$(PACKAGE_DIR)/CMakeCache.txt: | deps
	cmake -S . -B $(PACKAGE_DIR) $(GENERATOR) $(LAUNCHER) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
		-DCMAKE_INSTALL_PREFIX=/usr -DSIGNING_TESTS=OFF -DSIGNING_DEBIAN_FILES=ON

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
	cmake --preset asan $(GENERATOR) $(LAUNCHER)

$(DEV_DIR)/CMakeCache.txt: | deps
	cmake --preset dev $(GENERATOR) $(LAUNCHER)

# The plug-in and signing-host only; make test builds the test suites too.
build: deps $(BUILD_DIR)/CMakeCache.txt
	cmake --build --preset default -j $(JOBS) --target signing signing-host

dev: deps $(DEV_DIR)/CMakeCache.txt
	cmake --build --preset dev -j $(JOBS)

# ctest's status is kept while the skipped tests and their reasons are
# listed, so that a skip is seen even when every test passed.
test: deps $(BUILD_DIR)/CMakeCache.txt
	cmake --build --preset default -j $(JOBS)
	@status=0; ctest --preset default -j $(JOBS) || status=$$?; \
	bash scripts/skipped-tests.sh $(BUILD_DIR); exit $$status

test-asan: deps $(ASAN_DIR)/CMakeCache.txt
	cmake --build --preset asan -j $(JOBS)
	@status=0; ctest --preset asan -j $(JOBS) || status=$$?; \
	bash scripts/skipped-tests.sh $(ASAN_DIR); exit $$status

test-dev: dev
	@status=0; ctest --preset dev -j $(JOBS) || status=$$?; \
	bash scripts/skipped-tests.sh $(DEV_DIR); exit $$status

demo: build
	bash scripts/demo.sh $(BUILD_DIR)

bench: build
	BENCH_QUICK=$(BENCH_QUICK) bash bench/run.sh $(BUILD_DIR)

fuzz: deps
	FUZZ_SECONDS=$(FUZZ_SECONDS) bash fuzz/run.sh

fault-injection: build
	bash scripts/fault-injection.sh $(BUILD_DIR)

format:
	clang-format -i $(FORMAT_FILES)

# clang-tidy over sources/ and host/ with the build's compile commands; any
# finding fails.
tidy: deps $(BUILD_DIR)/CMakeCache.txt
	bash scripts/tidy.sh $(BUILD_DIR) $(JOBS)

format-check:
	clang-format --dry-run --Werror $(FORMAT_FILES)

clean:
	rm -rf $(BUILD_DIR) $(ASAN_DIR) $(DEV_DIR) $(PACKAGE_DIR) build-fuzz
