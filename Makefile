# A thin front for CMake. Out-of-tree builds in build/<preset>.

CLIP ?= examples/television/clips/balloons.mp4
FUZZ_SECONDS ?= 60
JOBS ?= $(shell nproc)
PREFIX ?= /usr/local
SHELL = /bin/bash -o pipefail
export CMAKE_BUILD_PARALLEL_LEVEL = $(JOBS)
export CTEST_PARALLEL_LEVEL = $(JOBS)
unexport CMAKE_GENERATOR PYTHONOPTIMIZE  # The one leaves no link.txt, the other no assertion.

.PHONY: help build-dir demo play test sanitize interleave service fuzz coverage bench clang target abi \
	install install-check package package-check docs format format-check tidy shellcheck

help:
	@echo 'make demo [CLIP=file]  play a clip through the library on the host platform'
	@echo 'make play              test tvhw-play and tvhw-sweep, and that players are told of their mistakes'
	@echo 'make test              build the library and run its tests'
	@echo 'make sanitize          run the tests under the address, undefined-behaviour and'
	@echo '                       thread sanitizers'
	@echo 'make interleave        run the library, and copies of it with a fault each, under every'
	@echo '                       interleaving of a few threads'
	@echo 'make service           test the resource manager as a service, also under load and under'
	@echo '                       the address sanitizer, and the platform check on faulty platforms'
	@echo 'make fuzz              drive the library with made-up input, for FUZZ_SECONDS ($(FUZZ_SECONDS))'
	@echo 'make coverage          report which lines of the library the tests reach; fails below 98 %'
	@echo 'make bench             count what the library costs beside floors that do the same job, and'
	@echo '                       what it weighs; fails above a limit, whatever the machine'
	@echo 'make clang             build with the compiler and runtime of LLVM, as for the device, checking'
	@echo '                       the lock rules, and run the tests, under the sanitizers too'
	@echo 'make target            build for 32-bit Arm and run the tests under an emulator'
	@echo 'make abi               compare the built library with its binary contract, contract/'
	@echo 'make install           install the library, the host platform and the programs under PREFIX ($(PREFIX)),'
	@echo '                       DESTDIR before it'
	@echo 'make install-check     install the library and use it from another project'
	@echo 'make package           build Debian packages: the library, what programs are built with, and the'
	@echo '                       programs; make package-check installs, uses and removes them'
	@echo 'make docs              write pages of what programs can use, to build/docs'
	@echo 'make tidy              check the library and the host platform with clang-tidy'
	@echo 'make shellcheck        check the scripts'
	@echo 'make format            format the code; make format-check only looks'
	@echo 'JOBS=n limits how much is built or tested at once ($(JOBS)).'

# $(call logged,log,command): prints nothing; on a terminal one line tells how far the command is.
logged = { [ ! -t 1 ] || echo; { $(2); } 2>&1 | tee build/$(1).log | if [ -t 1 ]; \
	then sed -un 's/^\(\[ *[0-9]*%\].\{1,60\}\|.*[0-9]*\/[0-9]* Test .\{1,40\}\).*/\x1b[A\x1b[K\1/p'; \
	else cat >/dev/null; fi; }

# $(call quietly,log,command): quiet where all is well.
quietly = $(call logged,$(1),$(2)) || { cat build/$(1).log; exit 1; }

# $(call build,preset[,targets]): configures and builds a preset.
build = echo 'Building $(1), log in build/$(1).log.' && \
	$(call quietly,$(1),cmake --preset $(1) && cmake --build build/$(1) $(2:%=--target %))

# $(call test,preset[,options]): runs the tests of what was built. What failed is shown alone.
test = echo 'Testing $(1), log in build/$(1)-tests.log.' && \
	{ $(call logged,$(1)-tests,ctest --test-dir build/$(1) --output-on-failure --no-tests=error \
		--timeout 120 $(2)) || \
		{ grep -v '^ *Start \| Passed \|^\[ *\(RUN\|OK\) ' build/$(1)-tests.log; exit 1; }; } && \
	grep '% tests passed\|^Total Test time' build/$(1)-tests.log

run-tests = $(call build,$(1)) && $(call test,$(1))

build-dir:
	@mkdir -p build

demo: build-dir
	@tools/install-packages build demo service
	@$(call build,release)
	@mkdir -p build/demo-output && rm -f build/demo-output/demo.log
	@KVO_MEDIA_LOG_LEVEL=$${KVO_MEDIA_LOG_LEVEL:-4} \
		KVO_MEDIA_LOG_FILE=$${KVO_MEDIA_LOG_FILE:-build/demo-output/demo.log} \
		build/release/examples/television/tvhw_demo --output build/demo-output $(CLIP)
	@[ ! -f build/demo-output/demo.log ] || \
		tools/tvhw-log --svg build/demo-output/reclaim.svg build/demo-output/demo.log \
			>build/demo-output/report.txt || [ $$? -eq 1 ]  # There are verdicts.
	@! grep -s 'HostPlatform: mistake:' build/demo-output/demo.log  # It is a right program.
	@[ ! -f build/demo-output/demo.log ] || \
		echo 'build/demo-output/reclaim.svg: a reclaim of this run, drawn from its log by tools/tvhw-log'
	@examples/several-processes/several-processes build/release

