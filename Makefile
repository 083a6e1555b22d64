# Front door: every target installs what is missing, configures and builds.
PREFIX ?= /usr/local
RELEASE := build/release

.PHONY: all setup build run test bench install package docs fuzz fuzz-long clean

all: build

setup:
	@bash scripts/setup.sh

build: setup
	@cmake --preset release >/dev/null
	@cmake --build --preset release

run: build
	@bash scripts/demo.sh $(RELEASE)

test: build
	@ctest --preset release

bench: setup
	@cmake --preset bench >/dev/null
	@cmake --build --preset bench
	@bash scripts/bench.sh build/bench

install: build
	@cmake --install $(RELEASE) --prefix $(PREFIX)

package: setup
	@bash scripts/package.sh

clean:
	@rm -rf build

fuzz: setup
	@bash scripts/fuzz.sh

# Every fuzzer for FUZZ_SECONDS each (default an hour), one after another;
# what a run adds to the coverage is merged into fuzz/corpus/ to be committed.
fuzz-long: setup
	@FUZZ_SECONDS=$${FUZZ_SECONDS:-3600} FUZZ_MERGE=1 bash scripts/fuzz.sh

docs:
	@bash scripts/docs.sh
