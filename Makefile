# Every target installs what it lacks (Debian packages), configures and builds by itself.
.PHONY: build demo test sanitize bench certify cost gallery install packages

JOBS ?= 2

packages:
	@tools/install_packages.sh

build: packages
	@cmake --preset release >build.log 2>&1 || { cat build.log; exit 1; }; rm -f build.log
	@cmake --build --preset release -j $(JOBS)

demo: build
	@tools/demo.sh build/release/cmdGauge build/demo

test: build
	@tools/run_tests.sh build/release

sanitize: packages
	@cmake --preset sanitize
	@cmake --build --preset sanitize -j $(JOBS)
	@tools/run_tests.sh build/sanitize

bench: build
	@set -e; for program in build/release/*_bench; do $$program; done

certify: build
	@tools/certify.sh build/release/cmdGauge build/certify

cost: build
	@tools/cost_table.py build/release/cmdGauge >build/cost.md
	@mv build/cost.md docs/cost.md

gallery: build
	@tools/gallery.py -synthesis build/release/cmdGauge build/gallery

install: build
	@cmake --install build/release
