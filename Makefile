# Everything a developer does here. Each target sets up what it needs by itself, in $(VENV) and
# build/ only; nothing else on the machine changes. Start with `make help`.

PYTHON ?= python3
VENV ?= .venv
BUILD ?= build/release
DEBUG ?= build/debug
FAULTS ?= build/faults
DATABASE ?= sqlite
QUICK ?=
ALL ?=
SAMPLE ?=
SANITIZE ?=
WITH_DEBUG ?=
FUZZ_SECONDS ?= 60
ARGS ?=
SKIP ?=
JOBS ?=
PYTHONHASHSEED ?= random
REPORT ?= 1
SOURCE ?=

PY := $(VENV)/bin/python
# What the tests run under: dev mode (debug allocator, resource warnings), warnings are errors.
STRICT := $(PY) -X dev -W error
# With JOBS=2, two processes share the tests, each file as a whole. They do not inherit the options.
WORKERS := $(if $(JOBS),--dist loadfile --no-loadscope-reorder \
    --tx '$(JOBS)*popen//python=$(abspath $(PY)) -X dev -W error')
PYTEST := $(STRICT) -m pytest $(WORKERS)
SITE = $$($(PY) -c 'import sysconfig; print(sysconfig.get_path("platlib"))')
STAMPS := $(VENV)/.installed
# A server's database is gone when the demo ends: there is none to make a page of.
PAGE := $(filter sqlite,$(DATABASE))
WRITE_PAGE = PYTHONPATH="$(CURDIR)/report/src:$(CURDIR)/examples/client" $(PY) -m kestrune_search_report page

CXX_FILES := $(shell find search_analytics -name '*.cpp' 2>/dev/null | sort)
CXX_HEADERS := $(shell find search_analytics -name '*.h' 2>/dev/null | sort)
CXX_TOOLS := $(shell find tools -name '*.cpp' -o -name '*.h' 2>/dev/null | sort)

# CMake, ninja and the compilers' helpers come from the virtual environment.
export PATH := $(abspath $(VENV)/bin):$(PATH)
export PIP_DISABLE_PIP_VERSION_CHECK := 1

# Sets iterate in another order in every run; the tests print the seed that repeats it.
HASH_SEED := $(patsubst random,$(shell od -An -N4 -tu4 /dev/urandom | tr -d ' '),$(PYTHONHASHSEED))
test testreport sanitize debug leaks coverage: export PYTHONHASHSEED := $(HASH_SEED)

.DEFAULT_GOAL := help
.DELETE_ON_ERROR:
MAKEFLAGS += --no-builtin-rules --no-print-directory

##@ Use
.PHONY: help
help: ## list the targets
	@awk 'BEGIN {FS = ":.*## "} /^##@/ {printf "\n%s\n", substr($$0, 5)} \
	    /^[a-z]+:.*## / {printf "  make %-12s %s\n", $$1, $$2}' $(MAKEFILE_LIST)
	@printf '\nOptions: PYTHON=python3.12 (interpreter), VENV=folder, ARGS="-k name" (for pytest)\n\n'

.PHONY: demo
demo: build $(STAMPS)/demo ## run a real search, ask all questions, write a page (DATABASE=postgres: on a server)
	@$(PY) examples/search_demo.py --database $(DATABASE) $(if $(PAGE),--keep build/demo)
	@$(if $(PAGE),$(MAKE) build/demo/report.html || echo "make demo: no page was written.")
	@echo "make demo: built $(BUILD), installed it into $(VENV), ran examples/search_demo.py on $(DATABASE)."

.PHONY: report
report: build $(STAMPS)/page ## write the page of a search of your own (SOURCE=folder or file)
	$(if $(SOURCE),,$(error make report needs SOURCE: a data folder, a CSV or Parquet file, an Optuna storage))
	@$(WRITE_PAGE) "$(SOURCE)" $(ARGS)

.PHONY: build
build: $(BUILD)/build.ninja ## build the extension and install it into the virtual environment
	@MAKEFLAGS= cmake --build $(BUILD)
	@cmake --install $(BUILD) --prefix "$(SITE)" > /dev/null

