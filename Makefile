# Front door: every target installs what is missing, configures and builds.
PREFIX ?= /usr/local
RELEASE := build/release

.PHONY: all setup build run test bench install package docs fuzz clean

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

docs:
	@bash scripts/docs.sh
