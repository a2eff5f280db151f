# A thin front for CMake. Out-of-tree builds in build/<preset>.

CLIP ?= examples/clips/testsrc.mp4
JOBS ?= $(shell nproc)

.PHONY: help build-dir demo test sanitize clang format format-check tidy

help:
	@echo 'make demo [CLIP=file]  play a clip through the library on the host platform'
	@echo 'make test              build the library and run its tests'
	@echo 'make sanitize          run the tests under the address, undefined-behaviour and'
	@echo '                       thread sanitizers'
	@echo 'make clang             build with Clang and run the tests'
	@echo 'make tidy              check the code with clang-tidy'
	@echo 'make format            format the code; make format-check only looks'

# $(call build,preset): configures and builds a preset; quiet where all is well.
build = cmake --preset $(1) >build/$(1).log 2>&1 || { cat build/$(1).log; exit 1; }; \
	cmake --build build/$(1) --parallel $(JOBS) -- --no-print-directory

build-dir:
	@mkdir -p build

demo: build-dir
	@tools/install-packages build demo
	@$(call build,demo)
	@build/demo/examples/tvhw_demo --output build/demo-output $(CLIP)

# $(call run-tests,preset)
run-tests = $(call build,$(1)) && ctest --test-dir build/$(1) --output-on-failure

test: build-dir
	@tools/install-packages build test
	@$(call run-tests,test)

sanitize: build-dir
	@tools/install-packages build test
	@$(call run-tests,asan)
	@$(call run-tests,tsan)

clang: build-dir
	@tools/install-packages build test check
	@$(call run-tests,clang)

sources = $(shell git ls-files '*.h' '*.cpp')

format:
	@tools/install-packages check
	@clang-format -i $(sources)

format-check:
	@tools/install-packages check
	@clang-format --dry-run -Werror $(sources)

tidy: build-dir
	@tools/install-packages build test check
	@$(call build,clang)
	@clang-tidy --quiet -p build/clang $(filter impl/%.cpp platform/%.cpp,$(sources))