##@ Check
.PHONY: test
test: build $(STAMPS)/test ## run the whole test suite in dev mode (REPORT=: without the report's)
	@$(PYTEST) $(ARGS)
	@$(if $(ARGS),,$(if $(REPORT),$(MAKE) testreport))
	@echo "make test: built $(BUILD), installed it into $(VENV), ran the tests with $$($(PY) --version)."

.PHONY: testreport
testreport: build $(STAMPS)/report ## run the tests of the report beside the module
	@PYTHONPATH="$(CURDIR)/report/src" $(PYTEST) -c report/pyproject.toml --rootdir report \
	    $(or $(ARGS),report/tests)
	@echo "make testreport: ran the tests of the report with $$($(PY) --version)."


.PHONY: check
check: ## do what CI does: tests, lint, sanitizers, random programs, assertions, faults, other CPythons
	@.ci/run

.PHONY: interpreters
interpreters: $(STAMPS)/venv ## get the CPythons that this machine lacks from Debian (WITH_DEBUG=1: debug builds, too)
	@$(PY) tools/interpreters.py $(if $(WITH_DEBUG),--debug)

.PHONY: matrix
matrix: $(STAMPS)/venv ## run the tests on every CPython found (SKIP=3.11 leaves one out)
	@$(PY) tools/find_pythons.py --skip "$(SKIP)" > build/pythons.txt
	@failed=; while read -r version python; do \
	    echo "== CPython $$version: $$python"; \
	    $(MAKE) test REPORT= PYTHON="$$python" VENV="build/matrix/$$version/venv" \
	        BUILD="build/matrix/$$version/release" < /dev/null && \
	    $(MAKE) debug ARGS=tests/records PYTHON="$$python" VENV="build/matrix/$$version/venv" \
	        DEBUG="build/matrix/$$version/debug" < /dev/null || failed="$$failed $$version"; \
	done < build/pythons.txt; \
	if [ -n "$$failed" ]; then echo "make matrix: tests failed on CPython$$failed."; exit 1; fi
	@echo "make matrix: tests passed on CPython $$(cut -d' ' -f1 build/pythons.txt | xargs)."

.PHONY: lint
lint: build $(STAMPS)/lint $(STAMPS)/report $(CXX_FILES:%.cpp=$(BUILD)/tidy/%.ok) ## check the style of C++ and Python, and the type stub
	@clang-format --dry-run -Werror $(CXX_FILES) $(CXX_HEADERS) $(CXX_TOOLS)
	@ruff check
	@ruff format --check
	@$(PY) -m mypy.stubtest kestrune.search_analytics --mypy-config-file pyproject.toml
	@$(PY) -m mypy --config-file report/pyproject.toml report/src
	@echo "make lint: clang-format, clang-tidy, ruff, stubtest and mypy have nothing to say."

.PHONY: format
format: $(STAMPS)/lint ## rewrite C++ and Python in the house style
	@clang-format -i $(CXX_FILES) $(CXX_HEADERS) $(CXX_TOOLS)
	@ruff check --fix --quiet
	@ruff format

# The sanitizer's library has to be there before the interpreter starts, and the C++ library with
# it, or it cannot see exceptions. What counts blocks means nothing without pymalloc.
SANITIZED = LD_PRELOAD="$$(c++ -print-file-name=libasan.so) $$(c++ -print-file-name=libstdc++.so.6)" \
	    ASAN_OPTIONS=detect_leaks=0:abort_on_error=1 \
	    UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
	    PYTHONMALLOC=malloc PYTHONPATH="$(CURDIR)/build/asan/site"
BUILD_SANITIZED = MAKEFLAGS= cmake --build build/asan && \
	    cmake --install build/asan --prefix build/asan/site > /dev/null

.PHONY: sanitize
sanitize: build/asan/build.ninja $(STAMPS)/test ## run the tests on a build that checks addresses and undefined behaviour
	@$(BUILD_SANITIZED)
	@export $(SANITIZED); \
	$(STRICT) -c 'import kestrune.search_analytics as s; assert "/asan/" in s.__spec__.origin' && \
	$(PYTEST) -m "not leaks" --ignore=tests/packaging --ignore=tests/lint $(ARGS)
	@echo "make sanitize: ran the tests under the address and undefined-behaviour sanitizers."

