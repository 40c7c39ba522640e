# The front door. Each target installs what it lacks (scripts/bootstrap) where it may, and says what is missing where it
# may not. Builds go to build/PRESET; CMakePresets.json describes the presets.
#
#   make demo BIG=1         the demo with a large image
#   make fuzz TIME=60       a minute for each target
#   make install PREFIX=/opt/vexakrn DESTDIR=...

PREFIX ?= /usr/local
TIME ?= 30

bootstrap = @scripts/bootstrap
# $(call build,PRESET[,TARGETS])
build = @cmake --preset $(1) >build/$(1).log 2>&1 || { cat build/$(1).log >&2; exit 1; }; \
	cmake --build --preset $(1) $(if $(2),--target $(2))

.PHONY: all build demo test test-windows test-asan test-tsan check bench bench-peers fuzz install clean help
all: build

help:
	@echo 'make             build build/release/libvexakrn.so and the tools'
	@echo 'make demo        run the tour: out/gallery/index.html'
	@echo 'make test        build and run the tests on this system'
	@echo 'make test-windows   cross-build vexakrn.dll and run the tests under Wine'
	@echo 'make test-asan, make test-tsan   the same tests under the sanitizers'
	@echo 'make check       format, lint, layering, exports, public headers'
	@echo 'make bench       measure; make bench-peers adds the libraries to compare with'
	@echo 'make fuzz        run the fuzz targets, TIME=30 seconds each'
	@echo 'make install     install to PREFIX=/usr/local'

build/:
	@mkdir -p build

build: | build/
	$(bootstrap) build tools test
	$(call build,release)

demo: | build/
	$(bootstrap) build tools test
	$(call build,release,vexakrn vexa vexa_gallery)
	@BUILD=build/release scripts/demo $(if $(BIG),--big)

test: build
	@scripts/run-tests release

test-windows: | build/
	$(bootstrap) build tools test cross windows
	$(call build,windows)
	@scripts/wine-prefix build/windows/wine
	@scripts/run-tests windows

test-asan: | build/
	$(bootstrap) build tools test
	$(call build,asan)
	@scripts/run-tests asan

test-tsan: | build/
	$(bootstrap) build test
	$(call build,tsan)
	@scripts/run-tests tsan

check: build
	$(bootstrap) check cross
	@scripts/check/all $(CHECK)

bench: | build/
	$(bootstrap) build bench
	$(call build,bench)
	@bench/run

bench-peers:
	$(bootstrap) bench-peers
	@$(MAKE) --no-print-directory bench

fuzz:
	$(bootstrap) build fuzz
	@fuzz/run $(TIME)

install: | build/
	$(bootstrap) build tools test
	$(call build,release,vexakrn vexa)
	@cmake --install build/release --prefix "$(PREFIX)"

clean:
	rm -rf build out
