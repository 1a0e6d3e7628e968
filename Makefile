# The front door. Everything below does its own set-up on a fresh Debian 12 machine.
.DEFAULT_GOAL := help
SHELL := /bin/bash
.SHELLFLAGS := -euo pipefail -c
.NOTPARALLEL:

SANITIZE ?=
PRESET := $(if $(SANITIZE),$(SANITIZE),release)
BUILD := build/$(PRESET)
JOBS ?= $(shell nproc)
FUZZ_SECONDS ?= 30

.PHONY: help setup build run test lint bench fuzz campaign install clean

help: ## Show this list
	@sed -n 's/^\([a-z]*\):.*## /\1|/p' Makefile | while IFS='|' read -r name text; do printf '  make %-9s %s\n' "$$name" "$$text"; done

setup: ## Install the Debian packages that are missing (root or sudo)
	@packaging/setup.sh

$(BUILD)/build.ninja: CMakeLists.txt CMakePresets.json | setup
	@cmake --preset $(PRESET) >/dev/null

build: setup $(BUILD)/build.ninja ## Build everything into build/release
	@cmake --build --preset $(PRESET) -j $(JOBS) -- --quiet

run: build ## Start simulator and bridge, show a cockpit's resources, run until interrupted
	@packaging/run.sh $(BUILD)/bin

test: build ## Build and run all tests; SANITIZE=address or SANITIZE=thread for the same under sanitizers
	@ctest --preset $(PRESET) -j $(JOBS)

lint: setup ## Check formatting, clang-tidy, shell scripts and the house's own rules
	@packaging/lint.sh $(JOBS)

bench: setup ## Measure the road of a request against the bare floor
	@cmake --preset bench >/dev/null
	@cmake --build --preset bench -j $(JOBS) -- --quiet
	@python3 bench/run.py build/bench

fuzz: setup ## Run each fuzzer for FUZZ_SECONDS (30)
	@cmake --preset fuzz >/dev/null
	@cmake --build --preset fuzz -j $(JOBS) -- --quiet
	@packaging/fuzz.sh build/fuzz/bin $(FUZZ_SECONDS)

clean: ## Remove what was built
	@rm -rf build .cache
