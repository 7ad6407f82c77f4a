# Each target sets up what it needs (Debian packages, fetched dependencies) and does only what is left to do.
#
#   make build      the library and tonwerk-separate for Linux, in build/linux
#   make windows    the same for Windows, in build/windows
#   make demo       split a piece of music into stems, in build/demo
#   make test       all tests: native, native with sanitizers, and the Windows build under Wine
#   make lint       formatting and static analysis
#   make format     format the sources
#   make bench      measure the pipeline against the cost of its transforms, and the memory of a stream
#   make bench-peers  the same job in NumPy/SciPy and PyTorch, against ours
#   make clean      remove what was built (what was fetched stays)

SHELL := bash
.SHELLFLAGS := -eu -o pipefail -c
.DEFAULT_GOAL := help

JOBS ?= $(shell nproc)
PYTHON := /usr/bin/python3
SOURCES = $(shell find include src apps tests bench examples -name '*.h' -o -name '*.cpp' 2>/dev/null)

# $(call configured,PRESET): CMake runs by itself from then on.
configured = test -e build/cmake/$(1)/build.ninja || cmake --preset $(1)
compile = cmake --build --preset $(1) -j $(JOBS)
check = ctest --preset $(1) -j $(JOBS)

.PHONY: help build windows demo test lint format bench bench-peers clean

help:
	@sed -n '3,/^$$/s/^#   //p' Makefile

build:
	scripts/setup.sh native fetch
	scripts/fetch-deps.sh
	@$(call configured,linux-release)
	$(call compile,linux-release) --target products

windows:
	scripts/setup.sh native fetch windows
	scripts/fetch-deps.sh
	@$(call configured,mingw-release)
	$(call compile,mingw-release) --target products

demo: build
	scripts/setup.sh demo
	$(call compile,linux-release) --target analytic_models
	@mkdir -p build/demo
	$(PYTHON) scripts/make_demo_song.py build/demo/song.wav
	build/linux/tonwerk-separate build/demo/song.wav -o build/demo --model build/models/band_split.onnx
	@printf '\nThe stems of build/demo/song.wav:\n'; ls build/demo/song/*.wav

test:
	scripts/setup.sh native fetch windows test
	scripts/fetch-deps.sh
	@$(foreach preset,linux-release linux-asan mingw-release,$(call configured,$(preset)) &&) true
	$(call compile,linux-release)
	$(call check,linux-release)
	$(call compile,linux-asan)
	$(call check,linux-asan)
	$(call compile,mingw-release)
	$(call check,mingw-release)

lint:
	scripts/setup.sh native fetch lint
	scripts/fetch-deps.sh
	@$(call configured,linux-release)
	clang-format --dry-run -Werror $(SOURCES)
	scripts/tidy.sh build/cmake/linux-release $(JOBS)

format:
	scripts/setup.sh lint
	clang-format -i $(SOURCES)

bench:
	scripts/setup.sh native fetch test
	scripts/fetch-deps.sh
	@$(call configured,linux-release)
	$(call compile,linux-release) --target bench stream_memory analytic_models
	build/linux/bench
	build/linux/stream_memory build/models/gains.onnx 1
	build/linux/stream_memory build/models/gains.onnx 60

bench-peers:
	scripts/setup.sh native fetch test peers
	scripts/fetch-deps.sh
	@$(call configured,linux-release)
	$(call compile,linux-release) --target bench
	$(PYTHON) bench/peers/compare.py

clean:
	rm -rf build
