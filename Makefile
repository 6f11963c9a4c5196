# The two set-up commands: `make run` builds the Release engine and starts it; `make test`
# builds and runs every test, first in Release, then under AddressSanitizer and UBSan, and the
# threaded ones under ThreadSanitizer.
BUILD_DIR := build
SANITIZE_DIR := build-sanitize
TSAN_DIR := build-tsan
TIDY_DIR := build-tidy
FUZZ_DIR := build-fuzz
FUZZ_SECONDS ?= 30
JOBS ?= $(shell nproc)

.PHONY: run test build deps test-release test-sanitize test-tsan tidy bench install clean fuzz-build fuzz-smoke fuzz-run

run: build
	./$(BUILD_DIR)/quarn

build: deps
	cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=Release
	cmake --build $(BUILD_DIR) -j$(JOBS)

deps:
	@scripts/install-deps

test: test-release test-sanitize test-tsan

test-release: build
	cd $(BUILD_DIR) && ctest --output-on-failure -j$(JOBS)

test-sanitize: deps
	cmake -S . -B $(SANITIZE_DIR) -DCMAKE_BUILD_TYPE=Debug -DQUARN_SANITIZE=ON -DQUARN_BENCH=OFF
	cmake --build $(SANITIZE_DIR) -j$(JOBS)
	cd $(SANITIZE_DIR) && ctest --output-on-failure -j$(JOBS)

# The threaded tests under ThreadSanitizer; the suppressions name the structures the search
# threads share on purpose without locks.
test-tsan: deps
	cmake -S . -B $(TSAN_DIR) -DCMAKE_BUILD_TYPE=Debug -DQUARN_TSAN=ON -DQUARN_BENCH=OFF
	cmake --build $(TSAN_DIR) -j$(JOBS) --target quarn_tests quarn
	cd $(TSAN_DIR) && TSAN_OPTIONS="halt_on_error=1 suppressions=$(CURDIR)/tests/tsan.supp" \
		ctest --output-on-failure -j$(JOBS) -R 'SearchThreads|Uci'

# clang-tidy over the engine and the tests with the checks of .clang-tidy; a finding fails.
tidy:
	TIDY_BUILD_DIR=$(CURDIR)/$(TIDY_DIR) TIDY_JOBS=$(JOBS) scripts/tidy

# The binary into bin and the manual page into share/man/man6 (PREFIX, default /usr/local).
PREFIX ?= /usr/local
install: build
	cmake --install $(BUILD_DIR) --prefix $(PREFIX)

bench: build
	./$(BUILD_DIR)/bench/quarn_bench

clean:
	rm -rf $(BUILD_DIR) $(SANITIZE_DIR) $(TSAN_DIR) $(TIDY_DIR) $(FUZZ_DIR)

# libFuzzer targets (clang): build them, a short run of each, or a long one (FUZZ_SECONDS).
fuzz-build:
	FUZZ_BUILD_DIR=$(CURDIR)/$(FUZZ_DIR) scripts/fuzz build
fuzz-smoke:
	FUZZ_BUILD_DIR=$(CURDIR)/$(FUZZ_DIR) scripts/fuzz smoke $(FUZZ_SECONDS)
fuzz-run:
	FUZZ_BUILD_DIR=$(CURDIR)/$(FUZZ_DIR) scripts/fuzz run $(FUZZ_SECONDS)
