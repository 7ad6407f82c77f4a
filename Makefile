# SPDX-License-Identifier: MIT
# Each target sets up what it needs (Debian packages, fetched dependencies) and does only what is left to do.
#
#   make build      the library, tonwerk-separate and its models for Linux, in build/linux (PUBLIC_WEIGHTS=0: without
#                   the models that hold a public network's weights)
#   make windows    the same for Windows, in build/windows
#   make package    the SDK for both, in build/package (DIRECTML=0 leaves DirectML.dll out)
#   make wheel      the Python package: wheels for both, and a source distribution, in build/wheel
#   make demo       split a piece of music into stems, in build/demo
#   make test       all tests: native, native with sanitizers, and the Windows build under Wine
#   make lint       formatting and static analysis, of the C++ and of the Python
#   make format     format the sources
#   make bench      measure the pipeline against the cost of its transforms, and the memory of a stream (BENCH_OUT=DIR)
#   make fuzz       fuzz each target for MINUTES=1
#   make attack     attack the program for MINUTES=10 with hostile songs, models, names, signals, writers and disks
#   make soak       stream HOURS=10 of audio, and an hour under Wine, and watch that nothing grows
#   make check-deep the tests under Valgrind and the thread sanitizer, and a catalogue on a cluster whose nodes are killed
#   make bench-live  an audio callback at real speed for SECONDS=600, in blocks of 64, 128 and 441, and with competing load
#   make bench-peers  the same job in NumPy/SciPy and PyTorch, against ours
#   make clean      remove what was built (what was fetched stays)

SHELL := bash
.SHELLFLAGS := -eu -o pipefail -c
.DEFAULT_GOAL := help

JOBS ?= $(shell nproc)
MINUTES ?= 1
HOURS ?= 10
PYTHON := /usr/bin/python3
SOURCES = $(shell find include src apps plugins tests bench examples -name '*.h' -o -name '*.cpp' -o -name '*.c' 2>/dev/null)

# PUBLIC_WEIGHTS=0 leaves the models with a public network's weights out of build and packages.
PUBLIC_WEIGHTS ?= 1
export PUBLIC_WEIGHTS
weights = $(if $(filter 0,$(PUBLIC_WEIGHTS)),OFF,ON)
models = $(if $(filter 0,$(PUBLIC_WEIGHTS)),,models)

# $(call configured,PRESET): CMake runs by itself from then on, until the presets or the choice of weights change.
configured = { [ build/cmake/$(1)/build.ninja -nt CMakePresets.json ] && \
    grep -qx TONWERK_PUBLIC_WEIGHTS:BOOL=$(weights) build/cmake/$(1)/CMakeCache.txt; } || \
    cmake --preset $(1) -DTONWERK_PUBLIC_WEIGHTS=$(weights)
compile = cmake --build --preset $(1) -j $(JOBS)
check = ctest --preset $(1) -j $(JOBS)

.PHONY: help build windows package wheel demo test lint format bench fuzz attack soak check-deep bench-live bench-peers clean

help:
	@sed -n '3,/^$$/s/^#   //p' Makefile

build:
	tools/setup.sh native fetch $(models)
	tools/fetch-deps.sh
	@$(call configured,linux-release)
	$(call compile,linux-release) --target products

windows:
	tools/setup.sh native fetch $(models) windows
	tools/fetch-deps.sh
	@$(call configured,mingw-release)
	$(call compile,mingw-release) --target products

# DirectML.dll is under Microsoft's own terms.
DIRECTML ?= 1

package:
	tools/setup.sh native fetch $(models) windows test
	tools/fetch-deps.sh
	@$(call configured,linux-release)
	cmake --preset mingw-release -DTONWERK_DIRECTML=$(if $(filter 0,$(DIRECTML)),OFF,ON)
	$(call compile,linux-release) --target sdk
	$(call compile,mingw-release) --target sdk

wheel:
	tools/setup.sh native fetch $(models) windows python
	tools/fetch-deps.sh
	tools/python-env.sh package
	@$(call configured,linux-release)
	cmake --preset mingw-release -DTONWERK_DIRECTML=$(if $(filter 0,$(DIRECTML)),OFF,ON)
	$(call compile,linux-release) --target products
	$(call compile,mingw-release) --target products
	.deps/python/package/bin/python tools/make_wheels.py build/wheel build/cmake/linux-release build/cmake/mingw-release