.PHONY: debug
debug: $(DEBUG)/build.ninja $(STAMPS)/test ## run the tests of records on a build with assertions
	@MAKEFLAGS= cmake --build $(DEBUG)
	@cmake --install $(DEBUG) --prefix $(DEBUG)/site > /dev/null
	@export PYTHONPATH="$(abspath $(DEBUG))/site"; \
	$(STRICT) -c 'import kestrune.search_analytics as s; assert "/debug/" in s.__spec__.origin' && \
	$(PYTEST) $(or $(ARGS),tests/records tests/tables tests/engine tests/analytics)
	@echo "make debug: ran the tests on a build with assertions, with $$($(PY) --version)."

.PHONY: fuzz
fuzz: $(if $(SANITIZE),build/asan/build.ninja,build) ## run random hostile programs for FUZZ_SECONDS (SANITIZE=1; ARGS="--seed 123" shows one)
	@$(if $(SANITIZE),$(BUILD_SANITIZED))
	@export $(if $(SANITIZE),$(SANITIZED),PYTHONPATH=); PYTHONPATH="$$PYTHONPATH:tests" \
	    $(PY) -m fuzz.run --seconds $(FUZZ_SECONDS) $(ARGS)

.PHONY: leaks
leaks: build $(STAMPS)/test ## repeat every call until its memory blocks settle
	@$(PYTEST) -m leaks $(ARGS)

.PHONY: faults
faults: $(FAULTS)/build.ninja $(STAMPS)/test ## let each call that can fail do so (ARGS=--short: in one operation only)
	@MAKEFLAGS= cmake --build $(FAULTS)
	@cmake --install $(FAULTS) --prefix $(FAULTS)/site > /dev/null
	@$(PY) tools/faults/run.py --site $(FAULTS)/site $(ARGS)
	@echo "make faults: every call that can fail did so, with $$($(PY) --version)."

.PHONY: coverage
coverage: build/coverage/build.ninja $(STAMPS)/test $(STAMPS)/coverage ## show which lines the tests reach
	@MAKEFLAGS= cmake --build build/coverage
	@cmake --install build/coverage --prefix build/coverage/site > /dev/null
	@find build/coverage -name '*.gcda' -delete
	@PYTHONPATH="$(CURDIR)/build/coverage/site" $(STRICT) -m pytest -q \
	    --ignore=tests/packaging --ignore=tests/lint $(ARGS)
	@gcovr --root . --filter search_analytics/ --object-directory build/coverage \
	    --merge-lines --exclude-throw-branches --html-details build/coverage/report.html --txt -
	@echo "make coverage: the report by line is build/coverage/report.html."

# Not part of what CI runs: all of them take a quarter of an hour.
.PHONY: mutants
mutants: $(STAMPS)/build $(STAMPS)/test ## break the sources in hundreds of ways: each has to fail a test (SAMPLE=10: some)
	@$(PY) tools/mutants/run.py $(if $(SAMPLE),--sample $(SAMPLE)) $(ARGS)
	@echo "make mutants: tests noticed all mutants that they can, with $$($(PY) --version)."

# Each interpreter's results are a file in build/bench; the report is made of all that are there.
.PHONY: bench
bench: $(if $(ALL),$(STAMPS)/rivals,measure) ## time the extension on fresh records, beside its rivals (QUICK=1: in a minute; ALL=1: each CPython found)
ifneq ($(ALL),)
	@$(PY) tools/find_pythons.py > build/pythons.txt
	@failed=; while read -r version python; do \
	    echo "== CPython $$version: $$python"; \
	    $(MAKE) measure ALL= PYTHON="$$python" VENV="build/matrix/$$version/venv" \
	        BUILD="build/matrix/$$version/release" < /dev/null || failed="$$failed $$version"; \
	done < build/pythons.txt; \
	if [ -n "$$failed" ]; then echo "make bench: no results of CPython$$failed."; exit 1; fi
endif
	@$(PY) benchmarks/publish.py $(if $(QUICK),--quick)

