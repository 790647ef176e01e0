# Shortcuts over the CMake presets in CMakePresets.json; every build lives in build/<preset>.
#   make demo      build the library and the vexor program, run `vexor demo`
#   make test      build everything and run the tests (preset dev, or ci when CI=true)
# See `make help` for the rest.

ifeq ($(CI),true)
PRESET ?= ci
else
PRESET ?= dev
endif
PREFIX ?= /usr/local
PYTHON ?= $(or $(wildcard /usr/bin/python3),python3)
CLANG_FORMAT ?= $(or $(shell command -v clang-format-14 2>/dev/null),clang-format)

# The C and C++ files known to git (committed or new, not ignored) that still exist.
SOURCES = $(sort $(wildcard $(shell git ls-files --cached --others --exclude-standard -- '*.h' '*.cpp' '*.c')))

.PHONY: help test demo sanitize tsan volume soak bench fuzz install format format-check clean

help:
	@echo "make demo                 build and run 'vexor demo'"
	@echo "make test                 build and run the tests (preset $(PRESET))"
	@echo "make sanitize             the tests under AddressSanitizer and UBSan"
	@echo "make tsan                 the tests that use threads, under ThreadSanitizer"
	@echo "make volume               optimised build with the tests, warnings are errors; the"
	@echo "                          fault and undo property checks at volume, fixed seeds"
	@echo "make soak SECONDS=n       the random undo sequences with fresh seeds for n seconds;"
	@echo "                          prints any failing seed and how to replay it"
	@echo "make bench                optimised build, run every benchmark"
	@echo "make fuzz SECONDS=n       build the fuzz targets with clang, fuzz each for n seconds"
	@echo "make install PREFIX=dir   install the library, headers and program (now: $(PREFIX))"
	@echo "make format               reformat the sources with clang-format"
	@echo "make format-check         fail if a source is not formatted"
	@echo "make clean                remove the preset build directories"

test:
	cmake --preset $(PRESET)
	cmake --build --preset $(PRESET)
	ctest --preset $(PRESET)

demo:
	cmake --preset dev
	cmake --build --preset dev --target vexor_cli
	build/dev/tools/vexor demo

sanitize:
	cmake --preset sanitize
	cmake --build --preset sanitize
	ctest --preset sanitize

tsan:
	cmake --preset tsan
	cmake --build --preset tsan
	ctest --preset tsan

volume:
	cmake --preset volume
	cmake --build --preset volume
	.ci/properties volume

soak:
	cmake --preset volume
	cmake --build --preset volume
	.ci/properties soak $(or $(SECONDS),60)

bench:
	cmake --preset release
	cmake --build --preset release
	@found=; \
	for program in $$(find build/release/bench -type f -perm -u+x ! -path '*/CMakeFiles/*' 2>/dev/null | sort); do \
	    found=1; echo "== $$program"; "$$program" || exit 1; \
	done; \
	if [ -z "$$found" ]; then echo "no benchmark programs in build/release/bench" >&2; exit 1; fi
	@if [ -x build/release/python/bench/vexor_python_env_loop ]; then \
	    echo "== python/bench/env_numpy_bench.py"; \
	    PYTHONPATH=build/release/python $(PYTHON) build/release/python/bench/env_numpy_bench.py \
	        build/release/python/bench/vexor_python_env_loop; \
	fi

# The seed corpora stay as committed; what the fuzzers find goes to working corpora. Each
# target fuzzes for SECONDS (default 60).
FUZZ_TARGETS = env_load scene_load cli_options irr_cache_load
fuzz:
	cmake --preset fuzz
	cmake --build --preset fuzz
	for target in $(FUZZ_TARGETS); do \
	    mkdir -p build/fuzz/corpus-$$target && \
	    build/fuzz/fuzz/vexor_fuzz_$$target build/fuzz/corpus-$$target fuzz/corpus/$$target \
	        -max_total_time=$(or $(SECONDS),60) || exit 1; \
	done

install:
	cmake --preset release
	cmake --build --preset release --target vexor vexor_cli vexor_python
	cmake --install build/release --prefix "$(PREFIX)"

format:
	$(CLANG_FORMAT) -i $(SOURCES)

format-check:
	@$(CLANG_FORMAT) --version
	$(CLANG_FORMAT) --dry-run --Werror $(SOURCES)

clean:
	rm -rf build/dev build/ci build/sanitize build/tsan build/release build/volume build/fuzz
