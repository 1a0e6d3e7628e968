# The entry point: every command sets up a fresh Debian 12 machine by itself. CMake, with the presets of CMakePresets.json, does the work.
.DEFAULT_GOAL := help
SHELL := /bin/bash
.SHELLFLAGS := -euo pipefail -c
.NOTPARALLEL:

SANITIZE ?=
ARCH ?=
PRESET := $(or $(ARCH),$(SANITIZE),release)
BUILD := build/$(PRESET)
JOBS ?= $(shell nproc)
FUZZ_SECONDS ?= 30
CAMPAIGN ?=
ONCE ?=
PREFIX ?= /usr/local

ifneq ($(filter-out address thread,$(SANITIZE)),)
$(error SANITIZE is '$(SANITIZE)'; it takes address or thread)
endif

ifneq ($(filter-out arm64,$(ARCH)),)
$(error ARCH is '$(ARCH)'; it takes arm64, or nothing for this machine's own)
endif
ifneq ($(and $(ARCH),$(SANITIZE)),)
$(error SANITIZE is for this machine's own architecture)
endif

.PHONY: help setup build inspector relay dlt run test campaign coverage lint bench fuzz install deb verify clean

help: ## Show this list
	@sed -n 's/^\([a-z]*\):.*## \(.*\)/\1|\2/p' Makefile | while IFS='|' read -r name text; do printf '  make %-9s %s\n' "$$name" "$$text"; done

setup: ## Install the Debian packages that building and testing need, as root or with sudo
	@packaging/setup.sh run test $(if $(ARCH),$(ARCH) $(ARCH)test)

build: ## Build the programs into build/release/bin; with ARCH=arm64 for 64-bit Arm, into build/arm64/bin
	@packaging/setup.sh run $(ARCH)
	@packaging/build.sh $(PRESET) $(JOBS) programs

inspector: ## Build the page that the gateway serves into inspector/dist
	@packaging/setup.sh inspector
	@packaging/inspector.sh build

relay: ## Build hmxrelay, which carries /hmx between machines, into build/release/bin
	@packaging/setup.sh run relay
	@packaging/build.sh $(PRESET) $(JOBS) hmxrelay

dlt: ## Build the module that puts the log into DLT, for KELO_TRACE_SINK=dlt
	@packaging/setup.sh run dlt
	@packaging/build.sh $(PRESET) $(JOBS) kelo-trace-dlt

run: build ## Start the simulator, the bridge and the gateway, show a cockpit's resources, run until interrupted
	@packaging/run.sh $(BUILD)/bin

test: setup ## Build everything and run all tests; with SANITIZE=address or SANITIZE=thread under sanitizers, with ARCH=arm64 for 64-bit Arm, emulated
	@packaging/build.sh $(PRESET) $(JOBS) all
	@packaging/test.sh $(PRESET) $(JOBS)

campaign: setup ## Check everything that the programs promise, in at most half an hour; CAMPAIGN='--seed N --only NAME' repeats one check
	@packaging/build.sh $(PRESET) $(JOBS) hmxcampaign hmxrelay hmxforeigner
	@packaging/campaign.sh $(BUILD) $(JOBS) $(CAMPAIGN)

coverage: setup ## Build with coverage, run all tests except the campaign, and report which lines they ran
	@packaging/build.sh coverage $(JOBS) all
	@find build/coverage -name '*.gcda' -delete
	@packaging/test.sh coverage $(JOBS)
	@python3 packaging/coverage.py build/coverage

lint: ## Check format, clang-tidy, scripts and the house rules; fast if little has changed
	@packaging/setup.sh run test lint
	@cmake --preset lint >/dev/null
	@cmake --preset lint-together >/dev/null
	@packaging/lint.sh build/lint build/lint-together $(JOBS)

bench: ## Compare a request's path through the bridge with a bare relay and with peers; ONCE=yes tries only that everything runs
	@packaging/setup.sh run test
	@packaging/setup.sh bench || echo "bench: not all packages are there; what needs them is left out"
	@cmake --preset release -DHMX_BUILD_BENCH=ON >/dev/null
	@packaging/build.sh release $(JOBS) benchmarks
	@python3 bench/run.py $(BUILD) $(if $(ONCE),--seconds 0)
	@python3 bench/gateway.py $(BUILD) $(if $(ONCE),--rounds 1)
	@[ ! -x $(BUILD)/bin/hmxrelay ] || python3 bench/relay.py $(BUILD) $(if $(ONCE),--seconds 5)
	@packaging/inspector.sh build && packaging/inspector.sh bench

fuzz: ## Run every fuzzer for FUZZ_SECONDS (30)
	@packaging/setup.sh run fuzz
	@packaging/build.sh fuzz $(JOBS) fuzz/all
	@packaging/fuzz.sh build/fuzz $(FUZZ_SECONDS)

install: build ## Install programs, samples and documents below PREFIX (/usr/local)
	@packaging/build.sh $(PRESET) $(JOBS) installed_files
	@cmake --install $(BUILD) --prefix $(PREFIX) >/dev/null
	@echo "installed below $(PREFIX)"

deb: ## Build the Debian packages into build/deb
	@packaging/setup.sh run inspector relay dlt deb
	@packaging/inspector.sh build
	@packaging/deb.sh $(JOBS)

verify: ## Run what takes too long for every change: whole campaign, arm64, packages in a fresh Debian, the page in many sizes
	@packaging/setup.sh run test inspector relay dlt deb
	@packaging/verify.sh $(JOBS)

clean: ## Remove everything that was built
	@rm -rf build .cache inspector/dist inspector/node_modules