demo: build
	tools/setup.sh demo
	@mkdir -p build/demo
	$(PYTHON) tools/make_demo_song.py build/demo/song.wav
	build/linux/tonwerk-separate build/demo/song.wav -o build/demo --report
	@printf '\nThe stems of build/demo/song.wav, and a page that plays them:\n'; ls build/demo/song/*.wav build/demo/song/*.html
	@printf 'Nobody has the stems that the band recorded, so this cannot be scored: models/README.md has scores.\n'

test:
	tools/setup.sh native fetch $(models) windows test browser training python
	tools/fetch-deps.sh
	tools/python-env.sh package
	tools/python-env.sh catalogue
	@$(foreach preset,linux-release linux-asan mingw-release,$(call configured,$(preset)) &&) true
	$(call compile,linux-release)
	$(call check,linux-release)
	$(call compile,linux-asan)
	$(call check,linux-asan)
	$(call compile,mingw-release)
	$(call check,mingw-release)

lint:
	tools/setup.sh native fetch $(models) lint python
	tools/fetch-deps.sh
	tools/python-env.sh lint
	tools/python-env.sh package
	@$(call configured,linux-release)
	clang-format --dry-run -Werror $(SOURCES)
	tools/tidy.sh build/cmake/linux-release $(JOBS)
	tools/check-python.sh $(PYTHON)

format:
	tools/setup.sh lint
	clang-format -i $(SOURCES)

# BENCH_OUT names a folder for the figures as JSON.
BENCH_OUT ?=
report = $(if $(BENCH_OUT),--benchmark_out=$(BENCH_OUT)/$(1).json --benchmark_out_format=json)

bench:
	tools/setup.sh native fetch $(models) windows test
	tools/fetch-deps.sh
	@$(foreach preset,linux-release mingw-release,$(call configured,$(preset)) &&) true
	$(call compile,linux-release) --target bench bench_runtime soak
	$(call compile,mingw-release) --target bench
	@$(if $(BENCH_OUT),mkdir -p $(BENCH_OUT))
	taskset -c 0 build/linux/bench $(call report,linux)
	taskset -c 0 build/linux/bench_runtime $(call report,runtime)
	taskset -c 0 tools/wine-run.sh build/windows/bench.exe $(call report,wine)
	build/linux/soak build/models/gains.onnx 60

fuzz:
	tools/setup.sh native fetch $(models) test fuzz
	tools/fetch-deps.sh
	@$(call configured,linux-fuzz)
	$(call compile,linux-fuzz) --target \
	    $(addprefix fuzz_,calls parts model audio onnx receipt options)
	tools/fuzz.sh $(MINUTES)

# SEED repeats an attack.
SEED ?= 1

attack: MINUTES := $(if $(filter command line environment,$(origin MINUTES)),$(MINUTES),10)
attack:
	tools/setup.sh native fetch test
	tools/fetch-deps.sh
	@$(call configured,linux-asan)
	$(call compile,linux-asan) --target tonwerk-separate analytic_models
	$(PYTHON) tests/attack/attack.py build/models build/linux-asan/tonwerk-separate --minutes $(MINUTES) --seed $(SEED)

soak:
	tools/setup.sh native fetch $(models) windows test
	tools/fetch-deps.sh
	@$(foreach preset,linux-release mingw-release,$(call configured,$(preset)) &&) true
	$(call compile,linux-release) --target soak
	$(call compile,mingw-release) --target soak
	build/linux/soak build/models/gains.onnx $$((60 * $(HOURS)))
	tools/wine-run.sh build/windows/soak.exe build/models/gains.onnx 60

check-deep:
	tools/setup.sh native fetch $(models) test deep python
	tools/fetch-deps.sh
	tools/python-env.sh package
	tools/python-env.sh catalogue
	@$(foreach preset,linux-release linux-tsan,$(call configured,$(preset)) &&) true
	$(call compile,linux-tsan) --target unit_tests fake_backend_tests shared_stream_tests
	build/linux-tsan/unit_tests --gtest_brief=1
	build/linux-tsan/fake_backend_tests --gtest_brief=1
	build/linux-tsan/shared_stream_tests --gtest_brief=1
	$(call compile,linux-release)
	tools/memcheck.sh
	tests/catalogue/run.sh "$(CURDIR)" "$(CURDIR)/build/models" "$(CURDIR)/build/linux/libtonwerk_c.so.1" \
	    "$(CURDIR)/build/linux/tonwerk-separate" prove.py

SECONDS ?= 600
LIVE_MODEL ?= build/models/tonwerk-live.onnx

bench-live:
	tools/setup.sh native fetch $(models) test
	tools/fetch-deps.sh
	@$(call configured,linux-release)
	$(call compile,linux-release) --target live_callback default_model
	for frames in 64 128 441; do build/linux/live_callback $(LIVE_MODEL) $$frames $(SECONDS); done
	build/linux/live_callback $(LIVE_MODEL) 128 $(SECONDS) 4

bench-peers:
	tools/setup.sh native fetch $(models) test peers
	tools/fetch-deps.sh
	@$(call configured,linux-release)
	$(call compile,linux-release) --target bench
	@$(if $(BENCH_OUT),mkdir -p $(BENCH_OUT))
	BENCH_OUT=$(if $(BENCH_OUT),$(BENCH_OUT)/peers.json) $(PYTHON) bench/peers/compare.py

clean:
	rm -rf build