.PHONY: measure
measure: build $(STAMPS)/rivals ## the part of `make bench` that times one interpreter (PYTHON=, VENV=, BUILD=)
	@$(PY) benchmarks/run.py $(if $(QUICK),--quick) $(ARGS)

.PHONY: instructions
instructions: build ## count the machine instructions of each question (ARGS="--only text"; valgrind)
	@$(PY) benchmarks/instructions.py $(ARGS)

.PHONY: clean
clean: ## remove everything that make made
	@rm -rf build dist $(VENV) .pytest_cache .ruff_cache .mypy_cache .hypothesis
	@find . -name __pycache__ -type d -prune -exec rm -rf {} +

# The virtual environment and its tools; each stamp is as new as the list of what was installed.
$(STAMPS)/venv: tools/check_python.py
	@$(PYTHON) tools/check_python.py
	@echo "Making the virtual environment $(VENV)"
	@$(PYTHON) -m venv $(VENV)
	@mkdir -p $(STAMPS) build
	@touch $@

$(STAMPS)/%: requirements/%.txt $(STAMPS)/venv
	@echo "Installing $<"
	@$(PY) -m pip install --quiet --requirement $<
	@touch $@

$(STAMPS)/demo: examples/requirements.txt $(STAMPS)/venv
	@echo "Installing $<"
	@$(PY) -m pip install --quiet --requirement $<
	@touch $@

build/demo/report.html: build/demo/search_tracking.sqlite3 $(STAMPS)/page
	@$(WRITE_PAGE) $(@D) --pool core=0.7 --pool diverse=0.4 -o $@

# The demo goes on without the page where building this from its sources would take too long.
$(STAMPS)/page: requirements/page.txt $(STAMPS)/venv
	@echo "Installing $<"
	@$(PY) -m pip install --quiet --only-binary :all: --requirement $<
	@touch $@

$(STAMPS)/test: examples/requirements.txt
$(STAMPS)/report: requirements/test.txt requirements/page.txt examples/requirements.txt

# Not all of them are made for every version of CPython. Building one from its sources takes too
# long; what is missing takes no part, and the report names it.
$(STAMPS)/rivals: requirements/rivals.txt examples/requirements.txt $(STAMPS)/venv
	@echo "Installing requirements/rivals.txt, as far as it goes"
	@$(PY) -m pip install --quiet --only-binary :all: -r requirements/rivals.txt \
	    -r examples/requirements.txt 2> build/pip.log || \
	cat requirements/rivals.txt examples/requirements.txt | grep '^[a-z]' | while read -r package; do \
	    $(PY) -m pip install --quiet --only-binary :all: "$$package" < /dev/null 2> build/pip.log || \
	        echo "$$package cannot be installed: $$(tail -n 1 build/pip.log)"; \
	done
	@touch $@

# Build folders; the presets say what each is.
CONFIGURE = cmake --preset $(1) -B $(2) -DPython_EXECUTABLE="$(abspath $(PY))" \
    --log-level=WARNING > /dev/null

$(BUILD)/build.ninja: CMakePresets.json $(STAMPS)/build
	@$(call CONFIGURE,release,$(BUILD))

$(DEBUG)/build.ninja: CMakePresets.json $(STAMPS)/build
	@$(call CONFIGURE,debug,$(DEBUG))

build/asan/build.ninja: CMakePresets.json $(STAMPS)/build
	@$(call CONFIGURE,asan,build/asan)

$(FAULTS)/build.ninja: CMakePresets.json $(STAMPS)/build
	@$(call CONFIGURE,faults,$(FAULTS))

build/coverage/build.ninja: CMakePresets.json $(STAMPS)/build
	@$(call CONFIGURE,coverage,build/coverage)

# One stamp for each file that clang-tidy has passed.
$(BUILD)/tidy/%.ok: %.cpp $(CXX_HEADERS) .clang-tidy $(STAMPS)/lint | $(BUILD)/build.ninja
	@echo "clang-tidy $<"
	@clang-tidy --quiet -p $(BUILD) --extra-arg=-Wno-error $< 2> $(BUILD)/tidy.log || { cat $(BUILD)/tidy.log; exit 1; }
	@mkdir -p $(@D) && touch $@
