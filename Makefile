# The front door: each command does its own set-up on a fresh Debian 12 machine. CMake, behind the presets of CMakePresets.json, does the work.
.DEFAULT_GOAL := help
SHELL := /bin/bash
.SHELLFLAGS := -euo pipefail -c
.NOTPARALLEL:

SANITIZE ?=
PRESET := $(if $(SANITIZE),$(SANITIZE),release)
BUILD := build/$(PRESET)
JOBS ?= $(shell nproc)
FUZZ_SECONDS ?= 30
CAMPAIGN ?=
PREFIX ?= /usr/local

ifneq ($(filter-out address thread,$(SANITIZE)),)
$(error SANITIZE is '$(SANITIZE)'; it takes address or thread)
endif

.PHONY: help setup build run test campaign coverage lint bench fuzz install clean

help: ## Show this list
	@sed -n 's/^\([a-z]*\):.*## \(.*\)/\1|\2/p' Makefile | while IFS='|' read -r name text; do printf '  make %-9s %s\n' "$$name" "$$text"; done

setup: ## Install the Debian packages that are missing, as root or with sudo
	@packaging/setup.sh

# Ninja notices changed CMake files and new sources by itself, but not changed presets.
$(BUILD)/build.ninja: CMakePresets.json | setup
	@cmake --preset $(PRESET) >/dev/null
	@touch $@

build: setup $(BUILD)/build.ninja ## Build programs and tests into build/release
	@cmake --build --preset $(PRESET) -j $(JOBS) -- --quiet

run: build ## Start the simulator and the bridge, show a cockpit's resources, run until interrupted
	@packaging/run.sh $(BUILD)/bin

test: build ## Build and run all tests; with SANITIZE=address or SANITIZE=thread under sanitizers
	@ctest --preset $(PRESET) -j $(JOBS)

campaign: build ## Hold the programs to what they promise, at most half an hour; CAMPAIGN='--seed N --only NAME' repeats
	@packaging/campaign.sh $(BUILD) $(JOBS) $(CAMPAIGN)

coverage: setup ## Build for counting, run the tests but for the campaign, tell which lines they have run
	@cmake --preset coverage >/dev/null
	@cmake --build --preset coverage -j $(JOBS) -- --quiet
	@find build/coverage -name '*.gcda' -delete
	@ctest --preset coverage -j $(JOBS) --quiet
	@python3 packaging/coverage.py build/coverage

lint: setup $(BUILD)/build.ninja ## Check format, clang-tidy, scripts and the rules of the house; quick where nothing changed
	@packaging/lint.sh $(BUILD) $(JOBS)

bench: setup ## Measure a request's way through the bridge against a bare relay and against peers
	@packaging/setup.sh bench_packages.txt || echo "bench: not all packages are there; what needs them is left out"
	@cmake --preset release -DHMX_BUILD_BENCH=ON >/dev/null
	@cmake --build --preset release -j $(JOBS) --target benchmarks -- --quiet
	@python3 bench/run.py $(BUILD)

fuzz: setup ## Run every fuzzer for FUZZ_SECONDS (30)
	@cmake --preset fuzz >/dev/null
	@cmake --build --preset fuzz -j $(JOBS) --target fuzz/all -- --quiet
	@packaging/fuzz.sh build/fuzz $(FUZZ_SECONDS)

install: build ## Install programs, samples and documents below PREFIX (/usr/local)
	@cmake --install $(BUILD) --prefix $(PREFIX)

clean: ## Remove all that was built
	@rm -rf build .cache