play: build-dir
	@tools/install-packages build demo service
	@$(call run-tests,release)

test: build-dir
	@tools/install-packages build test
	@$(call run-tests,test)
	@grep -hm1 '^fault sweep' build/test/Testing/Temporary/LastTest.log

sanitize: build-dir
	@tools/install-packages build test
	@$(call run-tests,asan)
	@$(call run-tests,tsan)

# The library is the one that the tests use, and an instrumented copy; the faults are in others.
interleave: build-dir
	@tools/install-packages build test interleave
	@$(call build,test,tvhw_interleave)
	@tools/interleave build/test $(JOBS)

# $(call run-service,preset)
run-service = $(call build,$(1),tvhw_service_all) && $(call test,$(1),-R 'Service|PlatformFault')

service: build-dir
	@tools/install-packages build test service
	@$(call run-service,service)
	@$(call quietly,service-installed,cmake --install build/service --prefix build/service/installed \
		&& build/service/installed/bin/tvhw-run -- build/service/installed/bin/tvhw-platform-check \
		&& XDG_RUNTIME_DIR=$(CURDIR)/build/service systemd-analyze --user verify \
			build/service/installed/lib/systemd/user/tvhw-resource-manager.service \
		&& XDG_DATA_DIRS=$(CURDIR)/build/service/installed/share \
			build/service/installed/bin/tvhw-run --no-service -- \
			build/service/installed/bin/tvhw-resource-manager --status)
	@$(call run-service,service-asan)

# What is found goes to the first directory; the saved corpus stays as it is.
fuzz: build-dir
	@tools/install-packages build test clang
	@$(call build,fuzz,tvhw_fuzz)
	@mkdir -p build/fuzz/corpus
	@echo 'Fuzzing for $(FUZZ_SECONDS) s.'
	@build/fuzz/tests/fuzz/tvhw_fuzz -max_total_time=$(FUZZ_SECONDS) -max_len=1000 \
		-print_final_stats=1 -artifact_prefix=build/fuzz/ build/fuzz/corpus tests/fuzz/corpus \
		>build/fuzz/run.log 2>&1 || { tail -n 60 build/fuzz/run.log; exit 1; }
	@grep '^Done\|^stat::number' build/fuzz/run.log

coverage: build-dir
	@tools/install-packages build test coverage
	@# Counts of an earlier build do not fit a new one, which runs the tests to list them.
	@mkdir -p build/coverage && find build/coverage -name '*.gcda' -delete
	@$(call run-tests,coverage)
	@gcovr --root . --filter impl/ --print-summary --fail-under-line 98 build/coverage

bench: build-dir
	@tools/install-packages build clang target abi bench
	@$(call build,bench,tvhw_bench)
	@$(call build,clang-target,kvo_media_hw_tvhw)
	@bench/compare build/bench/bench/tvhw_bench
	@tools/library-size build/clang-target/impl/tvhw/libkvo_media_hw_tvhw.so

clang: build-dir
	@tools/install-packages build check clang
	@$(call run-tests,clang)
	@$(call run-tests,clang-asan)
	@$(call run-tests,clang-tsan)

target: build-dir
	@tools/install-packages build target
	@$(call run-tests,target)

# The library by GNU's compiler and runtime, on 64 and on 32 bits, and as the device has it.
abi: build-dir
	@tools/install-packages build demo service clang target abi
	@$(call build,release,kvo_media_hw_tvhw)
	@$(call build,target,kvo_media_hw_tvhw)
	@$(call build,clang-target,kvo_media_hw_tvhw)
	@tools/check-abi build/release build/target build/clang-target

install: build-dir
	@tools/install-packages build demo service manual
	@$(call build,release)
	@$(call quietly,install,cmake --install build/release --prefix '$(PREFIX)')
	@echo 'Installed in $(DESTDIR)$(PREFIX).'

install-check: build-dir
	@tools/install-packages build demo service manual test check abi install
	@tools/check-install build/install
	@$(call quietly,test,cmake --preset test)
	@tools/check-android-bp build/test

package: build-dir
	@tools/install-packages build demo service manual package
	@$(call build,release)
	@$(call quietly,packages,cd build/release && rm -f *.deb && umask 022 && cpack)
	@ls build/release/*.deb

docs: build-dir
	@tools/install-packages docs
	@VERSION=$$(sed -n 's/^project(.* VERSION \([0-9.]*\) .*/\1/p' CMakeLists.txt) doxygen docs/Doxyfile
	@echo 'build/docs/html/index.html'

package-check: package
	@tools/check-packages build/release

sources = $(or $(shell git ls-files '*.h' '*.cpp'),$(error git lists no sources))

format:
	@tools/install-packages check
	@clang-format -i $(sources)

format-check:
	@tools/install-packages check
	@clang-format --dry-run -Werror $(sources)

# Reads the code as the service's build does, which compiles all of it.
tidy: build-dir
	@tools/install-packages build test check service
	@$(call quietly,service,cmake --preset service)
	@ls -S $(filter impl/%.cpp platform/%.cpp,$(sources)) | \
		xargs -P $(JOBS) -n 1 clang-tidy --quiet -p build/service 2>build/tidy.log

shellcheck:
	@tools/install-packages check
	@shellcheck $$(git grep -lI '^#!.*sh$$')
